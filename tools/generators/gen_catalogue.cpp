// gen_catalogue: build-time generator of the stand-alone device catalogue.
//
// Usage: gen_catalogue DESCRIPTION OUTDIR [--part-list FILE]
//
// Reads the catalogue description (data/catalogue.txt, whose header comment
// documents the syntax), checks it strictly and writes
//   OUTDIR/host/dev_catalogue_enums.h       family and device enumerations
//   OUTDIR/host/dev_catalogue_data.cpp      the arrays behind host/dev_catalogue.h
//   OUTDIR/moxdev/moxdev_dev_info_ids.cpp   identifier tables of the device
//                                           information table
// and, with --part-list, the part list of the installation.
//
// A file is only rewritten when its content changes, through a temporary
// file renamed into place, so that rebuilds stay incremental and an
// interrupted run never leaves a truncated file behind.
//
// Any error in the description is reported as "FILE:LINE: message" on
// standard error and ends the run with exit status 1 before anything is
// written.

#include "generated_file.h"

#include <absl/strings/ascii.h>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

// The library is built against these enumeration sizes: 72 real families
// plus the invalid value 0 and the Generic value, 1046 real devices likewise.
constexpr int FAMILY_MAX = 74;
constexpr int DEVICE_MAX = 1048;
constexpr int REAL_FAMILY_COUNT = FAMILY_MAX - 2;
constexpr int REAL_DEVICE_COUNT = DEVICE_MAX - 2;
// The device information table's option columns name the invalid family and
// this many real ones.
constexpr int CSV_OPTION_FAMILY_COUNT = 12;
// Every part of a preview family carries this ordering option.
const char* const ENGINEERING_SAMPLE_OPTION = "ES";

// A description error, tied to the line that caused it (0: the file as a
// whole).
class DESCRIPTION_ERROR : public std::runtime_error {
public:
    DESCRIPTION_ERROR(int line, const std::string& message) : std::runtime_error(message), m_line(line) {}
    int line() const { return m_line; }

private:
    int m_line;
};

[[noreturn]] void fail(int line, const std::string& message)
{
    throw DESCRIPTION_ERROR(line, message);
}

enum class STATUS { PRODUCTION, OBSOLETE, PREVIEW };

struct GRADE {
    char temperature = 'C';
    int speed = 0;
    std::string option; // ordering option suffix, empty when none
};

// Settings of a product line that apply to the families that follow them.
struct LINE_SETTINGS {
    std::string name;        // "Kestrel"
    std::string code;        // "KX"
    std::string key;         // programmer family key
    std::vector<int> ladder; // package indexes, small to large
    int window = 0;
    std::vector<GRADE> grades;
    int versions = 1;
    std::vector<std::string> family_config_patterns{"*"};
    int family_count = 0;
};

struct FAMILY {
    int line_no = 0;
    std::string identifier; // "KESTREL_II"
    std::string display;    // "Kestrel II"
    std::string key;        // "KX_FAMILY" or "NONE"
    std::string user_name;  // "KXFAMILY2"
    std::string pcf;        // "kestrel2"
    std::string prefix;     // device name prefix "KXB"
    std::vector<std::string> configs;
    STATUS status = STATUS::PRODUCTION;
    bool late = false;
    std::vector<int> ladder;
    int window = 0;
    std::vector<GRADE> grades;
    int versions = 1;
    // Base sizes in order, each with its window position and die.
    std::vector<std::string> sizes;
    std::vector<std::string> dies;
    std::vector<int> devices; // device indexes into the device list
};

struct DEVICE {
    int line_no = 0;
    std::string name;            // "KXB100"
    std::string programmer_part; // "KXB100M"
    std::string pcf;             // programming file of the record serving it
    int family = 0;              // family value
    int size_index = 0;          // position of its base size in the family
    std::vector<std::string> configs;
};

struct PACKAGE {
    std::string code;
    int pins = 0;
};

struct PART {
    std::string name;
    int device = 0;  // device value
    int package = 0; // package index
    char temperature = 'C';
    int speed = 0;
    int option = 0; // option index, 0 = none
};

struct CATALOGUE {
    std::string maker;
    std::vector<PACKAGE> packages;
    std::vector<std::string> options{""};
    std::vector<FAMILY> families; // value i at index i; 0 and the Generic value are placeholders
    std::vector<DEVICE> devices;  // likewise
    std::vector<PART> parts;      // part number p at index p
    int part_generic = 0;
    std::string csv_device;
    std::string csv_part;
    std::vector<std::string> csv_options;
    int combo_count = 0;
};

// ---------------------------------------------------------------- text helpers

bool is_upper_alnum(const std::string& s)
{
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); });
}

bool is_upper_letters(const std::string& s)
{
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

bool is_digits(const std::string& s)
{
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool is_key_name(const std::string& s)
{
    return !s.empty() && s.front() >= 'A' && s.front() <= 'Z' && std::all_of(s.begin(), s.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    });
}

bool is_pcf_name(const std::string& s)
{
    return !s.empty() && s.front() >= 'a' && s.front() <= 'z' && std::all_of(s.begin(), s.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    });
}

