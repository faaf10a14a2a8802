#include "moxdev/hps.h"

#include "moxdev/hps/moxdev_hps_fields.h"
#include "moxdev/text.h"

#include "host/gen_string.h"

#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <absl/strings/str_split.h>
#include <absl/strings/strip.h>
#include <fmt/format.h>

#include <cctype>
#include <cstring>
#include <limits>
#include <regex>

namespace moxdev {

// ---------------------------------------------------------------- parameters

// One field list row as an HPS_PARAMETER.
#define MOXDEV_HPS_PARAMETER(name, type, prompt, hex, power_of_2, ranges, hits, scale)                                 \
    {#name,                                                                                                            \
     prompt,                                                                                                           \
     MOXDEV_HPS_PARAM_TYPE(type),                                                                                      \
     hex,                                                                                                              \
     power_of_2,                                                                                                       \
     std::vector<DWORD>                                                                                                \
         MOXDEV_HPS_BRACED ranges,                                                                                     \
     std::vector<DWORD>                                                                                                \
         MOXDEV_HPS_BRACED hits,                                                                                       \
     scale},

namespace {

// This project's rules beside the field list's own, by parameter name.
struct PROJECT_RULE {
    const char* name;
    std::vector<DWORD> ranges; // replaces the list's ranges when not empty
    const char* hint;
    bool id_bytes;
};

// The field list's rows with this project's rules applied.
std::vector<HPS_PARAMETER> with_rules(std::vector<HPS_PARAMETER> parameters, const std::vector<PROJECT_RULE>& rules)
{
    for (const PROJECT_RULE& rule : rules) {
        for (HPS_PARAMETER& parameter : parameters) {
            if (std::strcmp(parameter.name, rule.name) != 0)
                continue;
            if (!rule.ranges.empty())
                parameter.ranges = rule.ranges;
            parameter.hint = rule.hint;
            parameter.id_bytes = rule.id_bytes;
        }
    }
    return parameters;
}

} // namespace

#define MOXDEV_HPS_FIELD MOXDEV_HPS_PARAMETER
const std::vector<HPS_PARAMETER>& HPS_KIND<MOXDEV_HPS_NAND_STRUCTURE>::parameters()
{
    // A NAND ID is one byte: the list's rule alone would take 1AB, and
    // refuse 100 as "all 0's" by its low byte.
    static const std::vector<HPS_PARAMETER> parameters = with_rules(
        {
#include "moxdev/moxdev_hps_nand_fields.def"
        },
        {{"manufacturer_id", {1, 0x01, 0xFE}, "one byte, 01 to FE", false},
         {"device_id", {1, 0x01, 0xFE}, "one byte, 01 to FE", false}});
    return parameters;
}

#define MOXDEV_HPS_FIELD MOXDEV_HPS_PARAMETER
const std::vector<HPS_PARAMETER>& HPS_KIND<MOXDEV_HPS_SPI_STRUCTURE>::parameters()
{
    // The silicon ID is stored with the first byte read lowest (the built-in
    // parts hold 20 BA 18 as 0x0018BA20); a person may give the bytes as read.
    static const std::vector<HPS_PARAMETER> parameters = with_rules(
        {
#include "moxdev/moxdev_hps_spi_fields.def"
        },
        {{"siid",
          {},
          "the Read-ID bytes as read, e.g. 20 BA 18; one number holds the first byte lowest: 18BA20",
          true}});
    return parameters;
}

// ---------------------------------------------------------------- answers

namespace {

// The only kind of hit the field lists use.
constexpr const char* HIT_REASON = "an ID cannot be all 0's or all 1's";

// The largest value a parameter of `type` holds.
QWORD largest_value(MOXDEV_PARAM_TYPE type)
{
    switch (type) {
    case MOXDEV_PARAM_BYTE: return 0xFF;
    case MOXDEV_PARAM_WORD: return 0xFFFF;
    case MOXDEV_PARAM_DWORD: return 0xFFFFFFFFu;
    default: return std::numeric_limits<QWORD>::max();
    }
}

std::string number_text(QWORD value, bool hex)
{
    return hex ? fmt::format("{:X}", value) : std::to_string(value);
}

// The ranges of `parameter` as a person reads them: "1 to 2048", "1, 2 or 4".
std::string ranges_text(const HPS_PARAMETER& parameter)
{
    std::string text;
    const DWORD pairs = parameter.ranges[0];
    for (DWORD pair = 0; pair < pairs; ++pair) {
        const DWORD low = parameter.ranges[1 + 2 * pair], high = parameter.ranges[2 + 2 * pair];
        text += (pair == 0           ? ""
                 : pair + 1 == pairs ? " or "
                                     : ", ") +
                number_text(low, parameter.hex) + (low == high ? "" : " to " + number_text(high, parameter.hex));
    }
    return text;
}

// Whether `prompt` writes a number with a k suffix ("[1 - 64k MByte]"): its
// answers may then be written the same way.
bool prompt_takes_k(const char* prompt)
{
    static const std::regex k_number("[0-9][kK]\\b");
    return std::regex_search(prompt, k_number);
}

// The unit a prompt states for its answer ("[1 - 1024 Kbyte]" gives Kbyte)
// and the ways people write it, lower-cased; none when it states none.
const std::vector<std::string>& unit_spellings(const char* prompt)
{
    static const std::vector<std::pair<std::regex, std::vector<std::string>>> units = {
        {std::regex("Kbyte\\]"), {"k", "kb", "kib", "kbyte", "kbytes"}},
        {std::regex("MByte\\]"), {"m", "mb", "mib", "mbyte", "mbytes"}},
        {std::regex("Mbit\\]"), {"m", "mb", "mbit", "mbits"}},
        {std::regex("microseconds\\]"), {"us", "microsecond", "microseconds"}},
        {std::regex("[^o]seconds\\]"), {"s", "sec", "second", "seconds"}},
    };
    static const std::vector<std::string> none;
    for (const auto& [pattern, spellings] : units) {
        if (std::regex_search(prompt, pattern))
            return spellings;
    }
    return none;
}

// `answer` without a trailing unit written as the prompt states it.
std::string without_unit(const HPS_PARAMETER& parameter, const std::string& answer)
{
    if (parameter.hex)
        return answer;
    const std::size_t digits = answer.find_first_not_of("0123456789");
    if (digits == std::string::npos || digits == 0)
        return answer;
    const std::string suffix = absl::AsciiStrToLower(absl::StripAsciiWhitespace(answer.substr(digits)));
    for (const std::string& spelling : unit_spellings(parameter.prompt)) {
        // "64k MByte": the k before the unit is a multiple, kept.
        for (const std::string& kept : {std::string(), std::string("k")}) {
            if (suffix == kept + spelling || suffix == kept + " " + spelling)
                return answer.substr(0, digits) + kept;
        }
    }
    return answer;
}

// ID bytes as read ("20 BA 18", "20,BA,18"), the first byte lowest; false
// when `answer` is not such a list of one to four bytes.
bool read_id_bytes(const std::string& answer, QWORD& value)
{
    if (answer.find_first_of(" \t,:") == std::string::npos)
        return false;
    value = 0;
    int count = 0;
    for (const absl::string_view word : absl::StrSplit(answer, absl::ByAnyChar(" \t,:"), absl::SkipEmpty())) {
        absl::string_view digits = word;
        if (absl::StartsWithIgnoreCase(digits, "0x"))
            digits.remove_prefix(2);
        if (count == 4 || digits.empty() || digits.size() > 2 ||
            digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos)
            return false;
        value |= QWORD(std::stoul(std::string(digits), nullptr, 16)) << (8 * count++);
    }
    return count > 0;
}

// Reads `text` as a whole number (hexadecimal digits with an optional 0x when
// `hex`, else decimal digits with an optional k or K for 1024 when `k`);
// false when it is none. `too_large` when it does not fit 64 bits.
bool read_number(std::string text, bool hex, bool k, QWORD& value, bool& too_large)
{
    too_large = false;
    QWORD scale = 1;
    if (hex && (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0))
        text.erase(0, 2);
    if (!hex && k && !text.empty() && absl::ascii_toupper(static_cast<unsigned char>(text.back())) == 'K') {
        text.pop_back();
        scale = 1024;
    }
    if (text.empty())
        return false;
    value = 0;
    const QWORD base = hex ? 16 : 10;
    for (const char c : text) {
        const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                          : hex && std::isxdigit(static_cast<unsigned char>(c))
                              ? absl::ascii_toupper(static_cast<unsigned char>(c)) - 'A' + 10
                              : -1;
        if (digit < 0)
            return false;
        if (value > (std::numeric_limits<QWORD>::max() - QWORD(digit)) / base)
            too_large = true;
        else
            value = value * base + QWORD(digit);
    }
    if (value > std::numeric_limits<QWORD>::max() / scale)
        too_large = true;
    value *= scale;
    return true;
}

// The flash parameter class's refusal, said plainly (the two that name the
// rule keep its words and add the rule itself).
std::string plain_refusal(const HPS_PARAMETER& parameter, const std::string& refusal, const std::string& shown)
{
    if (refusal == "Input must be power of 2")
        return shown + " is not a power of 2 (1, 2, 4, 8, ...)";
    if (refusal == "Input is out of range")
        return refusal + ": answer " + ranges_text(parameter);
    if (refusal == "Input is invalid (hit)")
        return refusal + ": " + HIT_REASON;
    if (refusal == "Calculation overflow compare to type" || refusal == "Conversion overflow compare to type")
        return shown + " is too large for this parameter";
    if (refusal == "Invalid QWORD conversion")
        return shown + " is not a number";
    return refusal;
}

// Checks and converts the numeric `answer` into `value`; "" or why refused.
std::string numeric_answer(const HPS_PARAMETER& parameter, const std::string& answer, QWORD& value)
{
    const QWORD largest = largest_value(parameter.type);
    const std::string shown = quoted(answer);
    // -1 stands for the largest value the parameter holds.
    std::string text = answer;
    if (answer != "-1") {
        const bool k = prompt_takes_k(parameter.prompt);
        bool too_large = false;
        if (parameter.id_bytes && read_id_bytes(answer, value)) {
        } else if (!read_number(without_unit(parameter, answer), parameter.hex, k, value, too_large))
            return shown + (parameter.hex ? " is not a hexadecimal number"
                            : k           ? " is not a number (digits, or digits and k for 1024)"
                                          : " is not a number");
        // The parameter class weighs the low 32 bits against the ranges only.
        if (!parameter.ranges.empty() && (too_large || value > 0xFFFFFFFFu))
            return "Input is out of range: answer " + ranges_text(parameter);
        if (too_large || value > largest)
            return shown + " is too large: at most " + number_text(largest, parameter.hex);
        text = parameter.hex ? "0x" + number_text(value, true) : std::to_string(value);
    }
    std::string refusal;
    if (MOXDEV_FLASH_INI::convert_string_to_qword(parameter.type, value, parameter.hex, text, parameter.power_of_2,
                                                  parameter.ranges.empty() ? nullptr : parameter.ranges.data(),
                                                  parameter.hits.empty() ? nullptr : parameter.hits.data(), false,
                                                  parameter.scale, refusal))
        return "";
    return plain_refusal(parameter, refusal, shown);
}

} // namespace

std::string read_hps_answer(const HPS_PARAMETER& parameter, const std::string& typed, void* field)
{
    std::string answer = typed;
    gen_remove_leading_and_trailing_white_spaces(answer);
    switch (parameter.type) {
    case MOXDEV_PARAM_STRING:
        if (answer.empty())
            return "an answer is needed";
        if (const std::string problem = stored_text_problem(answer, HPS_TEXT_MOST); !problem.empty())
            return quoted(answer) + " cannot be stored: " + problem;
        stl_toupper(answer);
        *static_cast<std::string*>(field) = answer;
        return "";
    case MOXDEV_PARAM_BOOL:
        stl_toupper(answer);
        if (answer != "Y" && answer != "N")
            return "answer Y or N";
        *static_cast<bool*>(field) = answer == "Y";
        return "";
    default: {
        QWORD value = 0;
        std::string refusal = numeric_answer(parameter, answer, value);
        if (!refusal.empty())
            return refusal;
        if (parameter.type == MOXDEV_PARAM_QWORD)
            *static_cast<QWORD*>(field) = value;
        else
            *static_cast<DWORD*>(field) = DWORD(value);
        return "";
    }
    }
}

// ---------------------------------------------------------------- user sets

namespace {

constexpr DWORD SIGNATURE_SIZE = 32;

} // namespace

template <class RECORD>
std::vector<RECORD> unpack_hps_user_set(const std::vector<BYTE>& set, bool* foreign)
{
    const char* const signature = HPS_KIND<RECORD>::signature();
    std::vector<RECORD> records;
    const bool signed_set = set.size() > SIGNATURE_SIZE && std::memcmp(set.data(), signature, SIGNATURE_SIZE) == 0;
    if (foreign != nullptr)
        *foreign = !set.empty() && !signed_set;
    if (!signed_set)
        return records;
    // A QWORD is taken once four of its bytes are there: zeros behind the
    // set keep the other four inside this copy.
    std::vector<BYTE> data(set);
    data.resize(set.size() + 8, 0);
    const DWORD size = DWORD(set.size());
    DWORD index = SIGNATURE_SIZE;
    while (index < size) {
        RECORD scratch;
        if (!MOXDEV_FLASH_INI::assign_flash_ini_data(data.data(), index, size, RECORD::PARAMS, RECORD::TYPES,
                                                     scratch.param))
            break;
        records.push_back(scratch);
    }
    return records;
}

template <class RECORD>
bool same_hps_part(const RECORD& a, const RECORD& b)
{
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const void* x = a.param[p];
        const void* y = b.param[p];
        bool same = true;
        switch (RECORD::TYPES[p]) {
        case MOXDEV_PARAM_STRING:
            same = *static_cast<const std::string*>(x) == *static_cast<const std::string*>(y);
            break;
        case MOXDEV_PARAM_BOOL: same = *static_cast<const bool*>(x) == *static_cast<const bool*>(y); break;
        case MOXDEV_PARAM_BYTE: same = *static_cast<const BYTE*>(x) == *static_cast<const BYTE*>(y); break;
        case MOXDEV_PARAM_WORD: same = *static_cast<const WORD*>(x) == *static_cast<const WORD*>(y); break;
        case MOXDEV_PARAM_DWORD: same = *static_cast<const DWORD*>(x) == *static_cast<const DWORD*>(y); break;
        case MOXDEV_PARAM_QWORD: same = *static_cast<const QWORD*>(x) == *static_cast<const QWORD*>(y); break;
        }
        if (!same)
            return false;
    }
    return true;
}

