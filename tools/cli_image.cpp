// moxdev image: inspect a raw naming image with the library's own decoder, and
// write the images of the catalogue compiled into this command.
#include "cli.h"
#include "naming_images.h"

#include "moxdev/moxdev.h"
#include "moxdev/moxdev_ddb_mgr.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace moxdev_cli {

namespace {

enum class IMAGE_KIND { AUTO, GRAMMAR, OPN };

std::vector<BYTE> read_image(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw USER_ERROR{"cannot read '" + file + "'"};
    std::vector<BYTE> image{std::istreambuf_iterator<char>(in), {}};
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

// "yes", or "no" with the first table and key that differ.
std::string compare_with_catalogue(const MOXDEV_GRAMMAR_TABLES& decoded)
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
        return fmt::format("no (first difference: {} {})", moxdev_images::grammar_table_name(i), key);
    }
    return "yes";
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
        fmt::print("  {:<11} {:>6} entries {:>7} names\n", moxdev_images::grammar_table_name(i),
                   tables[i].size(), names);
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

void print_opn(const std::vector<DWORD>& parts, bool list)
{
    fmt::print("  {} OPN enums\n", parts.size());
    if (list) {
        for (std::size_t i = 0; i < parts.size(); ++i) {
            const std::string name = parts[i] <= 0x7FFFFFFF ? dstr_get_user_string(int(parts[i])) : "";
            fmt::print("  {:>6} {:>6} {}\n", i, parts[i], name.empty() ? "(not in this catalogue)" : name);
        }
    }
    const std::vector<DWORD> built = moxdev_images::build_opn_table();
    std::string same = "yes";
    if (parts != built) {
        const auto first = std::mismatch(parts.begin(), parts.end(), built.begin(), built.end());
        same = fmt::format("no (first difference at OPN enum {})", first.first - parts.begin());
    }
    fmt::print("same as the catalogue of this build: {}\n", same);
}

void image_check(const std::string& file, IMAGE_KIND kind, bool list)
{
    const std::vector<BYTE> image = read_image(file);
    const std::vector<BYTE> compressed = moxdev_images::compress(image);
    const DWORD cmp_length = DWORD(compressed.size());
    const DWORD length = DWORD(image.size());
    const std::string heading =
        fmt::format("{}: {} bytes ({} compressed)", file, image.size(), compressed.size());

    if (kind == IMAGE_KIND::AUTO) {
        try {
            const MOXDEV_GRAMMAR_TABLES tables =
                moxdev_decode_grammar_image(compressed.data(), cmp_length, length);
            fmt::print("grammar image {}\n", heading);
            print_grammar(tables, list);
            return;
        } catch (const MSG_INTERNAL_ERROR& grammar_error) {
            try {
                const std::vector<DWORD> parts =
                    moxdev_decode_opn_image(compressed.data(), cmp_length, length);
                fmt::print("OPN image {}\n", heading);
                print_opn(parts, list);
                return;
            } catch (const MSG_INTERNAL_ERROR&) {
                if (looks_like_grammar(image))
                    throw grammar_error;
                throw;
            }
        }
    }
    if (kind == IMAGE_KIND::GRAMMAR) {
        const MOXDEV_GRAMMAR_TABLES tables =
            moxdev_decode_grammar_image(compressed.data(), cmp_length, length);
        fmt::print("grammar image {}\n", heading);
        print_grammar(tables, list);
    } else {
        const std::vector<DWORD> parts = moxdev_decode_opn_image(compressed.data(), cmp_length, length);
        fmt::print("OPN image {}\n", heading);
        print_opn(parts, list);
    }
}

void image_build(const std::string& dir)
{
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
        "check",
        "Decode a raw naming image (a file that starts with MOXDEV_DDB, e.g. images/grammar.img) "
        "with the library's own decoder, with every check of the compiled-in images, and show "
        "what it holds. Without --grammar or --opn the grammar decoder is tried first and the "
        "OPN decoder second; when both refuse the image, the error shown is the grammar "
        "decoder's if the body starts with a printable name ended by a zero byte, else the OPN "
        "decoder's. A damaged image is an internal error (exit status 2)");
    check->add_option("FILE", file, "Raw image file")->required();
    CLI::Option* grammar_flag =
        check->add_flag("--grammar", grammar, "Decode the file as a grammar image only");
    check->add_flag("--opn", opn, "Decode the file as an OPN image only")->excludes(grammar_flag);
    check->add_flag("--list", list, "Also list every entry (grammar) or every OPN enum (OPN)");
    check->callback([] {
        image_check(file, grammar ? IMAGE_KIND::GRAMMAR : opn ? IMAGE_KIND::OPN : IMAGE_KIND::AUTO,
                    list);
    });

    static std::string dir;
    CLI::App* build = image->add_subcommand(
        "build", "Write DIR/grammar.img and DIR/opn.img, the raw images of the catalogue compiled "
                 "into this command (files already up to date are left alone)");
    build->add_option("DIR", dir, "Directory to write to (created when missing)")->required();
    build->callback([] { image_build(dir); });
}

} // namespace moxdev_cli
