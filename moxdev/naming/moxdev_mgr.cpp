#include "moxdev/moxdev_mgr.h"

#include "moxdev/internal/moxdev_assert.h"
#include "moxdev/moxdev_ddb_mgr.h"
#include "moxdev/naming/moxdev_ddb_internal.h"

#include "host/dev_catalogue.h"
#include "host/gen_string.h"
#include "host/mox_common.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>

// Internal errors of this file are the class's own.
static constexpr const char* MOXDEV_UNIT = "moxdev_mgr";

namespace {

// Value names of the four object kinds, indexed by value. Value 0 is never
// supported; its name only fills the slot.
// clang-format off
const char* const BLOCK_NAMES[] = {
    "NONE", "CC_CS_0", "CC_CS_1", "CC_CS_2", "CC_CS_3", "CC_CS_4", "CC_CS_5", "CC_CS_6",
    "CC_CS_VIO", "DS_DSP", "RT_DSPL", "RT_DSPR", "LA_LAB", "LA_MLAB", "RT_LABL", "RT_LABR",
    "RT_MLABL", "RT_MLABR", "MM_M20K", "MM_M10K", "RT_M20KL", "RT_M20KR", "RT_M10KL", "RT_M10KR",
    "RT_BUFL", "RT_BUFL_AND_BCAP", "RT_BUFL_AND_TCAP", "RT_BCAP_HIP_HIOL", "RT_BCAP_HIP_HIOR",
    "RT_BCAP_MLABX_ALL", "RT_TCAP_HIP_HIOL", "RT_TCAP_HIP_HIOR", "RT_TCAP_LAB_HIOR_HHP",
    "RT_TCAP_MLABX_ALL", "RT_BUFLC", "RT_BUFRC", "RT_BUFR", "RT_HIOL", "RT_HIOR", "RT_HIOR_HIP",
    "RT_VIO_DSP", "RT_VIO_LAB", "RT_VIO_LAB_PM", "RT_VIO_MLAB", "RT_VIO_M_LAB", "RT_VIO_M20K",
    "RT_VIO_M10K", "BF_LEFT_IO_AUX", "BF_RIGHT_IO_AUX", "CC_TS_22BUF", "CC_TS_22BUF_RED",
    "CC_TS_BASE", "CC_TS_BASE_B_0", "CC_TS_BASE_B_1", "CC_TS_BASE_B_2", "CC_TS_BASE_T_0",
    "CC_TS_BASE_T_1", "CC_TS_BASE_T_2", "CC_TS_SCLKMUX_0", "CC_TS_SCLKMUX_1", "CC_TS_SCLKMUX_2",
    "CC_TS_SCLKMUX_3", "CC_TS_SCLKMUX_4", "CC_TS_SCLKMUX_5", "CC_TS_SCLKMUX_6", "CC_TS_SCLKMUX_7",
    "RT_HIOL_BOT_ALIGN", "RT_HIOL_CORE", "RT_HIOL_TOP_ALIGN", "RT_HIOR_BOT_ALIGN", "RT_HIOR_CORE",
    "RT_HIOR_TOP_ALIGN", "RT_LABL_SHARED", "RT_M20KL_DSPL", "RT_M20KR_LABR", "TR_S4_AR",
};

const char* const FLASH_SECTOR_NAMES[] = {
    "NONE", "UFM1", "UFM0", "CFM2", "CFM1", "CFM0", "RESERVED6", "RESERVED7", "DONE_BITS",
};

const char* const OPTION_BIT_NAMES[] = {
    "NONE", "RESERVED1", "RESERVED2", "RESERVED3", "RESERVED4", "RESERVED5", "RESERVED6",
    "RESERVED7", "RESERVED8", "RESERVED9", "RESERVED10", "RESERVED11", "RESERVED12", "RESERVED13",
    "RESERVED14", "RESERVED15", "RESERVED16", "RESERVED17", "RESERVED18", "RESERVED19",
    "RESERVED20", "AES_KEYS", "FALLBACK_ADDR", "EPOF_ONLY", "TEST_DISABLE", "JTAG_SECURITY",
    "SPI_NSDM", "PROGRAM_DONE", "KEY_PROGRAM_SUCCESS", "ICB_PROGRAM_SUCCESS", "VERIFY_PROTECT",
    "TEST_ENABLE", "WD_TIMEOUT_VALUE", "UWEN", "FORCE_SSMCLK_TO_ISMCLK", "FALLBACK", "CFM_ADD",
    "CFM_X2", "DELAY_ON", "POR_DLY", "WP_EN", "WP_EN_SPI", "CISCO_RU",
};

const char* const HPS_SETTING_NAMES[] = {
    "NONE", "HPS_CONFIG_ORDER_HPS_FIRST", "HPS_CONFIG_ORDER_HPS_AFTER_INIT_DONE",
    "HPS_CONFIG_ORDER_HPS_BY_FPGA", "SOF_FILE_ERROR_POF_ERROR",
    "SOF_FILE_ERROR_INCOMPLETE_POWER_MANAGEMENT", "SOF_FILE_ERROR_INCOMPLETE_HPS_HANDOFF",
    "SOF_FILE_ERROR_INCOMPLETE_HPS_BOOTLOADER", "SOF_FILE_ERROR_NOT_SUPPORTED",
    "SOF_FILE_ERROR_NOT_ENABLED", "SOF_FILE_ERROR_PRSEC_ERROR", "SOF_FILE_ERROR_REV4",
    "SOF_FILE_ERROR_REV5", "SOF_FILE_ERROR_REV6", "SOF_FILE_ERROR_REV7", "SOF_FILE_ERROR_REV8",
    "SOF_FILE_ERROR_REV9", "SOF_FILE_ERROR_REV10", "HPS_DAP_SPLIT_MODE_DISABLED",
    "HPS_DAP_SPLIT_MODE_USE_SDM_PINS", "HPS_DAP_SPLIT_MODE_USE_HPS_PINS",
};
// clang-format on

struct NAME_LIST {
    const char* const* names;
    DWORD count;
};

template <std::size_t N>
constexpr NAME_LIST list_of(const char* const (&names)[N])
{
    return NAME_LIST{names, DWORD(N)};
}

const NAME_LIST TYPE_NAMES[MOX_ENUM_TYPE_MAX] = {list_of(BLOCK_NAMES), list_of(FLASH_SECTOR_NAMES),
                                                 list_of(OPTION_BIT_NAMES), list_of(HPS_SETTING_NAMES)};

std::string upper(std::string text)
{
    stl_toupper(text);
    return text;
}

bool usable_part(int part)
{
    return part != DEV_PART_INVALID && part != DEV_PART_GENERIC && part < DEV_PART_MAX;
}

// The parts a catalogue-wide search visits, in order: from the first valid
// part up to Generic or the end, whichever comes first.
int search_end()
{
    return std::min(DEV_PART_GENERIC, DEV_PART_MAX);
}

// The low 48 bits of the SHA-256 of `text`.
QWORD hash48(const std::string& text)
{
    std::unique_ptr<BYTE[]> digest(
        MOX_COMMON::get_block_sha(reinterpret_cast<const BYTE*>(text.data()), DWORD(text.size()), 32));
    MOXDEV_ASSERT_MSG(digest != nullptr, "digest != NULL");
    QWORD hash = 0;
    for (int i = 5; i >= 0; --i)
        hash = (hash << 8) | digest[i];
    return hash;
}

// The upper-cased name of every searched part by the low 48 bits of its
// name's SHA-256, built once: turning a hash back into a name is then one
// probe, not a digest per part. The smallest part wins a shared hash.
const absl::flat_hash_map<QWORD, std::string>& opn_hash_index()
{
    static const absl::flat_hash_map<QWORD, std::string> index = [] {
        absl::flat_hash_map<QWORD, std::string> names;
        names.reserve(std::size_t(std::max(search_end() - 1, 0)));
        for (int part = DEV_PART_INVALID + 1; part < search_end(); ++part) {
            std::string name = upper(dstr_get_user_string(part));
            const QWORD hash = hash48(name);
            names.try_emplace(hash, std::move(name));
        }
        return names;
    }();
    return index;
}

// The first OPN enum of every part, by part; INVALID_DWORD for a part no OPN
// enum holds.
const std::vector<DWORD>& opn_enum_index()
{
    static const std::vector<DWORD> index = [] {
        const std::vector<DWORD>& table = moxdev_opn_table();
        std::vector<DWORD> first(std::size_t(std::max(DEV_PART_MAX, 0)), INVALID_DWORD);
        for (DWORD i = 0; i < table.size(); ++i) {
            if (table[i] < first.size() && first[table[i]] == INVALID_DWORD)
                first[table[i]] = i;
        }
        return first;
    }();
    return index;
}

// Every name a searched part can be found by, each with the full ordering
// name of the smallest part it stands for: a part's name itself, and (when
// they share its first five characters) its name without speed grade and its
// device name.
using FULL_NAME_INDEX = absl::flat_hash_map<std::string, std::string>;

FULL_NAME_INDEX build_full_name_index()
{
    FULL_NAME_INDEX names;
    // Parts in ascending order: the first part recorded for a name is the
    // smallest.
    for (int part = DEV_PART_INVALID + 1; part < search_end(); ++part) {
        const std::string full = upper(dstr_get_user_string(part));
        names.try_emplace(full, full);
        if (full.size() < 5)
            continue;
        for (const std::string& form : {moxdev_package_name(full, false), moxdev_device_name(full, false, false)}) {
            if (form != full && form.size() >= 5 && form.compare(0, 5, full, 0, 5) == 0)
                names.try_emplace(form, full);
        }
    }
    return names;
}

const FULL_NAME_INDEX& full_name_index()
{
    static const FULL_NAME_INDEX index = build_full_name_index();
    return index;
}

// The catalogue's search passes: up to four calls of filter_part_list, from
// the narrowest to the widest, stopping at the first that `take` accepts a
// part from.
template <class TAKE>
std::string search_passes(const DEV_PART_MANAGER& catalogue, const std::string& family, TAKE take)
{
    for (int pass = 0; pass < 4; ++pass) {
        std::vector<int> parts;
        if (!catalogue.filter_part_list(parts, family, "ANY", "ANY", "ANY", "ANY", pass < 2, pass % 2 == 0, false,
                                        "any") ||
            parts.empty())
            continue;
        for (int part : parts) {
            std::string name;
            if (take(part, name))
                return name;
        }
    }
    return std::string();
}

} // namespace

