// Placeholder until the tests land.
#include "test_support.h"
