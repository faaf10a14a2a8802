#include "moxdev/flash/moxdev_default_rule.h"

#include <absl/strings/ascii.h>

#include <string>

namespace moxdev::detail {

std::size_t FOLDED_HASH::operator()(std::string_view name) const
{
    // Names are short: fold them into a buffer and hash that.
    char buffer[64];
    if (name.size() > sizeof buffer)
        return absl::Hash<std::string>{}(absl::AsciiStrToUpper(absl::string_view(name.data(), name.size())));
    for (std::size_t i = 0; i < name.size(); ++i)
        buffer[i] = absl::ascii_toupper(static_cast<unsigned char>(name[i]));
    return absl::Hash<std::string_view>{}(std::string_view(buffer, name.size()));
}

void DEFAULTS_PER_NAME::add(std::string_view name, bool is_default, DWORD where)
{
    const auto [entry, added] = m_names.try_emplace(name, m_order.size());
    if (added)
        m_order.push_back(NAME{entry->first, where, 0, 0, 0});
    if (!is_default)
        return;
    NAME& seen = m_order[entry->second];
    if (seen.defaults == 0)
        seen.first_default = where;
    else if (seen.defaults == 1)
        seen.second_default = where;
    ++seen.defaults;
}

DEFAULTS_PER_NAME::VIOLATION DEFAULTS_PER_NAME::first_violation() const
{
    for (const NAME& seen : m_order) {
        if (seen.defaults > 1)
            return {VIOLATION::SECOND_DEFAULT, seen.name, seen.first_default, seen.second_default};
        if (seen.defaults == 0)
            return {VIOLATION::NO_DEFAULT, seen.name, seen.first_record, 0};
    }
    return {};
}

} // namespace moxdev::detail
