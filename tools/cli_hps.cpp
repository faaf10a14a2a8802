// moxdev hps: the HPS descriptors and the user's NAND and SPI boot flash parts.
#include "cli.h"
#include "cli_json.h"

#include "moxdev/moxdev.h"

#include <fmt/format.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>

namespace moxdev_cli {

namespace {

// How one answer is checked and scaled; the rules are those the prompt texts
// state.
struct ANSWER_RULE {
    bool hex = false;
    bool power_of_2 = false;
    std::vector<DWORD> ranges; // count, then (low, high) pairs
    std::vector<DWORD> hits;   // count, then (mask, pattern) pairs that are refused
    DWORD multiple = 1;
};

const std::vector<DWORD> NOT_ALL_ZEROS_OR_ONES_BYTE = {2, 0xFF, 0x00, 0xFF, 0xFF};
const std::vector<DWORD> NOT_ALL_ZEROS_OR_ONES_ID = {2, 0xFFFFFF, 0x000000, 0xFFFFFF, 0xFFFFFF};
const std::vector<DWORD> OPCODE = {1, 1, 0xFE};

const ANSWER_RULE NAND_RULES[MOXDEV_HPS_NAND_STRUCTURE::PARAMS] = {
    {true, false, {}, NOT_ALL_ZEROS_OR_ONES_BYTE, 1},
    {true, false, {}, NOT_ALL_ZEROS_OR_ONES_BYTE, 1},
    {false, false, {1, 1, 65536}, {}, 1u << 20}, // MByte -> bytes
};

const ANSWER_RULE SPI_RULES[MOXDEV_HPS_SPI_STRUCTURE::PARAMS] = {
    {true, false, {}, NOT_ALL_ZEROS_OR_ONES_ID, 1},
    {true, false, {2, 0xFFFFFF, 0xFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, {}, 1},
    {true, false, {}, {}, 1},
    {true, false, {2, 0, 0, 0xFF, 0xFF}, {}, 1},
    {}, // manufacturer
    {}, // device name
    {false, true, {1, 1, 2048}, {}, 1u << 20}, // Mbit -> bits
    {false, true, {1, 1, 1024}, {}, 1u << 10}, // Kbyte -> bytes
    {false, true, {1, 1, 65536}, {}, 1},
    {false, false, {1, 1, 900}, {}, 1},
    {false, false, {1, 2, 10}, {}, 1},
    {false, false, {1, 1, 60}, {}, 1},
    {false, false, {1, 1000, 1000000}, {}, 1},
    {false, false, {1, 1, 5}, {}, 1},
    {false, false, {3, 1, 1, 2, 2, 4, 4}, {}, 1},
    {}, // speed mode
    {true, false, OPCODE, {}, 1},
    {true, false, OPCODE, {}, 1},
    {true, false, OPCODE, {}, 1},
};

// The two flash kinds, with what the commands need to know of each.
template <class RECORD>
struct KIND {
    const char* label;
    MOXDEV_FLASH_INI_ENUM set;
    const char* signature;
    const char* const* names;
    const char* const* prompts;
    const ANSWER_RULE* rules;
};

const KIND<MOXDEV_HPS_NAND_STRUCTURE> NAND = {"nand", MOXDEV_FLASH_INI_HPS_NAND, MOXDEV_HPS_NAND_SIGNATURE,
                                              MOXDEV_HPS_NAND_PARAM_NAMES, MOXDEV_HPS_NAND_PROMPTS, NAND_RULES};
const KIND<MOXDEV_HPS_SPI_STRUCTURE> SPI = {"spi", MOXDEV_FLASH_INI_HPS_SPI, MOXDEV_HPS_SPI_SIGNATURE,
                                            MOXDEV_HPS_SPI_PARAM_NAMES, MOXDEV_HPS_SPI_PROMPTS, SPI_RULES};

const std::vector<MOXDEV_HPS_NAND_STRUCTURE*>& user_records(const KIND<MOXDEV_HPS_NAND_STRUCTURE>&)
{
    return MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list();
}
const std::vector<MOXDEV_HPS_SPI_STRUCTURE*>& user_records(const KIND<MOXDEV_HPS_SPI_STRUCTURE>&)
{
    return MOXDEV_HPS_SPI_MGR::get_mgr()->get_user_list();
}
const std::vector<MOXDEV_HPS_NAND_STRUCTURE*>& all_records(const KIND<MOXDEV_HPS_NAND_STRUCTURE>&)
{
    return MOXDEV_HPS_NAND_MGR::get_mgr()->get_list();
}
const std::vector<MOXDEV_HPS_SPI_STRUCTURE*>& all_records(const KIND<MOXDEV_HPS_SPI_STRUCTURE>&)
{
    return MOXDEV_HPS_SPI_MGR::get_mgr()->get_list();
}

// Changes the data set of `kind` in the parameter file under the writers'
// lock; says where a damaged file was kept; a failure is the user's error.
template <class RECORD>
void update_set(const KIND<RECORD>& kind, const std::function<bool(std::vector<BYTE>&, std::string&)>& change)
{
    std::string error, moved_aside;
    const bool written = MOXDEV_FLASH_INI::update_flash_ini_data(kind.set, change, error, &moved_aside);
    if (!moved_aside.empty())
        std::cerr << "moxdev: " << MOXDEV_FLASH_INI::container_file() << " could not be read; it was kept as "
                  << moved_aside << "\n";
    if (!written)
        throw USER_ERROR{"cannot change " + MOXDEV_FLASH_INI::container_file() + ": " + error};
}

// Changes the user records of `kind`: `change` edits the records as they are
// in the file at this moment (another process may have added some), so
// concurrent changes all stay.
template <class RECORD, class CHANGE>
void change_user_records(const KIND<RECORD>& kind, CHANGE change)
{
    update_set(kind, [&](std::vector<BYTE>& set, std::string& refusal) {
        bool foreign = false;
        std::vector<RECORD> records = moxdev_hps_unpack_user_set<RECORD>(set, kind.signature, &foreign);
        if (foreign) {
            refusal = std::string("its ") + kind.label + " set was written by another program (other signature); "
                      "'moxdev hps clear " + kind.label + "' removes it";
            return false;
        }
        if (!change(records, refusal))
            return false;
        set = moxdev_hps_pack_user_set(records, kind.signature);
        return true;
    });
}

// Warns when the parameter file is there but cannot be read: its records are
// then not listed, and the next change keeps it under another name.
void warn_if_damaged()
{
    if (MOXDEV_FLASH_INI::container_state() == MOXDEV_FLASH_INI_STATE::DAMAGED)
        std::cerr << "moxdev: warning: " << MOXDEV_FLASH_INI::container_file()
                  << " cannot be read, so no user part of it is listed; the next change keeps it as "
                  << MOXDEV_FLASH_INI::container_file() << ".damaged-<time>\n";
}

template <class RECORD>
std::string record_text(const RECORD& record)
{
    std::string text;
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const bool hex = RECORD::TYPES[p] != MOXDEV_PARAM_STRING && RECORD::TYPES[p] != MOXDEV_PARAM_BOOL &&
                         RECORD::TYPES[p] != MOXDEV_PARAM_QWORD && p < 4;
        text += (p ? " " : "") +
                MOXDEV_FLASH_INI::print_flash_ini_data(RECORD::TYPES[p], hex, record.param[p]);
    }
    return text;
}

// The parameters of `record` under their names.
template <class RECORD>
JSON record_json(const KIND<RECORD>& kind, const RECORD& record)
{
    JSON fields = JSON::object();
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const void* value = record.param[p];
        switch (RECORD::TYPES[p]) {
        case MOXDEV_PARAM_STRING: fields[kind.names[p]] = *static_cast<const std::string*>(value); break;
        case MOXDEV_PARAM_BOOL: fields[kind.names[p]] = *static_cast<const bool*>(value); break;
        case MOXDEV_PARAM_BYTE: fields[kind.names[p]] = unsigned(*static_cast<const BYTE*>(value)); break;
        case MOXDEV_PARAM_WORD: fields[kind.names[p]] = *static_cast<const WORD*>(value); break;
        case MOXDEV_PARAM_DWORD: fields[kind.names[p]] = *static_cast<const DWORD*>(value); break;
        case MOXDEV_PARAM_QWORD: fields[kind.names[p]] = *static_cast<const QWORD*>(value); break;
        }
    }
    return fields;
}

template <class RECORD>
void list(const KIND<RECORD>& kind)
{
    warn_if_damaged();
    const auto& records = all_records(kind);
    const std::size_t users = user_records(kind).size();
    if (json_output) {
        JSON entries = JSON::array();
        for (std::size_t i = 0; i < records.size(); ++i)
            entries.push_back({{"index", i}, {"user_defined", i < users}, {"record", record_json(kind, *records[i])}});
        print_json(entries);
        return;
    }
    fmt::print("{:>5}  {:<8} ", "index", "source");
    for (DWORD p = 0; p < RECORD::PARAMS; ++p)
        fmt::print("{}{}", p ? " " : "", kind.names[p]);
    fmt::print("\n");
    for (std::size_t i = 0; i < records.size(); ++i)
        fmt::print("{:>5}  {:<8} {}\n", i, i < users ? "user" : "built-in", record_text(*records[i]));
    fmt::print("{} records, {} of them the user's\n", records.size(), users);
}

// Reads answers line by line; false at the end of the input.
bool next_answer(std::istream& in, std::string& answer)
{
    if (!std::getline(in, answer))
        return false;
    gen_remove_leading_and_trailing_white_spaces(answer);
    return true;
}

template <class RECORD>
void add(const KIND<RECORD>& kind, const std::string& input_file)
{
    std::ifstream file;
    if (!input_file.empty()) {
        file.open(input_file);
        if (!file)
            throw USER_ERROR{"cannot read '" + input_file + "'"};
    }
    std::istream& in = input_file.empty() ? std::cin : file;

    RECORD record;
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const ANSWER_RULE& rule = kind.rules[p];
        for (;;) {
            fmt::print("{} : ", kind.prompts[p]);
            std::fflush(stdout);
            std::string answer;
            if (!next_answer(in, answer))
                throw USER_ERROR{std::string("the input ended before '") + kind.names[p] + "' was answered"};
            const MOXDEV_PARAM_TYPE type = RECORD::TYPES[p];
            std::string error;
            if (type == MOXDEV_PARAM_STRING) {
                if (answer.empty()) {
                    error = "Input is empty";
                } else {
                    stl_toupper(answer);
                    *static_cast<std::string*>(record.param[p]) = answer;
                }
            } else if (type == MOXDEV_PARAM_BOOL) {
                stl_toupper(answer);
                if (answer == "Y" || answer == "N")
                    *static_cast<bool*>(record.param[p]) = answer == "Y";
                else
                    error = "Input must be Y or N";
            } else {
                QWORD value = 0;
                if (MOXDEV_FLASH_INI::convert_string_to_qword(
                        type, value, rule.hex, answer, rule.power_of_2,
                        rule.ranges.empty() ? nullptr : rule.ranges.data(),
                        rule.hits.empty() ? nullptr : rule.hits.data(), false, rule.multiple, error)) {
                    if (type == MOXDEV_PARAM_QWORD)
                        *static_cast<QWORD*>(record.param[p]) = value;
                    else
                        *static_cast<DWORD*>(record.param[p]) = DWORD(value);
                }
            }
            if (error.empty())
                break;
            fmt::print("{}\n", error);
        }
        if (!input_file.empty())
            fmt::print("\n");
    }

