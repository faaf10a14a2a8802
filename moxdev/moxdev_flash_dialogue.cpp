// The definition dialogue: asks for up to three flash chips the table does not
// know and prints the configuration value that carries them. Answers are read
// line by line; the streams are the call's own.
#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/moxdev_assert.h"

#include "host/gen_string.h"

#include <fmt/format.h>

#include <functional>
#include <iostream>

namespace {

enum class ANSWER { TEXT, HEX, DECIMAL, YES_NO, POWER_OF_TWO };

// One question of the definition dialogue. Numbers are accepted from
// `minimum` to `maximum`; with `allow_none` also 255 (hex FF), "none" or "-1",
// all stored as 255: the value the loader reads as "not used".
struct QUESTION {
    const char* prompt;
    ANSWER kind;
    DWORD minimum;
    DWORD maximum;
    bool allow_none;
};

constexpr QUESTION QUESTIONS[] = {
    {"Manufacture Name : ", ANSWER::TEXT, 1, 19, false},
    {"Device Name : ", ANSWER::TEXT, 1, 19, false},
    {"Memory ID (hex) [1 - FE] : ", ANSWER::HEX, 1, 0xFE, false},
    {"Memory ID Index [0/1/2] : ", ANSWER::DECIMAL, 0, 2, false},
    {"Memory Type (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Memory Type Index [0/1/2, or 255 when the ID has no type byte] : ", ANSWER::DECIMAL, 0, 2, true},
    {"Manufacturer ID (hex) [1 - FE] : ", ANSWER::HEX, 1, 0xFE, false},
    {"Manufacturer ID Index [0/1/2] : ", ANSWER::DECIMAL, 0, 2, false},
    {"Support Extended Mode [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Micron flow [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Spansion flow [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Protected after power-up [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Is AAI mode [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Read flag status [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"Die count [1/2] : ", ANSWER::DECIMAL, 1, 2, false},
    {"Memory Density [1 - 2048 Mbit] : ", ANSWER::POWER_OF_TWO, 1, 2048, false},
    {"Sector Size [1 - 1024 Kbyte] : ", ANSWER::POWER_OF_TWO, 1, 1024, false},
    {"Bulk Erase time [1 - 900 seconds] : ", ANSWER::DECIMAL, 1, 900, false},
    {"Sector Erase Time [1 - 60 seconds] : ", ANSWER::DECIMAL, 1, 60, false},
    {"Page Program Time [1000 - 1000000 microseconds] : ", ANSWER::DECIMAL, 1000, 1000000, false},
    {"Protection Mask (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Protection Value (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Unprotect Value (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Protection Divisor (hex) [3 - 20, or FF for none] : ", ANSWER::HEX, 3, 0x20, true},
    {"Bottom Value (bit location) [0 - 7, or 255 for none] : ", ANSWER::DECIMAL, 0, 7, true},
    {"SDM Support [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"AS Configuration Voltage : ", ANSWER::TEXT, 1, 19, false},
};

// The definition text separates its fields with '@' and ends a chip with
// "#check;": a text answer holding one of these would break the value.
constexpr const char* RESERVED_CHARACTERS = "@#;";

// Why `answer` does not fit `question`, as one line; "" when it does, with
// its value in `value`.
std::string refusal(const QUESTION& question, const std::string& answer, DWORD& value,
                    const std::function<bool(const std::string&, DWORD&)>& number)
{
    switch (question.kind) {
    case ANSWER::TEXT:
        if (answer.empty() || answer.size() > question.maximum)
            return fmt::format("Empty name or name too long: 1 to {} characters", question.maximum);
        if (answer.find_first_of(RESERVED_CHARACTERS) != std::string::npos)
            return "Invalid input: '@', '#' and ';' cannot be part of a text (they separate the fields of "
                   "the value)";
        return "";
    case ANSWER::YES_NO:
        if (answer != "Y" && answer != "N")
            return "Invalid input: answer Y or N";
        value = answer == "Y" ? 1 : 0;
        return "";
    case ANSWER::HEX:
    case ANSWER::DECIMAL:
    case ANSWER::POWER_OF_TWO:
        break;
    }
    const bool hex = question.kind == ANSWER::HEX;
    if (question.allow_none && (answer == "NONE" || answer == "-1" || answer == (hex ? "FF" : "255"))) {
        value = 255;
        return "";
    }
    const std::string range = hex ? fmt::format("{:X} to {:X} (hex)", question.minimum, question.maximum)
                                  : fmt::format("{} to {}", question.minimum, question.maximum);
    const std::string none = question.allow_none ? (hex ? ", or FF for none" : ", or 255 for none") : "";
    if (!number(hex ? "0x" + answer : answer, value) || value < question.minimum || value > question.maximum)
        return "Invalid input: a number from " + range + none + " is needed";
    if (question.kind == ANSWER::POWER_OF_TWO && (value & (value - 1)) != 0)
        return "Invalid input: a power of two is needed (1, 2, 4, 8 ...)";
    return "";
}

// Answers in question order.
enum : std::size_t {
    Q_MANUFACTURER, Q_DEVICE, Q_MEMORY_ID, Q_MEMORY_ID_INDEX, Q_MEMORY_TYPE, Q_MEMORY_TYPE_INDEX,
    Q_MFC_ID, Q_MFC_ID_INDEX, Q_EXTENDED, Q_MICRON, Q_SPANSION, Q_PROTECTED, Q_AAI, Q_FLAG_STATUS,
    Q_DIE_COUNT, Q_DENSITY, Q_SECTOR, Q_BULK_ERASE, Q_SECTOR_ERASE, Q_PAGE_PROGRAM, Q_MASK,
    Q_VALUE, Q_UNPROTECT, Q_DIVISOR, Q_BOTTOM, Q_SDM, Q_VOLTAGE, QUESTION_COUNT
};
static_assert(sizeof QUESTIONS / sizeof QUESTIONS[0] == QUESTION_COUNT);

} // namespace

void MOXDEV_FLASH_MANAGER::gen_flash_ini()
{
    gen_flash_ini(std::cin, std::cout);
}

void MOXDEV_FLASH_MANAGER::gen_flash_ini(std::istream& in, std::ostream& out)
{
    DWORD count = 0;
    for (;;) {
        out << "Number of 3rd party flash to define (max 3) : " << std::flush;
        std::string answer;
        if (!std::getline(in, answer)) {
            out << "\nThe answers ended before the number of flash was given\n";
            return;
        }
        gen_remove_leading_and_trailing_white_spaces(answer);
        bool valid = false;
        count = get_dword_from_string(answer, &valid);
        if (valid && count >= 1 && count <= 3)
            break;
        out << "Invalid input or too many flash to define: answer 1, 2 or 3\n";
    }
    if (count > 1)
        out << "Note: the flash manager uses only the first definition of the value; the others are "
               "carried but ignored\n";

    std::string text;
    for (DWORD chip = 0; chip < count; ++chip) {
        std::string definition;
        if (!prompt_chip(in, out, definition))
            break;
        text = fmt::format("{}{}#{};", text, definition, gen_ini_password(definition));
    }
    // A first chip whose answers ended early has said so; there is nothing to encode.
    if (text.empty())
        return;
    out << "Raw: " << text << "\n";
    const std::string encoded = encode_ini(text);
    if (!encoded.empty() && decode_ini_text(encoded, &out) == text)
        out << "INI : " << encoded << "\n";
    else
        out << "Fail to generate INI because fail to counter-check cmp-encode-decode-decmp\n";
}

bool MOXDEV_FLASH_MANAGER::prompt_flash_info(std::string& definition)
{
    return prompt_chip(std::cin, std::cout, definition);
}

bool MOXDEV_FLASH_MANAGER::prompt_chip(std::istream& in, std::ostream& out, std::string& definition)
{
    definition.clear();
    auto number = [this](const std::string& text, DWORD& value) {
        bool valid = false;
        value = get_dword_from_string(text, &valid);
        return valid;
    };

    // Each answer as its definition text; numbers also as values. A refused
    // answer is explained and the question asked again, whether the answers
    // come from a person or a file; only the end of the answers stops.
    std::string texts[QUESTION_COUNT];
    DWORD values[QUESTION_COUNT] = {};
    for (std::size_t q = 0; q < QUESTION_COUNT; ++q) {
        const QUESTION& question = QUESTIONS[q];
        out << question.prompt << std::flush;
        std::string answer;
        if (!std::getline(in, answer)) {
            out << "\nThe answers ended before this question was answered\n";
            return false;
        }
        gen_remove_leading_and_trailing_white_spaces(answer);
        stl_toupper(answer);

        DWORD value = 0;
        std::string reason = refusal(question, answer, value, number);
        // The three ID bytes must be read from three different places.
        if (reason.empty() && (q == Q_MEMORY_TYPE_INDEX || q == Q_MFC_ID_INDEX) && value != 255) {
            const bool taken = value == values[Q_MEMORY_ID_INDEX] ||
                               (q == Q_MFC_ID_INDEX && value == values[Q_MEMORY_TYPE_INDEX]);
            if (taken)
                reason = "Memory ID, Memory Type and Manufacturer ID index cannot be at the same location: "
                         "another ID byte is read from there";
        }
        if (!reason.empty()) {
            out << reason << "; try again\n";
            --q;
            continue;
        }
        values[q] = value;
        texts[q] = question.kind == ANSWER::TEXT ? answer : to_string(value, false);
    }

    const DWORD bits = values[Q_DENSITY] << 20;
    const std::string fields[TOTAL_DATABASE_MEMBER] = {
        texts[Q_MANUFACTURER], texts[Q_DEVICE], "0",
        texts[Q_MEMORY_ID], texts[Q_MEMORY_ID_INDEX], texts[Q_MEMORY_TYPE],
        texts[Q_MEMORY_TYPE_INDEX], texts[Q_MFC_ID], texts[Q_MFC_ID_INDEX],
        "32", "1", "NONE",
        texts[Q_EXTENDED], texts[Q_MICRON], texts[Q_SPANSION],
        texts[Q_PROTECTED], texts[Q_AAI], texts[Q_FLAG_STATUS],
        texts[Q_DIE_COUNT], to_string(bits, false), to_string(values[Q_SECTOR] << 10, false),
        "0", bits >= 0x8000001 ? "1" : "0",
        texts[Q_BULK_ERASE], texts[Q_SECTOR_ERASE], texts[Q_PAGE_PROGRAM],
        texts[Q_MASK], texts[Q_VALUE], texts[Q_UNPROTECT],
        texts[Q_DIVISOR], texts[Q_BOTTOM], texts[Q_SDM], texts[Q_VOLTAGE],
    };
    for (const std::string& field : fields)
        definition += "@" + field;
    definition += "@";
    out << "Prompt outcome: " << definition << "\n";
    return true;
}