// ---------------------------------------------------------------- OPNs

std::string MOXDEV_MGR::get_opn(DWORD opn_enum)
{
    const std::vector<DWORD>& table = moxdev_opn_table();
    const int part = opn_enum < table.size() ? int(table[opn_enum]) : -1;
    if (part == -1 || !usable_part(part))
        return std::string();
    return upper(dstr_get_user_string(part));
}

DWORD MOXDEV_MGR::get_opn_enum(std::string name)
{
    const int part = dstr_get_dev_part_enum_by_string(name.c_str());
    if (!usable_part(part))
        return 0xFFFFFFFFu;
    const std::vector<DWORD>& index = opn_enum_index();
    return DWORD(part) < index.size() ? index[DWORD(part)] : 0xFFFFFFFFu;
}

QWORD MOXDEV_MGR::get_opn_hash(std::string name)
{
    if (!usable_part(dstr_get_dev_part_enum_by_string(name.c_str())))
        return 0xFFFFFFFFFFFFFFFFull;
    stl_toupper(name);
    return hash48(name);
}

std::string MOXDEV_MGR::get_opn_from_hash(QWORD hash)
{
    const auto& index = opn_hash_index();
    const auto found = index.find(hash & 0xFFFFFFFFFFFFull);
    return found == index.end() ? std::string() : found->second;
}

