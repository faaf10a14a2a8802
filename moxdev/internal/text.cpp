#include "moxdev/text.h"

#include <fmt/format.h>

namespace moxdev {

std::string stored_text_problem(const std::string& text, std::size_t most)
{
    for (const char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F)
            return fmt::format("it holds a control character (byte 0x{:02X})", unsigned(u));
    }
    if (text.size() > most)
        return fmt::format("it is longer than {} characters", most);
    return "";
}

std::string quoted(std::string_view text)
{
    constexpr std::size_t SHOWN = 40;
    std::string out = "'";
    for (const char c : text.substr(0, SHOWN)) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F)
            out += fmt::format("\\x{:02X}", unsigned(u));
        else
            out += c;
    }
    if (text.size() > SHOWN)
        return out + fmt::format("...' ({} characters)", text.size());
    return out + "'";
}

} // namespace moxdev
