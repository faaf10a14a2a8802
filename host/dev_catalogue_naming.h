// Name forms of the stand-alone device catalogue beyond the display names of
// host/dev_catalogue.h: what the programmer and the device-naming tables call
// a family, a device or a part.
//
// Example, family Kestrel II (identifier KESTREL_II):
//   programmer family key       KX_FAMILY   ("NONE" for families that have no
//                                            programmer configuration)
//   user-visible family name    KXFAMILY2
//   family configuration names  KESTREL2 (some families have more)
//   programming file (pcf)      kestrel2
// device KXB120:
//   programmer part name        KXB100M     (shared by the devices cut from
//                                            one die)
//   part configuration names    KXB120_V1, KXB120_V2
//   programming file (pcf)      kestrel2    (the part list's last column)
// part KXB120F484C6:
//   package F484, 484 pins, speed grade 6, temperature C, no option.
//
// Only real families, devices and parts have name forms: the invalid and the
// Generic values, and values out of range, give empty strings, empty lists
// and false.
#pragma once

#include "host/dev_catalogue.h"

#include <string>
#include <vector>

enum class DEV_FAMILY_STATUS {
    PRODUCTION,
    OBSOLETE, // no longer sold; filter_part_list's current_only drops its parts
    PREVIEW,  // only engineering samples (option "ES") are sold
};

// The maker named by the catalogue ("Velmar").
std::string dcat_get_maker_name();

// Families.
DEV_FAMILY_STATUS dcat_get_family_status(DEV_FAMILY_ENUM family); // PRODUCTION when not a real family
std::string dcat_get_programmer_family_key(DEV_FAMILY_ENUM family);
std::string dcat_get_user_family_name(DEV_FAMILY_ENUM family);
std::vector<std::string> dcat_get_family_config_names(DEV_FAMILY_ENUM family);
std::string dcat_get_family_pcf(DEV_FAMILY_ENUM family);

// Devices.
std::string dcat_get_programmer_part_name(DEV_DEVICE_ENUM device);
std::vector<std::string> dcat_get_part_config_names(DEV_DEVICE_ENUM device);
// The programming file of the device information record that serves the
// device: its family's, or a special one for a few device groups.
std::string dcat_get_device_pcf(DEV_DEVICE_ENUM device);

// Parts.
struct DEV_PART_ATTRIBUTES {
    std::string package;     // "F484"
    int pin_count = 0;       // 484
    int speed_grade = 0;     // 6
    char temperature = '\0'; // 'C', 'I', 'A' or 'M'
    std::string option;      // "", "N", "ES", ...
    bool engineering_sample = false;
    bool obsolete = false; // the part's family is obsolete
};

// Fills `attributes` and returns true for a real part; returns false and
// leaves `attributes` untouched otherwise.
bool dcat_get_part_attributes(int part, DEV_PART_ATTRIBUTES& attributes);
// The part's name without speed grade, temperature and option: device and
// package ("KXB120F484").
std::string dcat_get_part_package_name(int part);
