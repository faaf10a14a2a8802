// gen_hps_descriptors: build-time generator of the HPS descriptor table.
//
// Usage: gen_hps_descriptors TABLE OUT.cpp OUT.h
//
// Reads the descriptor table (data/hps/descriptors.txt, whose header comment
// documents the syntax), checks it and writes
//   OUT.h    the MOXDEV_HPS_WORD enumeration, one MOXDEV_HPS_<NAME> per word,
//            and the declaration of the word names;
//   OUT.cpp  the two constant descriptors and the word names.
//
// Every error in the table is reported as "TABLE:LINE: error: message" on
// standard error; the run then ends with exit status 1 before anything is
// written. A file is only rewritten when its content changes, through a
// temporary file renamed into place, so that rebuilds stay incremental and an
// interrupted run never leaves a truncated file behind.

#include "generated_file.h"

#include <absl/strings/ascii.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t WORD_COUNT = 335;
constexpr std::size_t DESCRIPTOR_COUNT = 2;
// Word 0 of each descriptor is its key; the library selects a descriptor by it.
constexpr std::uint32_t KEYS[DESCRIPTOR_COUNT] = {0x4BA00477u, 0x4BA00478u};
constexpr std::uint32_t ABSENT = 0xFFFFFFFFu;
const char* const ENUMERATOR_PREFIX = "MOXDEV_HPS_";

// Names whose enumerator would clash with another MOXDEV_HPS_ name of the
// library's interface.
// clang-format off
const char* const RESERVED_NAMES[] = {
    "word", "words", "word_count", "word_names", "descriptors", "structure", "nand_structure",
    "spi_structure", "mgr", "nand_mgr", "spi_mgr", "flash_list", "nand_param_names", "spi_param_names",
    "nand_prompts", "spi_prompts", "nand_signature", "spi_signature"};
// clang-format on

struct DESCRIPTOR_WORD {
    std::string name;
    std::uint32_t value[DESCRIPTOR_COUNT] = {};
    std::string comment;
};

class DESCRIPTOR_TABLE {
public:
    explicit DESCRIPTOR_TABLE(std::string path) : m_path(std::move(path)) {}

    // Reads the whole table, collecting every error. Returns false when there
    // was any.
    bool read(std::istream& in)
    {
        std::string text;
        int line = 0;
        while (std::getline(in, text)) {
            ++line;
            if (!text.empty() && text.back() == '\r')
                text.pop_back();
            statement(line, text);
        }
        if (m_words.empty()) {
            error(line, "the table holds no words");
        } else if (m_words.size() < WORD_COUNT) {
            error(line, "the table ends after word " + std::to_string(m_words.size() - 1) +
                            "; it must hold words 0 to " + std::to_string(WORD_COUNT - 1));
        }
        return m_errors == 0;
    }

    const std::vector<DESCRIPTOR_WORD>& words() const { return m_words; }

private:
    void error(int line, const std::string& message)
    {
        std::cerr << m_path << ":" << line << ": error: " << message << "\n";
        ++m_errors;
    }

    void statement(int line, const std::string& text)
    {
        const std::size_t start = text.find_first_not_of(" \t");
        if (start == std::string::npos || text[start] == '#')
            return;

        const std::size_t hash = text.find('#');
        std::istringstream fields(text.substr(0, hash));
        std::vector<std::string> tokens;
        for (std::string token; fields >> token;)
            tokens.push_back(token);
        if (tokens.size() != 4) {
            error(line, "expected 'INDEX NAME FIRST SECOND # COMMENT'");
            // Still count the word when its index is the expected one, so
            // that the following lines are not reported as out of order.
            if (!tokens.empty() && tokens[0] == std::to_string(m_words.size()))
                m_words.emplace_back();
            return;
        }

        if (!take_index(line, tokens[0]))
            return;
        const std::size_t index = m_words.size();
        DESCRIPTOR_WORD word;
        word.name = tokens[1];
        if (name_ok(line, word.name))
            m_names.emplace(word.name, line);
        bool values_ok = true;
        for (std::size_t d = 0; d < DESCRIPTOR_COUNT; ++d) {
            values_ok = parse_value(line, tokens[2 + d], word.value[d]) && values_ok;
        }
        if (values_ok && index == 0) {
            for (std::size_t d = 0; d < DESCRIPTOR_COUNT; ++d) {
                if (word.value[d] != KEYS[d]) {
                    error(line,
                          "word 0 is the key; descriptor " + std::to_string(d + 1) + " must have " + hex(KEYS[d]));
                }
            }
        }
        word.comment = hash == std::string::npos ? std::string() : trim(text.substr(hash + 1));
        if (word.comment.empty()) {
            error(line, "word " + std::to_string(index) + " needs a comment saying what it holds");
        } else if (word.comment.back() == '\\') {
            error(line, "a comment cannot end in a backslash");
        }
        m_words.push_back(word);
    }

