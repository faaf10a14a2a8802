#include "moxdev/user_flash.h"

#include "moxdev/files.h"
#include "moxdev/text.h"

#include "moxdev/flash/moxdev_flash_access.h"
#include "moxdev/flash/moxdev_flash_questions.h"
#include "moxdev/flash/moxdev_user_value_codec.h"

#include "host/gen_string.h"
#include "host/mox_common.h"

#include <absl/strings/ascii.h>
#include <fmt/format.h>

#include <iostream>
#include <type_traits>

namespace moxdev {

using namespace detail;

namespace {

bool fail(std::string* error, const std::string& text)
{
    if (error != nullptr)
        *error = text;
    return false;
}

// The definition text of one record: every field behind an '@', in record
// order, and a closing '@'. Texts are upper-cased (the loader reads them so),
// flags are 1 or 0, numbers decimal; a DWORD as "%d" writes it, which the
// loader's atoi reads back to the same bits.
bool definition_of(const MOXDEV_SFL_FLASH_INFO& record, std::string& definition, std::string* error)
{
    definition.clear();
    std::string refused;
    moxdev_for_each_flash_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        std::string text;
        if constexpr (std::is_same_v<T, std::string>) {
            text = value;
            stl_toupper(text);
            const std::string field = name;
            std::string problem;
            if (field == "manufacturer_name" || field == "device_name")
                problem = user_flash_name_problem(text);
            else if (field == "asc_voltage")
                problem = flash_voltage(text) == text ? "" : "the voltage is 3.3V or 1.8V";
            else if (text.empty() || text.find_first_of("@#;") != std::string::npos ||
                     !stored_text_problem(text, 255).empty())
                problem = "1 to 255 printable characters without '@', '#' or ';'";
            if (refused.empty() && !problem.empty())
                refused = fmt::format("the {} {} cannot be carried: {}", name, quoted(value), problem);
        } else if constexpr (std::is_same_v<T, bool>) {
            text = value ? "1" : "0";
        } else if constexpr (std::is_same_v<T, BYTE>) {
            text = std::to_string(unsigned(value));
        } else {
            text = std::to_string(static_cast<int>(value));
        }
        definition += "@" + text;
    });
    definition += "@";
    return refused.empty() || fail(error, refused);
}

} // namespace

std::string user_flash_name_problem(const std::string& name)
{
    if (name.empty() || name.size() > USER_FLASH_NAME_MOST)
        return fmt::format("a name has 1 to {} characters", USER_FLASH_NAME_MOST);
    if (name.find_first_of("@#;") != std::string::npos)
        return "'@', '#' and ';' cannot be part of a name (they separate the fields of the value)";
    return stored_text_problem(name, USER_FLASH_NAME_MOST);
}

std::string flash_voltage(const std::string& typed)
{
    std::string text = absl::AsciiStrToUpper(typed);
    if (!text.empty() && text.back() != 'V')
        text += 'V';
    return text == "3.3V" || text == "1.8V" ? text : "";
}

std::string user_flash_value(const std::vector<MOXDEV_SFL_FLASH_INFO>& records, std::string* error)
{
    if (records.empty() || records.size() > MAX_USER_FLASH_CHIPS) {
        fail(error, "a value carries 1 to 3 chips");
        return "";
    }
    std::string text;
    for (const MOXDEV_SFL_FLASH_INFO& record : records) {
        std::string definition;
        if (!definition_of(record, definition, error))
            return "";
        text += definition + "#" + user_value_check(definition) + ";";
    }
    std::string encoded, decoded, reason;
    if (!encode_user_value(text, encoded, reason) || !decode_user_value(encoded, decoded, reason, true) ||
        decoded != text) {
        fail(error, "the value does not decode to its text: " + reason);
        return "";
    }
    return encoded;
}

std::string user_flash_value(const MOXDEV_SFL_FLASH_INFO& record, std::string* error)
{
    return user_flash_value(std::vector<MOXDEV_SFL_FLASH_INFO>{record}, error);
}

