// The two naming images compiled into the library, built from the device
// catalogue: the grammar image (eight tables relating a device's name forms)
// and the OPN image (the part number of every orderable part, indexed by OPN
// enum). Shared by the build-time generator, the moxdev command and the tests.
//
// Both images use one frame: the magic "MOXDEV_DDB", the body, and the
// CRC-32/BZIP2 of everything before it, stored low byte first.
#pragma once

#include "host/host_types.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace moxdev_images {

// One grammar table as it is written: entries in image order (ascending byte
// order of the key), each a key and its contents in image order.
using GRAMMAR_TABLE = std::vector<std::pair<std::string, std::vector<std::string>>>;
// The eight tables in the order of MOXDEV_DDB_GRAMMAR_ENUM.
using GRAMMAR_TABLES = std::array<GRAMMAR_TABLE, 8>;

// "SPEEDGRADE", "PACKAGE", ... for table `index` (0 to 7); "" beyond.
const char* grammar_table_name(std::size_t index);

// The grammar tables of the catalogue compiled into this program:
//   SPEEDGRADE  device+package name  -> full ordering names, part order
//   PACKAGE     device name          -> its device+package names
//   MOX_PART    programmer part name -> each device name followed by that
//                                       device's full ordering names
//   MOX_FAMILY  programmer family key -> device names
//   DEV_PART    programmer part name -> part configuration names
//   DEV_FAMILY  programmer family key -> part configuration names
//   PCF_FAMILY  programmer family key -> family configuration names
//   FAMILY      user-visible family name -> programmer part names, family
//               configuration names, and for preview families the device
//               names too
// Empty names are skipped, and so is an entry left without contents. Tables
// that would break a rule of the image format (an empty table, a repeated
// key or content, an empty string) are an internal error.
GRAMMAR_TABLES build_grammar_tables();

// The first rule of the image format that `tables` break, or "" when they
// keep every rule.
std::string check_grammar_tables(const GRAMMAR_TABLES& tables);

// The raw grammar image of `tables`, written as given (unchecked, so that
// damaged images can be made on purpose).
std::vector<BYTE> write_grammar_image(const GRAMMAR_TABLES& tables);

// The part number of every orderable part in part-number order, the late
// parts numbered above Generic included; the OPN enum of a part is its index.
std::vector<DWORD> build_opn_table();

// The raw OPN image of `parts`: count, then each number as a variable-length
// number. An empty list gives an image that the decoder refuses.
std::vector<BYTE> write_opn_image(const std::vector<DWORD>& parts);

// Appends `value` as a variable-length number: 7 bits per byte, least
// significant group first, top bit set when another byte follows (1 to 5
// bytes).
void append_number(std::vector<BYTE>& out, DWORD value);

// The CRC of an image frame: CRC-32/BZIP2 over `length` bytes.
DWORD frame_crc(const BYTE* data, std::size_t length);

// zlib stream of `data` (internal error when compression fails).
std::vector<BYTE> compress(const std::vector<BYTE>& data);

// "SPEEDGRADE 3483/16338, PACKAGE ..." (entries/contents per table).
std::string describe(const GRAMMAR_TABLES& tables);

// Writes `bytes` to `path` unless the file already holds exactly them; the
// new content goes to a temporary file beside it that is then renamed, so a
// reader never sees half a file. Creates missing parent directories. Returns
// whether the file was written; throws std::runtime_error with a readable
// message when it cannot be.
bool store_file(const std::string& path, const std::vector<BYTE>& bytes);

// Both images of the catalogue, raw and compressed, with what they hold.
struct IMAGES {
    GRAMMAR_TABLES tables;
    std::vector<BYTE> grammar;
    std::vector<BYTE> grammar_compressed;
    std::vector<DWORD> parts;
    std::vector<BYTE> opn;
    std::vector<BYTE> opn_compressed;
};
IMAGES build_images();

// Writes DIR/grammar.img and DIR/opn.img (raw frames) when they changed and
// returns one summary line per image. Throws std::runtime_error when a file
// cannot be written.
std::vector<std::string> store_images(const IMAGES& images, const std::string& dir);

} // namespace moxdev_images
