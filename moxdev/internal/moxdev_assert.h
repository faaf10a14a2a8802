// Internal-error checks of the library.
//
// MOXDEV_ASSERT reports the failed expression's own text; MOXDEV_ASSERT_MSG
// reports a fixed message instead. Both name the module "MOXDEV", the source
// unit and the line, and do not return on failure. The condition is evaluated
// exactly once.
//
// The unit is the class's unit, not the file's: a class whose code is spread
// over several files (the flash manager's generator and dialogue, say)
// reports every fault as "moxdev_flash_manager", the name clients see in
// MSG_INTERNAL_ERROR::unit(). Each source file therefore declares the unit it
// belongs to before it uses these macros:
//
//     static constexpr const char* MOXDEV_UNIT = "moxdev_flash_manager";
//
// and a file that forgets it does not compile.
//
// MOXDEV_ASSERT reports its expression as written, blanks included: where the
// reported text must keep a spelling that the formatter would change
// ("data[data_size-4]"), the check is written with MOXDEV_ASSERT_MSG and the
// text itself.
#pragma once

#include "host/msg.h"

#define MOXDEV_MODULE "MOXDEV"

#define MOXDEV_ASSERT_MSG(condition, message)                                                                          \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            ::MSG_INTERNAL_ERROR::report((message), MOXDEV_MODULE, MOXDEV_UNIT, __LINE__);                             \
    } while (0)

#define MOXDEV_ASSERT(condition) MOXDEV_ASSERT_MSG(condition, #condition)

#define MOXDEV_FAIL(message) ::MSG_INTERNAL_ERROR::report((message), MOXDEV_MODULE, MOXDEV_UNIT, __LINE__)
