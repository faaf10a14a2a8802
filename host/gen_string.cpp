#include "host/gen_string.h"

#include <absl/strings/ascii.h>
#include <absl/strings/str_split.h>

// ASCII only, whatever the process locale: names and keys are ASCII, and a
// locale must not change how they compare (Abseil's ASCII helpers ignore it).

int gen_stricmp(const std::string& a, const std::string& b)
{
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned char ca = absl::ascii_tolower(static_cast<unsigned char>(a[i]));
        const unsigned char cb = absl::ascii_tolower(static_cast<unsigned char>(b[i]));
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

void gen_remove_leading_and_trailing_white_spaces(std::string& text)
{
    // In place, and not at all when there is nothing to remove: names are
    // trimmed on every lookup.
    absl::StripTrailingAsciiWhitespace(&text);
    absl::StripLeadingAsciiWhitespace(&text);
}

void stl_toupper(std::string& text)
{
    absl::AsciiStrToUpper(&text);
}

void stl_tolower(std::string& text)
{
    absl::AsciiStrToLower(&text);
}

STRING_TOKENIZER::STRING_TOKENIZER(const std::string& text, const std::string& delimiters, bool)
{
    // Adjacent delimiters give no empty token: a comma and a blank separate
    // exactly two cells.
    for (absl::string_view token : absl::StrSplit(text, absl::ByAnyChar(delimiters), absl::SkipEmpty()))
        m_tokens.emplace_back(token);
}
