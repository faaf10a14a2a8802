// moxdev flash: the serial flash database, chip identification and the user
// flash definition.
#include "cli.h"
#include "cli_flash.h"
#include "cli_json.h"

#include "moxdev/moxdev.h"

#include <algorithm>
#include <fmt/format.h>

#include <iostream>
#include <streambuf>
#include <type_traits>

namespace moxdev_cli {

void print_record(const MOXDEV_SFL_FLASH_INFO& record)
{
    for (const auto& field : moxdev_flash_info_to_text(record))
        fmt::print("  {:<20} {}\n", field.first, field.second);
}

JSON record_json(const MOXDEV_SFL_FLASH_INFO& record)
{
    JSON fields = JSON::object();
    moxdev_for_each_flash_field(record, [&](const char* name, MOXDEV_MANAGER_TYPE, const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, BYTE>)
            fields[name] = unsigned(value);
        else
            fields[name] = value;
    });
    return fields;
}

std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words)
{
    std::vector<BYTE> bytes;
    for (std::string word : words) {
        if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X'))
            word.erase(0, 2);
        if (word.empty() || word.size() % 2 != 0 ||
            word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw USER_ERROR{"'" + word + "' is not a hex byte sequence (e.g. 20 BA 19)"};
        for (std::size_t i = 0; i < word.size(); i += 2)
            bytes.push_back(BYTE(std::stoul(word.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

namespace {

// The flash manager with the parts a command needs beyond its public face.
class FLASH_TOOL : public MOXDEV_FLASH_MANAGER {
public:
    // Loads the database for a one-device chain; with `every_record` the
    // records behind a switch that is off are kept too.
    explicit FLASH_TOOL(bool every_record) : MOXDEV_FLASH_MANAGER(false, 1, true, false)
    {
        m_enable_all = every_record;
        initialize_flash_database(gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf");
        m_device_count = 1;
        m_device_to_flash_map = std::make_shared<std::vector<DWORD>>(1, INVALID_DWORD);
    }

    // An empty manager, for decoding values only.
    FLASH_TOOL() : MOXDEV_FLASH_MANAGER(false, 1, true, false) {}

    bool has_user_record() const { return !m_ini_database.device_name.empty(); }

    // The fields of a definition text into `record`; false when one is invalid.
    bool read_definition(const std::string& definition, MOXDEV_SFL_FLASH_INFO& record)
    {
        std::string fields[TOTAL_DATABASE_MEMBER];
        std::size_t position = 0;
        for (std::string& field : fields) {
            if (!get_string_from_ini(definition, &field, position))
                break;
        }
        const bool valid = assign_ini(fields);
        record = m_ini_database;
        return valid;
    }
};

std::string id_text(const MOXDEV_SFL_FLASH_INFO& record)
{
    if (record.silicon_id)
        return fmt::format("silicon {:02X}", record.memory_id);
    if (record.memory_type_index == 255)
        return fmt::format("{:02X} -- {:02X}", record.mfc_id, record.memory_id);
    return fmt::format("{:02X} {:02X} {:02X}", record.mfc_id, record.memory_type, record.memory_id);
}

void flash_list(bool every_record, bool full, const std::string& maker)
{
    FLASH_TOOL manager(every_record);
    const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
    auto listed = [&](const MOXDEV_SFL_FLASH_INFO& record) {
        return maker.empty() || gen_stricmp(record.manufacturer_name, maker) == 0;
    };
    if (!std::any_of(records, records + manager.get_flash_count(), listed))
        throw USER_ERROR{"no flash record of the maker '" + maker + "'"};
    if (json_output) {
        JSON entries = JSON::array();
        for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
            const MOXDEV_SFL_FLASH_INFO& record = records[i];
            if (!listed(record))
                continue;
            const bool user = i == 0 && manager.has_user_record();
            const bool switched = !user && gen_stricmp(record.ini, "NONE") != 0;
            const std::string name = switched ? "MOX_ALLOW_" + record.ini : std::string();
            entries.push_back({{"index", i},
                               {"user_defined", user},
                               {"switch", text_or_null(name)},
                               {"usable", !switched || cfg_is_on(name, false)},
                               {"record", record_json(record)}});
        }
        print_json(entries);
        return;
    }
    if (full && maker.empty()) {
        manager.print_database();
        return;
    }
    fmt::print("{:>5}  {:<10} {:<16} {:<11} {:>6} {:>6}  {:<7} {}\n", "index", "maker", "device",
               "ID", "Mbit", "KiB", "default", "switch");
    // Records per maker, in table order, for the closing line.
    std::vector<std::pair<std::string, DWORD>> per_maker;
    DWORD shown = 0;
    for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
        const MOXDEV_SFL_FLASH_INFO& record = records[i];
        if (!listed(record))
            continue;
        ++shown;
        if (per_maker.empty() || per_maker.back().first != record.manufacturer_name)
            per_maker.emplace_back(record.manufacturer_name, 0);
        ++per_maker.back().second;
        if (full) {
            fmt::print("Flash record {}: {} {}\n", i, record.manufacturer_name, record.device_name);
            print_record(record);
            continue;
        }
        std::string note;
        if (i == 0 && manager.has_user_record())
            note = "user-defined (MOX_SUPPORT_EXT_SPI_DEV)";
        else if (gen_stricmp(record.ini, "NONE") != 0)
            note = "MOX_ALLOW_" + record.ini +
                   (cfg_is_on("MOX_ALLOW_" + record.ini, false) ? " (on)" : " (off: not usable)");
        fmt::print("{:>5}  {:<10} {:<16} {:<11} {:>6} {:>6}  {:<7} {}\n", i,
                   record.manufacturer_name, record.device_name, id_text(record),
                   record.device_bit_size >> 20, record.device_sector_byte >> 10,
                   record.default_dev ? "yes" : "", note);
    }
    // A maker whose records are not adjacent (a second block) is counted once.
    std::vector<std::pair<std::string, DWORD>> counts;
    for (const auto& entry : per_maker) {
        auto same =
            std::find_if(counts.begin(), counts.end(), [&](const auto& c) { return c.first == entry.first; });
        if (same == counts.end())
            counts.push_back(entry);
        else
            same->second += entry.second;
    }
    std::string summary;
    for (const auto& [name, count] : counts)
        summary += fmt::format("{}{} {}", summary.empty() ? "" : ", ", name, count);
    fmt::print("{} records: {}\n", shown, summary);
}

void flash_identify(const std::vector<std::string>& words, bool silicon_id, const std::string& sfdp_file)
{
    const std::vector<BYTE> bytes = parse_id_bytes(words);
    FLASH_TOOL manager(false);
    const DWORD table_count = manager.get_flash_count();
    if (!sfdp_file.empty()) {
        if (silicon_id)
            throw USER_ERROR{"--sfdp binds by the device ID, not by a silicon ID"};
        const std::vector<BYTE> sfdp = read_sfdp_file(sfdp_file);
        std::string error;
        if (!manager.flash_sfdp_mapping(0, bytes.data(), DWORD(bytes.size()), sfdp.data(), sfdp.size(), &error))
            throw USER_ERROR{error};
    } else if (!manager.flash_id_database_mapping(silicon_id, 0, bytes.data(), DWORD(bytes.size()))) {
        std::string text;
        for (BYTE byte : bytes)
            text += fmt::format(" {:02X}", byte);
        throw USER_ERROR{"no known flash matches" + text +
                         (silicon_id ? " (silicon ID)" : " (device ID: manufacturer, type, capacity)")};
    }
    const DWORD index = manager.get_flash_mapping_index(0, false);
    const bool user = index == 0 && manager.has_user_record();
    const bool derived = index >= table_count;
    if (json_output) {
        print_json({{"id_bytes", bytes},
                    {"silicon_id", silicon_id},
                    {"record_index", index},
                    {"user_defined", user},
                    {"from_sfdp", derived},
                    {"record", record_json(manager.get_flash_database()[index])}});
        return;
    }
    fmt::print("{} {}: record {}{}\n", manager.sfl_get_manufacturer_name(0),
               manager.sfl_get_device_name(0), index,
               user ? " (user-defined)" : derived ? " (derived from its SFDP read)" : "");
    print_record(manager.get_flash_database()[index]);
}

// Passes output through to another stream buffer, remembering what went by.
class RECORDING_BUFFER : public std::streambuf {
public:
    explicit RECORDING_BUFFER(std::streambuf* target) : m_target(target) {}
    const std::string& text() const { return m_text; }

protected:
    int overflow(int c) override
    {
        if (c != traits_type::eof())
            m_text += char(c);
        return m_target->sputc(char(c));
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override
    {
        m_text.append(s, std::size_t(n));
        return m_target->sputn(s, n);
    }
    int sync() override { return m_target->pubsync(); }

private:
    std::streambuf* m_target;
    std::string m_text;
};

void flash_define()
{
    RECORDING_BUFFER buffer(std::cout.rdbuf());
    std::ostream out(&buffer);
    FLASH_TOOL().gen_flash_ini(std::cin, out);
    out.flush();
    const std::string& text = buffer.text();
    if (!text.empty() && text.back() != '\n')
        std::cout << "\n";
    const std::size_t ini = text.rfind("INI : ");
    if (ini == std::string::npos)
        throw USER_ERROR{"no flash was defined"};
    const std::string value = text.substr(ini + 6, text.find('\n', ini) - ini - 6);
    // The loader reads only the first definition, and only byte values of 0
    // to 255: an index answered with -1 makes it ignore the whole value.
    FLASH_TOOL tool;
    const std::string decoded = tool.decode_ini(value);
    MOXDEV_SFL_FLASH_INFO record;
    if (!tool.read_definition(decoded.substr(0, decoded.find('#')), record))
        std::cerr << "moxdev: warning: the flash manager will ignore this value: an answer of -1 "
                     "cannot be stored in the definition; answer with a position instead\n";
    std::cout << "\nTo use it, set the configuration value, e.g.\n  export "
              << "MOX_SUPPORT_EXT_SPI_DEV='" << value << "'\n";
}

void flash_decode(const std::string& value)
{
    FLASH_TOOL tool;
    const std::string decoded = tool.decode_ini(value);
    if (decoded.empty())
        throw USER_ERROR{"not a user flash value"};
    if (!json_output)
        fmt::print("decoded: {}\n", decoded);
    const std::size_t hash = decoded.find('#');
    const std::size_t semicolon = decoded.find(';');
    if (hash == std::string::npos || semicolon == std::string::npos || semicolon < hash)
        throw USER_ERROR{"the value has no check value (definition#check;)"};
    const std::string definition = decoded.substr(0, hash);
    const std::string password = decoded.substr(hash + 1, semicolon - hash - 1);
    if (definition.empty() || password.empty())
        throw USER_ERROR{"the value's definition or check value is empty"};

    MOXDEV_SFL_FLASH_INFO record;
    const bool valid = tool.read_definition(definition, record);
    const bool matches = tool.cmp_ini_password(password, definition);
    const bool more = decoded.size() > semicolon + 1;
    if (json_output) {
        print_json({{"decoded", decoded},
                    {"record", record_json(record)},
                    {"fields_valid", valid},
                    {"check_value", password},
                    {"check_value_matches", matches},
                    {"further_definitions_ignored", more},
                    {"accepted", valid && matches}});
    } else {
        print_record(record);
        fmt::print("fields: {}\ncheck value {}: {}\n", valid ? "valid" : "INVALID (the loader ignores it)",
                   password,
                   matches ? "matches this version" : "does NOT match this version (the loader ignores it)");
        if (more)
            fmt::print("note: only the first definition of the value is used\n");
    }
    if (!valid || !matches)
        throw USER_ERROR{"the flash manager will not use this value"};
}

void flash_generate(const std::string& csv, const std::string& out)
{
    if (!FIO_FILE_SYSTEM::exists(csv.c_str()))
        throw USER_ERROR{"cannot read '" + csv + "'"};
    MOXDEV_FLASH_MANAGER(false, 1, true, false).generate_flash_database(csv, out);
    FIO_STAT info;
    FIO_FILE_SYSTEM::status(out.c_str(), &info);
    fmt::print("wrote {} ({} bytes)\n", out, info.size);
}

} // namespace

void add_flash_commands(CLI::App& app)
{
    CLI::App* flash =
        app.add_subcommand("flash", "Query the serial flash database, identify chips, define a user flash");
    flash->require_subcommand(1);

    static bool every_record = false, full = false;
    static std::string maker;
    CLI::App* list = flash->add_subcommand("list", "List the usable flash records "
                                                   "(record 0 is the user flash when one is defined)");
    list->add_flag("--all", every_record, "Also list the records whose MOX_ALLOW_ switch is off");
    list->add_flag("--full", full, "Print every field of every record");
    list->add_option("--maker", maker, "Only the records of this maker, e.g. winbond (letter case ignored)");
    list->footer("The last line counts the records listed per maker. "
                 "With --json every record is given whole, so --full changes nothing.");
    add_json_verb(list, [] { flash_list(every_record, full, maker); });

    add_sfdp_command(*flash);

    static std::vector<std::string> words;
    static bool silicon_id = false;
    CLI::App* identify =
        flash->add_subcommand("identify", "Find the flash that answers with these ID bytes, e.g. 20 BA 19");
    identify->add_option("BYTES", words, "ID bytes in hex, e.g. 20 BA 19 or 0x20BA19")->required();
    identify->add_flag("--silicon-id", silicon_id, "Match the one-byte silicon ID instead");
    static std::string sfdp_file;
    identify->add_option("--sfdp", sfdp_file,
                         "The chip's SFDP read (a file, - for standard input): a chip the table does not "
                         "know is bound to the record derived from it");
    identify->footer("The bytes are the Read-ID answer in read order: manufacturer, memory type, capacity.");
    add_json_verb(identify, [] { flash_identify(words, silicon_id, sfdp_file); });

    CLI::App* define = flash->add_subcommand(
        "define", "Define up to three flash chips interactively and print the value for MOX_SUPPORT_EXT_SPI_DEV");
    define->footer("The answers may also come from standard input, one per line.");
    define->callback([] { flash_define(); });

    static std::string value;
    CLI::App* decode = flash->add_subcommand(
        "decode", "Decode a MOX_SUPPORT_EXT_SPI_DEV value: its fields and whether this version accepts it");
    decode->add_option("VALUE", value, "The encoded value")->required();
    decode->footer("A value this version does not accept is shown, then refused with exit status 1.");
    add_json_verb(decode, [] { flash_decode(value); });

    static std::string csv, out;
    CLI::App* generate = flash->add_subcommand("generate",
                                               "Build a flash database file from the flash table (CSV)");
    generate->add_option("CSV", csv, "Flash table, e.g. data/mox_flash.csv")->required();
    generate->add_option("OUT", out, "Database file to write, e.g. mox_flash.pcf")->required();
    generate->callback([] { flash_generate(csv, out); });
}

} // namespace moxdev_cli
