#include "moxdev/dump_text.h"

#include <cctype>
#include <sstream>

namespace moxdev {

namespace {

bool is_hex(const std::string& text)
{
    if (text.empty())
        return false;
    for (char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return false;
    }
    return true;
}

// Appends the bytes of an even run of hex digits; false if it is not one.
bool append_hex(std::string token, std::vector<std::uint8_t>& bytes)
{
    if (token.size() > 2 && token[0] == '0' && (token[1] == 'x' || token[1] == 'X'))
        token.erase(0, 2);
    if (!is_hex(token) || token.size() % 2 != 0)
        return false;
    for (std::size_t i = 0; i < token.size(); i += 2)
        bytes.push_back(std::uint8_t(std::stoul(token.substr(i, 2), nullptr, 16)));
    return true;
}

std::vector<std::string> words(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string word; in >> word;)
        result.push_back(word);
    return result;
}

enum class FORM { PLAIN, HEXDUMP, XXD };

// The form of a dump, from its first line: "00000000: ..." is xxd, an offset
// of six or more digits followed by bytes is hexdump -C, the rest plain hex.
FORM form_of(const std::string& line)
{
    const std::vector<std::string> tokens = words(line);
    if (tokens.empty())
        return FORM::PLAIN;
    const std::string& first = tokens[0];
    if (first.size() >= 5 && first.back() == ':' && is_hex(first.substr(0, first.size() - 1)))
        return FORM::XXD;
    if (first.size() >= 6 && is_hex(first) && tokens.size() > 1 && tokens[1].size() == 2 && is_hex(tokens[1]))
        return FORM::HEXDUMP;
    return FORM::PLAIN;
}

// Reads the offset-prefixed forms line by line, keeping the lines in order
// and expanding "*" (the previous line, repeated up to the next offset).
class OFFSET_READER {
public:
    OFFSET_READER(std::vector<std::uint8_t>& bytes, std::size_t limit) : m_bytes(bytes), m_limit(limit) {}

    bool line(FORM form, const std::string& text, std::string& error)
    {
        if (text == "*") {
            m_repeat = true;
            return true;
        }
        std::vector<std::string> tokens = words(text);
        std::string offset_text = tokens.front();
        if (form == FORM::XXD) {
            if (offset_text.back() != ':')
                return fail("a line does not start with an offset: \"" + text + "\"", error);
            offset_text.pop_back();
        }
        if (!is_hex(offset_text) || offset_text.size() > 12)
            return fail("a line does not start with an offset: \"" + text + "\"", error);
        const std::size_t offset = std::stoull(offset_text, nullptr, 16);
        if (offset > m_limit)
            return fail("the dump is longer than " + std::to_string(m_limit) + " bytes", error);

        std::vector<std::uint8_t> row;
        if (form == FORM::XXD) {
            // The hex columns end where two blanks lead to the text column.
            const std::size_t start = text.find(':') + 1;
            const std::size_t end = text.find("  ", start + 1);
            for (const std::string& group : words(text.substr(start, end == std::string::npos ? end : end - start)))
                if (!append_hex(group, row))
                    return fail("\"" + group + "\" in an xxd line is not hex", error);
        } else {
            for (std::size_t i = 1; i < tokens.size() && tokens[i][0] != '|'; ++i)
                if (tokens[i].size() != 2 || !append_hex(tokens[i], row))
                    return fail("\"" + tokens[i] + "\" in a hexdump line is not a byte", error);
        }
        if (m_repeat) {
            if (m_previous.empty())
                return fail("a \"*\" line has no line before it to repeat", error);
            while (m_bytes.size() < offset)
                for (std::size_t i = 0; i < m_previous.size() && m_bytes.size() < offset; ++i)
                    m_bytes.push_back(m_previous[i]);
            m_repeat = false;
        }
        if (offset != m_bytes.size())
            return fail("offset " + offset_text + " does not follow the bytes before it", error);
        if (m_bytes.size() + row.size() > m_limit)
            return fail("the dump is longer than " + std::to_string(m_limit) + " bytes", error);
        m_bytes.insert(m_bytes.end(), row.begin(), row.end());
        if (!row.empty())
            m_previous = row;
        return true;
    }

    bool finish(std::string& error)
    {
        if (m_repeat)
            return fail("the dump ends with \"*\" and no closing offset", error);
        return true;
    }

private:
    static bool fail(const std::string& text, std::string& error)
    {
        error = "not a dump: " + text;
        return false;
    }

    std::vector<std::uint8_t>& m_bytes;
    std::size_t m_limit;
    std::vector<std::uint8_t> m_previous;
    bool m_repeat = false;
};

} // namespace

bool read_dump(const std::string& input, const std::string& binary_magic, std::size_t limit,
               std::vector<std::uint8_t>& bytes, std::string& error)
{
    bytes.clear();
    if (!binary_magic.empty() && input.compare(0, binary_magic.size(), binary_magic) == 0) {
        if (input.size() > limit) {
            error = "the read has " + std::to_string(input.size()) + " bytes, more than " + std::to_string(limit);
            return false;
        }
        bytes.assign(input.begin(), input.end());
        return true;
    }
    for (unsigned char c : input) {
        if (c < 0x20 && c != '\n' && c != '\r' && c != '\t') {
            error = "not a dump: binary data that does not start with \"" + binary_magic + "\"";
            return false;
        }
    }

    std::vector<std::string> lines;
    std::istringstream in(input);
    for (std::string line; std::getline(in, line);) {
        const auto first = line.find_first_not_of(" \t\r");
        // Blank lines and '#' comments (where a dump names its source) are skipped.
        if (first != std::string::npos && line[first] != '#')
            lines.push_back(line.substr(first, line.find_last_not_of(" \t\r") - first + 1));
    }
    if (lines.empty()) {
        error = "not a dump: no bytes";
        return false;
    }
    const FORM form = form_of(lines.front());
    if (form == FORM::PLAIN) {
        for (const std::string& line : lines) {
            std::string spaced = line;
            for (char& c : spaced)
                if (c == ',')
                    c = ' ';
            for (const std::string& token : words(spaced)) {
                if (!append_hex(token, bytes)) {
                    error = "not a dump: \"" + token + "\" is not hex";
                    return false;
                }
                if (bytes.size() > limit) {
                    error = "the dump is longer than " + std::to_string(limit) + " bytes";
                    return false;
                }
            }
        }
    } else {
        OFFSET_READER reader(bytes, limit);
        for (const std::string& line : lines)
            if (!reader.line(form, line, error))
                return false;
        if (!reader.finish(error))
            return false;
    }
    if (bytes.empty()) {
        error = "not a dump: no bytes";
        return false;
    }
    return true;
}

} // namespace moxdev
