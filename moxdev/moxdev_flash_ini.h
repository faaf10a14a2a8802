// Typed flash parameters, their text forms with validation, and the small
// binary container of user parameter sets beside the library.
//
// A record type that carries parameters keeps, next to its fields, an array
// of untyped pointers to them in field order and a constant array of their
// types; records are packed into a data set parameter by parameter, with no
// tags, and the user's data sets live in "mox_flash.ini" in the library's
// directory (a binary file despite its name).
#pragma once

#include "host/host_types.h"

#include <string>
#include <vector>

enum MOXDEV_PARAM_TYPE : DWORD {
    MOXDEV_PARAM_STRING = 1, // std::string; packed NUL-terminated
    MOXDEV_PARAM_BOOL = 2,   // one byte, 0 or 1
    MOXDEV_PARAM_BYTE = 3,
    MOXDEV_PARAM_WORD = 4,
    MOXDEV_PARAM_DWORD = 5,
    MOXDEV_PARAM_QWORD = 6,
};

// The data sets of the container.
enum MOXDEV_FLASH_INI_ENUM : DWORD {
    MOXDEV_FLASH_INI_SET_0 = 0,    // kept as it is by every rewrite
    MOXDEV_FLASH_INI_HPS_SPI = 1,  // user HPS SPI flash records
    MOXDEV_FLASH_INI_HPS_NAND = 2, // user HPS NAND flash records
};

class MOXDEV_FLASH_INI {
public:
    MOXDEV_FLASH_INI& operator=(const MOXDEV_FLASH_INI&) { return *this; }
    MOXDEV_FLASH_INI& operator=(MOXDEV_FLASH_INI&&) { return *this; }

    // ------------------------------------------------------------ text
    // Upper-case hex, exactly `count` digits (the low ones), "0x" first when
    // `prefix`.
    static std::string convert_qword_to_hex_string(QWORD value, DWORD count, bool prefix);
    static std::string convert_dword_to_hex_string(DWORD value, DWORD count, bool prefix);
    static std::string convert_qword_to_string(QWORD value);

    // Decimal, or hex after a leading "0x". A bad character is an internal
    // error without `ok`, otherwise *ok = false and the result 0.
    static QWORD convert_string_to_qword(std::string string, bool no_empty, bool* ok);

    // The validating parse of a user's answer: a number of `type` (hex when
    // asked; "-1" is the type's maximum), optionally a power of two, within a
    // range list, outside a hit list, then scaled (shifted or multiplied).
    // False with a readable message in `error` when the answer is refused.
    static bool convert_string_to_qword(MOXDEV_PARAM_TYPE type, QWORD& value, bool hex, std::string string,
                                        bool power_of_2, const DWORD* range_list, const DWORD* hit_list, bool shift,
                                        DWORD multiple, std::string& error);

    // The text of one parameter.
    static std::string print_flash_ini_data(MOXDEV_PARAM_TYPE type, bool hex, void* value);

    // ------------------------------------------------------------ container
    // A copy of one data set (new[], the caller frees it), or null when the
    // file or the set is missing or the file is damaged.
    static BYTE* read_flash_ini_data(MOXDEV_FLASH_INI_ENUM set, DWORD& size);
    // Replaces one data set, keeping the others; size 0 with null data
    // removes it. The file is rewritten in place, without a lock: true once
    // it could be opened for writing. moxdev::update_parameter_set()
    // (moxdev/parameter_file.h) is the safe update for concurrent writers.
    static bool write_flash_ini_data(MOXDEV_FLASH_INI_ENUM set, BYTE* data, DWORD size);

    // ------------------------------------------------------------ packing
    static void calculate_flash_ini_data_size(DWORD& size, MOXDEV_PARAM_TYPE type, void* value);
    // Packs one parameter at data[index]; the buffer must be zero-filled.
    static void fillup_flash_ini_data(BYTE* data, DWORD& index, MOXDEV_PARAM_TYPE type, void* value);
    // Unpacks `count` parameters from data[index] (of `size` bytes) into the
    // variables `values` point to; false when the data end too early.
    static bool assign_flash_ini_data(const BYTE* data, DWORD& index, DWORD size, DWORD count,
                                      const MOXDEV_PARAM_TYPE* types, void** values);
};
