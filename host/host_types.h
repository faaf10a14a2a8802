// Integer types shared by the host services and the library.
//
// Every persisted integer is little-endian and unaligned; these names only fix
// the width of values in memory.
#pragma once

#include <cstdint>

typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::uint64_t QWORD;

// "None" in index tables and maps.
constexpr DWORD INVALID_DWORD = 0xFFFFFFFFu;

// The host's boolean result type. It converts to and from bool so that callers
// can treat it as one.
class VELMAR_BOOL {
public:
    constexpr VELMAR_BOOL(bool value = false) : m_value(value) {}
    constexpr operator bool() const { return m_value; }

private:
    bool m_value;
};
