// The definition dialogue of the flash manager: asks for up to three flash
// chips the table does not know and prints the configuration value that
// carries them. Answers are read line by line; the first one refused ends the
// dialogue (the forgiving dialogue for people is moxdev::define_user_flash).
#include "moxdev/moxdev_flash_manager.h"

#include "moxdev/flash/moxdev_flash_questions.h"
#include "moxdev/flash/moxdev_user_value_codec.h"

#include "host/gen_string.h"

#include <fmt/format.h>

#include <iostream>

using namespace moxdev::detail;

void MOXDEV_FLASH_MANAGER::gen_flash_ini()
{
    gen_flash_ini(std::cin, std::cout);
}

void MOXDEV_FLASH_MANAGER::gen_flash_ini(std::istream& in, std::ostream& out)
{
    out << FLASH_COUNT_PROMPT << std::flush;
    std::string answer;
    std::getline(in, answer);
    bool valid = false;
    const DWORD count = get_dword_from_string(answer, &valid);
    if (!valid || count < 1 || count > MAX_USER_FLASH_CHIPS) {
        out << "Invalid input or too many flash to define\n";
        return;
    }

    std::string text;
    for (DWORD chip = 0; chip < count; ++chip) {
        std::string definition;
        // A refused chip has printed why; nothing is encoded after it.
        if (!prompt_chip(in, out, definition))
            return;
        text = fmt::format("{}{}#{};", text, definition, gen_ini_password(definition));
    }
    out << "Raw: " << text << "\n";

    std::string encoded, decoded, error;
    if (!encode_user_value(text, encoded, error))
        out << error << "\n";
    if (!decode_user_value(encoded, decoded, error))
        out << error << "\n";
    if (decoded == text)
        out << "INI : " << encoded << "\n";
    else
        out << "Fail to generate INI because fail to counter-check cmp-encode-decode-decmp\n";
}

namespace {

// A yes/no or numeric answer as its value; false when the question refuses
// it. `convert` is the manager's text-to-number conversion.
template <class CONVERT>
bool read_answer(const FLASH_QUESTION& question, const std::string& answer, DWORD& value, CONVERT convert)
{
    bool valid = false;
    if (question.kind == FLASH_ANSWER::YES_NO) {
        value = answer == "Y" ? 1 : 0;
        return answer == "Y" || answer == "N";
    }
    if (question.unused_allowed && answer == "-1") {
        // "-1" converts as FFFFFFFF.
        value = convert("0xFFFFFFFF", &valid);
        return valid;
    }
    value = convert(question.kind == FLASH_ANSWER::HEX ? "0x" + answer : answer, &valid);
    return valid && value >= question.minimum && value <= question.maximum &&
           (question.kind != FLASH_ANSWER::POWER_OF_TWO || MOXDEV_FLASH_MANAGER::is_power_of_two(value));
}

// The chip's definition: the 33 fields of the record in their order, each
// after an '@', and a closing '@'.
std::string definition_text(const std::string texts[], const DWORD values[])
{
    const DWORD bits = values[Q_DENSITY] << 20;
    const std::string fields[TOTAL_DATABASE_MEMBER] = {
        texts[Q_MANUFACTURER],
        texts[Q_DEVICE],
        "0",
        texts[Q_MEMORY_ID],
        texts[Q_MEMORY_ID_INDEX],
        texts[Q_MEMORY_TYPE],
        texts[Q_MEMORY_TYPE_INDEX],
        texts[Q_MFC_ID],
        texts[Q_MFC_ID_INDEX],
        std::to_string(USER_FLASH_VELMAR_ID),
        "1",
        "NONE",
        texts[Q_EXTENDED],
        texts[Q_MICRON],
        texts[Q_SPANSION],
        texts[Q_PROTECTED],
        texts[Q_AAI],
        texts[Q_FLAG_STATUS],
        texts[Q_DIE_COUNT],
        fmt::format("{}", static_cast<int>(bits)),
        fmt::format("{}", static_cast<int>(values[Q_SECTOR] << 10)),
        "0",
        bits >= FOUR_BYTE_ADDRESS_BITS ? "1" : "0",
        texts[Q_BULK_ERASE],
        texts[Q_SECTOR_ERASE],
        texts[Q_PAGE_PROGRAM],
        texts[Q_MASK],
        texts[Q_VALUE],
        texts[Q_UNPROTECT],
        texts[Q_DIVISOR],
        texts[Q_BOTTOM],
        texts[Q_SDM],
        texts[Q_VOLTAGE],
    };
    std::string definition;
    for (const std::string& field : fields)
        definition += "@" + field;
    return definition + "@";
}

} // namespace

bool MOXDEV_FLASH_MANAGER::prompt_flash_info(std::string& definition)
{
    return prompt_chip(std::cin, std::cout, definition);
}

bool MOXDEV_FLASH_MANAGER::prompt_chip(std::istream& in, std::ostream& out, std::string& definition)
{
    definition.clear();
    // Each answer as its definition text ("%d" of a number, so -1 stays -1),
    // and numbers as values.
    std::string texts[FLASH_QUESTION_COUNT];
    DWORD values[FLASH_QUESTION_COUNT] = {};
    for (std::size_t q = 0; q < FLASH_QUESTION_COUNT; ++q) {
        const FLASH_QUESTION& question = FLASH_QUESTIONS[q];
        out << question.prompt << std::flush;
        std::string answer;
        std::getline(in, answer);
        stl_toupper(answer);

        if (question.kind == FLASH_ANSWER::NAME) {
            if (answer.empty() || answer.size() > question.maximum) {
                out << "Empty name or name too long\n";
                return false;
            }
            texts[q] = answer;
            continue;
        }
        const auto convert = [this](const std::string& text, bool* valid) {
            return get_dword_from_string(text, valid);
        };
        if (!read_answer(question, answer, values[q], convert)) {
            out << "Invalid input\n";
            return false;
        }
        texts[q] = fmt::format("{}", static_cast<int>(values[q]));
    }
    // The three ID bytes must be read from three different places.
    if (values[Q_MEMORY_ID_INDEX] == values[Q_MEMORY_TYPE_INDEX] ||
        values[Q_MEMORY_ID_INDEX] == values[Q_MFC_ID_INDEX] || values[Q_MEMORY_TYPE_INDEX] == values[Q_MFC_ID_INDEX]) {
        out << "Memory ID, Memory Type and Manufacturer ID index cannot be at the same location";
        return false;
    }

    definition = definition_text(texts, values);
    out << "Prompt outcome: " << definition << "\n";
    return true;
}