std::string to_upper(std::string s)
{
    absl::AsciiStrToUpper(&s);
    return s;
}

std::string to_lower(std::string s)
{
    absl::AsciiStrToLower(&s);
    return s;
}

int parse_int(int line, const std::string& text, int low, int high, const char* what)
{
    if (!is_digits(text) || text.size() > 6)
        fail(line, std::string(what) + " '" + text + "' is not a number");
    const int value = std::stoi(text);
    if (value < low || value > high) {
        fail(line, std::string(what) + " " + text + " is outside " + std::to_string(low) + ".." + std::to_string(high));
    }
    return value;
}

// ---------------------------------------------------------------- parser

class PARSER {
public:
    explicit PARSER(CATALOGUE& catalogue) : m_cat(catalogue)
    {
        m_cat.families.resize(1);
        m_cat.families[0].identifier = "INVALID";
        m_cat.families[0].display = "Invalid";
        m_cat.devices.resize(1);
        m_cat.devices[0].name = "Invalid";
    }

    void parse(std::istream& in)
    {
        std::string text;
        int line_no = 0;
        while (std::getline(in, text)) {
            ++line_no;
            const std::size_t hash = text.find('#');
            if (hash != std::string::npos)
                text.erase(hash);
            std::istringstream words(text);
            std::vector<std::string> tokens{std::istream_iterator<std::string>(words),
                                            std::istream_iterator<std::string>()};
            if (!tokens.empty())
                statement(line_no, tokens);
        }
        m_last_line = line_no;
    }

    void finish()
    {
        const int end = m_last_line;
        if (m_cat.maker.empty())
            fail(end, "missing 'maker' statement");
        const int families = int(m_cat.families.size()) - 1;
        if (families != REAL_FAMILY_COUNT) {
            fail(end, "the catalogue must describe exactly " + std::to_string(REAL_FAMILY_COUNT) +
                          " families (DEV_FAMILY_MAX " + std::to_string(FAMILY_MAX) + "), found " +
                          std::to_string(families));
        }
        const int devices = int(m_cat.devices.size()) - 1;
        if (devices != REAL_DEVICE_COUNT) {
            fail(end, "the catalogue must describe exactly " + std::to_string(REAL_DEVICE_COUNT) +
                          " devices (DEV_DEVICE_MAX " + std::to_string(DEVICE_MAX) + "), found " +
                          std::to_string(devices));
        }
        FAMILY generic_family;
        generic_family.identifier = "GENERIC";
        generic_family.display = "Generic";
        m_cat.families.push_back(generic_family);
        DEVICE generic_device;
        generic_device.name = "Generic";
        generic_device.family = FAMILY_MAX - 1;
        m_cat.devices.push_back(generic_device);

        build_parts(end);
        resolve_specials();
        resolve_csv_names(end);
    }

private:
    void statement(int line, const std::vector<std::string>& t)
    {
        const std::string& word = t[0];
        if (word == "maker") {
            expect_count(line, t, 2, 2);
            if (!m_cat.maker.empty())
                fail(line, "'maker' given twice");
            if (!std::isupper(static_cast<unsigned char>(t[1][0])))
                fail(line, "maker name must be capitalised");
            m_cat.maker = t[1];
        } else if (word == "line") {
            statement_line(line, t);
        } else if (word == "key") {
            need_line(line, word);
            expect_count(line, t, 2, 2);
            if (!is_key_name(t[1]))
                fail(line, "programmer family key '" + t[1] + "' must be upper case");
            m_line.key = t[1];
        } else if (word == "ladder") {
            statement_ladder(line, t);
        } else if (word == "window") {
            need_line(line, word);
            expect_count(line, t, 2, 2);
            m_line.window = parse_int(line, t[1], 1, 16, "window");
        } else if (word == "grades") {
            statement_grades(line, t);
        } else if (word == "versions") {
            need_line(line, word);
            expect_count(line, t, 2, 2);
            m_line.versions = parse_int(line, t[1], 0, 9, "versions");
        } else if (word == "familycfg") {
            need_line(line, word);
            expect_count(line, t, 2, 9);
            m_line.family_config_patterns.clear();
            for (std::size_t i = 1; i < t.size(); ++i) {
                const std::string& p = t[i];
                if (std::count(p.begin(), p.end(), '*') != 1)
                    fail(line, "pattern '" + p + "' needs one '*'");
                std::string rest = p;
                rest.erase(rest.find('*'), 1);
                if (!rest.empty() && !is_key_name("A" + rest))
                    fail(line, "bad family configuration pattern '" + p + "'");
                m_line.family_config_patterns.push_back(p);
            }
        } else if (word == "family") {
            statement_family(line, t);
        } else if (word == "variants") {
            statement_variants(line, t);
        } else if (word == "special") {
            statement_special(line, t);
        } else if (word == "csvdevice") {
            expect_count(line, t, 2, 2);
            if (!m_cat.csv_device.empty())
                fail(line, "'csvdevice' given twice");
            m_cat.csv_device = t[1];
            m_csv_device_line = line;
        } else if (word == "csvpart") {
            expect_count(line, t, 2, 2);
            if (!m_cat.csv_part.empty())
                fail(line, "'csvpart' given twice");
            m_cat.csv_part = t[1];
            m_csv_part_line = line;
        } else if (word == "csvoptions") {
            if (!m_cat.csv_options.empty())
                fail(line, "'csvoptions' given twice");
            expect_count(line, t, 2, 100);
            m_cat.csv_options.assign(t.begin() + 1, t.end());
            m_csv_options_line = line;
        } else {
            fail(line, "unknown statement '" + word + "'");
        }
    }

