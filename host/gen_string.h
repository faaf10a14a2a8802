// String helpers of the host: case-insensitive comparison, trimming, case
// conversion in place, and the tokenizer.
#pragma once

#include <string>
#include <vector>

// strcmp ignoring ASCII letter case: < 0, 0 or > 0.
int gen_stricmp(const std::string& a, const std::string& b);

// Removes blanks, tabs, carriage returns, line feeds, vertical tabs and form
// feeds from both ends of `text`.
void gen_remove_leading_and_trailing_white_spaces(std::string& text);

// ASCII case conversion in place.
void stl_toupper(std::string& text);
void stl_tolower(std::string& text);

// Splits a text into tokens at any of a set of delimiter characters. Runs of
// adjacent delimiters produce no empty tokens, so "a, b" is two tokens.
//
// The option flag of the host's tokenizer interface is accepted for
// compatibility; the stand-alone tokenizer always drops empty tokens.
class STRING_TOKENIZER {
public:
    STRING_TOKENIZER(const std::string& text, const std::string& delimiters, bool option = true);

    std::size_t size() const { return m_tokens.size(); }
    // Throws std::out_of_range past the last token, as vector::at does.
    const std::string& at(std::size_t i) const { return m_tokens.at(i); }
    const std::vector<std::string>& tokens() const { return m_tokens; }

private:
    std::vector<std::string> m_tokens;
};
