// The questions that define a user flash chip, shared by the flash manager's
// one-chance dialogue (gen_flash_ini) and the project's forgiving one
// (moxdev::define_user_flash): one list, so both ask the same things with the
// same ranges, in the order of the record's fields.
#pragma once

#include "host/host_types.h"

#include <cstddef>

namespace moxdev::detail {

enum class FLASH_ANSWER {
    NAME,         // text of 1 to 19 characters
    HEX,          // a number, read as hexadecimal
    DECIMAL,      // a number
    YES_NO,       // Y or N
    POWER_OF_TWO, // a number that is a power of two
};

struct FLASH_QUESTION {
    const char* prompt;          // as gen_flash_ini asks it
    const char* friendly_prompt; // as define_user_flash asks it; null: the same
    FLASH_ANSWER kind;
    DWORD minimum;
    DWORD maximum;
    // The field may be "not used": gen_flash_ini takes "-1" for it, the
    // friendly dialogue "none", "-1" or 255 (hex FF), and stores 255.
    bool unused_allowed;
};

// Answers in question order.
enum FLASH_QUESTION_INDEX : std::size_t {
    Q_MANUFACTURER,
    Q_DEVICE,
    Q_MEMORY_ID,
    Q_MEMORY_ID_INDEX,
    Q_MEMORY_TYPE,
    Q_MEMORY_TYPE_INDEX,
    Q_MFC_ID,
    Q_MFC_ID_INDEX,
    Q_EXTENDED,
    Q_MICRON,
    Q_SPANSION,
    Q_PROTECTED,
    Q_AAI,
    Q_FLAG_STATUS,
    Q_DIE_COUNT,
    Q_DENSITY,
    Q_SECTOR,
    Q_BULK_ERASE,
    Q_SECTOR_ERASE,
    Q_PAGE_PROGRAM,
    Q_MASK,
    Q_VALUE,
    Q_UNPROTECT,
    Q_DIVISOR,
    Q_BOTTOM,
    Q_SDM,
    Q_VOLTAGE,
    FLASH_QUESTION_COUNT
};

inline constexpr FLASH_QUESTION FLASH_QUESTIONS[FLASH_QUESTION_COUNT] = {
    {"Manufacture Name : ", nullptr, FLASH_ANSWER::NAME, 1, 19, false},
    {"Device Name : ", nullptr, FLASH_ANSWER::NAME, 1, 19, false},
    {"Memory ID (hex) [1 - FE] : ", nullptr, FLASH_ANSWER::HEX, 1, 0xFE, false},
    {"Memory ID Index [0/1/2] : ", nullptr, FLASH_ANSWER::DECIMAL, 0, 2, false},
    {"Memory Type (hex) [0 - FF] : ", nullptr, FLASH_ANSWER::HEX, 0, 0xFF, false},
    {"Memory Type Index [-1/0/1/2] : ", "Memory Type Index [0/1/2, or 255 when the ID has no type byte] : ",
     FLASH_ANSWER::DECIMAL, 0, 2, true},
    {"Manufacturer ID (hex) [1 - FE] : ", nullptr, FLASH_ANSWER::HEX, 1, 0xFE, false},
    {"Manufacturer ID Index [0/1/2] : ", nullptr, FLASH_ANSWER::DECIMAL, 0, 2, false},
    {"Support Extended Mode [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"Micron flow [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"Spansion flow [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"Protected after power-up [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"Is AAI mode [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"Read flag status [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"Die count [1/2] : ", nullptr, FLASH_ANSWER::DECIMAL, 1, 2, false},
    {"Memory Density [1 - 2048 Mbit] : ", nullptr, FLASH_ANSWER::POWER_OF_TWO, 1, 2048, false},
    {"Sector Size [1 - 1024 Kbyte] : ", nullptr, FLASH_ANSWER::POWER_OF_TWO, 1, 1024, false},
    {"Bulk Erase time [1 - 900 seconds] : ", nullptr, FLASH_ANSWER::DECIMAL, 1, 900, false},
    {"Sector Erase Time [1 - 60 seconds] : ", nullptr, FLASH_ANSWER::DECIMAL, 1, 60, false},
    {"Page Program Time [1000 - 1000000 microseconds] : ", nullptr, FLASH_ANSWER::DECIMAL, 1000, 1000000, false},
    {"Protection Mask (hex) [0 - FF] : ", nullptr, FLASH_ANSWER::HEX, 0, 0xFF, false},
    {"Protection Value (hex) [0 - FF] : ", nullptr, FLASH_ANSWER::HEX, 0, 0xFF, false},
    {"Unprotect Value (hex) [0 - FF] : ", nullptr, FLASH_ANSWER::HEX, 0, 0xFF, false},
    {"Protection Divisor (hex) [-1/3 - 20] : ", "Protection Divisor (hex) [3 - 20, or FF for none] : ",
     FLASH_ANSWER::HEX, 3, 0x20, true},
    {"Bottom Value (bit location) [-1/0 - 7] : ", "Bottom Value (bit location) [0 - 7, or 255 for none] : ",
     FLASH_ANSWER::DECIMAL, 0, 7, true},
    {"SDM Support [Y/N] : ", nullptr, FLASH_ANSWER::YES_NO, 0, 1, false},
    {"AS Configuration Voltage : ", nullptr, FLASH_ANSWER::NAME, 1, 19, false},
};

// The count question of both dialogues.
inline constexpr const char* FLASH_COUNT_PROMPT = "Number of 3rd party flash to define (max 3) : ";
inline constexpr DWORD MAX_USER_FLASH_CHIPS = 3;

// The densities above 128 Mbit need 4-byte addresses.
inline constexpr DWORD FOUR_BYTE_ADDRESS_BITS = 0x8000001;
// The maker's code that every chip defined outside the table carries (by the
// dialogues, or derived from its SFDP read).
inline constexpr BYTE USER_FLASH_VELMAR_ID = 32;

} // namespace moxdev::detail