    static void expect_count(int line, const std::vector<std::string>& t, std::size_t low, std::size_t high)
    {
        if (t.size() < low || t.size() > high) {
            fail(line, "'" + t[0] + "' takes " +
                           (low == high ? std::to_string(low - 1) : std::to_string(low - 1) + " or more") +
                           " argument(s)");
        }
    }

    void need_line(int line, const std::string& word) const
    {
        if (m_line.name.empty())
            fail(line, "'" + word + "' outside a product line");
    }

    void statement_line(int line, const std::vector<std::string>& t)
    {
        expect_count(line, t, 3, 3);
        const std::string& name = t[1];
        const std::string& code = t[2];
        const bool capitalised = name.size() >= 2 && name[0] >= 'A' && name[0] <= 'Z' &&
                                 std::all_of(name.begin() + 1, name.end(), [](char c) { return c >= 'a' && c <= 'z'; });
        if (!capitalised)
            fail(line, "line name '" + name + "' must be one capitalised word");
        if (code.size() != 2 || !is_upper_letters(code))
            fail(line, "line code '" + code + "' must be two upper-case letters");
        if (!m_line_names.insert(name).second)
            fail(line, "line '" + name + "' given twice");
        if (!m_line_codes.insert(code).second)
            fail(line, "line code '" + code + "' given twice");
        m_line = LINE_SETTINGS();
        m_line.name = name;
        m_line.code = code;
        m_last_family = 0;
    }

    void statement_ladder(int line, const std::vector<std::string>& t)
    {
        need_line(line, "ladder");
        expect_count(line, t, 2, 40);
        m_line.ladder.clear();
        for (std::size_t i = 1; i < t.size(); ++i) {
            const std::string& code = t[i];
            if (code.size() < 2 || !(code[0] >= 'A' && code[0] <= 'Z') || !is_digits(code.substr(1)) ||
                code[1] == '0') {
                fail(line, "package '" + code + "' must be one letter and its pin count");
            }
            const int pins = parse_int(line, code.substr(1), 1, 9999, "pin count");
            int index = -1;
            for (std::size_t p = 0; p < m_cat.packages.size(); ++p) {
                if (m_cat.packages[p].code == code)
                    index = int(p);
            }
            if (index < 0) {
                index = int(m_cat.packages.size());
                m_cat.packages.push_back(PACKAGE{code, pins});
            }
            if (std::find(m_line.ladder.begin(), m_line.ladder.end(), index) != m_line.ladder.end()) {
                fail(line, "package " + code + " appears twice in the ladder");
            }
            m_line.ladder.push_back(index);
        }
    }

    void statement_grades(int line, const std::vector<std::string>& t)
    {
        need_line(line, "grades");
        expect_count(line, t, 2, 40);
        m_line.grades.clear();
        std::set<std::string> seen;
        for (std::size_t i = 1; i < t.size(); ++i) {
            const std::string& g = t[i];
            if (g.size() < 2 || std::string("CIAM").find(g[0]) == std::string::npos || !(g[1] >= '0' && g[1] <= '9')) {
                fail(line, "grade '" + g + "' must be a temperature letter (C, I, A, M) and a speed digit");
            }
            GRADE grade;
            grade.temperature = g[0];
            grade.speed = g[1] - '0';
            grade.option = g.substr(2);
            if (!grade.option.empty() && !is_upper_letters(grade.option))
                fail(line, "grade '" + g + "' has a bad option suffix");
            if (grade.option == ENGINEERING_SAMPLE_OPTION)
                fail(line, "option ES is reserved for preview families");
            if (!seen.insert(g).second)
                fail(line, "grade " + g + " given twice");
            m_line.grades.push_back(grade);
        }
    }

    // A family line needs its product line's key, ladder, grades and window first.
    void need_line_settings(int line)
    {
        if (m_line.key.empty())
            fail(line, "family before the line's 'key'");
        if (m_line.ladder.empty())
            fail(line, "family before the line's 'ladder'");
        if (m_line.grades.empty())
            fail(line, "family before the line's 'grades'");
        if (m_line.window == 0)
            fail(line, "family before the line's 'window'");
        if (m_line.window > int(m_line.ladder.size()))
            fail(line, "window is longer than the package ladder");
        if (m_line.family_count == 26)
            fail(line, "a line holds at most 26 families");
    }

