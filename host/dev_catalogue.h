// The stand-alone device catalogue: families, devices and orderable parts by
// enumeration value, their names, and the part manager that filters parts.
//
// The data behind these functions is generated at build time from
// data/catalogue.txt. Family and device enumerations are compile-time enums
// (host/dev_catalogue_enums.h, generated); part numbers are plain ints whose
// bounds are read at run time, as a host catalogue that grows between builds
// of its clients would require.
#pragma once

#include "host/dev_catalogue_enums.h"
#include "host/host_types.h"

#include <string>
#include <vector>

// Part number bounds. Part 0 is invalid; DEV_PART_GENERIC stands for "any
// part"; a few late parts are numbered above it; DEV_PART_MAX is one past the
// last part.
extern const int DEV_PART_INVALID;
extern const int DEV_PART_GENERIC;
extern const int DEV_PART_MAX;

// Display names. Families have a readable name ("Kestrel II"), devices their
// device name ("KXB100"), parts their full ordering name ("KXB100F484C6").
// A value out of range gives the empty string.
std::string dstr_get_user_string(int part);
std::string dstr_get_user_string(DEV_DEVICE_ENUM device);
std::string dstr_get_user_string(DEV_FAMILY_ENUM family);

// Name lookups, letter case ignored; the invalid value when unknown.
// Parts and devices are found by their display name (= identifier).
// Families are found by identifier ("KESTREL_II") or display name ("Kestrel II").
int dstr_get_dev_part_enum_by_string(const char* name);
DEV_DEVICE_ENUM dstr_get_dev_device_enum_by_string(const char* name);
DEV_FAMILY_ENUM dstr_get_dev_family_enum_by_string(const char* name);

// Families and devices: true from 1 up to and including the Generic value.
// Parts: true from 1 up to DEV_PART_MAX - 1 (the late parts above Generic
// included).
bool dstr_is_valid_dev_device_enum(DEV_DEVICE_ENUM device);
bool dstr_is_valid_dev_family_enum(DEV_FAMILY_ENUM family);
bool dstr_is_valid_dev_part_enum(int part);

// Catalogue identifiers, as the device information table names them:
// "INVALID", "GENERIC", otherwise the upper-case identifier ("KESTREL_II",
// "KXB100", "KXB100F484C6"). Out of range gives the empty string.
std::string dstr_get_identifier(DEV_FAMILY_ENUM family);
std::string dstr_get_identifier(DEV_DEVICE_ENUM device);
std::string dstr_get_part_identifier(int part);

// Relations between the three kinds of values.
class DEV_PART_MANAGER {
public:
    DEV_PART_MANAGER() = default;

    // DEV_DEVICE_INVALID / DEV_FAMILY_INVALID for values out of range.
    DEV_DEVICE_ENUM get_device_of(int part) const;
    DEV_FAMILY_ENUM get_family_of(DEV_DEVICE_ENUM device) const;

    // Fills `parts` (cleared first) with the parts, in ascending part number,
    // that pass every filter. Each string filter matches all when it is "ANY"
    // or "any" (any letter case) and is otherwise compared ignoring case:
    //   family       family identifier or display name
    //   package      package code ("F484")
    //   pin_count    pin count in decimal ("484")
    //   speed_grade  speed grade ("6")
    //   temperature  temperature grade letter ("C", "I", "A", "M")
    //   option       ordering option suffix ("N", "ES"); parts without an
    //                option match only "ANY"
    // The flags narrow the list: production_only drops engineering samples,
    // current_only drops parts of obsolete families, listed_only drops parts
    // numbered above DEV_PART_GENERIC. The invalid and the Generic part are
    // never listed. Returns false (and an empty list) when the family filter
    // names no family; true otherwise, even when nothing matched.
    bool filter_part_list(std::vector<int>& parts, const std::string& family, const std::string& package,
                          const std::string& pin_count, const std::string& speed_grade, const std::string& temperature,
                          bool production_only, bool current_only, bool listed_only, const std::string& option) const;
};
