// The definition dialogue: asks for up to three flash chips the table does not
// know and prints the configuration value that carries them. Answers are read
// line by line; the streams are the call's own.
#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/moxdev_assert.h"

#include "host/gen_string.h"

#include <fmt/format.h>

#include <iostream>

namespace {

enum class ANSWER { TEXT, HEX, DECIMAL, YES_NO, POWER_OF_TWO };

// One question of the definition dialogue. Numbers are accepted from
// `minimum` to `maximum`; `allow_minus_one` also accepts "-1" (unused).
struct QUESTION {
    const char* prompt;
    ANSWER kind;
    DWORD minimum;
    DWORD maximum;
    bool allow_minus_one;
};

constexpr QUESTION QUESTIONS[] = {
    {"Manufacture Name : ", ANSWER::TEXT, 1, 19, false},
    {"Device Name : ", ANSWER::TEXT, 1, 19, false},
    {"Memory ID (hex) [1 - FE] : ", ANSWER::HEX, 1, 0xFE, false},
    {"Memory ID Index [0/1/2] : ", ANSWER::DECIMAL, 0, 2, false},
    {"Memory Type (hex) [0 - FF] : ", ANSWER::HEX, 0, 0xFF, false},
    {"Memory Type Index [-1/0/1/2] : ", ANSWER::DECIMAL, 0, 2, true},
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
    {"Protection Divisor (hex) [-1/3 - 20] : ", ANSWER::HEX, 3, 0x20, true},
    {"Bottom Value (bit location) [-1/0 - 7] : ", ANSWER::DECIMAL, 0, 7, true},
    {"SDM Support [Y/N] : ", ANSWER::YES_NO, 0, 1, false},
    {"AS Configuration Voltage : ", ANSWER::TEXT, 1, 19, false},
};

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
    out << "Number of 3rd party flash to define (max 3) : " << std::flush;
    std::string answer;
    std::getline(in, answer);
    gen_remove_leading_and_trailing_white_spaces(answer);
    bool valid = false;
    const DWORD count = get_dword_from_string(answer, &valid);
    if (!valid || count == 0 || count > 3) {
        out << "Invalid input or too many flash to define\n";
        return;
    }

    std::string text;
    for (DWORD chip = 0; chip < count; ++chip) {
        std::string definition;
        if (!prompt_chip(in, out, definition))
            break;
        text = fmt::format("{}{}#{};", text, definition, gen_ini_password(definition));
    }
    // A failed first chip has printed its reason; there is nothing to encode.
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

    // Each answer as its definition text; numbers also as values.
    std::string texts[QUESTION_COUNT];
    DWORD values[QUESTION_COUNT] = {};
    for (std::size_t q = 0; q < QUESTION_COUNT; ++q) {
        const QUESTION& question = QUESTIONS[q];
        out << question.prompt << std::flush;
        std::string answer;
        std::getline(in, answer);
        gen_remove_leading_and_trailing_white_spaces(answer);
        stl_toupper(answer);

        bool valid = false;
        DWORD value = 0;
        switch (question.kind) {
        case ANSWER::TEXT:
            if (answer.empty() || answer.size() > question.maximum) {
                out << "Empty name or name too long\n";
                return false;
            }
            texts[q] = answer;
            continue;
        case ANSWER::YES_NO:
            valid = answer == "Y" || answer == "N";
            value = answer == "Y" ? 1 : 0;
            break;
        case ANSWER::HEX:
        case ANSWER::DECIMAL:
        case ANSWER::POWER_OF_TWO:
            if (question.allow_minus_one && answer == "-1") {
                value = get_dword_from_string("0xFFFFFFFF", &valid);
                break;
            }
            value = get_dword_from_string(question.kind == ANSWER::HEX ? "0x" + answer : answer, &valid);
            valid = valid && value >= question.minimum && value <= question.maximum &&
                    (question.kind != ANSWER::POWER_OF_TWO || is_power_of_two(value));
            break;
        }
        if (!valid) {
            out << "Invalid input\n";
            return false;
        }
        values[q] = value;
        texts[q] = to_string(value, false);
    }

    // The three ID bytes must be read from three different places.
    const DWORD type_index = values[Q_MEMORY_TYPE_INDEX];
    if (values[Q_MEMORY_ID_INDEX] == values[Q_MFC_ID_INDEX] ||
        (type_index != INVALID_DWORD &&
         (type_index == values[Q_MEMORY_ID_INDEX] || type_index == values[Q_MFC_ID_INDEX]))) {
        out << "Memory ID, Memory Type and Manufacturer ID index cannot be at the same location";
        return false;
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