    change_user_records(kind, [&](std::vector<RECORD>& records, std::string&) {
        records.insert(records.begin(), record);
        return true;
    });
    fmt::print("added: {}\n", record_text(record));
}

template <class RECORD>
void remove(const KIND<RECORD>& kind, std::size_t index)
{
    change_user_records(kind, [&](std::vector<RECORD>& records, std::string& refusal) {
        if (index >= records.size()) {
            refusal = fmt::format("index {} is not one of the {} user {} records", index, records.size(), kind.label);
            return false;
        }
        records.erase(records.begin() + long(index));
        return true;
    });
    fmt::print("removed user {} record {}\n", kind.label, index);
}

template <class RECORD>
void clear(const KIND<RECORD>& kind)
{
    update_set(kind, [](std::vector<BYTE>& set, std::string&) {
        set.clear();
        return true;
    });
    fmt::print("removed every user {} record\n", kind.label);
}

void select(const std::string& text)
{
    DWORD id = 0;
    if (!MOX_COMMON::convert_string_to_dword(text.find("0x") == 0 || text.find("0X") == 0 ? text : "0x" + text, id))
        throw USER_ERROR{"'" + text + "' is not a hexadecimal JTAG IDCODE"};
    MOXDEV_HPS_MGR* mgr = MOXDEV_HPS_MGR::get_mgr();
    if (!mgr->set_current_hps(id))
        throw USER_ERROR{fmt::format("no HPS descriptor has the IDCODE 0x{:08X}", id)};
    const MOXDEV_HPS_STRUCTURE* hps = mgr->get_current_hps();
    const int descriptor = hps == &MOXDEV_HPS_DESCRIPTORS[0] ? 0 : 1;
    if (json_output) {
        // A word the HPS does not have is null.
        JSON words = JSON::object();
        for (DWORD w = 0; w < MOXDEV_HPS_WORDS; ++w)
            words[MOXDEV_HPS_WORD_NAMES[w]] = hps->word[w] == 0xFFFFFFFFu ? JSON() : JSON(hps->word[w]);
        print_json({{"idcode", id}, {"descriptor", descriptor}, {"words", std::move(words)}});
        return;
    }
    fmt::print("HPS descriptor {} selected by IDCODE 0x{:08X}\n", descriptor, id);
    for (DWORD w = 0; w < MOXDEV_HPS_WORDS; ++w) {
        const DWORD value = hps->word[w];
        fmt::print("{:>5}  {:<40} {}\n", w, MOXDEV_HPS_WORD_NAMES[w],
                   value == 0xFFFFFFFFu ? std::string("absent") : fmt::format("0x{:08X}", value));
    }
}

