// The project's own functions on the user-defined flash chip: building the
// configuration value MOX_SUPPORT_EXT_SPI_DEV from records, reading a value
// back as the flash manager would, and a definition dialogue for people.
//
// The flash manager's documented dialogue (gen_flash_ini) gives one chance per
// answer and writes an unused index as "-1", which the manager's own loader
// then refuses. define_user_flash() explains a refused answer and asks again,
// takes "none" for an unused field and stores 255, which the loader accepts,
// and returns the value instead of printing it.
#pragma once

#include "moxdev/moxdev_flash_manager.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace moxdev {

// The one rule for the names a user flash definition carries (maker and
// device): 1 to USER_FLASH_NAME_MOST printable characters, none of '@', '#'
// or ';' (they separate the value's parts). Why `name` breaks it, or "".
inline constexpr std::size_t USER_FLASH_NAME_MOST = 19;
std::string user_flash_name_problem(const std::string& name);

// The one rule for a flash chip's configuration voltage, as the flash table
// writes it: "3.3V" or "1.8V" ("3.3", "1.8v" are read so). The written form,
// or "" when `typed` is neither.
std::string flash_voltage(const std::string& typed);

// The value that defines `records` (one to three) as user flash chips, in the
// form the flash manager decodes; the manager uses the first. Empty, with
// the reason in `error`, when a name breaks user_flash_name_problem(), the
// voltage is not flash_voltage()'s, or another text is empty, longer than 255
// characters or holds '@', '#' or ';'.
std::string user_flash_value(const std::vector<MOXDEV_SFL_FLASH_INFO>& records, std::string* error = nullptr);
std::string user_flash_value(const MOXDEV_SFL_FLASH_INFO& record, std::string* error = nullptr);

// A value read back the way the flash manager reads it when it loads.
struct USER_FLASH_CONTENT {
    std::string decoded;          // the whole text
    std::string definition;       // the first chip's fields, '@'-separated
    std::string check_value;      // its 16 check letters
    MOXDEV_SFL_FLASH_INFO record; // the fields that converted, in order
    bool fields_valid = false;    // every field converted
    bool check_matches = false;   // the check value is this version's
    bool more_chips = false;      // further chips follow (the manager ignores them)

    // Whether the manager takes the first chip as its user record: every
    // field converts, the check value matches, and it has a device name (a
    // record without one stands for no user flash at all).
    bool accepted() const { return fields_valid && check_matches && !record.device_name.empty(); }
};

// Decodes `value`. False, with the reason in `error`, when it does not
// decode or has no check value; otherwise `content` says whether the flash
// manager accepts it and why not.
bool read_user_flash_value(const std::string& value, USER_FLASH_CONTENT& content, std::string& error);

// The chips a person defined, and the value that carries them.
struct USER_FLASH_DEFINITION {
    std::vector<MOXDEV_SFL_FLASH_INFO> chips;
    std::string value;
};

// Asks on `out` and reads the answers line by line from `in`: the number of
// chips, then each chip's questions. A refused answer is explained and asked
// again; answers are trimmed; a name may not hold '@', '#' or ';'; the three
// ID byte positions must differ. False, with the reason in `error`, when the
// answers end before the last question.
// With `echo` each answer is written after its prompt, for answers that do
// not come from a terminal.
bool define_user_flash(std::istream& in, std::ostream& out, USER_FLASH_DEFINITION& definition, std::string& error,
                       bool echo = false);

} // namespace moxdev
