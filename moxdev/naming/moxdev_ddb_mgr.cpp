#include "moxdev/moxdev_ddb_mgr.h"

#include "moxdev/internal/moxdev_bytes.h"

#include "moxdev/internal/moxdev_assert.h"
#include "moxdev/moxdev_database_codec.h"
#include "moxdev/naming/moxdev_ddb_internal.h"

#include "host/cfg.h"
#include "host/gen_string.h"
#include "host/mox_common.h"
#include "host/zlib_wrapper.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_ddb_mgr";

namespace {

constexpr DWORD TABLE_COUNT = DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX);
constexpr DWORD MAGIC_SIZE = 10;
constexpr DWORD CRC_SIZE = 4;
// Zero bytes kept past an inflated image.
constexpr DWORD IMAGE_PADDING = 100;

// ---------------------------------------------------------------- frame

// The inflated image of either kind, its frame checked. The buffer keeps the
// zero padding past the image, so every name in it ends with a zero byte.
struct IMAGE {
    std::unique_ptr<BYTE[]> data;
    DWORD size = 0;
};

// The texts name the compiled-in constants whatever image is decoded, so a
// failure reads the same for a build's own image and for one checked by hand.
struct FRAME_TEXTS {
    const char* uncompress;
    const char* length;
};
constexpr FRAME_TEXTS GRAMMAR_TEXTS = {
    "zlib_uncompress(data, &data_size, MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH) == ZLIB_OK",
    "data_size == MOXDDB_GRAMMAR_LENGTH"};
constexpr FRAME_TEXTS OPN_TEXTS = {
    "zlib_uncompress(data, &data_size, MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH) == ZLIB_OK",
    "data_size == MOXDDB_OPN_LENGTH"};

IMAGE inflate_image(const BYTE* compressed, DWORD cmp_length, DWORD length, const FRAME_TEXTS& texts)
{
    MOXDEV_ASSERT_MSG(compressed != nullptr && QWORD(length) <= QWORD(cmp_length) * MOXDEV_MAX_INFLATE_RATIO,
                      "image length exceeds what its compressed data can hold");
    IMAGE image;
    const DWORD capacity = length + IMAGE_PADDING;
    MOXDEV_ASSERT_MSG(capacity > length, "image length exceeds what its compressed data can hold");
    // Only the padding needs zeroing: inflation fills the rest, or fails.
    image.data.reset(new BYTE[capacity]);
    std::memset(&image.data[length], 0, IMAGE_PADDING);
    DWORD data_size = capacity;
    // The host's inflater reports one byte more than the buffer holds when the
    // stream goes on past it: such an image does not fit and fails inflation,
    // while one that fits but is longer than declared fails the length check.
    const bool fits =
        zlib_uncompress(image.data.get(), &data_size, compressed, cmp_length) == ZLIB_OK && data_size <= capacity;
    MOXDEV_ASSERT_MSG(fits, texts.uncompress);
    MOXDEV_ASSERT_MSG(data_size == length, texts.length);
    const BYTE* data = image.data.get();
    // The frame needs room for its magic, a body and the CRC.
    MOXDEV_ASSERT_MSG(data_size >= MAGIC_SIZE + CRC_SIZE, "data_size >= 14");
    MOXDEV_ASSERT(memcmp(data, "MOXDEV_DDB", 10) == 0);

    const DWORD crc32 =
        ~MOX_COMMON::msb_calculate_crc32(data, 0, (data_size - CRC_SIZE) * 8, 0xFFFFFFFFu, 0x04C11DB7u, true);
    MOXDEV_ASSERT_MSG(BYTE(crc32) == data[data_size - 4], "BYTE(crc32) == data[data_size-4]");
    MOXDEV_ASSERT_MSG(BYTE(crc32 >> 8) == data[data_size - 3], "BYTE(crc32 >> 8) == data[data_size-3]");
    MOXDEV_ASSERT_MSG(BYTE(crc32 >> 16) == data[data_size - 2], "BYTE(crc32 >> 16) == data[data_size-2]");
    MOXDEV_ASSERT_MSG(BYTE(crc32 >> 24) == data[data_size - 1], "BYTE(crc32 >> 24) == data[data_size-1]");
    image.size = data_size;
    return image;
}

// ---------------------------------------------------------------- grammar

struct ENTRY {
    DWORD key;   // offset of the key in the image
    DWORD first; // offset of its first name; the others follow it in the image
    DWORD count;

    // The key's terminating zero sits just before the first name.
    DWORD key_length() const { return first - key - 1; }
};

struct TABLE {
    std::vector<ENTRY> entries; // ascending key order
    // Each name to the smallest key that lists it, both views into the image.
    absl::flat_hash_map<std::string_view, std::string_view> index;
};

