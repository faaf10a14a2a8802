// The rule that every flash name has exactly one default record, checked by
// the flash manager's loader over its records and by the table check over
// the table's lines. Library sources only.
#pragma once

#include "host/host_types.h"

#include <absl/container/flat_hash_map.h>
#include <absl/strings/ascii.h>

#include <string_view>
#include <vector>

namespace moxdev::detail {

// Names compared and hashed with ASCII letter case folded, without copies.
struct FOLDED_HASH {
    std::size_t operator()(std::string_view name) const;
};
struct FOLDED_EQUAL {
    bool operator()(std::string_view a, std::string_view b) const
    {
        if (a.size() != b.size())
            return false;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (absl::ascii_toupper(static_cast<unsigned char>(a[i])) !=
                absl::ascii_toupper(static_cast<unsigned char>(b[i])))
                return false;
        }
        return true;
    }
};

class DEFAULTS_PER_NAME {
public:
    explicit DEFAULTS_PER_NAME(std::size_t names)
    {
        m_names.reserve(names);
        m_order.reserve(names);
    }

    // A record named `name` (which must outlive this object) at `where`.
    void add(std::string_view name, bool is_default, DWORD where);

    // The first name, in the order of its first record, that has no default
    // record or a second one; `first` is where its first record (or first
    // default) is, `second` where its second default is.
    struct VIOLATION {
        enum KIND { NONE, SECOND_DEFAULT, NO_DEFAULT } kind = NONE;
        std::string_view name;
        DWORD first = 0;
        DWORD second = 0;
    };
    VIOLATION first_violation() const;

private:
    struct NAME {
        std::string_view name;
        DWORD first_record = 0;
        DWORD defaults = 0;
        DWORD first_default = 0;
        DWORD second_default = 0;
    };
    // The names in the order of their first records, and where each is.
    std::vector<NAME> m_order;
    absl::flat_hash_map<std::string_view, std::size_t, FOLDED_HASH, FOLDED_EQUAL> m_names;
};

} // namespace moxdev::detail
