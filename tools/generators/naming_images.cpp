#include "tools/generators/naming_images.h"
#include "generated_file.h"

#include "host/dev_catalogue_naming.h"
#include "host/mox_common.h"
#include "host/msg.h"
#include "host/zlib_wrapper.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <system_error>

namespace moxdev_images {

namespace {

constexpr char MAGIC[] = "MOXDEV_DDB";
constexpr std::size_t MAGIC_LENGTH = 10;

#define IMAGE_CHECK(condition)                                                                                         \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            MSG_INTERNAL_ERROR::report(#condition, "MOXDEV", __FILE__, __LINE__);                                      \
    } while (0)

// A table being collected: keys in byte order, contents in insertion order.
using TABLE_BUILDER = std::map<std::string, std::vector<std::string>>;

// Lists `content` under `key` once; empty names are left out, so an entry
// exists only once it has a content.
void add(TABLE_BUILDER& table, const std::string& key, const std::string& content)
{
    if (key.empty() || content.empty())
        return;
    std::vector<std::string>& contents = table[key];
    if (std::find(contents.begin(), contents.end(), content) == contents.end())
        contents.push_back(content);
}

void add(TABLE_BUILDER& table, const std::string& key, const std::vector<std::string>& contents)
{
    for (const std::string& content : contents)
        add(table, key, content);
}

std::vector<int> real_parts()
{
    std::vector<int> parts;
    for (int part = DEV_PART_INVALID + 1; part < DEV_PART_MAX; ++part) {
        if (part != DEV_PART_GENERIC && dstr_is_valid_dev_part_enum(part))
            parts.push_back(part);
    }
    return parts;
}

void append_string(std::vector<BYTE>& out, const std::string& text)
{
    out.insert(out.end(), text.begin(), text.end());
    out.push_back(0);
}

// Magic first, CRC last, low byte first.
std::vector<BYTE> start_frame()
{
    return std::vector<BYTE>(MAGIC, MAGIC + MAGIC_LENGTH);
}

void end_frame(std::vector<BYTE>& image)
{
    const DWORD crc = frame_crc(image.data(), image.size());
    for (int shift = 0; shift < 32; shift += 8)
        image.push_back(BYTE(crc >> shift));
}

std::size_t content_count(const GRAMMAR_TABLE& table)
{
    std::size_t count = 0;
    for (const auto& entry : table)
        count += entry.second.size();
    return count;
}

} // namespace

const char* grammar_table_name(std::size_t index)
{
    static const char* const NAMES[] = {"SPEEDGRADE", "PACKAGE",    "MOX_PART",   "MOX_FAMILY",
                                        "DEV_PART",   "DEV_FAMILY", "PCF_FAMILY", "FAMILY"};
    return index < std::size(NAMES) ? NAMES[index] : "";
}

GRAMMAR_TABLES build_grammar_tables()
{
    const DEV_PART_MANAGER manager;

    // Parts by device and devices by family, in catalogue order.
    std::map<int, std::vector<int>> parts_of_device;
    for (int part : real_parts())
        parts_of_device[manager.get_device_of(part)].push_back(part);
    std::map<int, std::vector<DEV_DEVICE_ENUM>> devices_of_family;
    for (int value = DEV_DEVICE_INVALID + 1; value < DEV_DEVICE_GENERIC; ++value) {
        const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(value);
        devices_of_family[manager.get_family_of(device)].push_back(device);
    }

    std::array<TABLE_BUILDER, 8> tables;
    TABLE_BUILDER& speedgrade = tables[0];
    TABLE_BUILDER& package = tables[1];
    TABLE_BUILDER& mox_part = tables[2];
    TABLE_BUILDER& mox_family = tables[3];
    TABLE_BUILDER& dev_part = tables[4];
    TABLE_BUILDER& dev_family = tables[5];
    TABLE_BUILDER& pcf_family = tables[6];
    TABLE_BUILDER& family_table = tables[7];

    for (int part : real_parts()) {
        const std::string package_name = dcat_get_part_package_name(part);
        add(speedgrade, package_name, dstr_get_user_string(part));
        add(package, dstr_get_user_string(manager.get_device_of(part)), package_name);
    }

    for (int value = DEV_DEVICE_INVALID + 1; value < DEV_DEVICE_GENERIC; ++value) {
        const DEV_DEVICE_ENUM device = DEV_DEVICE_ENUM(value);
        const std::string name = dstr_get_user_string(device);
        const std::string part_name = dcat_get_programmer_part_name(device);
        const std::string family_key = dcat_get_programmer_family_key(manager.get_family_of(device));
        const std::vector<std::string> configs = dcat_get_part_config_names(device);

        // The device, then its ordering names, so that an ordering name finds
        // its programmer part name as directly as the device name does.
        add(mox_part, part_name, name);
        for (int part : parts_of_device[value])
            add(mox_part, part_name, dstr_get_user_string(part));
        add(mox_family, family_key, name);
        add(dev_part, part_name, configs);
        add(dev_family, family_key, configs);
    }

    for (int value = DEV_FAMILY_INVALID + 1; value < DEV_FAMILY_GENERIC; ++value) {
        const DEV_FAMILY_ENUM family = DEV_FAMILY_ENUM(value);
        const std::vector<std::string> configs = dcat_get_family_config_names(family);
        add(pcf_family, dcat_get_programmer_family_key(family), configs);

        // Devices are found through their programmer part name; only the
        // devices of a preview family are listed by name as well.
        const std::string user_name = dcat_get_user_family_name(family);
        for (DEV_DEVICE_ENUM device : devices_of_family[value])
            add(family_table, user_name, dcat_get_programmer_part_name(device));
        add(family_table, user_name, configs);
        if (dcat_get_family_status(family) == DEV_FAMILY_STATUS::PREVIEW) {
            for (DEV_DEVICE_ENUM device : devices_of_family[value])
                add(family_table, user_name, dstr_get_user_string(device));
        }
    }

    GRAMMAR_TABLES result;
    for (std::size_t i = 0; i < tables.size(); ++i)
        result[i].assign(tables[i].begin(), tables[i].end());
    const std::string problem = check_grammar_tables(result);
    if (!problem.empty())
        MSG_INTERNAL_ERROR::report("grammar tables of the catalogue: " + problem, "MOXDEV", __FILE__, __LINE__);
    return result;
}