// Runs `action` on the kind named `name`.
template <class ACTION>
void with_kind(const std::string& name, ACTION action)
{
    if (gen_stricmp(name, "nand") == 0)
        action(NAND);
    else if (gen_stricmp(name, "spi") == 0)
        action(SPI);
    else
        throw USER_ERROR{"unknown flash kind '" + name + "' (nand or spi)"};
}

} // namespace

void add_hps_commands(CLI::App& app)
{
    CLI::App* hps = app.add_subcommand("hps", "HPS descriptors and the NAND/SPI flash parts an HPS boots from");
    hps->require_subcommand(1);

    static std::string kind, input, id;
    static std::size_t index = 0;
    auto kind_option = [](CLI::App* command) {
        command->add_option("KIND", kind, "nand or spi")->required()->check(CLI::IsMember({"nand", "spi"}, CLI::ignore_case));
    };

    CLI::App* list_command = hps->add_subcommand("list", "List the flash parts, the user's first (marked)");
    kind_option(list_command);
    add_json_verb(list_command, [] { with_kind(kind, [](const auto& k) { list(k); }); });

    CLI::App* add_command = hps->add_subcommand("add", "Add a user flash part, asking for each parameter");
    add_command->footer("Each parameter is asked with its prompt and checked; a refused answer is explained and "
                        "asked again. Answers come from the terminal, standard input or --input.");
    kind_option(add_command);
    add_command->add_option("--input", input, "Read the answers from this file, one per line");
    add_command->callback([] { with_kind(kind, [](const auto& k) { add(k, input); }); });

    CLI::App* remove_command = hps->add_subcommand("remove", "Remove one user flash part (its index in 'hps list')");
    kind_option(remove_command);
    remove_command->add_option("INDEX", index, "Index of the user record")->required();
    remove_command->callback([] { with_kind(kind, [](const auto& k) { remove(k, index); }); });

    CLI::App* clear_command = hps->add_subcommand("clear", "Remove every user flash part of a kind");
    kind_option(clear_command);
    clear_command->callback([] { with_kind(kind, [](const auto& k) { clear(k); }); });

    CLI::App* select_command = hps->add_subcommand(
        "select", "Show the HPS descriptor that a JTAG IDCODE selects, word by word");
    select_command->add_option("IDCODE", id, "JTAG IDCODE in hex, e.g. 4BA00477")->required();
    add_json_verb(select_command, [] { select(id); });
}

} // namespace moxdev_cli