// The decoded grammar image. Names stay in the image, where each entry's
// names follow one another; the tables hold offsets, and each table has a
// hash index from a name to the smallest key that lists it, so a reverse
// lookup is one probe instead of a scan.
struct GRAMMAR {
    IMAGE image;
    std::array<TABLE, TABLE_COUNT> tables;

    const char* text(DWORD offset) const { return reinterpret_cast<const char*>(&image.data[offset]); }

    // Calls visit(name) for each name of `entry`, in image order.
    template <class VISIT>
    void for_each_name(const ENTRY& entry, VISIT visit) const
    {
        DWORD offset = entry.first;
        for (DWORD i = 0; i < entry.count; ++i) {
            const std::string_view name(text(offset));
            visit(name);
            offset += DWORD(name.size()) + 1;
        }
    }
};

// Decodes and checks an image.
GRAMMAR parse_grammar(const BYTE* compressed, DWORD cmp_length, DWORD length)
{
    GRAMMAR grammar;
    grammar.image = inflate_image(compressed, cmp_length, length, GRAMMAR_TEXTS);
    const BYTE* data = grammar.image.data.get();
    // In the body checks data_size is the image without its CRC.
    const DWORD data_size = grammar.image.size - CRC_SIZE;

    // Returns the offset of the string at `index` and moves past its zero.
    auto read_string = [&](DWORD& index) {
        MOXDEV_ASSERT(index < data_size);
        MOXDEV_ASSERT(data[index] != 0);
        const DWORD start = index;
        const void* end = std::memchr(&data[index], 0, data_size - index);
        index = end != nullptr ? DWORD(static_cast<const BYTE*>(end) - data) : data_size;
        MOXDEV_ASSERT(index < data_size && data[index] == 0);
        ++index;
        MOXDEV_ASSERT(index < data_size);
        return start;
    };

    DWORD pointer_index = 0;
    DWORD index = MAGIC_SIZE;
    absl::flat_hash_set<std::string_view> keys;     // of the table being read
    absl::flat_hash_set<std::string_view> contents; // of the entry being read
    while (index < data_size) {
        MOXDEV_ASSERT(pointer_index < DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX));
        TABLE& table = grammar.tables[pointer_index];

        const DWORD key = read_string(index);
        ENTRY entry{key, index, 0};
        contents.clear();
        while (data[index] != 0) {
            const DWORD name = read_string(index);
            const std::string_view content(grammar.text(name), index - 1 - name);
            MOXDEV_ASSERT_MSG(!content.empty(), "content.size()");
            MOXDEV_ASSERT_MSG(contents.insert(content).second,
                              "std::find(contents.begin(), contents.end(), content) == contents.end()");
            ++entry.count;
        }
        MOXDEV_ASSERT_MSG(entry.count > 0, "contents.size()");
        ++index;
        MOXDEV_ASSERT(index < data_size);
        const std::string_view key_text(grammar.text(key), entry.key_length());
        MOXDEV_ASSERT_MSG(keys.insert(key_text).second, "map->find(key) == map->end()");
        table.entries.push_back(entry);

        if (data[index] == 0) {
            ++index;
            ++pointer_index;
            keys.clear();
        }
    }
    MOXDEV_ASSERT(pointer_index == DWORD(MOXDEV_DDB_GRAMMAR_ENUM::MAX));
    return grammar;
}

// Puts each table in key order and indexes its names.
void index_grammar(GRAMMAR& grammar)
{
    auto by_key = [&](const ENTRY& a, const ENTRY& b) {
        return std::string_view(grammar.text(a.key), a.key_length()) <
               std::string_view(grammar.text(b.key), b.key_length());
    };
    for (TABLE& table : grammar.tables) {
        // The images are written in key order; sorting is for other ones.
        if (!std::is_sorted(table.entries.begin(), table.entries.end(), by_key))
            std::sort(table.entries.begin(), table.entries.end(), by_key);
        table.entries.shrink_to_fit();
        std::size_t listed = 0;
        for (const ENTRY& entry : table.entries)
            listed += entry.count;
        table.index.reserve(listed);
        // Entries are visited in key order, so the first listing kept is the
        // one under the smallest key.
        for (const ENTRY& entry : table.entries)
            grammar.for_each_name(entry, [&](std::string_view name) {
                table.index.try_emplace(name, std::string_view(grammar.text(entry.key), entry.key_length()));
            });
    }
}

// The compiled-in grammar, decoded and indexed.
std::unique_ptr<const GRAMMAR> build_grammar()
{
    auto grammar =
        std::make_unique<GRAMMAR>(parse_grammar(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH));
    index_grammar(*grammar);
    return grammar;
}

