// Writes the seeds that are made with the library's help into DIR/<target>/:
// the inflated payloads of the built databases (and the files themselves), and
// small grammar and OPN images cut from the catalogue's, in both input forms
// of the image targets (see image_input.h).
//   fuzz_seed_maker DATA_DIR OUT_DIR
#include "moxdev/internal/moxdev_bytes.h"
#include "moxdev/moxdev.h"
#include "tools/generators/naming_images.h"

#include <zlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using BYTES = std::vector<BYTE>;

BYTES read_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    return BYTES(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_seed(const std::string& dir, const std::string& name, BYTE mode, const BYTES& body)
{
    std::filesystem::create_directories(dir);
    BYTES bytes{mode};
    bytes.insert(bytes.end(), body.begin(), body.end());
    std::ofstream out(dir + "/" + name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out)
        throw std::runtime_error("cannot write " + dir + "/" + name);
}

// The inflated payload of a database file.
BYTES payload_of(const BYTES& file)
{
    const DWORD size = moxdev::bytes::load_le32(&file.at(40));
    BYTES payload(size);
    uLongf length = size;
    if (::uncompress(payload.data(), &length, &file[44], uLong(file.size() - 46)) != Z_OK || length != size)
        throw std::runtime_error("not a database file");
    return payload;
}

void database_seeds(const std::string& file, const std::string& dir, std::initializer_list<BYTE> payload_modes)
{
    const BYTES bytes = read_file(file);
    write_seed(dir, "file", 0x01, bytes);
    for (BYTE mode : payload_modes)
        write_seed(dir, "payload-" + std::to_string(mode), mode, payload_of(bytes));
}

// Both input forms of an image: raw without its CRC (mode 1) and compressed
// behind its length (mode 0).
void image_seeds(const std::string& dir, const std::string& name, const BYTES& image)
{
    write_seed(dir, name + "-raw", 0x01, BYTES(image.begin(), image.end() - 4));
    const BYTES compressed = moxdev_images::compress(image);
    BYTES body;
    for (int shift = 0; shift < 32; shift += 8)
        body.push_back(BYTE(image.size() >> shift));
    body.insert(body.end(), compressed.begin(), compressed.end());
    write_seed(dir, name + "-compressed", 0x00, body);
}

// The first `entries` entries of each table, at most `names` names each.
moxdev_images::GRAMMAR_TABLES slice(const MOXDEV_GRAMMAR_TABLES& tables, std::size_t entries, std::size_t names)
{
    moxdev_images::GRAMMAR_TABLES cut;
    for (std::size_t t = 0; t < tables.size(); ++t) {
        for (const auto& [key, contents] : tables[t]) {
            if (cut[t].size() == entries)
                break;
            cut[t].emplace_back(
                key, std::vector<std::string>(contents.begin(), contents.begin() + std::min(names, contents.size())));
        }
    }
    return cut;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s DATA_DIR OUT_DIR\n", argv[0]);
        return 1;
    }
    const std::string data = argv[1];
    const std::string out = argv[2];
    try {
        database_seeds(data + "/programmer/mox_dev_info.pcf", out + "/device_database", {0x00, 0x02});
        database_seeds(data + "/programmer/mox_flash.pcf", out + "/flash_database", {0x00, 0x02, 0x06});

        const MOXDEV_GRAMMAR_TABLES grammar =
            moxdev_decode_grammar_image(MOXDDB_GRAMMAR_DATA, MOXDDB_GRAMMAR_CMP_LENGTH, MOXDDB_GRAMMAR_LENGTH);
        image_seeds(out + "/grammar_image", "one", moxdev_images::write_grammar_image(slice(grammar, 1, 1)));
        image_seeds(out + "/grammar_image", "few", moxdev_images::write_grammar_image(slice(grammar, 3, 4)));
        image_seeds(out + "/grammar_image", "some", moxdev_images::write_grammar_image(slice(grammar, 12, 8)));

        const std::vector<DWORD> opn =
            moxdev_decode_opn_image(MOXDDB_OPN_DATA, MOXDDB_OPN_CMP_LENGTH, MOXDDB_OPN_LENGTH);
        for (std::size_t count : {std::size_t(1), std::size_t(40), std::size_t(700)}) {
            const std::vector<DWORD> cut(opn.begin(), opn.begin() + std::min(count, opn.size()));
            image_seeds(out + "/opn_image", std::to_string(count), moxdev_images::write_opn_image(cut));
        }
        // Large numbers take all five bytes of a variable-length number.
        image_seeds(out + "/opn_image", "wide", moxdev_images::write_opn_image({0, 127, 128, 16384, 0xFFFFFFFFu}));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
    return 0;
}