    STATUS family_status(int line, const std::string& text)
    {
        if (text == "production")
            return STATUS::PRODUCTION;
        if (text == "obsolete")
            return STATUS::OBSOLETE;
        if (text != "preview")
            fail(line, "status '" + text + "' must be production, obsolete or preview");
        return STATUS::PREVIEW;
    }

    void statement_family(int line, const std::vector<std::string>& t)
    {
        need_line(line, "family");
        expect_count(line, t, 4, 200);
        need_line_settings(line);

        FAMILY f;
        f.line_no = line;
        const std::string& label = t[1];
        if (!is_upper_alnum(label))
            fail(line, "family label '" + label + "' must be upper-case letters and digits");
        const int ordinal = ++m_line.family_count;
        const std::string base = to_upper(m_line.name) + std::to_string(ordinal);
        f.identifier = to_upper(m_line.name) + "_" + label;
        f.display = m_line.name + " " + label;
        f.key = m_line.key;
        f.user_name = m_line.code + "FAMILY" + std::to_string(ordinal);
        f.pcf = to_lower(m_line.name) + std::to_string(ordinal);
        f.prefix = m_line.code + char('A' + ordinal - 1);
        for (const std::string& pattern : m_line.family_config_patterns) {
            std::string name = pattern;
            name.replace(name.find('*'), 1, base);
            f.configs.push_back(name);
        }
        f.status = family_status(line, t[2]);
        std::size_t next = 3;
        if (t[next] == "late") {
            f.late = true;
            ++next;
        }
        if (next == t.size())
            fail(line, "family without devices");
        f.ladder = m_line.ladder;
        f.window = m_line.window;
        f.grades = m_line.grades;
        f.versions = m_line.versions;
        if (f.status == STATUS::PREVIEW) {
            for (const GRADE& g : f.grades) {
                if (!g.option.empty())
                    fail(line, "grades of a preview family cannot carry an option");
            }
        }

        claim_name(line, m_family_names, f.identifier, "family name");
        claim_name(line, m_family_names, to_upper(f.display), "family name");
        claim_name(line, m_family_names, f.user_name, "family name");
        for (const std::string& c : f.configs)
            claim_name(line, m_family_names, c, "family configuration name");

        const int value = int(m_cat.families.size());
        m_cat.families.push_back(f);
        m_last_family = value;

        for (std::size_t i = next; i < t.size(); ++i) {
            const std::string& token = t[i];
            const std::size_t colon = token.find(':');
            const std::string size = token.substr(0, colon);
            const std::string die = colon == std::string::npos ? size : token.substr(colon + 1);
            if (!is_digits(size) || !is_digits(die))
                fail(line, "device size '" + token + "' must be SIZE or SIZE:DIE in digits");
            FAMILY& fam = m_cat.families[value];
            if (std::find(fam.sizes.begin(), fam.sizes.end(), size) != fam.sizes.end()) {
                fail(line, "size " + size + " given twice");
            }
            fam.sizes.push_back(size);
            fam.dies.push_back(die);
            add_device(line, value, int(fam.sizes.size()) - 1, "");
        }
    }

    void statement_variants(int line, const std::vector<std::string>& t)
    {
        need_line(line, "variants");
        expect_count(line, t, 3, 200);
        if (m_last_family == 0)
            fail(line, "'variants' before any family of the line");
        const std::string& suffix = t[1];
        if (!is_upper_letters(suffix))
            fail(line, "variant suffix '" + suffix + "' must be upper-case letters");
        const FAMILY& fam = m_cat.families[m_last_family];
        for (std::size_t i = 2; i < t.size(); ++i) {
            const auto it = std::find(fam.sizes.begin(), fam.sizes.end(), t[i]);
            if (it == fam.sizes.end())
                fail(line, "variant of size " + t[i] + ", which the family does not have");
            add_device(line, m_last_family, int(it - fam.sizes.begin()), suffix);
        }
    }

    void add_device(int line, int family_value, int size_index, const std::string& suffix)
    {
        FAMILY& fam = m_cat.families[family_value];
        DEVICE d;
        d.line_no = line;
        d.name = fam.prefix + fam.sizes[size_index] + suffix;
        d.programmer_part = fam.prefix + fam.dies[size_index] + "M";
        d.pcf = fam.pcf;
        d.family = family_value;
        d.size_index = size_index;
        for (int v = 1; v <= fam.versions; ++v)
            d.configs.push_back(d.name + "_V" + std::to_string(v));
        if (d.name.size() < 5)
            fail(line, "device name " + d.name + " is shorter than 5 characters");
        if (d.name == "GENERIC" || d.name == "INVALID")
            fail(line, "device name " + d.name + " is reserved");
        if (!m_device_index.emplace(d.name, int(m_cat.devices.size())).second) {
            fail(line, "device " + d.name + " defined twice");
        }
        fam.devices.push_back(int(m_cat.devices.size()));
        m_cat.devices.push_back(d);
    }

