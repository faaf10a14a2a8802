// Internal-error checks of the library.
//
// MOXDEV_ASSERT reports the failed expression's own text; MOXDEV_ASSERT_MSG
// reports a fixed message instead. Both name the module "MOXDEV", the source
// unit (the file name without extension) and the line, and do not return on
// failure. The condition is evaluated exactly once.
#pragma once

#include "host/msg.h"

#define MOXDEV_MODULE "MOXDEV"

#define MOXDEV_ASSERT_MSG(condition, message)                                                   \
    do {                                                                                        \
        if (!(condition))                                                                       \
            ::MSG_INTERNAL_ERROR::report((message), MOXDEV_MODULE, __FILE__, __LINE__);         \
    } while (0)

#define MOXDEV_ASSERT(condition) MOXDEV_ASSERT_MSG(condition, #condition)

#define MOXDEV_FAIL(message) ::MSG_INTERNAL_ERROR::report((message), MOXDEV_MODULE, __FILE__, __LINE__)
