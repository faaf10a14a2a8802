// The naming queries as plain linear algorithms, step by step as they are defined:
// the reference the library's indexed answers are compared with (tests) and
// measured against (benchmark).
#pragma once

#include "moxdev/moxdev.h"

#include <string>
#include <vector>

namespace moxdev_oracle {

// The compiled-in grammar tables, decoded once.
const MOXDEV_GRAMMAR_TABLES& tables();

// Trims and upper-cases `name`, then visits the entries of table `type` in
// ascending key order, searching each one's list; the first key that lists
// the name, or "".
std::string reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM type, std::string name);

// Speed-grade and package stripping on the linear lookup.
std::string package_name(const std::string& name, bool no_fallback);
std::string device_name(const std::string& name, bool skip_package_conversion, bool no_fallback);

// One digest per part from the first valid part up to Generic or the end,
// until the low 48 bits match.
std::string opn_from_hash(QWORD hash);

// The per-part full-name search, with its five-character prefix rule; "" for
// no match (the library reports that as an internal error).
std::string possible_full_name(std::string name);

// The first OPN enum that holds `part`, or 0xFFFFFFFF.
DWORD opn_enum_of(int part);

} // namespace moxdev_oracle