template <class RECORD>
std::string hps_record_problem(const RECORD& record)
{
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        if (RECORD::TYPES[p] != MOXDEV_PARAM_STRING)
            continue;
        const std::string& text = *static_cast<const std::string*>(record.param[p]);
        if (const std::string problem = stored_text_problem(text, HPS_TEXT_MOST); !problem.empty())
            return std::string(HPS_KIND<RECORD>::parameters()[p].name) + " " + quoted(text) +
                   " cannot be stored: " + problem;
    }
    return "";
}

template <class RECORD>
bool pack_hps_user_set(const std::vector<RECORD>& records, std::vector<BYTE>& data, std::string& error)
{
    // What the reader could not read back is not written: a text with a NUL
    // would end early and shift every field after it.
    for (const RECORD& record : records) {
        error = hps_record_problem(record);
        if (!error.empty())
            return false;
    }
    data = pack_hps_user_set(records);
    return true;
}

template <class RECORD>
std::vector<BYTE> pack_hps_user_set(const std::vector<RECORD>& records)
{
    if (records.empty())
        return {};
    DWORD size = SIGNATURE_SIZE;
    for (const RECORD& record : records)
        for (DWORD p = 0; p < RECORD::PARAMS; ++p)
            MOXDEV_FLASH_INI::calculate_flash_ini_data_size(size, RECORD::TYPES[p], record.param[p]);
    std::vector<BYTE> data(size, 0);
    std::memcpy(data.data(), HPS_KIND<RECORD>::signature(), SIGNATURE_SIZE);
    DWORD index = SIGNATURE_SIZE;
    for (const RECORD& record : records)
        for (DWORD p = 0; p < RECORD::PARAMS; ++p)
            MOXDEV_FLASH_INI::fillup_flash_ini_data(data.data(), index, RECORD::TYPES[p], record.param[p]);
    return data;
}