    // Checks that the index is the next one and returns whether the line
    // stands for a word. Errors are reported so that one bad line gives one
    // error: a gap is reported once and the count resumes after it, an index
    // that is not a number is taken for the expected one, and a repeated or
    // excess index drops its line.
    bool take_index(int line, const std::string& text)
    {
        const int expected = int(m_words.size());
        if (text.empty() || text.size() > 4 || text.find_first_not_of("0123456789") != std::string::npos) {
            error(line, "index '" + text + "' is not a decimal number");
            return expected < int(WORD_COUNT);
        }
        const int index = std::stoi(text);
        if (index >= int(WORD_COUNT)) {
            error(line, "index " + text + " is past the last word " + std::to_string(WORD_COUNT - 1));
            return false;
        }
        if (index < expected) {
            error(line, "index " + text + " comes after word " + std::to_string(expected - 1) +
                            "; indexes must appear once each, in order");
            return false;
        }
        if (index > expected) {
            error(line, "index " + text + " follows word " + std::to_string(expected - 1) + "; word" +
                            (index - expected > 1 ? "s " + std::to_string(expected) + " to " : " ") +
                            std::to_string(index - 1) + " missing");
            m_words.resize(std::size_t(index));
        }
        return true;
    }

    bool name_ok(int line, const std::string& name)
    {
        // Lower-case words joined by single underscores, so that the
        // enumerator is a plain upper-case identifier.
        bool good = !name.empty() && name.front() >= 'a' && name.front() <= 'z' && name.back() != '_' &&
                    name.find("__") == std::string::npos;
        for (char c : name) {
            if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'))
                good = false;
        }
        if (!good) {
            error(line, "name '" + name + "' must be lower-case letters and digits joined by single underscores");
            return false;
        }
        for (const char* reserved : RESERVED_NAMES) {
            if (name == reserved) {
                error(line,
                      "name '" + name + "' is reserved: " + enumerator(name) + " is already a name of the library");
                return false;
            }
        }
        const auto previous = m_names.find(name);
        if (previous != m_names.end()) {
            error(line, "name '" + name + "' already used on line " + std::to_string(previous->second));
            return false;
        }
        return true;
    }

    bool parse_value(int line, const std::string& text, std::uint32_t& value)
    {
        if (text == "-") {
            value = ABSENT;
            return true;
        }
        const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
        const std::string digits = prefixed ? text.substr(2) : std::string();
        if (!prefixed || digits.size() > 8 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            error(line, "value '" + text + "' must be 0x and one to eight hexadecimal digits, or '-'");
            return false;
        }
        value = std::uint32_t(std::stoul(digits, nullptr, 16));
        if (value == ABSENT) {
            error(line, "value " + text + " means an absent item; write '-'");
            return false;
        }
        return true;
    }

    static std::string trim(const std::string& s)
    {
        const std::size_t first = s.find_first_not_of(" \t");
        if (first == std::string::npos)
            return std::string();
        return s.substr(first, s.find_last_not_of(" \t") - first + 1);
    }

public:
    static std::string hex(std::uint32_t value)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08X", unsigned(value));
        return text;
    }

    static std::string enumerator(const std::string& name) { return ENUMERATOR_PREFIX + absl::AsciiStrToUpper(name); }

private:
    std::string m_path;
    std::vector<DESCRIPTOR_WORD> m_words;
    std::map<std::string, int> m_names;
    int m_errors = 0;
};

