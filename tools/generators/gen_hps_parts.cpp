// gen_hps_parts: build-time generator of the HPS built-in flash part tables.
//
// Usage: gen_hps_parts PARTS OUT.cpp
//
// Reads the part list (data/hps/parts.txt, whose header comment documents
// the syntax) and writes OUT.cpp, the constant NAND and SPI part tables in
// list order. The keys are the records' field names, taken from the same
// field lists the records are expanded from (moxdev_hps_*_fields.def), so a
// field added there is asked for here. Every error is reported as
// "PARTS:LINE: error: message" on standard error and ends the run with exit
// status 1 before anything is written.

#include "generated_file.h"

#include <cstdint>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct FIELD {
    const char* name;
    const char* type; // DWORD, QWORD, std::string or bool
};

const std::vector<FIELD> NAND_FIELDS = {
#define MOXDEV_HPS_FIELD(name, type, ...) {#name, #type},
#include "moxdev/moxdev_hps_nand_fields.def"
};
const std::vector<FIELD> SPI_FIELDS = {
#define MOXDEV_HPS_FIELD(name, type, ...) {#name, #type},
#include "moxdev/moxdev_hps_spi_fields.def"
};

// One kind of part: its fields, its defaults so far and its parts.
struct KIND {
    const char* name;
    const char* record;
    const char* table;
    const std::vector<FIELD>* fields;
    std::map<std::string, std::string> defaults;
    std::vector<std::map<std::string, std::string>> parts;
    std::vector<int> lines; // where each part opened
};

class READER {
public:
    explicit READER(std::string path) : m_path(std::move(path)) {}

    bool read(std::istream& in, KIND& nand, KIND& spi)
    {
        std::string text;
        std::map<std::string, std::string>* block = nullptr;
        const KIND* kind = nullptr;
        for (int line = 1; std::getline(in, text); ++line) {
            const std::size_t comment = text.find('#');
            std::istringstream words(text.substr(0, comment));
            std::string key, value, extra;
            if (!(words >> key))
                continue;
            words >> value >> extra;
            if (key == "nand" || key == "spi") {
                KIND& opened = key == "nand" ? nand : spi;
                if (!value.empty())
                    error(line, "'" + key + "' stands alone on its line");
                opened.parts.push_back(opened.defaults);
                opened.lines.push_back(line);
                block = &opened.parts.back();
                kind = &opened;
            } else if (key == "defaults") {
                KIND* opened = value == "nand" ? &nand : value == "spi" ? &spi : nullptr;
                if (opened == nullptr) {
                    error(line, "'defaults' names the kind: nand or spi");
                    continue;
                }
                opened->defaults.clear();
                block = &opened->defaults;
                kind = opened;
            } else if (block == nullptr) {
                error(line, "'" + key + "' before any 'nand', 'spi' or 'defaults' line");
            } else {
                field(line, *kind, *block, key, value, extra);
            }
        }
        return m_errors == 0;
    }

    void complete(const KIND& kind)
    {
        for (std::size_t p = 0; p < kind.parts.size(); ++p)
            for (const FIELD& field : *kind.fields)
                if (kind.parts[p].count(field.name) == 0)
                    error(kind.lines[p], std::string(kind.name) + " part without " + field.name);
    }
    bool good() const { return m_errors == 0; }

private:
    void field(int line, const KIND& kind, std::map<std::string, std::string>& block, const std::string& key,
               const std::string& value, const std::string& extra)
    {
        const FIELD* found = nullptr;
        for (const FIELD& field : *kind.fields)
            found = key == field.name ? &field : found;
        if (found == nullptr)
            return error(line, "'" + key + "' is no field of a " + kind.name + " part");
        if (value.empty() || !extra.empty())
            return error(line, "'" + key + "' takes one value");
        std::string code;
        if (!literal(found->type, value, code))
            return error(line, "'" + value + "' is not a value for " + key + " (" + found->type + ")");
        const bool is_default = &block == &kind.defaults;
        if (!is_default && block.count(key) != 0 && kind.defaults.count(key) == 0)
            return error(line, "'" + key + "' given twice");
        block[key] = code;
    }

    // The C++ literal of `value` for a field of `type`.
    static bool literal(const std::string& type, const std::string& value, std::string& code)
    {
        if (type == "bool") {
            code = value == "yes" ? "true" : "false";
            return value == "yes" || value == "no";
        }
        if (type == "std::string") {
            code = "\"" + value + "\"";
            return value.find_first_of("\"\\") == std::string::npos;
        }
        std::string digits = value;
        int shift = 0;
        const char unit = digits.empty() ? '\0' : digits.back();
        if (unit == 'K' || unit == 'M' || unit == 'G') {
            shift = unit == 'K' ? 10 : unit == 'M' ? 20 : 30;
            digits.pop_back();
        }
        const bool hex = digits.rfind("0x", 0) == 0;
        const std::string body = hex ? digits.substr(2) : digits;
        if (body.empty() ||
            body.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos ||
            body.size() > 16)
            return false;
        const unsigned long long number = std::stoull(body, nullptr, hex ? 16 : 10);
        const unsigned long long limit = type == "QWORD" ? ~0ull : 0xFFFFFFFFull;
        if (number > (limit >> shift))
            return false;
        std::ostringstream out;
        out << "0x" << std::hex << std::uppercase << (number << shift) << (type == "QWORD" ? "ull" : "u");
        code = out.str();
        return true;
    }

    void error(int line, const std::string& message)
    {
        std::cerr << m_path << ":" << line << ": error: " << message << "\n";
        ++m_errors;
    }

    std::string m_path;
    int m_errors = 0;
};

std::string table_source(const KIND& kind)
{
    std::string text = std::string("const ") + kind.record + " " + kind.table + "[] = {\n";
    for (const auto& part : kind.parts) {
        text += "    {";
        for (std::size_t f = 0; f < kind.fields->size(); ++f)
            text += (f ? ", " : "") + part.at((*kind.fields)[f].name);
        text += "},\n";
    }
    text += "};\n";
    text += std::string("const std::size_t ") + kind.table + "_COUNT = " + std::to_string(kind.parts.size()) + ";\n";
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: gen_hps_parts PARTS OUT.cpp\n";
        return 2;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::cerr << argv[1] << ": error: cannot read the part list\n";
        return 1;
    }
    KIND nand{"nand", "MOXDEV_HPS_NAND_STRUCTURE", "MOXDEV_HPS_NAND_PARTS", &NAND_FIELDS, {}, {}, {}};
    KIND spi{"spi", "MOXDEV_HPS_SPI_STRUCTURE", "MOXDEV_HPS_SPI_PARTS", &SPI_FIELDS, {}, {}, {}};
    READER reader(argv[1]);
    reader.read(in, nand, spi);
    reader.complete(nand);
    reader.complete(spi);
    if (!reader.good())
        return 1;
    const std::string source = "// Generated by gen_hps_parts from data/hps/parts.txt: do not edit.\n"
                               "#include \"moxdev/hps/moxdev_hps_parts.h\"\n\n" +
                               table_source(nand) + "\n" + table_source(spi);
    try {
        moxdev_tools::store_if_changed(argv[2], source);
    } catch (const std::exception& failure) {
        std::cerr << argv[2] << ": error: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