    void statement_special(int line, const std::vector<std::string>& t)
    {
        expect_count(line, t, 3, 200);
        if (!is_pcf_name(t[1]))
            fail(line, "programming file name '" + t[1] + "' must be lower-case letters, digits and '_'");
        m_specials.push_back(SPECIAL{line, t[1], std::vector<std::string>(t.begin() + 2, t.end())});
    }

    static void claim_name(int line, std::set<std::string>& names, const std::string& name, const char* what)
    {
        if (!names.insert(to_upper(name)).second)
            fail(line, std::string(what) + " '" + name + "' is already used");
    }

    // Expands every family into its orderable parts and numbers them: the
    // parts of the regular families first, then the Generic part, then the
    // parts of late families.
    void build_parts(int end)
    {
        std::vector<PART> regular;
        std::vector<PART> late;
        for (int f = 1; f < FAMILY_MAX - 1; ++f) {
            const FAMILY& fam = m_cat.families[f];
            const int ladder = int(fam.ladder.size());
            const int sizes = int(fam.sizes.size());
            int option_es = 0;
            if (fam.status == STATUS::PREVIEW)
                option_es = option_index(ENGINEERING_SAMPLE_OPTION);
            for (int d : fam.devices) {
                const DEVICE& dev = m_cat.devices[d];
                // Spread the base sizes over the ladder so that small devices
                // get the small packages; variants share their die's window.
                const int span = ladder - fam.window;
                const int start = sizes == 1 ? 0 : (2 * dev.size_index * span + (sizes - 1)) / (2 * (sizes - 1));
                for (int k = 0; k < fam.window; ++k) {
                    const int package = fam.ladder[start + k];
                    ++m_cat.combo_count;
                    for (const GRADE& g : fam.grades) {
                        PART p;
                        p.device = d;
                        p.package = package;
                        p.temperature = g.temperature;
                        p.speed = g.speed;
                        p.option = fam.status == STATUS::PREVIEW ? option_es : option_index(g.option);
                        p.name = dev.name + m_cat.packages[package].code + g.temperature + std::to_string(g.speed) +
                                 m_cat.options[p.option];
                        (fam.late ? late : regular).push_back(p);
                    }
                }
            }
        }
        if (regular.empty())
            fail(end, "no part is numbered below the Generic part");
        if (late.empty())
            fail(end, "no part is numbered above the Generic part; mark a family 'late'");

        m_cat.parts.clear();
        PART invalid;
        invalid.name = "Invalid";
        m_cat.parts.push_back(invalid);
        m_cat.parts.insert(m_cat.parts.end(), regular.begin(), regular.end());
        m_cat.part_generic = int(m_cat.parts.size());
        PART generic;
        generic.name = "Generic";
        generic.device = DEVICE_MAX - 1;
        m_cat.parts.push_back(generic);
        m_cat.parts.insert(m_cat.parts.end(), late.begin(), late.end());

        std::set<std::string> names;
        for (std::size_t p = 1; p < m_cat.parts.size(); ++p) {
            const PART& part = m_cat.parts[p];
            if (int(p) == m_cat.part_generic)
                continue;
            const DEVICE& dev = m_cat.devices[part.device];
            if (!names.insert(part.name).second)
                fail(dev.line_no, "part name " + part.name + " occurs twice");
            if (m_device_index.count(part.name))
                fail(dev.line_no, "part name " + part.name + " equals a device name");
        }
        // A programmer part name must not be mistaken for a device or a part.
        for (std::size_t d = 1; d + 1 < m_cat.devices.size(); ++d) {
            const DEVICE& dev = m_cat.devices[d];
            if (m_device_index.count(dev.programmer_part) || names.count(dev.programmer_part)) {
                fail(dev.line_no, "programmer part name " + dev.programmer_part + " equals a device or part name");
            }
        }
    }

    int option_index(const std::string& option)
    {
        const auto it = std::find(m_cat.options.begin(), m_cat.options.end(), option);
        if (it != m_cat.options.end())
            return int(it - m_cat.options.begin());
        m_cat.options.push_back(option);
        return int(m_cat.options.size()) - 1;
    }

    void resolve_specials()
    {
        std::set<std::string> pcfs;
        for (int f = 1; f < FAMILY_MAX - 1; ++f)
            pcfs.insert(m_cat.families[f].pcf);
        for (const SPECIAL& s : m_specials) {
            if (!pcfs.insert(s.pcf).second)
                fail(s.line, "programming file name " + s.pcf + " is already used");
            int family = 0;
            for (const std::string& name : s.devices) {
                const auto it = m_device_index.find(name);
                if (it == m_device_index.end())
                    fail(s.line, "unknown device " + name);
                DEVICE& dev = m_cat.devices[it->second];
                if (family != 0 && dev.family != family)
                    fail(s.line, "the devices of one special file must share a family");
                family = dev.family;
                if (dev.pcf != m_cat.families[dev.family].pcf)
                    fail(s.line, "device " + name + " already has a special file");
                dev.pcf = s.pcf;
            }
        }
    }

