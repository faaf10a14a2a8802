// How the two image targets turn fuzz input into a compressed image.
//
// Input: a mode byte, then
//   odd mode byte:  a raw image without its CRC; the target appends the CRC
//                   and compresses it, so that the fuzzer reaches the body;
//   even mode byte: the announced length (4 bytes, low byte first) and the
//                   compressed image as the library would hold it.
#pragma once

#include "fuzz_support.h"
#include "moxdev/internal/moxdev_bytes.h"

namespace moxdev_fuzz {

struct IMAGE_INPUT {
    BYTES compressed;
    DWORD length = 0;

    // The compressed bytes; an empty vector has no data(), and the decoders
    // must still refuse it cleanly, so it is one byte that is not there.
    const BYTE* bytes() const
    {
        static const BYTE empty = 0;
        return compressed.empty() ? &empty : compressed.data();
    }
};

inline bool image_input(const uint8_t* data, size_t size, IMAGE_INPUT& image)
{
    BYTE mode = 0;
    if (!take_mode(data, size, mode))
        return false;
    if (mode & 1) {
        BYTES raw(data, data + size);
        const DWORD crc =
            ~MOX_COMMON::msb_calculate_crc32(raw.data(), 0, DWORD(raw.size() * 8), 0xFFFFFFFFu, 0x04C11DB7u, true);
        for (int shift = 0; shift < 32; shift += 8)
            raw.push_back(BYTE(crc >> shift));
        image.compressed = deflate(raw.data(), raw.size());
        image.length = DWORD(raw.size());
        return true;
    }
    if (size < 4)
        return false;
    image.length = moxdev::bytes::load_le32(data);
    image.compressed.assign(data + 4, data + size);
    return true;
}

} // namespace moxdev_fuzz
