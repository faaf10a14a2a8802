// An SFDP read as it comes from a chip or from a user's file: the dump text
// reader, the decoder and the record derivation. Nothing here may be an
// internal error; every refusal is a false result with a message.
//
// Input: a mode byte, then the bytes. Mode bit 0 set: the bytes are a text
// dump (or any file) for the dump reader; clear: the raw read. Either way the
// bytes reached go through the decoder and, if it accepts them, the record.
#include "fuzz_support.h"

#include "moxdev/dump_text.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    std::vector<std::uint8_t> bytes(data + 1, data + size);
    std::string error;
    if (data[0] & 1) {
        const std::string text(bytes.begin(), bytes.end());
        if (!moxdev::read_dump(text, "SFDP", MOXDEV_SFDP_MAX_BYTES, bytes, error)) {
            if (error.empty())
                std::abort();
            return 0;
        }
    }
    MOXDEV_SFDP sfdp;
    if (!moxdev_decode_sfdp(bytes.data(), bytes.size(), sfdp, error)) {
        if (error.empty())
            std::abort();
        return 0;
    }
    const BYTE id[3] = {0xEF, 0x40, 0x99};
    MOXDEV_SFDP_RECORD record;
    if (moxdev_sfdp_record(sfdp, id, "", "", MOXDEV_SFDP_ASSUMPTIONS{}, record, error)) {
        // The derived record keeps the rules: a sector among the erase types,
        // times of at least one unit, the ID bytes at their places.
        bool sector_listed = false;
        for (const MOXDEV_SFDP_ERASE_TYPE& erase : sfdp.erase_types)
            sector_listed = sector_listed || erase.size == record.record.device_sector_byte;
        if (!sector_listed || record.record.sec_erase_time == 0 || record.record.bulk_erase_time == 0 ||
            record.record.memory_id != 0x99 || record.record.device_bit_size != sfdp.density_bits)
            std::abort();
    } else if (error.empty()) {
        std::abort();
    }
    return 0;
}