// ---------------------------------------------------------------- parts

std::string MOXDEV_MGR::get_part_name_from_dev(std::string device_name)
{
    const DEV_PART_MANAGER catalogue;
    const DEV_DEVICE_ENUM device = dstr_get_dev_device_enum_by_string(device_name.c_str());
    const DEV_FAMILY_ENUM family = catalogue.get_family_of(device);
    if (!dstr_is_valid_dev_device_enum(device) || !dstr_is_valid_dev_family_enum(family))
        MOXDEV_FAIL("Device is not valid in DEV database");
    return search_passes(catalogue, dstr_get_user_string(family), [&](int part, std::string& name) {
        if (catalogue.get_device_of(part) != device)
            return false;
        name = dstr_get_user_string(part);
        return true;
    });
}

std::string MOXDEV_MGR::get_part_name_from_pcf(std::string pcf_name)
{
    stl_toupper(pcf_name);
    const DEV_PART_MANAGER catalogue;
    return search_passes(catalogue, "ANY", [&](int part, std::string& name) {
        name = dstr_get_user_string(part);
        return MOX_COMMON::compare_string(MOXDEV_DEVICE_GRAMMAR_MGR::get_mox_part_pcf(name), pcf_name, false);
    });
}

namespace {

// The full ordering name `name` stands for, or null; `name` is upper-cased
// in place only when it has lower-case letters.
const std::string* full_name_of(std::string& name)
{
    if (std::any_of(name.begin(), name.end(), [](char c) { return c >= 'a' && c <= 'z'; }))
        stl_toupper(name);
    const FULL_NAME_INDEX& index = full_name_index();
    const auto found = index.find(name);
    return found == index.end() ? nullptr : &found->second;
}

} // namespace

std::string MOXDEV_MGR::find_possible_full_name(std::string name)
{
    const std::string* full = full_name_of(name);
    return full == nullptr ? std::string() : *full;
}

std::string MOXDEV_MGR::get_possible_full_name(std::string name)
{
    if (const std::string* full = full_name_of(name))
        return *full;
    MOXDEV_FAIL(fmt::format("Unable to retrieve full device name from database for {}", name));
}

// ---------------------------------------------------------------- types

bool MOXDEV_MGR::mox_check_type_enum_supported(MOX_ENUM_TYPE type, DWORD value, std::string* name_out)
{
    MOXDEV_ASSERT_MSG(DWORD(type) < DWORD(MOX_ENUM_TYPE_MAX), "mox_enum_type < MOX_ENUM_TYPE_MAX");
    const NAME_LIST& list = TYPE_NAMES[type];
    // Value 0 is never supported, whatever its slot holds.
    if (value == 0 || value >= list.count)
        return false;
    if (name_out != nullptr)
        *name_out = list.names[value];
    return true;
}

bool MOXDEV_MGR::mox_check_type_name_supported(MOX_ENUM_TYPE type, std::string name, DWORD* value_out)
{
    MOXDEV_ASSERT_MSG(DWORD(type) < DWORD(MOX_ENUM_TYPE_MAX), "mox_enum_type < MOX_ENUM_TYPE_MAX");
    stl_toupper(name);
    const NAME_LIST& list = TYPE_NAMES[type];
    for (DWORD value = 0; value < list.count; ++value) {
        if (name == list.names[value]) {
            if (value_out != nullptr)
                *value_out = value;
            return true;
        }
    }
    return false;
}
