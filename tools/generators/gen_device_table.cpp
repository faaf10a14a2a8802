// gen_device_table: writes the device table (data/mox_dev_info.csv) from its
// readable source, the files of data/devices/.
//
// Usage: gen_device_table INDEX OUTPUT
//
// INDEX lists the source files in table order; their format is in
// data/devices/README.md. The keys are the record's field names, taken from
// the same field list the record is expanded from
// (moxdev_device_info_fields.def). Every error is reported as
// "FILE:LINE: error: message" and ends the run with exit status 1 before
// anything is written; the table is only rewritten when it changes.

#include "tools/generators/generated_file.h"

#include "moxdev/table.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct FIELD {
    const char* name;
    MOXDEV_MANAGER_TYPE type;
};
const std::vector<FIELD> FIELDS = {
#define MOXDEV_DEVICE_FIELD(name, stream_type, type) {#name, MOXDEV_MANAGER_##stream_type},
#include "moxdev/moxdev_device_info_fields.def"
};
// The record's name is its programming-file name.
constexpr const char* NAME_FIELD = "pcf";

using VALUES = std::map<std::string, std::string>;

struct RECORD {
    std::string name;
    VALUES values;
};

class SOURCES {
public:
    // Reads every file the index names; false after any error.
    bool read_index(const std::string& index)
    {
        std::ifstream in(index);
        if (!in)
            return error(index, 0, "cannot read the index");
        const std::filesystem::path folder = std::filesystem::path(index).parent_path();
        std::string text;
        for (int line = 1; std::getline(in, text); ++line) {
            std::istringstream words(text.substr(0, text.find('#')));
            std::string file;
            if (words >> file)
                read_file((folder / file).string());
        }
        if (m_errors == 0 && m_records.empty())
            error(index, 0, "the sources hold no record");
        return m_errors == 0;
    }

    const std::vector<RECORD>& records() const { return m_records; }

private:
    void read_file(const std::string& path)
    {
        std::ifstream in(path);
        if (!in) {
            error(path, 0, "cannot read the file");
            return;
        }
        // A file's records start from the base defaults until the file sets
        // its own.
        m_file_defaults = m_base;
        VALUES* block = nullptr;
        std::string text;
        for (int line = 1; std::getline(in, text); ++line) {
            std::istringstream words(text.substr(0, text.find('#')));
            std::string key, value, extra;
            if (!(words >> key))
                continue;
            words >> value >> extra;
            if (key == "defaults") {
                block = open_defaults(path, line);
            } else if (key == "record") {
                block = open_record(path, line, value);
            } else if (block == nullptr) {
                error(path, line, "'" + key + "' before any 'defaults' or 'record' line");
            } else if (value.empty() || !extra.empty()) {
                error(path, line, "'" + key + "' takes one value");
            } else if (key == "like") {
                like(path, line, value, *block);
            } else {
                set(path, line, key, value, *block);
            }
        }
        finish_block(path);
    }

    VALUES* open_defaults(const std::string& path, int line)
    {
        finish_block(path);
        m_in_base = m_base.empty() && m_records.empty();
        m_block_line = line;
        m_keys.clear();
        return m_in_base ? &m_base : &(m_file_defaults = m_base);
    }

    VALUES* open_record(const std::string& path, int line, const std::string& name)
    {
        finish_block(path);
        if (name.empty())
            error(path, line, "a record is named by its programming-file name");
        for (const RECORD& record : m_records) {
            if (record.name == name)
                error(path, line, "a second record named " + name);
        }
        if (m_base.empty())
            error(path, line, "the first file sets the defaults before any record");
        m_records.push_back({name, m_file_defaults});
        m_records.back().values[NAME_FIELD] = name;
        m_block_line = line;
        m_keys.clear();
        return &m_records.back().values;
    }

    // The base defaults must give every field but the name.
    void finish_block(const std::string& path)
    {
        if (!m_in_base)
            return;
        m_in_base = false;
        for (const FIELD& field : FIELDS) {
            if (field.name != std::string(NAME_FIELD) && m_base.count(field.name) == 0)
                error(path, m_block_line, std::string("the defaults give no ") + field.name);
        }
    }

    void like(const std::string& path, int line, const std::string& name, VALUES& values)
    {
        if (!m_keys.empty() || &values == &m_base || &values == &m_file_defaults)
            return (void)error(path, line, "'like' is the first line of a record");
        for (const RECORD& record : m_records) {
            if (record.name == name && &record.values != &values) {
                const std::string own = values[NAME_FIELD];
                values = record.values;
                values[NAME_FIELD] = own;
                m_keys.push_back("like");
                return;
            }
        }
        error(path, line, "'like' names no earlier record: " + name);
    }

    void set(const std::string& path, int line, const std::string& key, const std::string& value, VALUES& values)
    {
        const FIELD* found = nullptr;
        for (const FIELD& field : FIELDS)
            found = key == field.name ? &field : found;
        if (found == nullptr || key == NAME_FIELD)
            return (void)error(path, line, "'" + key + "' is no field of a device record");
        if (found->type == MOXDEV_MANAGER_BOOL && value != "TRUE" && value != "FALSE")
            return (void)error(path, line, key + " is TRUE or FALSE");
        for (const std::string& seen : m_keys) {
            if (seen == key)
                return (void)error(path, line, "'" + key + "' given twice");
        }
        m_keys.push_back(key);
        values[key] = value;
    }

    bool error(const std::string& path, int line, const std::string& message)
    {
        std::cerr << path << ":" << line << ": error: " << message << "\n";
        ++m_errors;
        return false;
    }

    VALUES m_base;          // what every record starts from
    VALUES m_file_defaults; // the base with the current file's defaults
    bool m_in_base = false;
    int m_block_line = 0;
    std::vector<std::string> m_keys; // the keys of the open record so far
    std::vector<RECORD> m_records;
    int m_errors = 0;
};

std::string table_text(const std::vector<RECORD>& records)
{
    std::string text;
    auto line = [&](auto cell_of) {
        for (std::size_t i = 0; i < FIELDS.size(); ++i)
            text += (i ? "," : "") + cell_of(FIELDS[i]);
        text += "\n";
    };
    line([](const FIELD& field) { return std::string(moxdev::table_type_name(field.type)); });
    line([](const FIELD& field) { return std::string(field.name); });
    for (const RECORD& record : records)
        line([&](const FIELD& field) { return record.values.at(field.name); });
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: gen_device_table INDEX OUTPUT\n";
        return 2;
    }
    SOURCES sources;
    if (!sources.read_index(argv[1]))
        return 1;
    try {
        if (moxdev_tools::store_if_changed(argv[2], table_text(sources.records())))
            std::cout << "wrote " << argv[2] << " (" << sources.records().size() << " records)\n";
    } catch (const std::exception& failure) {
        std::cerr << argv[2] << ": error: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