bool read_user_flash_value(const std::string& value, USER_FLASH_CONTENT& content, std::string& error)
{
    content = USER_FLASH_CONTENT{};
    std::string reason;
    if (!decode_user_value(value, content.decoded, reason))
        return fail(&error, "not a user flash value (" + reason + ")");
    // An encoder writes the compressed definition and nothing after it; the
    // loader skips what follows, so a value that goes on was cut and pasted
    // wrongly or altered, and is not vouched for.
    std::string whole;
    if (!decode_user_value(value, whole, reason, true))
        return fail(&error, "the value goes on after its compressed definition: it is damaged (the loader skips "
                            "the extra characters); define the chip again");
    if (!split_user_value(content.decoded, content.definition, content.check_value))
        return fail(&error, "the value has no check value (definition#check;)");
    if (content.definition.empty() || content.check_value.empty())
        return fail(&error, "the value's definition or check value is empty");
    content.fields_valid = FLASH_MANAGER_ACCESS::read_definition(content.definition, content.record);
    content.check_matches = user_value_check(content.definition) == content.check_value;
    content.more_chips = content.decoded.size() > content.decoded.find(';') + 1;
    return true;
}

// ---------------------------------------------------------------- dialogue

namespace {

// Why `answer` does not fit `question`, as one line; "" when it does, with
// its value in `value` (255 for "not used").
std::string refusal(const FLASH_QUESTION& question, const std::string& answer, DWORD& value)
{
    switch (question.kind) {
    case FLASH_ANSWER::NAME:
        if (&question == &FLASH_QUESTIONS[Q_VOLTAGE])
            return flash_voltage(answer).empty() ? "Invalid input: the voltage is 3.3V or 1.8V" : "";
        if (const std::string problem = user_flash_name_problem(answer); !problem.empty())
            return "Invalid input: " + problem;
        return "";
    case FLASH_ANSWER::YES_NO:
        if (answer != "Y" && answer != "N")
            return "Invalid input: answer Y or N";
        value = answer == "Y" ? 1 : 0;
        return "";
    case FLASH_ANSWER::HEX:
    case FLASH_ANSWER::DECIMAL:
    case FLASH_ANSWER::POWER_OF_TWO: break;
    }
    const bool hex = question.kind == FLASH_ANSWER::HEX;
    if (question.unused_allowed && (answer == "NONE" || answer == "-1" || answer == (hex ? "FF" : "255"))) {
        value = 255;
        return "";
    }
    const std::string range = hex ? fmt::format("{:X} to {:X} (hex)", question.minimum, question.maximum)
                                  : fmt::format("{} to {}", question.minimum, question.maximum);
    const std::string none = question.unused_allowed ? (hex ? ", or FF for none" : ", or 255 for none") : "";
    if (!MOX_COMMON::convert_string_to_dword(hex ? "0x" + answer : answer, value) || value < question.minimum ||
        value > question.maximum)
        return "Invalid input: a number from " + range + none + " is needed";
    if (question.kind == FLASH_ANSWER::POWER_OF_TWO && !MOXDEV_FLASH_MANAGER::is_power_of_two(value))
        return "Invalid input: a power of two is needed (1, 2, 4, 8 ...)";
    return "";
}

// One answer line, trimmed and upper-cased; false, with the reason, at the
// end of the answers or at a line too long to be an answer.
// With `echo`, the answer as read is written after its prompt (answers from
// a pipe or a file, which no terminal shows), so each prompt keeps its line.
bool next_answer(std::istream& in, std::ostream* echo, std::string& answer, std::string& error, const char* awaited)
{
    const LINE_READ read = read_answer_line(in, answer);
    if (echo != nullptr)
        *echo << (read == LINE_READ::LINE ? answer : "") << "\n";
    if (read == LINE_READ::TOO_LONG)
        return fail(&error, "an answer is longer than 4096 characters");
    if (read == LINE_READ::END)
        return fail(&error, std::string("the answers ended before ") + awaited);
    gen_remove_leading_and_trailing_white_spaces(answer);
    stl_toupper(answer);
    return true;
}

// The text of a prompt without its " : " and its range, for messages.
std::string question_name(const char* prompt)
{
    std::string name = prompt;
    return name.substr(0, name.find_first_of("[:") - 1);
}

// Asks one chip's questions until each is answered acceptably.
bool ask_chip(std::istream& in, std::ostream& out, bool echo, MOXDEV_SFL_FLASH_INFO& chip, std::string& error)
{
    std::string texts[FLASH_QUESTION_COUNT];
    DWORD values[FLASH_QUESTION_COUNT] = {};
    for (std::size_t q = 0; q < FLASH_QUESTION_COUNT; ++q) {
        const FLASH_QUESTION& question = FLASH_QUESTIONS[q];
        out << (question.friendly_prompt != nullptr ? question.friendly_prompt : question.prompt) << std::flush;
        std::string answer;
        if (!next_answer(in, echo ? &out : nullptr, answer, error,
                         ("'" + question_name(question.prompt) + "' was answered").c_str()))
            return false;
        DWORD value = 0;
        std::string reason = refusal(question, answer, value);
        // The three ID bytes must be read from three different places.
        if (reason.empty() && (q == Q_MEMORY_TYPE_INDEX || q == Q_MFC_ID_INDEX) && value != 255) {
            const bool taken =
                value == values[Q_MEMORY_ID_INDEX] || (q == Q_MFC_ID_INDEX && value == values[Q_MEMORY_TYPE_INDEX]);
            if (taken)
                reason = "Memory ID, Memory Type and Manufacturer ID index cannot be at the same location: "
                         "another ID byte is read from there";
        }
        if (!reason.empty()) {
            out << reason << "; try again\n";
            --q;
            continue;
        }
        texts[q] = answer;
        values[q] = value;
    }

    chip = MOXDEV_SFL_FLASH_INFO{};
    chip.manufacturer_name = texts[Q_MANUFACTURER];
    chip.device_name = texts[Q_DEVICE];
    chip.silicon_id = false;
    chip.memory_id = BYTE(values[Q_MEMORY_ID]);
    chip.memory_id_index = BYTE(values[Q_MEMORY_ID_INDEX]);
    chip.memory_type = BYTE(values[Q_MEMORY_TYPE]);
    chip.memory_type_index = BYTE(values[Q_MEMORY_TYPE_INDEX]);
    chip.mfc_id = BYTE(values[Q_MFC_ID]);
    chip.mfc_id_index = BYTE(values[Q_MFC_ID_INDEX]);
    chip.velmar_id = USER_FLASH_VELMAR_ID;
    chip.default_dev = true;
    chip.ini = "NONE";
    chip.extended_mode = values[Q_EXTENDED] != 0;
    chip.micron_flow = values[Q_MICRON] != 0;
    chip.spansion_flow = values[Q_SPANSION] != 0;
    chip.startup_protected = values[Q_PROTECTED] != 0;
    chip.aai_mode = values[Q_AAI] != 0;
    chip.flag_status = values[Q_FLAG_STATUS] != 0;
    chip.die_count = BYTE(values[Q_DIE_COUNT]);
    chip.device_bit_size = values[Q_DENSITY] << 20;
    chip.device_sector_byte = values[Q_SECTOR] << 10;
    chip.half_size = false;
    chip.byte4_addressing = chip.device_bit_size >= FOUR_BYTE_ADDRESS_BITS;
    chip.bulk_erase_time = values[Q_BULK_ERASE];
    chip.sec_erase_time = values[Q_SECTOR_ERASE];
    chip.program_utime = values[Q_PAGE_PROGRAM];
    chip.protection_mask = BYTE(values[Q_MASK]);
    chip.protection_value = BYTE(values[Q_VALUE]);
    chip.unprotect_value = BYTE(values[Q_UNPROTECT]);
    chip.protection_division = BYTE(values[Q_DIVISOR]);
    chip.bottom_value = BYTE(values[Q_BOTTOM]);
    chip.sdm_support = values[Q_SDM] != 0;
    chip.asc_voltage = flash_voltage(texts[Q_VOLTAGE]);
    return true;
}

} // namespace

bool define_user_flash(std::istream& in, std::ostream& out, USER_FLASH_DEFINITION& definition, std::string& error,
                       bool echo)
{
    definition = USER_FLASH_DEFINITION{};
    DWORD count = 0;
    for (;;) {
        out << FLASH_COUNT_PROMPT << std::flush;
        std::string answer;
        if (!next_answer(in, echo ? &out : nullptr, answer, error, "the number of chips was given"))
            return false;
        if (MOX_COMMON::convert_string_to_dword(answer, count) && count >= 1 && count <= MAX_USER_FLASH_CHIPS)
            break;
        out << "Invalid input or too many flash to define: answer 1, 2 or 3\n";
    }
    if (count > 1)
        out << "Note: the flash manager uses only the first definition of the value; the others are "
               "carried but ignored\n";
    for (DWORD n = 0; n < count; ++n) {
        MOXDEV_SFL_FLASH_INFO chip;
        if (!ask_chip(in, out, echo, chip, error))
            return false;
        definition.chips.push_back(chip);
    }
    definition.value = user_flash_value(definition.chips, &error);
    return !definition.value.empty();
}

} // namespace moxdev
