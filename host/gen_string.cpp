#include "host/gen_string.h"

namespace {

// ASCII only, whatever the process locale: names and keys are ASCII, and a
// locale must not change how they compare.
unsigned char fold(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + ('a' - 'A')) : u;
}

char upper(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

bool is_white_space(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

} // namespace

int gen_stricmp(const std::string& a, const std::string& b)
{
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned char ca = fold(a[i]);
        const unsigned char cb = fold(b[i]);
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

void gen_remove_leading_and_trailing_white_spaces(std::string& text)
{
    std::size_t end = text.size();
    while (end > 0 && is_white_space(text[end - 1]))
        --end;
    std::size_t begin = 0;
    while (begin < end && is_white_space(text[begin]))
        ++begin;
    // In place, and not at all when there is nothing to remove: names are
    // trimmed on every lookup.
    if (end < text.size())
        text.erase(end);
    if (begin > 0)
        text.erase(0, begin);
}

void stl_toupper(std::string& text)
{
    for (char& c : text)
        c = upper(c);
}

void stl_tolower(std::string& text)
{
    for (char& c : text)
        c = static_cast<char>(fold(c));
}

STRING_TOKENIZER::STRING_TOKENIZER(const std::string& text, const std::string& delimiters, bool)
{
    std::size_t pos = 0;
    while (pos < text.size()) {
        const std::size_t begin = text.find_first_not_of(delimiters, pos);
        if (begin == std::string::npos)
            break;
        std::size_t end = text.find_first_of(delimiters, begin);
        if (end == std::string::npos)
            end = text.size();
        m_tokens.emplace_back(text, begin, end - begin);
        pos = end;
    }
}
