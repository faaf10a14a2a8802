// Ordering part numbers, part name resolution and the type-support checks.
//
// An ordering part number (OPN) is the full name under which a device is
// ordered (KX100F484C6). It has two compact identities: its OPN enum, the
// index of its part in the compiled-in OPN table, and its OPN hash, the low 48
// bits of the SHA-256 of the upper-cased name.
#pragma once

#include "host/host_types.h"

#include <string>

// The four programmer object kinds whose value names can be checked.
enum MOX_ENUM_TYPE {
    MOX_ENUM_TYPE_BLOCK = 0,        // routing and logic block types
    MOX_ENUM_TYPE_FLASH_SECTOR = 1, // user and configuration flash sectors
    MOX_ENUM_TYPE_OPTION_BIT = 2,   // security and option bits
    MOX_ENUM_TYPE_HPS_SETTING = 3,  // processor-system settings and file errors
    MOX_ENUM_TYPE_MAX = 4
};

class MOXDEV_MGR {
public:
    // ------------------------------------------------------------ OPNs
    // The OPN of an OPN enum, upper case; "" when there is none.
    static std::string get_opn(DWORD opn_enum);
    // The OPN enum of a catalogue part name; 0xFFFFFFFF when there is none.
    static DWORD get_opn_enum(std::string name);
    // The 48-bit hash of a catalogue part name; all ones when the name is not
    // a usable part.
    static QWORD get_opn_hash(std::string name);
    // The OPN whose hash has these low 48 bits; "" when none has.
    static std::string get_opn_from_hash(QWORD hash);

    // ------------------------------------------------------------ parts
    // A part of the device, by the catalogue's search passes; "" if none.
    static std::string get_part_name_from_dev(std::string device_name);
    // The first part whose programmer part name is `pcf_name`; "" if none.
    static std::string get_part_name_from_pcf(std::string pcf_name);
    // The full ordering name a full, package or device name stands for; a
    // name that stands for none is an internal error.
    static std::string get_possible_full_name(std::string name);
    // The same, "" for a name that stands for none (a user's typing).
    static std::string find_possible_full_name(std::string name);

    // ------------------------------------------------------------ types
    static bool mox_check_type_enum_supported(MOX_ENUM_TYPE type, DWORD value, std::string* name_out);
    static bool mox_check_type_name_supported(MOX_ENUM_TYPE type, std::string name, DWORD* value_out);
};