    void resolve_csv_names(int end)
    {
        if (m_cat.csv_device.empty())
            fail(end, "missing 'csvdevice' statement");
        if (!m_device_index.count(m_cat.csv_device))
            fail(m_csv_device_line, "unknown device " + m_cat.csv_device);
        if (m_cat.csv_part.empty())
            fail(end, "missing 'csvpart' statement");
        bool found = false;
        for (std::size_t p = 1; p < m_cat.parts.size() && !found; ++p) {
            found = int(p) != m_cat.part_generic && m_cat.parts[p].name == m_cat.csv_part;
        }
        if (!found)
            fail(m_csv_part_line, "unknown part " + m_cat.csv_part);
        if (m_cat.csv_options.empty())
            fail(end, "missing 'csvoptions' statement");
        if (int(m_cat.csv_options.size()) != CSV_OPTION_FAMILY_COUNT) {
            fail(m_csv_options_line,
                 "'csvoptions' must name exactly " + std::to_string(CSV_OPTION_FAMILY_COUNT) + " families");
        }
        std::set<std::string> seen;
        for (const std::string& id : m_cat.csv_options) {
            bool known = false;
            for (int f = 1; f < FAMILY_MAX - 1; ++f)
                known = known || m_cat.families[f].identifier == id;
            if (!known)
                fail(m_csv_options_line, "unknown family identifier " + id);
            if (!seen.insert(id).second)
                fail(m_csv_options_line, "family " + id + " named twice");
        }
    }

    struct SPECIAL {
        int line;
        std::string pcf;
        std::vector<std::string> devices;
    };

    CATALOGUE& m_cat;
    LINE_SETTINGS m_line;
    int m_last_family = 0;
    int m_last_line = 0;
    int m_csv_device_line = 0;
    int m_csv_part_line = 0;
    int m_csv_options_line = 0;
    std::set<std::string> m_line_names;
    std::set<std::string> m_line_codes;
    std::set<std::string> m_family_names;
    std::map<std::string, int> m_device_index;
    std::vector<SPECIAL> m_specials;
};

// ---------------------------------------------------------------- writers

const char* const GENERATED_NOTE = "Generated by tools/generators/gen_catalogue from data/catalogue.txt; do not edit.";

const char* status_name(STATUS s)
{
    switch (s) {
    case STATUS::OBSOLETE: return "STATUS_OBSOLETE";
    case STATUS::PREVIEW: return "STATUS_PREVIEW";
    case STATUS::PRODUCTION: break;
    }
    return "STATUS_PRODUCTION";
}

std::string quoted(const std::string& s)
{
    return "\"" + s + "\"";
}

std::string enums_header(const CATALOGUE& c)
{
    std::ostringstream o;
    o << "// " << GENERATED_NOTE << "\n"
      << "//\n"
      << "// Families and devices of the " << c.maker << " catalogue. Value 0 is invalid; the last\n"
      << "// real value is followed by Generic (\"any family\", \"any device\") and the count.\n"
      << "#pragma once\n\n"
      << "enum DEV_FAMILY_ENUM {\n"
      << "    DEV_FAMILY_INVALID = 0,\n";
    for (int f = 1; f < FAMILY_MAX - 1; ++f)
        o << "    DEV_FAMILY_" << c.families[f].identifier << " = " << f << ",\n";
    o << "    DEV_FAMILY_GENERIC = " << FAMILY_MAX - 1 << ",\n"
      << "    DEV_FAMILY_MAX = " << FAMILY_MAX << "\n"
      << "};\n\n"
      << "enum DEV_DEVICE_ENUM {\n"
      << "    DEV_DEVICE_INVALID = 0,\n";
    for (int d = 1; d < DEVICE_MAX - 1; ++d)
        o << "    DEV_DEVICE_" << c.devices[d].name << " = " << d << ",\n";
    o << "    DEV_DEVICE_GENERIC = " << DEVICE_MAX - 1 << ",\n"
      << "    DEV_DEVICE_MAX = " << DEVICE_MAX << "\n"
      << "};\n\n"
      << "static_assert(DEV_FAMILY_MAX == " << FAMILY_MAX << " && DEV_FAMILY_GENERIC == DEV_FAMILY_MAX - 1,\n"
      << "              \"the library is built for " << FAMILY_MAX << " family values\");\n"
      << "static_assert(DEV_DEVICE_MAX == " << DEVICE_MAX << " && DEV_DEVICE_GENERIC == DEV_DEVICE_MAX - 1,\n"
      << "              \"the library is built for " << DEVICE_MAX << " device values\");\n";
    return o.str();
}

