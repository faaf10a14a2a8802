// Thin wrapper over zlib's one-shot calls.
#pragma once

#include "host/host_types.h"

constexpr int ZLIB_OK = 0;

// Compresses src into dest. *dest_len holds dest's capacity on entry and the
// compressed length on success. Returns ZLIB_OK or a zlib error code.
int zlib_compress(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len);

// Inflates the zlib stream in src into dest. *dest_len holds dest's capacity on
// entry. On ZLIB_OK it holds the number of bytes the stream produced, or
// capacity + 1 when the stream produces more than fits (it is not inflated
// further), so that a caller that expects an exact size can tell "too long"
// from "too short" by the length alone. Data after the end of the stream is
// ignored. A damaged or truncated stream gives a zlib error code.
int zlib_uncompress(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len);

// As zlib_uncompress, and *src_used receives how many bytes of src the stream
// took (the rest followed its end), for callers that must tell a value that
// goes on from one that ends with its stream.
int zlib_uncompress_used(BYTE* dest, DWORD* dest_len, const BYTE* src, DWORD src_len, DWORD* src_used);
