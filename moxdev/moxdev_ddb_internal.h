// Pieces of the naming unit that the part-number unit builds on; not part of
// the library's interface.
#pragma once

#include "host/host_types.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The OPN table of the compiled-in image, decoded on first use.
const std::vector<DWORD>& moxdev_opn_table();

// The speed-grade and package stripping steps without their debug output,
// for code that runs them over the whole catalogue.
std::string moxdev_package_name(const std::string& name, bool no_fallback);
std::string moxdev_device_name(const std::string& name, bool skip_package_conversion, bool no_fallback);

// The 64-bit hash of a name that the naming indexes are keyed by: eight
// bytes at a step, the last step (or a short name) read as overlapping
// words, so that no byte is read alone.
inline std::uint64_t moxdev_name_hash(std::string_view text)
{
    constexpr std::uint64_t MULTIPLIER = 0x9E3779B97F4A7C15ull;
    const char* bytes = text.data();
    const std::size_t size = text.size();
    std::uint64_t hash = (size + 1) * MULTIPLIER;
    auto mix = [&](std::uint64_t word) {
        hash = (hash ^ word) * MULTIPLIER;
        hash ^= hash >> 32;
    };
    auto word_at = [&](std::size_t at) {
        std::uint64_t word;
        std::memcpy(&word, bytes + at, 8);
        return word;
    };
    if (size >= 8) {
        for (std::size_t at = 0; size - at > 8; at += 8)
            mix(word_at(at));
        mix(word_at(size - 8));
    } else if (size >= 4) {
        std::uint32_t first, last;
        std::memcpy(&first, bytes, 4);
        std::memcpy(&last, bytes + size - 4, 4);
        mix(first | std::uint64_t(last) << 32);
    } else if (size > 0) {
        const auto byte = [&](std::size_t at) { return std::uint64_t(static_cast<unsigned char>(bytes[at])); };
        mix(byte(0) | byte(size / 2) << 8 | byte(size - 1) << 16);
    }
    // Every bit of the result depends on every bit of the input.
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    hash *= 0xC4CEB9FE1A85EC53ull;
    hash ^= hash >> 33;
    return hash;
}

// The home slot of `hash` in an open-addressing table of `capacity` slots,
// from its low 32 bits, by multiplication rather than division. Tables keyed
// by names of a 4-GiB image stay below 2^32 slots.
inline std::size_t moxdev_home_slot(std::uint64_t hash, std::size_t capacity)
{
    return std::size_t((hash & 0xFFFFFFFFu) * std::uint64_t(capacity) >> 32);
}

// ---------------------------------------------------------------- footprints
// Exact byte counts of the decoded naming structures (allocated capacity, not
// size), for the benchmark.

// A decoded and indexed grammar: the inflated image (names stay in it), the
// entries of the eight tables, their index slots and the structure itself.
struct MOXDEV_GRAMMAR_FOOTPRINT {
    std::size_t image = 0;
    std::size_t entries = 0;
    std::size_t slots = 0;
    std::size_t structure = 0;
    std::size_t total() const { return image + entries + slots + structure; }
};

// Decodes and indexes the compiled-in grammar image into a new structure,
// exactly as the first naming query does, and returns what it holds. With
// `keep` the structure stays alive in it (so that its allocations can be
// observed); otherwise it is freed before returning.
MOXDEV_GRAMMAR_FOOTPRINT moxdev_decode_grammar_fresh(std::shared_ptr<const void>* keep);

// What the library's own grammar holds; decodes it if no query has yet.
MOXDEV_GRAMMAR_FOOTPRINT moxdev_grammar_footprint();

// The part-number unit's indexes, each built on first use: the OPN table,
// OPN enum by part, part by OPN hash, part by full-name form.
struct MOXDEV_PART_INDEX_FOOTPRINT {
    std::size_t opn_table = 0;
    std::size_t opn_enum = 0;
    std::size_t opn_hash = 0;
    std::size_t full_name = 0;
    std::size_t total() const { return opn_table + opn_enum + opn_hash + full_name; }
};

// What those indexes hold; builds each one not built yet.
MOXDEV_PART_INDEX_FOOTPRINT moxdev_part_index_footprint();
