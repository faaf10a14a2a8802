// moxdev hps: the HPS descriptors and the user's NAND and SPI boot flash parts.
#include "cli.h"
#include "cli_json.h"

#include "moxdev/documents/hps_kinds.h"
#include "moxdev/hps_documents.h"
#include "moxdev/moxdev.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>

#ifdef _WIN32
#include <io.h>
#define MOXDEV_ISATTY _isatty
#else
#include <unistd.h>
#define MOXDEV_ISATTY isatty
#endif

namespace moxdev_cli {

namespace {

// The two flash kinds, with what the commands need to know of each.
template <class RECORD>
using KIND = moxdev::HPS_KIND<RECORD>;

template <class RECORD>
const std::vector<RECORD*>& user_records(const KIND<RECORD>& kind)
{
    return kind.manager()->get_user_list();
}
template <class RECORD>
const std::vector<RECORD*>& all_records(const KIND<RECORD>& kind)
{
    return kind.manager()->get_list();
}

// Changes the data set of `kind` in the parameter file under the writers'
// lock; says where a damaged file was kept; a failure is the user's error.
template <class RECORD>
void update_set(const KIND<RECORD>& kind, const std::function<bool(std::vector<BYTE>&, std::string&)>& change)
{
    std::string error, moved_aside;
    const bool written = moxdev::update_parameter_set(kind.set, change, error, &moved_aside);
    if (!moved_aside.empty())
        std::cerr << "moxdev: " << moxdev::parameter_file_path() << " could not be read; it was kept as " << moved_aside
                  << "\n";
    if (!written)
        throw USER_ERROR{"cannot change " + moxdev::parameter_file_path() + ": " + error};
}

// Changes the user records of `kind`: `change` edits the records as they are
// in the file at this moment (another process may have added some), so
// concurrent changes all stay.
template <class RECORD, class CHANGE>
void change_user_records(const KIND<RECORD>& kind, CHANGE change)
{
    update_set(kind, [&](std::vector<BYTE>& set, std::string& refusal) {
        bool foreign = false;
        std::vector<RECORD> records = moxdev::unpack_hps_user_set<RECORD>(set, &foreign);
        if (foreign) {
            refusal = std::string("its ") + kind.label +
                      " set was written by another program (other signature); "
                      "'moxdev hps clear " +
                      kind.label + "' removes it";
            return false;
        }
        if (!change(records, refusal))
            return false;
        return moxdev::pack_hps_user_set(records, set, refusal);
    });
}

template <class RECORD>
std::string record_text(const RECORD& record)
{
    std::string text;
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const bool hex = RECORD::TYPES[p] != MOXDEV_PARAM_STRING && RECORD::TYPES[p] != MOXDEV_PARAM_BOOL &&
                         RECORD::TYPES[p] != MOXDEV_PARAM_QWORD && p < 4;
        text += (p ? " " : "") + MOXDEV_FLASH_INI::print_flash_ini_data(RECORD::TYPES[p], hex, record.param[p]);
    }
    return text;
}

template <class RECORD>
void list_text(const KIND<RECORD>& kind)
{
    moxdev::warn_if_parameter_file_damaged(note);
    const auto& records = all_records(kind);
    const std::size_t users = user_records(kind).size();
    fmt::print("{:>5}  {:<8} ", "index", "source");
    for (DWORD p = 0; p < RECORD::PARAMS; ++p)
        fmt::print("{}{}", p ? " " : "", kind.parameters()[p].name);
    fmt::print("\n");
    for (std::size_t i = 0; i < records.size(); ++i)
        fmt::print("{:>5}  {:<8} {}\n", i, i < users ? "user" : "built-in", record_text(*records[i]));
    fmt::print("{} records, {} of them the user's\n", records.size(), users);
}

void list(const std::string& kind)
{
    if (json_output)
        print_json(moxdev::hps_list_document(kind, note));
    else
        moxdev::with_hps_kind(kind, [](const auto& k) { list_text(k); });
}

// Reads answers line by line, trimmed; false at the end of the input. A line
// too long to be an answer ends the input with an error.
bool next_answer(std::istream& in, std::string& answer)
{
    const moxdev::LINE_READ read = moxdev::read_answer_line(in, answer);
    if (read == moxdev::LINE_READ::TOO_LONG)
        throw USER_ERROR{"an answer is longer than 4096 characters"};
    if (read == moxdev::LINE_READ::END)
        return false;
    gen_remove_leading_and_trailing_white_spaces(answer);
    return true;
}

// Refuses before any question is asked when the user file cannot be
// written: its directory must be there and writable.
void check_writable()
{
    const std::filesystem::path file = moxdev::parameter_file_path();
    const std::filesystem::path directory = file.parent_path().empty() ? "." : file.parent_path();
    std::error_code error;
    const auto status = std::filesystem::status(directory, error);
    std::string reason;
    if (!std::filesystem::exists(status))
        reason = "it does not exist";
    else if (!std::filesystem::is_directory(status))
        reason = "it is not a directory";
    else if (::access(directory.c_str(), W_OK | X_OK) != 0)
        reason = std::strerror(errno);
    if (!reason.empty())
        throw USER_ERROR{fmt::format("cannot write {} in the module directory {}: {}; set MOXDEV_MODULE_DIR to a "
                                     "directory you can write",
                                     file.filename().string(), directory.string(), reason)};
}

template <class RECORD>
void add(const KIND<RECORD>& kind, const std::string& input_file)
{
    check_writable();
    ANSWER_SOURCE source(input_file);
    std::istream& in = source.stream();
    // A terminal shows the typed answer on the prompt's line; answers from a
    // file or a pipe are written there instead, so that each prompt keeps its
    // own line.
    const bool echo = !input_file.empty() || !MOXDEV_ISATTY(0);

    RECORD record;
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const moxdev::HPS_PARAMETER& parameter = kind.parameters()[p];
        for (;;) {
            if (parameter.hint != nullptr)
                fmt::print("{} ({}) : ", parameter.prompt, parameter.hint);
            else
                fmt::print("{} : ", parameter.prompt);
            std::fflush(stdout);
            std::string answer;
            if (!next_answer(in, answer)) {
                if (echo)
                    fmt::print("\n");
                std::fflush(stdout);
                throw USER_ERROR{std::string("the input ended before '") + parameter.name + "' was answered"};
            }
            if (echo)
                fmt::print("{}\n", answer);
            const std::string error = moxdev::read_hps_answer(parameter, answer, record.param[p]);
            if (error.empty())
                break;
            fmt::print("{}\n", error);
        }
    }

