// Internal: the arrays behind the stand-alone device catalogue.
//
// tools/generators/gen_catalogue writes their definitions (dev_catalogue_data.cpp in the
// generated tree) from data/catalogue.txt; host/dev_catalogue.cpp is their
// only reader. Everything is constant-initialised plain data, so nothing runs
// at static-initialisation time.
#pragma once

#include "host/dev_catalogue.h"

#include <cstdint>

namespace dev_catalogue_data {

enum FAMILY_STATUS : std::uint8_t {
    STATUS_PRODUCTION = 0,
    STATUS_OBSOLETE = 1,
    STATUS_PREVIEW = 2, // every part is an engineering sample
};

// Index DEV_FAMILY_ENUM. Entry 0 is INVALID and the last entry GENERIC; both
// have empty name forms apart from identifier and display name.
struct FAMILY_RECORD {
    const char* identifier;     // "KESTREL_II"
    const char* display;        // "Kestrel II"
    const char* programmer_key; // "KX_FAMILY", or "NONE"
    const char* user_name;      // "KXFAMILY2"
    const char* pcf;            // "kestrel2"
    std::uint16_t first_config; // index into FAMILY_CONFIG_NAMES
    std::uint8_t config_count;
    std::uint8_t status; // FAMILY_STATUS
};

// Index DEV_DEVICE_ENUM. Entry 0 is the invalid device ("Invalid") and the
// last entry the Generic device ("Generic"), both without name forms.
struct DEVICE_RECORD {
    const char* name;            // "KXB100"
    const char* programmer_part; // "KXB100M"
    const char* pcf;             // programming file of the record serving it
    std::uint16_t family;        // DEV_FAMILY_ENUM
    std::uint16_t first_config;  // index into PART_CONFIG_NAMES
    std::uint8_t config_count;
};

struct PACKAGE_RECORD {
    const char* code; // "F484"
    std::uint16_t pins;
};

// Index part number. Entry 0 is the invalid part ("Invalid") and entry
// DEV_PART_GENERIC the Generic part ("Generic", device DEV_DEVICE_GENERIC).
struct PART_RECORD {
    const char* name;      // "KXB100F484C6"
    std::uint16_t device;  // DEV_DEVICE_ENUM
    std::uint16_t package; // index into PACKAGES
    std::uint8_t speed;    // speed grade
    char temperature;      // 'C', 'I', 'A' or 'M'
    std::uint8_t option;   // index into OPTIONS; 0 = no option
};

extern const char MAKER_NAME[];

extern const PACKAGE_RECORD PACKAGES[];
extern const int PACKAGE_COUNT;

// OPTIONS[0] is "" (no option).
extern const char* const OPTIONS[];
extern const int OPTION_COUNT;
extern const int OPTION_ENGINEERING_SAMPLE;

extern const char* const FAMILY_CONFIG_NAMES[];
extern const char* const PART_CONFIG_NAMES[];

extern const FAMILY_RECORD FAMILIES[DEV_FAMILY_MAX];
extern const DEVICE_RECORD DEVICES[DEV_DEVICE_MAX];

// PART_COUNT == DEV_PART_MAX.
extern const PART_RECORD PARTS[];
extern const int PART_COUNT;

} // namespace dev_catalogue_data
