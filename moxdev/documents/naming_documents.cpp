#include "moxdev/naming_documents.h"
