// moxdev image: inspect a raw naming image with the library's own decoder, and
// write the images of the catalogue compiled into this command.
#include "cli.h"
#include "cli_json.h"
#include "tools/generators/naming_images.h"

#include "moxdev/moxdev.h"
#include "moxdev/moxdev_ddb_mgr.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace moxdev_cli {

namespace {

enum class IMAGE_KIND { AUTO, GRAMMAR, OPN };

// The compiled-in grammar image is under 1 MiB; no image can need more.
constexpr std::size_t MAX_IMAGE = 16 * 1024 * 1024;

std::vector<BYTE> read_image(const std::string& file)
{
    std::vector<BYTE> image;
    std::string error;
    if (!moxdev::read_input_file(file, MAX_IMAGE, image, error)) {
        if (error == "it is a directory")
            throw USER_ERROR{"'" + file + "' is a directory; name an image file, e.g. '" + file + "/grammar.img'"};
        throw USER_ERROR{"cannot read '" + file + "': " + error};
    }
    if (image.size() < 10 || std::memcmp(image.data(), "MOXDEV_DDB", 10) != 0)
        throw USER_ERROR{"'" + file + "' is not a raw naming image (it does not start with MOXDEV_DDB)"};
    return image;
}

// A grammar body starts with a key, a run of printable characters ended by a
// zero byte; an OPN body starts with its binary count.
bool looks_like_grammar(const std::vector<BYTE>& image)
{
    std::size_t i = 10;
    while (i < image.size() && image[i] > 0x20 && image[i] < 0x7F)
        ++i;
    return i > 10 && i < image.size() && image[i] == 0;
}

MOXDEV_GRAMMAR_TABLES as_maps(const moxdev_images::GRAMMAR_TABLES& tables)
{
    MOXDEV_GRAMMAR_TABLES maps;
    for (std::size_t i = 0; i < tables.size(); ++i)
        maps[i].insert(tables[i].begin(), tables[i].end());
    return maps;
}

// The first table and key in which `decoded` differs from the catalogue of
// this build; an empty table name when it does not differ.
std::pair<std::string, std::string> first_difference(const MOXDEV_GRAMMAR_TABLES& decoded)
{
    const MOXDEV_GRAMMAR_TABLES built = as_maps(moxdev_images::build_grammar_tables());
    for (std::size_t i = 0; i < built.size(); ++i) {
        if (decoded[i] == built[i])
            continue;
        auto d = decoded[i].begin();
        auto b = built[i].begin();
        while (d != decoded[i].end() && b != built[i].end() && *d == *b)
            ++d, ++b;
        const std::string key = d == decoded[i].end() ? b->first
                                : b == built[i].end() ? d->first
                                                      : std::min(d->first, b->first);
        return {moxdev_images::grammar_table_name(i), key};
    }
    return {};
}

// "yes", or "no" with the first table and key that differ.
std::string compare_with_catalogue(const MOXDEV_GRAMMAR_TABLES& decoded)
{
    const auto difference = first_difference(decoded);
    if (difference.first.empty())
        return "yes";
    return fmt::format("no (first difference: {} {})", difference.first, difference.second);
}

JSON grammar_json(const MOXDEV_GRAMMAR_TABLES& tables, bool list)
{
    JSON entries = JSON::array();
    std::size_t all_entries = 0, all_names = 0;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        std::size_t names = 0;
        JSON keys = JSON::object();
        for (const auto& entry : tables[i]) {
            names += entry.second.size();
            if (list)
                keys[entry.first] = entry.second;
        }
        all_entries += tables[i].size();
        all_names += names;
        JSON table = {{"name", moxdev_images::grammar_table_name(i)}, {"entries", tables[i].size()}, {"names", names}};
        if (list)
            table["list"] = std::move(keys);
        entries.push_back(std::move(table));
    }
    const auto difference = first_difference(tables);
    return {{"tables", std::move(entries)},
            {"entries", all_entries},
            {"names", all_names},
            {"same_as_catalogue", difference.first.empty()},
            {"first_difference",
             difference.first.empty() ? JSON() : JSON({{"table", difference.first}, {"key", difference.second}})}};
}

void print_grammar(const MOXDEV_GRAMMAR_TABLES& tables, bool list)
{
    std::size_t all_entries = 0, all_names = 0;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        std::size_t names = 0;
        for (const auto& entry : tables[i])
            names += entry.second.size();
        all_entries += tables[i].size();
        all_names += names;
        fmt::print("  {:<11} {:>6} entries {:>7} names\n", moxdev_images::grammar_table_name(i), tables[i].size(),
                   names);
        if (!list)
            continue;
        for (const auto& entry : tables[i]) {
            std::string line = "    " + entry.first + ":";
            for (const std::string& name : entry.second)
                line += " " + name;
            fmt::print("{}\n", line);
        }
    }
    fmt::print("  {:<11} {:>6} entries {:>7} names\n", "total", all_entries, all_names);
    fmt::print("same as the catalogue of this build: {}\n", compare_with_catalogue(tables));
}

// The first OPN enum at which `parts` differs from the catalogue of this
// build; -1 when it does not differ.
long long first_difference(const std::vector<DWORD>& parts)
{
    const std::vector<DWORD> built = moxdev_images::build_opn_table();
    if (parts == built)
        return -1;
    return std::mismatch(parts.begin(), parts.end(), built.begin(), built.end()).first - parts.begin();
}

std::string part_name(DWORD part)
{
    return part <= 0x7FFFFFFF ? dstr_get_user_string(int(part)) : "";
}