    change_user_records(kind, [&](std::vector<RECORD>& records, std::string& refusal) {
        // The same part twice changes nothing a programmer sees.
        for (std::size_t i = 0; i < records.size(); ++i) {
            if (moxdev::same_hps_part(records[i], record)) {
                refusal = fmt::format("this part is already user {} record {} (see 'moxdev hps list {}')", kind.label,
                                      i, kind.label);
                return false;
            }
        }
        records.insert(records.begin(), record);
        return true;
    });
    fmt::print("added: {}\n", record_text(record));
}

// Refuses an index that is not one of the `count` user records of `kind`.
template <class RECORD>
std::string index_refusal(const KIND<RECORD>& kind, const std::string& index, std::size_t count)
{
    if (count == 0)
        return fmt::format("there are no user {} records to remove (index {})", kind.label, index);
    return fmt::format("index {} is not one of the {} user {} records (0 to {}; see 'moxdev hps list {}')", index,
                       count, kind.label, count - 1, kind.label);
}

template <class RECORD>
void remove(const KIND<RECORD>& kind, const std::string& index_text)
{
    // Decimal digits only: a sign or anything else is no index.
    std::size_t index = 0;
    const bool digits = !index_text.empty() && index_text.size() < 10 &&
                        index_text.find_first_not_of("0123456789") == std::string::npos;
    if (digits)
        index = std::stoul(index_text);
    // Decided under the writers' lock, on the records as they are in the file
    // then: another process may have changed them since they were listed.
    std::string refused;
    try {
        change_user_records(kind, [&](std::vector<RECORD>& records, std::string& refusal) {
            if (!digits || index >= records.size()) {
                refused = refusal = index_refusal(kind, index_text, records.size());
                return false;
            }
            records.erase(records.begin() + long(index));
            return true;
        });
    } catch (const USER_ERROR&) {
        if (!refused.empty())
            throw USER_ERROR{refused};
        throw;
    }
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

constexpr std::size_t HPS_DESCRIPTOR_COUNT = sizeof MOXDEV_HPS_DESCRIPTORS / sizeof MOXDEV_HPS_DESCRIPTORS[0];

// "0x4BA00477 (descriptor 0), ..." : the IDCODEs that select a descriptor.
std::string known_idcodes()
{
    std::string text;
    for (std::size_t d = 0; d < HPS_DESCRIPTOR_COUNT; ++d)
        text += fmt::format("{}0x{:08X} (descriptor {})", d ? ", " : "", MOXDEV_HPS_DESCRIPTORS[d].word[0], d);
    return text;
}

// Without an IDCODE: the IDCODEs the descriptors answer to.
void list_idcodes()
{
    if (json_output) {
        JSON entries = JSON::array();
        for (std::size_t d = 0; d < HPS_DESCRIPTOR_COUNT; ++d)
            entries.push_back({{"idcode", MOXDEV_HPS_DESCRIPTORS[d].word[0]}, {"descriptor", d}});
        print_json(entries);
        return;
    }
    fmt::print("{:<10}  descriptor\n", "IDCODE");
    for (std::size_t d = 0; d < HPS_DESCRIPTOR_COUNT; ++d)
        fmt::print("0x{:08X}  {}\n", MOXDEV_HPS_DESCRIPTORS[d].word[0], d);
}

void select(const std::string& text)
{
    if (text.empty()) {
        list_idcodes();
        return;
    }
    DWORD id = 0;
    if (!MOX_COMMON::convert_string_to_dword(text.find("0x") == 0 || text.find("0X") == 0 ? text : "0x" + text, id))
        throw USER_ERROR{moxdev::quoted(text) + " is not a hexadecimal JTAG IDCODE; known: " + known_idcodes()};
    MOXDEV_HPS_MGR* mgr = MOXDEV_HPS_MGR::get_mgr();
    if (!mgr->set_current_hps(id))
        throw USER_ERROR{fmt::format("no HPS descriptor has the IDCODE 0x{:08X}; known: {}", id, known_idcodes())};
    const MOXDEV_HPS_STRUCTURE* hps = mgr->get_current_hps();
    const std::size_t descriptor = std::size_t(hps - MOXDEV_HPS_DESCRIPTORS);
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

} // namespace

void add_hps_commands(CLI::App& app)
{
    CLI::App* hps = app.add_subcommand("hps", "HPS descriptors and the NAND/SPI flash parts an HPS boots from");
    hps->require_subcommand(1);

    static std::string kind, input, id, index;
    auto kind_option = [](CLI::App* command) {
        command->add_option("KIND", kind, "nand or spi")
            ->required()
            ->check(CLI::IsMember({"nand", "spi"}, CLI::ignore_case));
    };

    CLI::App* list_command = hps->add_subcommand("list", "List the flash parts, the user's first (marked)");
    kind_option(list_command);
    add_json_verb(list_command, [] { list(kind); });

    CLI::App* add_command = hps->add_subcommand("add", "Add a user flash part, asking for each parameter");
    add_command->footer("Each parameter is asked with its prompt and checked; a refused answer is explained and "
                        "asked again. Answers come from the terminal, standard input or --input; answers that do "
                        "not come from the terminal are shown after their prompt. A number may be written as the "
                        "prompt writes it, with its unit or its k: 64k or 64KB for a size in Kbyte, 256MB or 64k "
                        "for one in MByte, 80s for seconds. A NAND ID is one byte (01 to FE); the SPI silicon ID "
                        "may be given as read (20 BA 18; one number holds the first byte lowest: 18BA20). A part "
                        "that is already a user part is refused. The part goes into mox_flash.ini in "
                        "MOXDEV_MODULE_DIR, which must be writable.");
    kind_option(add_command);
    add_command->add_option("--input", input, "Read the answers from this file, one per line");
    add_command->callback([] { moxdev::with_hps_kind(kind, [](const auto& k) { add(k, input); }); });

    CLI::App* remove_command = hps->add_subcommand("remove", "Remove one user flash part (its index in 'hps list')");
    kind_option(remove_command);
    remove_command->add_option("INDEX", index, "Index of the user record (0 for the first)")->required();
    remove_command->callback([] { moxdev::with_hps_kind(kind, [](const auto& k) { remove(k, index); }); });

    CLI::App* clear_command = hps->add_subcommand("clear", "Remove every user flash part of a kind");
    kind_option(clear_command);
    clear_command->callback([] { moxdev::with_hps_kind(kind, [](const auto& k) { clear(k); }); });

    CLI::App* select_command = hps->add_subcommand(
        "select", "Show the HPS descriptor that a JTAG IDCODE selects, word by word (no IDCODE: list them)");
    select_command->add_option("IDCODE", id,
                               "JTAG IDCODE in hex, e.g. 4BA00477; without it the known IDCODEs "
                               "are listed");
    add_json_verb(select_command, [] { select(id); });
}

} // namespace moxdev_cli
