#include "moxdev/moxdev_sfdp.h"

#include "moxdev/flash/moxdev_flash_questions.h"

#include "moxdev/internal/moxdev_bytes.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr WORD BFPT_ID = 0xFF00;
// A BFPT shorter than this is not a JESD216 table.
constexpr DWORD BFPT_MIN_DWORDS = 9;
constexpr std::size_t HEADER_BYTES = 8;

// Bounds-checked little-endian reads of the given bytes.
struct BYTES {
    const BYTE* data;
    std::size_t size;

    bool has(std::size_t at, std::size_t count) const { return at <= size && count <= size - at; }
    DWORD dword(std::size_t at) const { return moxdev::bytes::load_le32(data + at); }
};

DWORD bits(DWORD value, unsigned high, unsigned low)
{
    return (value >> low) & ((DWORD(1) << (high - low + 1)) - 1);
}

// An erase type's typical time, DWORD 10: count in bits 4:0, unit in 6:5.
DWORD erase_time_ms(DWORD field)
{
    static const DWORD unit_ms[] = {1, 16, 128, 1000};
    return (bits(field, 4, 0) + 1) * unit_ms[bits(field, 6, 5)];
}

std::string hex_id(WORD id)
{
    return fmt::format("{:04X}", id);
}

// Decodes the BFPT's DWORDs (numbered from 1) into `sfdp`.
bool decode_bfpt(const std::vector<DWORD>& dw, MOXDEV_SFDP& sfdp, std::string& error)
{
    auto dword = [&](std::size_t n) { return dw[n - 1]; };
    const DWORD first = dword(1);
    sfdp.address = MOXDEV_SFDP_ADDRESS(bits(first, 18, 17));
    if (sfdp.address == MOXDEV_SFDP_ADDRESS::RESERVED)
        sfdp.warnings.push_back("DWORD 1 gives a reserved address mode (bits 18:17 = 3)");
    sfdp.read_1_4_4 = bits(first, 21, 21) == 1;
    sfdp.read_1_1_4 = bits(first, 22, 22) == 1;

    const DWORD density = dword(2);
    if (density & 0x80000000u) {
        const DWORD exponent = density & 0x7FFFFFFFu;
        if (exponent > 32) {
            error = fmt::format("the density 2^{} bits does not fit (at most 2^32 bits)", exponent);
            return false;
        }
        sfdp.density_bits = QWORD(1) << exponent;
    } else {
        sfdp.density_bits = QWORD(density) + 1;
    }

    for (BYTE type = 1; type <= 4; ++type) {
        const DWORD word = dword(type <= 2 ? 8 : 9);
        const unsigned shift = type % 2 == 1 ? 0 : 16;
        const DWORD exponent = bits(word, shift + 7, shift);
        if (exponent == 0)
            continue;
        if (exponent >= 32) {
            sfdp.warnings.push_back(
                fmt::format("erase type {} gives an impossible size 2^{}; ignored", type, exponent));
            continue;
        }
        MOXDEV_SFDP_ERASE_TYPE erase;
        erase.type = type;
        erase.size = DWORD(1) << exponent;
        erase.opcode = BYTE(bits(word, shift + 15, shift + 8));
        sfdp.erase_types.push_back(erase);
    }
    if (sfdp.erase_types.empty()) {
        error = "the BFPT lists no erase type";
        return false;
    }

    // Unused DWORDs read as all ones: such a DWORD gives nothing.
    auto present = [&](std::size_t n) { return dw.size() >= n && dword(n) != 0xFFFFFFFFu; };
    if (present(10)) {
        const DWORD times = dword(10);
        const DWORD multiplier = 2 * (bits(times, 3, 0) + 1);
        for (MOXDEV_SFDP_ERASE_TYPE& erase : sfdp.erase_types) {
            const unsigned low = 4 + 7 * (erase.type - 1);
            const DWORD typical = erase_time_ms(bits(times, low + 6, low));
            erase.typical_ms = typical;
            erase.max_ms = typical * multiplier;
        }
    }
    if (present(11)) {
        const DWORD word = dword(11);
        const DWORD multiplier = 2 * (bits(word, 3, 0) + 1);
        sfdp.page_size = DWORD(1) << bits(word, 7, 4);
        const DWORD program = (bits(word, 12, 8) + 1) * (bits(word, 13, 13) ? 64 : 8);
        sfdp.page_program_typical_us = program;
        sfdp.page_program_max_us = program * multiplier;
        static const DWORD chip_unit_ms[] = {16, 256, 4000, 64000};
        const DWORD chip = (bits(word, 28, 24) + 1) * chip_unit_ms[bits(word, 30, 29)];
        sfdp.chip_erase_typical_ms = chip;
        sfdp.chip_erase_max_ms = chip * multiplier;
    }
    if (present(15))
        sfdp.quad_enable = BYTE(bits(dword(15), 22, 20));
    return true;
}

} // namespace

