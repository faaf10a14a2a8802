// The compiled-in naming images and the device name grammar queries.
//
// Two zlib-compressed images are compiled into the library: the grammar image
// (eight tables relating a device's name forms) and the OPN image (the part
// number of every ordering part number, indexed by OPN enum). Both share one
// frame: the magic "MOXDEV_DDB", a body, and a CRC-32/BZIP2 of everything
// before it, stored low byte first. They are decoded and checked on the first
// query that needs them and kept for the life of the process.
#pragma once

#include "host/host_types.h"

#include <array>
#include <map>
#include <string>
#include <vector>

// The grammar tables, in image order.
enum class MOXDEV_DDB_GRAMMAR_ENUM : DWORD {
    SPEEDGRADE, // name without speed grade -> full ordering names
    PACKAGE,    // device name -> names with package
    MOX_PART,   // programmer part name -> device names (and their ordering names)
    MOX_FAMILY, // programmer family key -> device names
    DEV_PART,   // programmer part name -> catalogue part configuration names
    DEV_FAMILY, // programmer family key -> catalogue part configuration names
    PCF_FAMILY, // programmer family key -> family configuration names
    FAMILY,     // user-visible family name -> names of that family
    MAX
};

// Compiled-in images (generated at build time from the device catalogue).
extern const BYTE MOXDDB_GRAMMAR_DATA[];
extern const DWORD MOXDDB_GRAMMAR_CMP_LENGTH;
extern const DWORD MOXDDB_GRAMMAR_LENGTH;
extern const BYTE MOXDDB_OPN_DATA[];
extern const DWORD MOXDDB_OPN_CMP_LENGTH;
extern const DWORD MOXDDB_OPN_LENGTH;

// The eight tables, indexed by MOXDEV_DDB_GRAMMAR_ENUM: key -> names in image
// order; keys in byte order.
using MOXDEV_GRAMMAR_TABLES = std::array<std::map<std::string, std::vector<std::string>>, 8>;

// Decode an image of `cmp_length` compressed bytes that inflates to exactly
// `length` bytes, with every check of the compiled-in images; a damaged image
// is an internal error.
MOXDEV_GRAMMAR_TABLES moxdev_decode_grammar_image(const BYTE* data, DWORD cmp_length, DWORD length);
std::vector<DWORD> moxdev_decode_opn_image(const BYTE* data, DWORD cmp_length, DWORD length);

// Translations between a device's name forms through the grammar tables.
//
// Every query trims and upper-cases the name it is given, in place: the
// caller's string comes back normalised although it is passed as a constant
// reference. Callers rely on this.
class MOXDEV_DEVICE_GRAMMAR_MGR {
public:
    MOXDEV_DEVICE_GRAMMAR_MGR& operator=(const MOXDEV_DEVICE_GRAMMAR_MGR&) { return *this; }
    MOXDEV_DEVICE_GRAMMAR_MGR& operator=(MOXDEV_DEVICE_GRAMMAR_MGR&&) { return *this; }

    // The name without speed grade (KX100F484C6 -> KX100F484); the name
    // itself when unknown, unless no_fallback.
    static std::string get_package_name(const std::string& name, bool no_fallback);
    // The device name (KX100F484 or KX100F484C6 -> KX100).
    static std::string get_mox_name(const std::string& name, bool skip_package_conversion, bool no_fallback);
    // The user-visible family name, or "".
    static std::string get_family(const std::string& name);
    // The first catalogue part configuration name of a programmer part name.
    static std::string get_pcf_device(const std::string& name);

    // The key of the table that lists `name`, or "".
    static std::string get_mox_part_pcf(const std::string& name);
    static std::string get_mox_family_pcf(const std::string& name);
    static std::string get_dev_part_pcf(const std::string& name);
    static std::string get_dev_family_pcf(const std::string& name);
    static std::string get_pcf_family_pcf(const std::string& name);

    static void get_mox_pcfs(const std::string& name, std::string& part_pcf, std::string& family_pcf);
    static void get_dev_pcfs(const std::string& name, std::string& part_pcf, std::string& family_pcf);

    // Whether a name must be used whole / is already the device name.
    static bool use_full_name(const std::string& name);
    static bool use_package_name(const std::string& name);
};