const GRAMMAR* grammar_manager()
{
    // Decoded once, on first use, under the language's guarded initialisation;
    // a failed decode leaves nothing behind and is repeated by the next call.
    static const std::unique_ptr<const GRAMMAR> mgr = build_grammar();
    return mgr.get();
}

// The caller's name, trimmed and upper-cased in place. The queries promise
// this normalisation to their callers even through a constant reference.
std::string& normalise(const std::string& name)
{
    std::string& text = const_cast<std::string&>(name);
    // Names mostly arrive normalised already; one look tells, and spares the
    // calls. Any control character or blank at either end counts as white.
    const bool blank_ends = !text.empty() && (static_cast<unsigned char>(text.front()) <= ' ' ||
                                              static_cast<unsigned char>(text.back()) <= ' ');
    bool lower_case = false;
    for (char c : text)
        lower_case |= c >= 'a' && c <= 'z';
    if (blank_ends)
        gen_remove_leading_and_trailing_white_spaces(text);
    if (lower_case)
        stl_toupper(text);
    return text;
}

std::string reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM type, const std::string& name)
{
    const GRAMMAR* mgr = grammar_manager();
    MOXDEV_ASSERT_MSG(mgr != nullptr, "mgr != NULL");
    MOXDEV_ASSERT(type < MOXDEV_DDB_GRAMMAR_ENUM::MAX);
    const TABLE& table = mgr->tables[DWORD(type)];
    const auto found = table.index.find(std::string_view(normalise(name)));
    return found == table.index.end() ? std::string() : std::string(found->second);
}

std::vector<std::string> part_configuration_list(const std::string& name)
{
    const GRAMMAR* mgr = grammar_manager();
    MOXDEV_ASSERT_MSG(mgr != nullptr, "mgr != NULL");
    const std::string& key = normalise(name);
    const TABLE* mapping = &mgr->tables[DWORD(MOXDEV_DDB_GRAMMAR_ENUM::DEV_PART)];
    MOXDEV_ASSERT_MSG(mapping != nullptr, "mapping != NULL");
    const auto entry = std::lower_bound(
        mapping->entries.begin(), mapping->entries.end(), key,
        [&](const ENTRY& e, const std::string& k) { return std::strcmp(mgr->text(e.key), k.c_str()) < 0; });
    std::vector<std::string> list;
    if (entry != mapping->entries.end() && key == mgr->text(entry->key))
        mgr->for_each_name(*entry, [&](std::string_view name) { list.emplace_back(name); });
    return list;
}

// ---------------------------------------------------------------- OPN

std::vector<DWORD> parse_opn(const BYTE* compressed, DWORD cmp_length, DWORD length)
{
    const IMAGE image = inflate_image(compressed, cmp_length, length, OPN_TEXTS);
    const BYTE* data = image.data.get();
    const DWORD data_size = image.size;
    MOXDEV_ASSERT_MSG(data_size >= MAGIC_SIZE + 4 + CRC_SIZE, "data_size >= 18");
    DWORD index = MAGIC_SIZE;
    const DWORD enum_count = moxdev::bytes::load_le32(&data[index]);
    index += 4;
    MOXDEV_ASSERT(enum_count > 0);
    // Every number takes at least one byte.
    MOXDEV_ASSERT_MSG(enum_count <= data_size - MAGIC_SIZE - 4 - CRC_SIZE, "index < (data_size - 4)");

    std::vector<DWORD> numbers;
    numbers.reserve(enum_count);
    for (DWORD n = 0; n < enum_count; ++n) {
        QWORD dev_enum = 0;
        QWORD shift = 0;
        BYTE byte;
        do {
            MOXDEV_ASSERT(index < (data_size - 4));
            byte = data[index++];
            if (shift < 64)
                dev_enum |= QWORD(byte & 0x7F) << shift;
            shift += 7;
        } while (byte & 0x80);
        // Five groups at most: the shift then stands at 35.
        MOXDEV_ASSERT(shift <= 35);
        MOXDEV_ASSERT(dev_enum <= QWORD(0xFFFFFFFF));
        numbers.push_back(DWORD(dev_enum));
    }
    MOXDEV_ASSERT(index == (data_size - 4));
    return numbers;
}

} // namespace

// ---------------------------------------------------------------- decoders

MOXDEV_GRAMMAR_TABLES moxdev_decode_grammar_image(const BYTE* data, DWORD cmp_length, DWORD length)
{
    const GRAMMAR grammar = parse_grammar(data, cmp_length, length);
    MOXDEV_GRAMMAR_TABLES tables;
    for (DWORD t = 0; t < TABLE_COUNT; ++t) {
        for (const ENTRY& entry : grammar.tables[t].entries) {
            std::vector<std::string>& names = tables[t][grammar.text(entry.key)];
            grammar.for_each_name(entry, [&](std::string_view name) { names.emplace_back(name); });
        }
    }
    return tables;
}