std::string data_source(const CATALOGUE& c)
{
    std::ostringstream o;
    o << "// " << GENERATED_NOTE << "\n\n"
      << "#include \"host/dev_catalogue_data.h\"\n\n"
      << "const int DEV_PART_INVALID = 0;\n"
      << "const int DEV_PART_GENERIC = " << c.part_generic << ";\n"
      << "const int DEV_PART_MAX = " << c.parts.size() << ";\n\n"
      << "namespace dev_catalogue_data {\n\n"
      << "const char MAKER_NAME[] = " << quoted(c.maker) << ";\n\n";

    o << "const PACKAGE_RECORD PACKAGES[] = {\n";
    for (const PACKAGE& p : c.packages)
        o << "    {" << quoted(p.code) << ", " << p.pins << "},\n";
    o << "};\nconst int PACKAGE_COUNT = " << c.packages.size() << ";\n\n";

    o << "const char* const OPTIONS[] = {";
    for (std::size_t i = 0; i < c.options.size(); ++i)
        o << (i ? ", " : "") << quoted(c.options[i]);
    o << "};\nconst int OPTION_COUNT = " << c.options.size() << ";\n"
      << "const int OPTION_ENGINEERING_SAMPLE = "
      << (std::find(c.options.begin(), c.options.end(), ENGINEERING_SAMPLE_OPTION) - c.options.begin()) << ";\n\n";

    o << "const char* const FAMILY_CONFIG_NAMES[] = {\n";
    std::vector<int> family_config_start;
    int count = 0;
    for (const FAMILY& f : c.families) {
        family_config_start.push_back(count);
        for (const std::string& n : f.configs) {
            o << "    " << quoted(n) << ",\n";
            ++count;
        }
    }
    o << "};\n\n";

    o << "const char* const PART_CONFIG_NAMES[] = {\n";
    std::vector<int> device_config_start;
    count = 0;
    for (const DEVICE& d : c.devices) {
        device_config_start.push_back(count);
        for (const std::string& n : d.configs) {
            o << "    " << quoted(n) << ",\n";
            ++count;
        }
    }
    o << "};\n\n";

    o << "const FAMILY_RECORD FAMILIES[DEV_FAMILY_MAX] = {\n"
      << "    // identifier, display name, programmer family key, user-visible name, programming file,\n"
      << "    // first configuration name, configuration names, status\n";
    for (std::size_t i = 0; i < c.families.size(); ++i) {
        const FAMILY& f = c.families[i];
        o << "    {" << quoted(f.identifier) << ", " << quoted(f.display) << ", " << quoted(f.key) << ", "
          << quoted(f.user_name) << ", " << quoted(f.pcf) << ", " << family_config_start[i] << ", " << f.configs.size()
          << ", " << status_name(f.status) << "},\n";
    }
    o << "};\n\n";

    o << "const DEVICE_RECORD DEVICES[DEV_DEVICE_MAX] = {\n"
      << "    // name, programmer part name, programming file, family, first configuration name,\n"
      << "    // configuration names\n";
    for (std::size_t i = 0; i < c.devices.size(); ++i) {
        const DEVICE& d = c.devices[i];
        o << "    {" << quoted(d.name) << ", " << quoted(d.programmer_part) << ", " << quoted(d.pcf) << ", " << d.family
          << ", " << device_config_start[i] << ", " << d.configs.size() << "},\n";
    }
    o << "};\n\n";

    o << "const PART_RECORD PARTS[] = {\n"
      << "    // name, device, package, speed grade, temperature, option\n";
    for (const PART& p : c.parts) {
        o << "    {" << quoted(p.name) << ", " << p.device << ", " << p.package << ", " << p.speed << ", '"
          << p.temperature << "', " << p.option << "},\n";
    }
    o << "};\n"
      << "const int PART_COUNT = " << c.parts.size() << ";\n\n"
      << "} // namespace dev_catalogue_data\n";
    return o.str();
}