bool moxdev_decode_sfdp(const BYTE* data, std::size_t size, MOXDEV_SFDP& sfdp, std::string& error)
{
    sfdp = MOXDEV_SFDP{};
    const BYTES in{data, data == nullptr ? 0 : size};
    if (in.size > MOXDEV_SFDP_MAX_BYTES) {
        error = fmt::format("{} bytes are more than an SFDP read holds (at most {})", in.size, MOXDEV_SFDP_MAX_BYTES);
        return false;
    }
    if (!in.has(0, HEADER_BYTES) || in.dword(0) != 0x50444653u) {
        error = "no \"SFDP\" signature at address 0";
        return false;
    }
    sfdp.minor = data[4];
    sfdp.major = data[5];
    const std::size_t count = std::size_t(data[6]) + 1;
    if (!in.has(HEADER_BYTES, count * HEADER_BYTES)) {
        error = fmt::format("the {} parameter headers reach beyond the {} bytes given", count, in.size);
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const BYTE* header = data + HEADER_BYTES * (i + 1);
        MOXDEV_SFDP_PARAMETER_HEADER table;
        table.id = WORD(header[7] << 8 | header[0]);
        table.minor = header[1];
        table.major = header[2];
        table.length = header[3];
        table.pointer = moxdev::bytes::load_le24(header + 4);
        sfdp.tables.push_back(table);
    }

    // The first header is the BFPT's; JESD216 1.0 parts may give 00 as the
    // ID's MSB.
    MOXDEV_SFDP_PARAMETER_HEADER& bfpt = sfdp.tables.front();
    if (bfpt.id != BFPT_ID && (bfpt.id & 0xFF) == 0x00 && (bfpt.id >> 8) == 0x00) {
        sfdp.warnings.push_back("the BFPT header gives ID 0000 (JESD216 1.0 style); read as FF00");
        bfpt.id = BFPT_ID;
    }
    if (bfpt.id != BFPT_ID) {
        error = "the first parameter header is " + hex_id(bfpt.id) + ", not the basic flash parameter table (FF00)";
        return false;
    }
    if (bfpt.length < BFPT_MIN_DWORDS) {
        error = fmt::format("the BFPT has {} DWORDs, fewer than the 9 of JESD216", bfpt.length);
        return false;
    }
    if (!in.has(bfpt.pointer, std::size_t(bfpt.length) * 4)) {
        error = fmt::format("the BFPT ({} DWORDs at 0x{:06X}) reaches beyond the {} bytes given", bfpt.length,
                            bfpt.pointer, in.size);
        return false;
    }
    for (std::size_t i = 1; i < sfdp.tables.size(); ++i) {
        const MOXDEV_SFDP_PARAMETER_HEADER& table = sfdp.tables[i];
        if (!in.has(table.pointer, std::size_t(table.length) * 4))
            sfdp.warnings.push_back(fmt::format("table {} ({} DWORDs at 0x{:06X}) reaches beyond the data read",
                                                hex_id(table.id), table.length, table.pointer));
    }

    sfdp.bfpt_dwords = bfpt.length;
    std::vector<DWORD> dwords(bfpt.length);
    for (DWORD i = 0; i < bfpt.length; ++i)
        dwords[i] = in.dword(bfpt.pointer + 4 * std::size_t(i));
    return decode_bfpt(dwords, sfdp, error);
}

