#include "moxdev/hps_documents.h"