std::vector<DWORD> moxdev_decode_opn_image(const BYTE* data, DWORD cmp_length, DWORD length)
{
    return parse_opn(data, cmp_length, length);
}

const std::vector<DWORD>& moxdev_opn_table()
{
    static const std::unique_ptr<const std::vector<DWORD>> mgr = std::make_unique<const std::vector<DWORD>>(
        parse_opn(MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH, MOXDDB_OPN_LENGTH));
    MOXDEV_ASSERT_MSG(mgr != nullptr, "mgr != NULL");
    return *mgr;
}

// ---------------------------------------------------------------- queries

namespace {

// Prints the lines that `text` makes while the grammar debug switch is on;
// they are not even made while it is off.
template <class TEXT>
void print_grammar_debug(TEXT text)
{
    static const std::string key = "MOXDEV_ENABLE_GRAMMAR_DEBUG";
    if (cfg_is_on(key, false)) {
        std::fputs(text().c_str(), stdout);
        std::fflush(stdout);
    }
}

} // namespace

namespace {

std::string device_name(const std::string& name, bool skip_package_conversion, bool no_fallback, std::string& stripped)
{
    std::string result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::PACKAGE, name);
    if (result.empty() && !skip_package_conversion) {
        stripped = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::SPEEDGRADE, name);
        if (!stripped.empty())
            result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::PACKAGE, stripped);
    }
    if (result.empty() && !no_fallback)
        result = name;
    return result;
}

} // namespace

std::string moxdev_package_name(const std::string& name, bool no_fallback)
{
    std::string result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::SPEEDGRADE, name);
    if (result.empty() && !no_fallback)
        result = name;
    return result;
}

std::string moxdev_device_name(const std::string& name, bool skip_package_conversion, bool no_fallback)
{
    std::string stripped;
    return device_name(name, skip_package_conversion, no_fallback, stripped);
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(const std::string& name, bool no_fallback)
{
    const std::string result = moxdev_package_name(name, no_fallback);
    print_grammar_debug(
        [&] { return "Map Flow   : Strip Speedgrade\n    Input  : " + name + "\n    Output : " + result + "\n"; });
    return result;
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(const std::string& name, bool skip_package_conversion,
                                                    bool no_fallback)
{
    std::string stripped;
    const std::string result = device_name(name, skip_package_conversion, no_fallback, stripped);
    print_grammar_debug([&] {
        return std::string("Map Flow   : Strip Package (skip package conversion: ") +
               (skip_package_conversion ? "1" : "0") + ")\n    Input0 : " + name + "\n    Input1 : " + stripped +
               "\n    Output : " + result + "\n";
    });
    return result;
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_family(const std::string& name)
{
    std::string result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::FAMILY, name);
    if (!result.empty())
        return result;
    std::string part = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::MOX_PART, name);
    if (part.empty())
        part = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::DEV_PART, name);
    return part.empty() ? std::string() : reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::FAMILY, part);
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_device(const std::string& name)
{
    const std::vector<std::string> list = part_configuration_list(name);
    return list.empty() ? std::string() : list.front();
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_part_pcf(const std::string& name)
{
    return reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::MOX_PART, name);
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_family_pcf(const std::string& name)
{
    return reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::MOX_FAMILY, name);
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_part_pcf(const std::string& name)
{
    return reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::DEV_PART, name);
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_family_pcf(const std::string& name)
{
    return reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::DEV_FAMILY, name);
}

std::string MOXDEV_DEVICE_GRAMMAR_MGR::get_pcf_family_pcf(const std::string& name)
{
    return reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::PCF_FAMILY, name);
}

void MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_pcfs(const std::string& name, std::string& part_pcf, std::string& family_pcf)
{
    const std::string device = get_mox_name(name, false, false);
    part_pcf = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::MOX_PART, device);
    family_pcf = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::MOX_FAMILY, device);
}

void MOXDEV_DEVICE_GRAMMAR_MGR::get_dev_pcfs(const std::string& name, std::string& part_pcf, std::string& family_pcf)
{
    part_pcf = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::DEV_PART, name);
    family_pcf = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::DEV_FAMILY, name);
}

bool MOXDEV_DEVICE_GRAMMAR_MGR::use_full_name(const std::string& name)
{
    const std::string package = get_package_name(name, true);
    const std::string device = package.empty() ? std::string() : get_mox_name(package, false, true);
    return !name.empty() && name == package && package == device;
}

bool MOXDEV_DEVICE_GRAMMAR_MGR::use_package_name(const std::string& name)
{
    const std::string package = get_package_name(name, false);
    const std::string device = get_mox_name(package, true, true);
    return package == device;
}
