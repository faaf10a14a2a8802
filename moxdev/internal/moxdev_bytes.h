// Little-endian integers in byte buffers, assembled and taken apart a byte at
// a time: every persisted integer of the library is little-endian and
// unaligned, and this keeps the formats independent of the host's byte order
// and alignment. The one place every reader and writer of the library does it.
#pragma once

#include "host/host_types.h"

#include <vector>

namespace moxdev::bytes {

// The `width` (1 to 8) bytes at `data` as an unsigned number.
inline QWORD load_le(const BYTE* data, unsigned width)
{
    QWORD value = 0;
    for (unsigned i = 0; i < width; ++i)
        value |= QWORD(data[i]) << (8 * i);
    return value;
}
// The fixed widths are spelled out: the compiler reads each as one load.
inline WORD load_le16(const BYTE* data)
{
    return WORD(data[0] | data[1] << 8);
}
inline DWORD load_le24(const BYTE* data)
{
    return DWORD(data[0]) | DWORD(data[1]) << 8 | DWORD(data[2]) << 16;
}
inline DWORD load_le32(const BYTE* data)
{
    return DWORD(data[0]) | DWORD(data[1]) << 8 | DWORD(data[2]) << 16 | DWORD(data[3]) << 24;
}

// Writes the low `width` bytes of `value` at `data`.
inline void store_le(BYTE* data, QWORD value, unsigned width)
{
    for (unsigned i = 0; i < width; ++i)
        data[i] = BYTE(value >> (8 * i));
}

// Appends the low `width` bytes of `value` to `out`.
inline void append_le(std::vector<BYTE>& out, QWORD value, unsigned width)
{
    for (unsigned i = 0; i < width; ++i)
        out.push_back(BYTE(value >> (8 * i)));
}

} // namespace moxdev::bytes