JSON opn_json(const std::vector<DWORD>& parts, bool list)
{
    const long long difference = first_difference(parts);
    JSON document = {{"count", parts.size()}};
    if (list) {
        JSON entries = JSON::array();
        for (std::size_t i = 0; i < parts.size(); ++i)
            entries.push_back({{"opn_enum", i}, {"part", parts[i]}, {"name", text_or_null(part_name(parts[i]))}});
        document["list"] = std::move(entries);
    }
    document["same_as_catalogue"] = difference < 0;
    document["first_difference"] = difference < 0 ? JSON() : JSON(difference);
    return document;
}

void print_opn(const std::vector<DWORD>& parts, bool list)
{
    fmt::print("  {} OPN enums\n", parts.size());
    if (list) {
        for (std::size_t i = 0; i < parts.size(); ++i) {
            const std::string name = part_name(parts[i]);
            fmt::print("  {:>6} {:>6} {}\n", i, parts[i], name.empty() ? "(not in this catalogue)" : name);
        }
    }
    const long long difference = first_difference(parts);
    fmt::print("same as the catalogue of this build: {}\n",
               difference < 0 ? std::string("yes") : fmt::format("no (first difference at OPN enum {})", difference));
}

void image_check(const std::string& file, IMAGE_KIND kind, bool list)
{
    const std::vector<BYTE> image = read_image(file);
    const std::vector<BYTE> compressed = moxdev_images::compress(image);
    const DWORD cmp_length = DWORD(compressed.size());
    const DWORD length = DWORD(image.size());

    auto show = [&](const char* kind_name, const char* kind_text, auto print_text, const JSON& details) {
        if (json_output) {
            JSON document = {
                {"file", file}, {"kind", kind_name}, {"bytes", image.size()}, {"compressed_bytes", compressed.size()}};
            document.update(details);
            print_json(document);
            return;
        }
        fmt::print("{} image {}: {} bytes ({} compressed)\n", kind_text, file, image.size(), compressed.size());
        print_text();
    };
    auto show_grammar = [&](const MOXDEV_GRAMMAR_TABLES& tables) {
        show(
            "grammar", "grammar", [&] { print_grammar(tables, list); },
            json_output ? grammar_json(tables, list) : JSON());
    };
    auto show_opn = [&](const std::vector<DWORD>& parts) {
        show(
            "opn", "OPN", [&] { print_opn(parts, list); }, json_output ? opn_json(parts, list) : JSON());
    };

    if (kind == IMAGE_KIND::AUTO) {
        try {
            show_grammar(moxdev_decode_grammar_image(compressed.data(), cmp_length, length));
            return;
        } catch (const MSG_INTERNAL_ERROR& grammar_error) {
            try {
                show_opn(moxdev_decode_opn_image(compressed.data(), cmp_length, length));
                return;
            } catch (const MSG_INTERNAL_ERROR&) {
                if (looks_like_grammar(image))
                    throw grammar_error;
                throw;
            }
        }
    }
    if (kind == IMAGE_KIND::GRAMMAR)
        show_grammar(moxdev_decode_grammar_image(compressed.data(), cmp_length, length));
    else
        show_opn(moxdev_decode_opn_image(compressed.data(), cmp_length, length));
}

void image_build(const std::string& dir)
{
    // An empty name would put the files at the root of the file system.
    if (dir.empty())
        throw USER_ERROR{"no directory given (DIR is empty)"};
    std::error_code error;
    if (std::filesystem::exists(dir, error) && !std::filesystem::is_directory(dir, error))
        throw USER_ERROR{"'" + dir + "' is not a directory"};
    const moxdev_images::IMAGES images = moxdev_images::build_images();
    std::vector<std::string> lines;
    try {
        lines = moxdev_images::store_images(images, dir);
    } catch (const std::runtime_error& e) {
        throw USER_ERROR{e.what()};
    }
    for (const std::string& line : lines)
        fmt::print("{}\n", line);
}

} // namespace

void add_image_commands(CLI::App& app)
{
    CLI::App* image = app.add_subcommand("image", "Check and build the naming images (grammar "
                                                  "tables and ordering part numbers)");
    image->require_subcommand(1);

    static std::string file;
    static bool grammar = false, opn = false, list = false;
    CLI::App* check = image->add_subcommand(
        "check", "Decode a raw naming image with the library's own decoder and show what it holds");
    check->footer("FILE is a file that starts with MOXDEV_DDB, e.g. images/grammar.img; it gets every check of the "
                  "compiled-in images. Without --grammar or --opn the grammar decoder is tried first and the "
                  "OPN decoder second; when both refuse the image, the error shown is the grammar "
                  "decoder's if the body starts with a printable name ended by a zero byte, else the OPN "
                  "decoder's. A damaged image is an internal error (exit status 2).");
    check->add_option("FILE", file, "Raw image file")->required();
    CLI::Option* grammar_flag = check->add_flag("--grammar", grammar, "Decode the file as a grammar image only");
    check->add_flag("--opn", opn, "Decode the file as an OPN image only")->excludes(grammar_flag);
    check->add_flag("--list", list, "Also list every entry (grammar) or every OPN enum (OPN)");
    add_json_verb(check, [] {
        image_check(file, grammar ? IMAGE_KIND::GRAMMAR : opn ? IMAGE_KIND::OPN : IMAGE_KIND::AUTO, list);
    });

    static std::string dir;
    CLI::App* build = image->add_subcommand(
        "build", "Write DIR/grammar.img and DIR/opn.img, the raw images of the catalogue compiled into this command");
    build->footer("Files already up to date are left alone.");
    build->add_option("DIR", dir, "Directory to write to (created when missing)")->required();
    build->callback([] { image_build(dir); });
}

} // namespace moxdev_cli