std::string check_grammar_tables(const GRAMMAR_TABLES& tables)
{
    for (std::size_t i = 0; i < tables.size(); ++i) {
        const std::string table = grammar_table_name(i);
        if (tables[i].empty())
            return "table " + table + " is empty";
        std::set<std::string> keys;
        for (const auto& entry : tables[i]) {
            if (entry.first.empty())
                return "table " + table + " has an empty key";
            if (!keys.insert(entry.first).second)
                return "table " + table + " has the key " + entry.first + " twice";
            if (entry.second.empty())
                return "entry " + entry.first + " of table " + table + " has no contents";
            std::set<std::string> contents;
            for (const std::string& content : entry.second) {
                if (content.empty())
                    return "entry " + entry.first + " of table " + table + " has an empty name";
                if (content.find('\0') != std::string::npos || entry.first.find('\0') != std::string::npos)
                    return "entry " + entry.first + " of table " + table + " has a zero byte in a name";
                if (!contents.insert(content).second)
                    return "entry " + entry.first + " of table " + table + " lists " + content + " twice";
            }
        }
    }
    return "";
}

std::vector<BYTE> write_grammar_image(const GRAMMAR_TABLES& tables)
{
    std::vector<BYTE> image = start_frame();
    for (const GRAMMAR_TABLE& table : tables) {
        for (const auto& entry : table) {
            append_string(image, entry.first);
            for (const std::string& content : entry.second)
                append_string(image, content);
            image.push_back(0); // end of the content list
        }
        image.push_back(0); // end of the table
    }
    end_frame(image);
    return image;
}

std::vector<DWORD> build_opn_table()
{
    std::vector<DWORD> parts;
    for (int part : real_parts())
        parts.push_back(DWORD(part));
    return parts;
}

void append_number(std::vector<BYTE>& out, DWORD value)
{
    while (value >= 0x80) {
        out.push_back(BYTE(value | 0x80));
        value >>= 7;
    }
    out.push_back(BYTE(value));
}

std::vector<BYTE> write_opn_image(const std::vector<DWORD>& parts)
{
    std::vector<BYTE> image = start_frame();
    const DWORD count = DWORD(parts.size());
    for (int shift = 0; shift < 32; shift += 8)
        image.push_back(BYTE(count >> shift));
    for (DWORD part : parts)
        append_number(image, part);
    end_frame(image);
    return image;
}

DWORD frame_crc(const BYTE* data, std::size_t length)
{
    return ~MOX_COMMON::msb_calculate_crc32(data, 0, DWORD(length * 8), 0xFFFFFFFFu, 0x04C11DB7u, true);
}

std::vector<BYTE> compress(const std::vector<BYTE>& data)
{
    // Room for zlib's worst case (stored blocks) on any input.
    DWORD length = DWORD(data.size() + data.size() / 8 + 64);
    std::vector<BYTE> out(length);
    const int status = zlib_compress(out.data(), &length, data.data(), DWORD(data.size()));
    IMAGE_CHECK(status == ZLIB_OK);
    out.resize(length);
    return out;
}

std::string describe(const GRAMMAR_TABLES& tables)
{
    std::string text;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        text += (i ? ", " : "") + std::string(grammar_table_name(i)) + " " + std::to_string(tables[i].size()) + "/" +
                std::to_string(content_count(tables[i]));
    }
    return text;
}

bool store_file(const std::string& path, const std::vector<BYTE>& bytes)
{
    return moxdev_tools::store_if_changed(path, std::string(bytes.begin(), bytes.end()));
}

IMAGES build_images()
{
    IMAGES images;
    images.tables = build_grammar_tables();
    images.grammar = write_grammar_image(images.tables);
    images.grammar_compressed = compress(images.grammar);
    images.parts = build_opn_table();
    IMAGE_CHECK(!images.parts.empty());
    images.opn = write_opn_image(images.parts);
    images.opn_compressed = compress(images.opn);
    return images;
}

std::vector<std::string> store_images(const IMAGES& images, const std::string& dir)
{
    const bool grammar_written = store_file(dir + "/grammar.img", images.grammar);
    const bool opn_written = store_file(dir + "/opn.img", images.opn);
    auto sizes = [](const std::vector<BYTE>& raw, const std::vector<BYTE>& compressed, bool written) {
        return "; " + std::to_string(raw.size()) + " bytes, " + std::to_string(compressed.size()) + " compressed" +
               (written ? "" : " (unchanged)");
    };
    return {"grammar image: " + describe(images.tables) +
                sizes(images.grammar, images.grammar_compressed, grammar_written),
            "OPN image: " + std::to_string(images.parts.size()) + " parts" +
                sizes(images.opn, images.opn_compressed, opn_written)};
}

} // namespace moxdev_images
