// The project's own functions on the HPS flash parts: how a person's answers
// become a part (the rules the prompts state, from the record's field list),
// and how the user's parts are packed into and unpacked from their data set
// of the parameter file. The managers (moxdev/moxdev_hps_mgr.h) only read.
#pragma once

#include "moxdev/moxdev_hps_mgr.h"

#include "host/host_types.h"

#include <string>
#include <vector>

namespace moxdev {

// One parameter of an HPS flash part, and how an answer to its prompt is
// read: hexadecimal or decimal, a power of two or not, inside one of the
// ranges (count, then low and high of each), matching none of the hits
// (count, then mask and pattern of each), multiplied by `scale`.
struct HPS_PARAMETER {
    const char* name;
    const char* prompt;
    MOXDEV_PARAM_TYPE type;
    bool hex;
    bool power_of_2;
    std::vector<DWORD> ranges;
    std::vector<DWORD> hits;
    DWORD scale;
    // What the prompt leaves unsaid, for a person: shown after it, e.g. the
    // byte order of an ID. Null when nothing is.
    const char* hint = nullptr;
    // The answer may be ID bytes in read order ("20 BA 18"), stored with the
    // first byte lowest.
    bool id_bytes = false;
};

// What tells the two kinds of part apart.
template <class RECORD>
struct HPS_KIND;

template <>
struct HPS_KIND<MOXDEV_HPS_NAND_STRUCTURE> {
    static constexpr const char* label = "nand";
    static constexpr MOXDEV_FLASH_INI_ENUM set = MOXDEV_FLASH_INI_HPS_NAND;
    static const char* signature() { return MOXDEV_HPS_NAND_SIGNATURE; }
    static const std::vector<HPS_PARAMETER>& parameters();
    static MOXDEV_HPS_NAND_MGR* manager() { return MOXDEV_HPS_NAND_MGR::get_mgr(); }
};

template <>
struct HPS_KIND<MOXDEV_HPS_SPI_STRUCTURE> {
    static constexpr const char* label = "spi";
    static constexpr MOXDEV_FLASH_INI_ENUM set = MOXDEV_FLASH_INI_HPS_SPI;
    static const char* signature() { return MOXDEV_HPS_SPI_SIGNATURE; }
    static const std::vector<HPS_PARAMETER>& parameters();
    static MOXDEV_HPS_SPI_MGR* manager() { return MOXDEV_HPS_SPI_MGR::get_mgr(); }
};

// Reads `answer` (trimmed) for `parameter` into the field `field` points to:
// texts are upper-cased and may not be empty, flags are Y or N, numbers are
// checked by the parameter's rule and scaled. A number may be written as its
// prompt writes it: with the prompt's unit ("64k" or "64KB" for a size in
// Kbyte, "256MB" for MByte, "5s" for seconds), with a k for 1024 where the
// prompt writes one ("64k MByte"); -1 is the largest value; ID bytes as read
// where the parameter says so. Returns "" when the answer was taken, else
// why it was refused, in the prompt's words.
std::string read_hps_answer(const HPS_PARAMETER& parameter, const std::string& answer, void* field);

// The user's parts held by a data set of this kind, in order; a damaged part
// ends them. `foreign` tells a set that opens with another kind's or
// program's signature (it holds none).
template <class RECORD>
std::vector<RECORD> unpack_hps_user_set(const std::vector<BYTE>& set, bool* foreign = nullptr);
// The bytes of a data set holding `records`; no bytes for none. The records
// must pass hps_record_problem(): the form below checks that.
template <class RECORD>
std::vector<BYTE> pack_hps_user_set(const std::vector<RECORD>& records);
// The same, refusing (false, with the reason) a set that its reader could
// not read back as it was.
template <class RECORD>
bool pack_hps_user_set(const std::vector<RECORD>& records, std::vector<BYTE>& data, std::string& error);

// Whether two parts hold the same value in every parameter.
template <class RECORD>
bool same_hps_part(const RECORD& a, const RECORD& b);

// The longest text a part's text field holds.
inline constexpr std::size_t HPS_TEXT_MOST = 255;
// Why `record` cannot be stored as a user part (a text with a control
// character, a NUL among them, or longer than HPS_TEXT_MOST), "" when it can.
template <class RECORD>
std::string hps_record_problem(const RECORD& record);

} // namespace moxdev