// ---------------------------------------------------------------- makers

std::string moxdev_jedec_maker(BYTE code)
{
    // JEDEC JEP106 bank-1 codes of serial NOR flash makers, as listed in
    // flashrom's include/flashchips.h (commit b946ca13) and used by the flash
    // table. 0x20 is shared by Micron (formerly ST/Numonyx) and XMC; callers
    // that know the chip's type byte ask the flash table first.
    static const struct {
        BYTE code;
        const char* name;
    } makers[] = {
        {0x01, "SPANSION"}, {0x0B, "XTX"},        {0x0E, "ZBIT"},     {0x1C, "EON"},     {0x1F, "ADESTO"},
        {0x20, "MICRON"},   {0x2C, "MICRON"},     {0x34, "INFINEON"}, {0x37, "AMIC"},    {0x68, "BOYA"},
        {0x85, "PUYA"},     {0x8C, "ESMT"},       {0x9D, "ISSI"},     {0xBA, "ZETTA"},   {0xBF, "SST"},
        {0xC2, "MACRONIX"}, {0xC8, "GIGADEVICE"}, {0xEF, "WINBOND"},  {0xF8, "FIDELIX"},
    };
    for (const auto& maker : makers) {
        if (maker.code == code)
            return maker.name;
    }
    return "";
}

// ---------------------------------------------------------------- record

namespace {

// The sector: a 64 KiB erase type, else the smallest one above 64 KiB, else
// the largest.
const MOXDEV_SFDP_ERASE_TYPE& sector_erase_type(const std::vector<MOXDEV_SFDP_ERASE_TYPE>& erase_types)
{
    const MOXDEV_SFDP_ERASE_TYPE* sector = nullptr;
    for (const MOXDEV_SFDP_ERASE_TYPE& erase : erase_types) {
        if (erase.size == 65536)
            sector = &erase;
    }
    for (const MOXDEV_SFDP_ERASE_TYPE& erase : erase_types) {
        if (erase.size > 65536 && (sector == nullptr || (sector->size > 65536 && erase.size < sector->size)))
            sector = &erase;
    }
    for (const MOXDEV_SFDP_ERASE_TYPE& erase : erase_types) {
        if (sector == nullptr || (sector->size < 65536 && erase.size > sector->size))
            sector = &erase;
    }
    return *sector;
}

// The fields that identify the chip: maker, name and its three Read-ID bytes
// in Read-ID order, usable without a switch.
void identify(MOXDEV_SFDP_RECORD& result, const BYTE id[3], const std::string& name, const std::string& maker)
{
    MOXDEV_SFL_FLASH_INFO& r = result.record;
    r.manufacturer_name = maker.empty() ? moxdev_jedec_maker(id[0]) : maker;
    if (r.manufacturer_name.empty()) {
        r.manufacturer_name = fmt::format("JEDEC_{:02X}", id[0]);
        result.warnings.push_back(fmt::format("maker code {:02X} is not in the maker table", id[0]));
    }
    r.device_name = name.empty() ? fmt::format("SFDP_{:02X}{:02X}{:02X}", id[0], id[1], id[2]) : name;
    r.silicon_id = false;
    r.memory_id = id[2];
    r.memory_id_index = 2;
    r.memory_type = id[1];
    r.memory_type_index = 1;
    r.mfc_id = id[0];
    r.mfc_id_index = 0;
    r.velmar_id = moxdev::detail::USER_FLASH_VELMAR_ID;
    r.default_dev = true;
    r.ini = "NONE";
}

// The three times: the SFDP maxima rounded up to the record's units, or the
// assumptions' per-unit times where SFDP gives none.
void set_times(MOXDEV_SFDP_RECORD& result, const MOXDEV_SFDP& sfdp, const MOXDEV_SFDP_ERASE_TYPE& sector,
               const MOXDEV_SFDP_ASSUMPTIONS& assumptions)
{
    MOXDEV_SFL_FLASH_INFO& r = result.record;
    auto seconds = [](DWORD ms) { return std::max<DWORD>(1, (ms + 999) / 1000); };
    if (sfdp.chip_erase_max_ms) {
        r.bulk_erase_time = seconds(*sfdp.chip_erase_max_ms);
    } else {
        const QWORD mbit = std::max<QWORD>(1, sfdp.density_bits >> 20);
        r.bulk_erase_time =
            DWORD(std::min<QWORD>(0xFFFFFFFFu, (mbit * assumptions.chip_erase_ms_per_mbit + 999) / 1000));
        result.assumed.emplace_back("bulk_erase_time");
    }
    if (sector.max_ms) {
        r.sec_erase_time = seconds(*sector.max_ms);
    } else {
        const QWORD units = std::max<QWORD>(1, sector.size / 65536);
        r.sec_erase_time = DWORD((units * assumptions.sector_erase_ms_per_64k + 999) / 1000);
        result.assumed.emplace_back("sec_erase_time");
    }
    if (sfdp.page_program_max_us) {
        r.program_utime = *sfdp.page_program_max_us;
    } else {
        r.program_utime = assumptions.page_program_us;
        result.assumed.emplace_back("program_utime");
    }
}

} // namespace

