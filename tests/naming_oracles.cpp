#include "naming_oracles.h"
#include "moxdev/internal/moxdev_bytes.h"

#include <algorithm>
#include <memory>

namespace moxdev_oracle {

namespace {

std::string normalised(std::string name)
{
    gen_remove_leading_and_trailing_white_spaces(name);
    stl_toupper(name);
    return name;
}

} // namespace

const MOXDEV_GRAMMAR_TABLES& tables()
{
    static const MOXDEV_GRAMMAR_TABLES decoded =
        moxdev_decode_grammar_image(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH);
    return decoded;
}

std::string reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM type, std::string name)
{
    name = normalised(name);
    for (const auto& [key, contents] : tables()[DWORD(type)]) {
        // (The literal lookup also copies each visited list; that changes no
        // answer, only the time.)
        if (std::find(contents.begin(), contents.end(), name) != contents.end())
            return key;
    }
    return std::string();
}

std::string package_name(const std::string& name, bool no_fallback)
{
    std::string result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::SPEEDGRADE, name);
    return result.empty() && !no_fallback ? normalised(name) : result;
}

std::string device_name(const std::string& name, bool skip_package_conversion, bool no_fallback)
{
    std::string result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::PACKAGE, name);
    if (result.empty() && !skip_package_conversion) {
        const std::string stripped = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::SPEEDGRADE, name);
        if (!stripped.empty())
            result = reverse_lookup(MOXDEV_DDB_GRAMMAR_ENUM::PACKAGE, stripped);
    }
    return result.empty() && !no_fallback ? normalised(name) : result;
}

std::string opn_from_hash(QWORD hash)
{
    for (int part = DEV_PART_INVALID + 1; part != DEV_PART_GENERIC && part != DEV_PART_MAX; ++part) {
        std::string name = dstr_get_user_string(part);
        stl_toupper(name);
        std::unique_ptr<BYTE[]> digest(
            MOX_COMMON::get_block_sha(reinterpret_cast<const BYTE*>(name.data()), DWORD(name.size()), 32));
        const DWORD low = moxdev::bytes::load_le32(digest.get());
        const WORD high = moxdev::bytes::load_le16(digest.get() + 4);
        if (low == DWORD(hash) && high == WORD(hash >> 32))
            return name;
    }
    return std::string();
}

std::string possible_full_name(std::string name)
{
    // The upper-cased display names, made once instead of once per call.
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (int part = DEV_PART_INVALID + 1; part != DEV_PART_GENERIC && part != DEV_PART_MAX; ++part) {
            all.push_back(dstr_get_user_string(part));
            stl_toupper(all.back());
        }
        return all;
    }();
    stl_toupper(name);
    for (const std::string& full : names) {
        if (full == name)
            return full;
        if (full.size() < 5 || name.size() < 5 || full.compare(0, 5, name, 0, 5) != 0)
            continue;
        // The stripping steps themselves are checked against the linear lookup
        // name by name elsewhere; here the search order is what is compared.
        if (MOXDEV_DEVICE_GRAMMAR_MGR::get_package_name(full, false) == name ||
            MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_name(full, false, false) == name)
            return full;
    }
    return std::string();
}

DWORD opn_enum_of(int part)
{
    const std::vector<DWORD> table = moxdev_decode_opn_image(MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH, MOXDDB_OPN_LENGTH);
    for (DWORD i = 0; i < table.size(); ++i) {
        if (table[i] == DWORD(part))
            return i;
    }
    return 0xFFFFFFFFu;
}

} // namespace moxdev_oracle
