// Serial Flash Discoverable Parameters: what a JEDEC serial NOR flash tells
// about itself when read with command 5Ah from address 0, and the flash record
// that follows from it.
//
// moxdev_decode_sfdp() reads the SFDP header, every parameter header and the
// Basic Flash Parameter Table (BFPT): address modes, fast-read modes, density,
// the erase types with their sizes, opcodes and times, the page size and the
// page-program and chip-erase times. The bytes come from hardware, so nothing
// here is an internal error: a malformed read gives a readable message and a
// false result, and no byte outside the given ones is read.
//
// moxdev_sfdp_record() turns the decoded facts and the three Read-ID bytes
// into a MOXDEV_SFL_FLASH_INFO by fixed rules, so that every tool derives the
// same record, and says which fields SFDP could not tell and were assumed.
#pragma once

#include "moxdev/moxdev_flash_manager.h"

#include "host/host_types.h"

#include <optional>
#include <string>
#include <vector>

// The most SFDP bytes the decoder reads: the address space of the tables is
// 24 bits, but every real SFDP area is a few hundred bytes.
constexpr std::size_t MOXDEV_SFDP_MAX_BYTES = 64 * 1024;

struct MOXDEV_SFDP_PARAMETER_HEADER {
    WORD id = 0;    // MSB from byte 7, LSB from byte 0: 0xFF00 for the BFPT
    BYTE major = 0; // table revision
    BYTE minor = 0;
    DWORD length = 0;  // in DWORDs
    DWORD pointer = 0; // byte address of the table
};

struct MOXDEV_SFDP_ERASE_TYPE {
    BYTE type = 0;  // 1 to 4
    DWORD size = 0; // bytes
    BYTE opcode = 0;
    std::optional<DWORD> typical_ms;
    std::optional<DWORD> max_ms;
};

enum class MOXDEV_SFDP_ADDRESS { THREE, THREE_OR_FOUR, FOUR, RESERVED };

struct MOXDEV_SFDP {
    BYTE major = 0;
    BYTE minor = 0;
    std::vector<MOXDEV_SFDP_PARAMETER_HEADER> tables; // in header order, the BFPT first
    DWORD bfpt_dwords = 0;
    MOXDEV_SFDP_ADDRESS address = MOXDEV_SFDP_ADDRESS::THREE;
    bool read_1_1_4 = false;
    bool read_1_4_4 = false;
    QWORD density_bits = 0;
    std::vector<MOXDEV_SFDP_ERASE_TYPE> erase_types; // the types present, by type number
    std::optional<DWORD> page_size;
    std::optional<DWORD> page_program_typical_us;
    std::optional<DWORD> page_program_max_us;
    std::optional<DWORD> chip_erase_typical_ms;
    std::optional<DWORD> chip_erase_max_ms;
    std::optional<BYTE> quad_enable; // DWORD 15 bits 22:20
    std::vector<std::string> warnings;
};

// Decodes `size` bytes of an SFDP read that started at address 0. On failure
// returns false and sets `error` to one line saying what is wrong.
bool moxdev_decode_sfdp(const BYTE* data, std::size_t size, MOXDEV_SFDP& sfdp, std::string& error);

// What SFDP does not tell: the values a derived record takes for them unless
// the caller knows better. Every default is one that errs on the safe side.
struct MOXDEV_SFDP_ASSUMPTIONS {
    BYTE die_count = 1;
    std::string voltage = "3.3V";
    BYTE protection_mask = 0x3C;  // BP0-BP3 in status register 1, bits 2-5
    BYTE protection_value = 0x3C; // all of them set
    BYTE unprotect_value = 0x00;
    // Times for a table that gives none (JESD216 1.0, nine DWORDs): the
    // longest maxima of the flash table's cited chips, per unit erased.
    DWORD page_program_us = 7000;
    DWORD sector_erase_ms_per_64k = 4000;
    DWORD chip_erase_ms_per_mbit = 6000;
};

struct MOXDEV_SFDP_RECORD {
    MOXDEV_SFL_FLASH_INFO record;
    std::vector<std::string> assumed; // names of the fields SFDP did not give
    std::vector<std::string> warnings;
};

// The maker name of a JEDEC manufacturer code (Read-ID byte 0), "" if unknown.
std::string moxdev_jedec_maker(BYTE code);

// Derives the record of a chip from its SFDP facts and Read-ID bytes
// (maker, type, capacity). `name` becomes device_name; empty gives "SFDP_"
// and the six hex digits of the ID. `maker` is the manufacturer name; empty
// looks the code up. Returns false with `error` when the facts cannot make
// a usable record (no erase type, a density the record cannot hold).
bool moxdev_sfdp_record(const MOXDEV_SFDP& sfdp, const BYTE id[3], const std::string& name, const std::string& maker,
                        const MOXDEV_SFDP_ASSUMPTIONS& assumptions, MOXDEV_SFDP_RECORD& result, std::string& error);