std::string header_text(const std::vector<DESCRIPTOR_WORD>& words, const std::string& source)
{
    std::size_t width = 0;
    for (const DESCRIPTOR_WORD& w : words)
        width = std::max(width, DESCRIPTOR_TABLE::enumerator(w.name).size());

    std::ostringstream out;
    out << "// Generated by gen_hps_descriptors from " << source << "; do not edit.\n"
        << "//\n"
        << "// Word indexes of an HPS descriptor: descriptor.word[MOXDEV_HPS_QSPI_REGISTER_BASE]\n"
        << "// and so on. A word holding 0xFFFFFFFF names an item that HPS does not have.\n"
        << "#pragma once\n\n"
        << "#include \"host/host_types.h\"\n\n"
        << "enum MOXDEV_HPS_WORD : DWORD {\n";
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string name = DESCRIPTOR_TABLE::enumerator(words[i].name);
        std::string entry = "    " + name + " = " + std::to_string(i) + ",";
        entry.resize(std::max(entry.size(), width + 12), ' ');
        out << entry << "// " << words[i].comment << "\n";
    }
    out << "    MOXDEV_HPS_WORD_COUNT = " << words.size() << "\n"
        << "};\n\n"
        << "// The table's name of each word, indexed by MOXDEV_HPS_WORD.\n"
        << "extern const char* const MOXDEV_HPS_WORD_NAMES[MOXDEV_HPS_WORD_COUNT];\n";
    return out.str();
}

std::string source_text(const std::vector<DESCRIPTOR_WORD>& words, const std::string& source)
{
    std::ostringstream out;
    out << "// Generated by gen_hps_descriptors from " << source << "; do not edit.\n\n"
        << "#include \"moxdev/moxdev_hps_mgr.h\"\n\n"
        << "#include <type_traits>\n\n"
        << "static_assert(sizeof(MOXDEV_HPS_STRUCTURE) == MOXDEV_HPS_WORD_COUNT * sizeof(DWORD),\n"
        << "              \"an HPS descriptor is exactly its words\");\n"
        << "static_assert(std::is_standard_layout<MOXDEV_HPS_STRUCTURE>::value,\n"
        << "              \"clients read HPS descriptors as plain words\");\n\n"
        << "extern const MOXDEV_HPS_STRUCTURE MOXDEV_HPS_DESCRIPTORS[" << DESCRIPTOR_COUNT << "] = {\n";
    for (std::size_t d = 0; d < DESCRIPTOR_COUNT; ++d) {
        out << "    {{\n";
        for (std::size_t i = 0; i < words.size(); ++i) {
            out << "        " << DESCRIPTOR_TABLE::hex(words[i].value[d]) << "u, // " << i << " " << words[i].name
                << "\n";
        }
        out << "    }},\n";
    }
    out << "};\n\n"
        << "extern const char* const MOXDEV_HPS_WORD_NAMES[MOXDEV_HPS_WORD_COUNT] = {\n";
    for (const DESCRIPTOR_WORD& w : words)
        out << "    \"" << w.name << "\",\n";
    out << "};\n";
    return out.str();
}

// Writes one output; false (after a message) when it cannot be written.
bool write_if_changed(const std::filesystem::path& path, const std::string& content)
{
    try {
        moxdev_tools::store_if_changed(path, content);
        return true;
    } catch (const std::exception& error) {
        std::cerr << "gen_hps_descriptors: " << error.what() << "\n";
        return false;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "usage: gen_hps_descriptors TABLE OUT.cpp OUT.h\n";
        return 1;
    }
    const std::string table_path = argv[1];
    std::ifstream in(table_path);
    if (!in) {
        std::cerr << "gen_hps_descriptors: cannot open " << table_path << "\n";
        return 1;
    }
    DESCRIPTOR_TABLE table(table_path);
    if (!table.read(in))
        return 1;

    // Name the table by its file name only, so that the output does not depend
    // on where the sources are.
    const std::string source = std::filesystem::path(table_path).filename().string();
    bool ok = write_if_changed(argv[2], source_text(table.words(), source));
    ok = write_if_changed(argv[3], header_text(table.words(), source)) && ok;
    return ok ? 0 : 1;
}