template std::vector<MOXDEV_HPS_NAND_STRUCTURE> unpack_hps_user_set(const std::vector<BYTE>&, bool*);
template std::vector<MOXDEV_HPS_SPI_STRUCTURE> unpack_hps_user_set(const std::vector<BYTE>&, bool*);
template std::vector<BYTE> pack_hps_user_set(const std::vector<MOXDEV_HPS_NAND_STRUCTURE>&);
template std::vector<BYTE> pack_hps_user_set(const std::vector<MOXDEV_HPS_SPI_STRUCTURE>&);
template bool same_hps_part(const MOXDEV_HPS_NAND_STRUCTURE&, const MOXDEV_HPS_NAND_STRUCTURE&);
template bool same_hps_part(const MOXDEV_HPS_SPI_STRUCTURE&, const MOXDEV_HPS_SPI_STRUCTURE&);
template std::string hps_record_problem(const MOXDEV_HPS_NAND_STRUCTURE&);
template std::string hps_record_problem(const MOXDEV_HPS_SPI_STRUCTURE&);
template bool pack_hps_user_set(const std::vector<MOXDEV_HPS_NAND_STRUCTURE>&, std::vector<BYTE>&, std::string&);
template bool pack_hps_user_set(const std::vector<MOXDEV_HPS_SPI_STRUCTURE>&, std::vector<BYTE>&, std::string&);

} // namespace moxdev