bool moxdev_sfdp_record(const MOXDEV_SFDP& sfdp, const BYTE id[3], const std::string& name, const std::string& maker,
                        const MOXDEV_SFDP_ASSUMPTIONS& assumptions, MOXDEV_SFDP_RECORD& result, std::string& error)
{
    result = MOXDEV_SFDP_RECORD{};
    MOXDEV_SFL_FLASH_INFO& r = result.record;
    auto assume = [&](std::initializer_list<const char*> fields) {
        result.assumed.insert(result.assumed.end(), fields.begin(), fields.end());
    };

    if (sfdp.density_bits == 0 || sfdp.density_bits > 0xFFFFFFFFull) {
        error = fmt::format("the density of {} bits does not fit the record's 32-bit field", sfdp.density_bits);
        return false;
    }
    if (sfdp.erase_types.empty()) {
        error = "the BFPT lists no erase type";
        return false;
    }
    if ((sfdp.density_bits & (sfdp.density_bits - 1)) != 0)
        result.warnings.push_back(fmt::format("the density {} bits is not a power of two", sfdp.density_bits));
    const MOXDEV_SFDP_ERASE_TYPE& sector = sector_erase_type(sfdp.erase_types);

    identify(result, id, name, maker);
    r.extended_mode = sfdp.read_1_1_4 || sfdp.read_1_4_4;
    r.micron_flow = r.spansion_flow = r.startup_protected = r.aai_mode = r.flag_status = false;
    assume({"micron_flow", "spansion_flow", "startup_protected", "aai_mode", "flag_status"});
    r.die_count = assumptions.die_count;
    assume({"die_count"});
    r.device_bit_size = DWORD(sfdp.density_bits);
    r.device_sector_byte = sector.size;
    r.half_size = false;
    r.byte4_addressing = sfdp.density_bits > (QWORD(128) << 20);
    if (sfdp.address == MOXDEV_SFDP_ADDRESS::THREE && r.byte4_addressing)
        result.warnings.push_back("the chip is larger than 128 Mbit but SFDP lists 3-byte addresses only");

    set_times(result, sfdp, sector, assumptions);
    r.protection_mask = assumptions.protection_mask;
    r.protection_value = assumptions.protection_value;
    r.unprotect_value = assumptions.unprotect_value;
    r.protection_division = 255;
    r.bottom_value = 255;
    r.sdm_support = false;
    r.asc_voltage = assumptions.voltage;
    assume({"protection_mask", "protection_value", "unprotect_value", "protection_division", "bottom_value",
            "sdm_support", "asc_voltage"});
    return true;
}
