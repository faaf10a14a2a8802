#include "host/zlib_wrapper.h"

#include <zlib.h>

int zlib_compress(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len)
{
    uLongf length = *dest_len;
    const int status = ::compress2(dest, &length, src, src_len, Z_BEST_COMPRESSION);
    if (status == Z_OK)
        *dest_len = static_cast<DWORD>(length);
    return status == Z_OK ? ZLIB_OK : status;
}

namespace {

// Inflates as zlib_uncompress says; `unused_input` receives how many bytes of
// src were left after the end of the stream.
int inflate_stream(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len, DWORD& unused_input)
{
    z_stream stream{};
    stream.next_in = const_cast<BYTE*>(src);
    stream.avail_in = src_len;
    stream.next_out = dest;
    stream.avail_out = *dest_len;
    if (::inflateInit(&stream) != Z_OK)
        return Z_MEM_ERROR;

    int status = ::inflate(&stream, Z_FINISH);
    DWORD produced = *dest_len - stream.avail_out;
    if ((status == Z_OK || status == Z_BUF_ERROR) && stream.avail_out == 0 && *dest_len != 0xFFFFFFFFu) {
        // The destination is full: one more byte tells whether the stream
        // really goes on or merely ended exactly at the capacity.
        BYTE probe;
        stream.next_out = &probe;
        stream.avail_out = 1;
        status = ::inflate(&stream, Z_FINISH);
        if (status == Z_OK || status == Z_BUF_ERROR || status == Z_STREAM_END) {
            if (stream.avail_out == 0) {
                produced = *dest_len + 1;
                status = Z_STREAM_END;
            }
        }
    }
    ::inflateEnd(&stream);
    if (status != Z_STREAM_END)
        return status == Z_OK || status == Z_BUF_ERROR ? Z_DATA_ERROR : status;
    *dest_len = produced;
    unused_input = stream.avail_in;
    return ZLIB_OK;
}

} // namespace

int zlib_uncompress(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len)
{
    DWORD unused_input = 0;
    return inflate_stream(dest, dest_len, src, src_len, unused_input);
}

int zlib_uncompress_used(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len, DWORD* src_used)
{
    DWORD unused_input = 0;
    const int status = inflate_stream(dest, dest_len, src, src_len, unused_input);
    *src_used = status == ZLIB_OK ? src_len - unused_input : 0;
    return status;
}
