#include "moxdev/flash_documents.h"