std::string ids_source(const CATALOGUE& c)
{
    std::ostringstream o;
    o << "// " << GENERATED_NOTE << "\n"
      << "//\n"
      << "// Identifier tables of the device information table: the names that its\n"
      << "// family, device, part and option columns may use.\n\n"
      << "#include \"moxdev/moxdev_dev_info_manager_auto_export.h\"\n"
      << "#include \"host/dev_catalogue_enums.h\"\n\n"
      << "namespace {\n\n"
      << "const MOXDEV_NAME_VALUE FAMILY_IDS[] = {\n";
    for (int f = 0; f < FAMILY_MAX; ++f) {
        o << "    {" << quoted(c.families[f].identifier) << ", DEV_FAMILY_" << c.families[f].identifier << "},\n";
    }
    int csv_device = 0;
    for (int d = 1; d < DEVICE_MAX - 1; ++d) {
        if (c.devices[d].name == c.csv_device)
            csv_device = d;
    }
    int csv_part = 0;
    for (std::size_t p = 1; p < c.parts.size(); ++p) {
        if (int(p) != c.part_generic && c.parts[p].name == c.csv_part)
            csv_part = int(p);
    }
    o << "};\n\n"
      << "const MOXDEV_NAME_VALUE DEVICE_IDS[] = {\n"
      << "    {\"INVALID\", DEV_DEVICE_INVALID},\n"
      << "    {" << quoted(c.csv_device) << ", DEV_DEVICE_" << c.devices[csv_device].name << "},\n"
      << "};\n\n"
      << "const MOXDEV_NAME_VALUE PART_IDS[] = {\n"
      << "    {\"INVALID\", 0},\n"
      << "    {" << quoted(c.csv_part) << ", " << csv_part << "},\n"
      << "};\n\n"
      << "const MOXDEV_NAME_VALUE OPTION_IDS[] = {\n"
      << "    {\"DEV_FAMILY_INVALID\", DEV_FAMILY_INVALID},\n";
    for (const std::string& id : c.csv_options)
        o << "    {\"DEV_FAMILY_" << id << "\", DEV_FAMILY_" << id << "},\n";
    o << "};\n\n"
      << "static_assert(sizeof(FAMILY_IDS) / sizeof(FAMILY_IDS[0]) == DEV_FAMILY_MAX, \"one identifier per family "
         "value\");\n\n"
      << "} // namespace\n\n"
      << "const MOXDEV_NAME_TABLE MOXDEV_FAMILY_ID_TABLE = {FAMILY_IDS, sizeof(FAMILY_IDS) / sizeof(FAMILY_IDS[0])};\n"
      << "const MOXDEV_NAME_TABLE MOXDEV_DEVICE_ID_TABLE = {DEVICE_IDS, sizeof(DEVICE_IDS) / sizeof(DEVICE_IDS[0])};\n"
      << "const MOXDEV_NAME_TABLE MOXDEV_PART_ID_TABLE = {PART_IDS, sizeof(PART_IDS) / sizeof(PART_IDS[0])};\n"
      << "const MOXDEV_NAME_TABLE MOXDEV_OPTION_ID_TABLE = {OPTION_IDS, sizeof(OPTION_IDS) / sizeof(OPTION_IDS[0])};\n";
    return o.str();
}

std::string part_list(const CATALOGUE& c)
{
    std::ostringstream o;
    o << "// Orderable parts of the " << c.maker << " catalogue, in part-number order.\n"
      << "// " << GENERATED_NOTE << "\n"
      << "// Columns: PART DEVICE PACKAGE PINS SPEED TEMP PCF\n"
      << "//   PART     ordering name\n"
      << "//   DEVICE   device name\n"
      << "//   PACKAGE  package code\n"
      << "//   PINS     pin count\n"
      << "//   SPEED    speed grade\n"
      << "//   TEMP     temperature grade (C commercial, I industrial, A automotive, M military)\n"
      << "//   PCF      programming file of the device information record that serves the device\n";
    for (std::size_t p = 1; p < c.parts.size(); ++p) {
        if (int(p) == c.part_generic)
            continue;
        const PART& part = c.parts[p];
        const DEVICE& dev = c.devices[part.device];
        const PACKAGE& pkg = c.packages[part.package];
        o << part.name << ' ' << dev.name << ' ' << pkg.code << ' ' << pkg.pins << ' ' << part.speed << ' '
          << part.temperature << ' ' << dev.pcf << '\n';
    }
    return o.str();
}

// Writes one output; false (after a message) when it cannot be written.
bool write_if_changed(const std::filesystem::path& path, const std::string& content)
{
    try {
        moxdev_tools::store_if_changed(path, content);
        return true;
    } catch (const std::exception& error) {
        std::cerr << "gen_catalogue: " << error.what() << "\n";
        return false;
    }
}

int usage()
{
    std::cerr << "usage: gen_catalogue DESCRIPTION OUTDIR [--part-list FILE]\n";
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string part_list_path;
    std::vector<std::string> positional;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--part-list") {
            if (i + 1 == args.size())
                return usage();
            part_list_path = args[++i];
        } else if (!args[i].empty() && args[i][0] == '-') {
            return usage();
        } else {
            positional.push_back(args[i]);
        }
    }
    if (positional.size() != 2)
        return usage();
    const std::string& description = positional[0];
    const std::filesystem::path out_dir = positional[1];

    std::ifstream in(description);
    if (!in) {
        std::cerr << "gen_catalogue: cannot open " << description << "\n";
        return 1;
    }
    CATALOGUE catalogue;
    try {
        PARSER parser(catalogue);
        parser.parse(in);
        parser.finish();
    } catch (const DESCRIPTION_ERROR& e) {
        std::cerr << description << ":" << e.line() << ": error: " << e.what() << "\n";
        return 1;
    }

    bool ok = write_if_changed(out_dir / "host" / "dev_catalogue_enums.h", enums_header(catalogue));
    ok = write_if_changed(out_dir / "host" / "dev_catalogue_data.cpp", data_source(catalogue)) && ok;
    ok = write_if_changed(out_dir / "moxdev" / "moxdev_dev_info_ids.cpp", ids_source(catalogue)) && ok;
    if (!part_list_path.empty())
        ok = write_if_changed(part_list_path, part_list(catalogue)) && ok;
    return ok ? 0 : 1;
}
