// Every hot path of the library against its baseline, measured in this one
// process on the same data; prints one table of ratios (bench/run.sh).
//
// Google Benchmark's own flags are accepted; by default each benchmark is
// repeated five times and the median is kept.
#include "bench_report.h"
#include "moxdev/internal/moxdev_bytes.h"
#include "naming_oracles.h"
#ifdef MOXDEV_BENCH_PYTHON
#include "python_bench.h"
#endif

#include "moxdev/moxdev.h"
#include "moxdev/naming/moxdev_ddb_internal.h"

#include "moxdev/dump_text.h"
#include <absl/container/flat_hash_map.h>
#include <absl/strings/str_split.h>

#include <benchmark/benchmark.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace moxdev_bench;
using GRAMMAR = MOXDEV_DDB_GRAMMAR_ENUM;

namespace {

// ---------------------------------------------------------------- data

// Parts sampled for the per-part searches, spread evenly over the parts those
// searches visit.
constexpr int SAMPLED_PARTS = 24;

struct LOOKUP {
    GRAMMAR type;
    std::string name;
};

// The limit each lookup is measured against: the same answers held in a
// bare hash map, one probe and the returned string.
template <class KEY>
using BARE_MAP = absl::flat_hash_map<KEY, std::string>;

struct DATA {
    std::vector<LOOKUP> lookups;         // every name of every table, once per table
    std::vector<QWORD> hashes;           // OPN hashes of the sampled parts
    std::vector<std::string> full_names; // full, package and device names of the sampled parts
    std::array<BARE_MAP<std::string>, std::size_t(GRAMMAR::MAX)> bare_grammar; // name -> smallest key
    BARE_MAP<QWORD> bare_opn;                                                  // OPN hash -> name
    BARE_MAP<std::string> bare_full;                                           // name -> full ordering name
};

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what);
}

// The library's reverse lookup of table `type`, through the query that does
// only that lookup for a listed name; for the speed-grade and package tables
// the queries' steps without their debug switch, as the literal scan has
// none. The queries normalise the name in place.
std::string library_lookup(GRAMMAR type, const std::string& name)
{
    using MGR = MOXDEV_DEVICE_GRAMMAR_MGR;
    switch (type) {
    case GRAMMAR::SPEEDGRADE: return moxdev_package_name(name, true);
    case GRAMMAR::PACKAGE: return moxdev_device_name(name, true, true);
    case GRAMMAR::MOX_PART: return MGR::get_mox_part_pcf(name);
    case GRAMMAR::MOX_FAMILY: return MGR::get_mox_family_pcf(name);
    case GRAMMAR::DEV_PART: return MGR::get_dev_part_pcf(name);
    case GRAMMAR::DEV_FAMILY: return MGR::get_dev_family_pcf(name);
    case GRAMMAR::PCF_FAMILY: return MGR::get_pcf_family_pcf(name);
    default: return MGR::get_family(name);
    }
}

std::string upper_name(int part)
{
    std::string name = dstr_get_user_string(part);
    stl_toupper(name);
    return name;
}

// Builds the data and checks that the library and the literal algorithms
// agree on it (on every sampled query, and on every 50th lookup), so that the
// two sides of each ratio do the same work.
DATA prepare()
{
    DATA data;
    for (DWORD t = 0; t < DWORD(GRAMMAR::MAX); ++t) {
        std::set<std::string> listed;
        for (const auto& entry : moxdev_oracle::tables()[t])
            listed.insert(entry.second.begin(), entry.second.end());
        for (const std::string& name : listed)
            data.lookups.push_back(LOOKUP{GRAMMAR(t), name});
    }
    for (const LOOKUP& lookup : data.lookups)
        data.bare_grammar[std::size_t(lookup.type)].try_emplace(
            lookup.name, moxdev_oracle::reverse_lookup(lookup.type, lookup.name));
    for (std::size_t i = 0; i < data.lookups.size(); i += 50) {
        const LOOKUP& lookup = data.lookups[i];
        if (library_lookup(lookup.type, lookup.name) != moxdev_oracle::reverse_lookup(lookup.type, lookup.name))
            fail("reverse lookup of " + lookup.name + " differs from the linear scan");
    }

    std::set<std::string> seen;
    // From the first valid part to the last one before Generic.
    const int first = DEV_PART_INVALID + 1;
    const int last = DEV_PART_GENERIC - 1;
    for (int i = 0; i < SAMPLED_PARTS; ++i) {
        const int part = first + int((long long)(last - first) * i / (SAMPLED_PARTS - 1));
        const std::string full = upper_name(part);
        const QWORD hash = MOXDEV_MGR::get_opn_hash(full);
        if (MOXDEV_MGR::get_opn_from_hash(hash) != moxdev_oracle::opn_from_hash(hash))
            fail("get_opn_from_hash differs from the digest search for " + full);
        data.hashes.push_back(hash);
        for (const std::string& form :
             {full, moxdev_oracle::package_name(full, false), moxdev_oracle::device_name(full, false, false)}) {
            const std::string expected = moxdev_oracle::possible_full_name(form);
            if (expected.empty() || !seen.insert(form).second)
                continue;
            if (MOXDEV_MGR::get_possible_full_name(form) != expected)
                fail("get_possible_full_name differs from the per-part search for " + form);
            data.full_names.push_back(form);
        }
    }
    // The bare maps hold every name the library's indexes hold, so that both
    // sides probe tables of the same size.
    for (int part = first; part < std::min(DEV_PART_GENERIC, DEV_PART_MAX); ++part) {
        const std::string full = upper_name(part);
        data.bare_opn.try_emplace(MOXDEV_MGR::get_opn_hash(full), full);
        data.bare_full.try_emplace(full, full);
        if (full.size() < 5)
            continue;
        for (const std::string& form : {moxdev_package_name(full, false), moxdev_device_name(full, false, false)}) {
            if (form != full && form.size() >= 5 && form.compare(0, 5, full, 0, 5) == 0)
                data.bare_full.try_emplace(form, full);
        }
    }
    return data;
}

// ---------------------------------------------------------------- baselines

// Reads a database file whole and inflates its payload: the least any loader
// of it has to do.
std::unique_ptr<BYTE[]> read_and_inflate(const std::string& path)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file)
        fail("cannot open " + path);
    std::fseek(file.get(), 0, SEEK_END);
    const long size = std::ftell(file.get());
    std::fseek(file.get(), 0, SEEK_SET);
    if (size <= long(MOXDEV_DB_HEADER_SIZE + MOXDEV_DB_TRAILER_SIZE))
        fail(path + " is too short");
    std::vector<BYTE> bytes(std::size_t(size), 0);
    if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        fail("cannot read " + path);
    const BYTE* header = &bytes[MOXDEV_DB_MAGIC_SIZE + MOXDEV_DB_ID_SIZE];
    uLongf payload_size = moxdev::bytes::load_le32(header);
    std::unique_ptr<BYTE[]> payload(new BYTE[payload_size]);
    if (::uncompress(payload.get(), &payload_size, &bytes[MOXDEV_DB_HEADER_SIZE],
                     uLong(bytes.size() - MOXDEV_DB_HEADER_SIZE - MOXDEV_DB_TRAILER_SIZE)) != Z_OK)
        fail("cannot inflate " + path);
    return payload;
}

std::string device_database()
{
    return gen_get_device_db_fullpath() + "/programmer/mox_dev_info.pcf";
}

std::string flash_database()
{
    return gen_get_device_db_fullpath() + "/programmer/mox_flash.pcf";
}

// ---------------------------------------------------------------- benchmarks

// A bare map's answer, as a new string like the library's.
template <class MAP, class KEY>
std::string bare_find(const MAP& map, const KEY& key)
{
    const auto found = map.find(key);
    return found == map.end() ? std::string() : found->second;
}

void register_benchmarks(const DATA& data)
{
    // Grammar reverse lookups: every name of every table.
    benchmark::RegisterBenchmark("reverse_lookup/library", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (const LOOKUP& lookup : data.lookups)
                benchmark::DoNotOptimize(library_lookup(lookup.type, lookup.name));
        }
    });
    benchmark::RegisterBenchmark("reverse_lookup/bare_map", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (const LOOKUP& lookup : data.lookups)
                benchmark::DoNotOptimize(bare_find(data.bare_grammar[std::size_t(lookup.type)], lookup.name));
        }
    });
    benchmark::RegisterBenchmark("reverse_lookup/literal", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (const LOOKUP& lookup : data.lookups)
                benchmark::DoNotOptimize(moxdev_oracle::reverse_lookup(lookup.type, lookup.name));
        }
    });

    // OPN hashes back to names.
    benchmark::RegisterBenchmark("opn_from_hash/library", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (QWORD hash : data.hashes)
                benchmark::DoNotOptimize(MOXDEV_MGR::get_opn_from_hash(hash));
        }
    });
    benchmark::RegisterBenchmark("opn_from_hash/bare_map", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (QWORD hash : data.hashes)
                benchmark::DoNotOptimize(bare_find(data.bare_opn, hash));
        }
    });
    benchmark::RegisterBenchmark("opn_from_hash/literal", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (QWORD hash : data.hashes)
                benchmark::DoNotOptimize(moxdev_oracle::opn_from_hash(hash));
        }
    });

    // Full ordering names.
    benchmark::RegisterBenchmark("possible_full_name/library", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (const std::string& name : data.full_names)
                benchmark::DoNotOptimize(MOXDEV_MGR::get_possible_full_name(name));
        }
    });
    benchmark::RegisterBenchmark("possible_full_name/bare_map", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (const std::string& name : data.full_names)
                benchmark::DoNotOptimize(bare_find(data.bare_full, name));
        }
    });
    benchmark::RegisterBenchmark("possible_full_name/literal", [&data](benchmark::State& state) {
        for (auto _ : state) {
            for (const std::string& name : data.full_names)
                benchmark::DoNotOptimize(moxdev_oracle::possible_full_name(name));
        }
    });

    // The database managers, each from its file.
    benchmark::RegisterBenchmark("dev_info_manager/library", [](benchmark::State& state) {
        for (auto _ : state) {
            MOXDEV_DEV_INFO_MANAGER manager(false, 0);
            benchmark::DoNotOptimize(manager.get_device_database());
        }
    });
    benchmark::RegisterBenchmark("dev_info_manager/read_and_inflate", [](benchmark::State& state) {
        const std::string path = device_database();
        for (auto _ : state)
            benchmark::DoNotOptimize(read_and_inflate(path));
    });
    benchmark::RegisterBenchmark("flash_manager/library", [](benchmark::State& state) {
        for (auto _ : state) {
            MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
            benchmark::DoNotOptimize(manager.get_flash_database());
        }
    });
    benchmark::RegisterBenchmark("flash_manager/read_and_inflate", [](benchmark::State& state) {
        const std::string path = flash_database();
        for (auto _ : state)
            benchmark::DoNotOptimize(read_and_inflate(path));
    });

    // Binding a device to each chip of the table by the chip's own ID bytes.
    benchmark::RegisterBenchmark("flash_id_mapping/library", [](benchmark::State& state) {
        MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
        const MOXDEV_SFL_FLASH_INFO* records = manager.get_flash_database();
        std::vector<std::pair<bool, std::vector<BYTE>>> ids;
        for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
            const MOXDEV_SFL_FLASH_INFO& record = records[i];
            std::vector<BYTE> id(256, 0);
            id[record.memory_id_index] = record.memory_id;
            if (!record.silicon_id) {
                if (record.memory_type_index != 255)
                    id[record.memory_type_index] = record.memory_type;
                id[record.mfc_id_index] = record.mfc_id;
            }
            if (!manager.flash_id_database_mapping(record.silicon_id, 0, id.data()))
                state.SkipWithError("a chip of the table does not bind by its own ID");
            ids.emplace_back(record.silicon_id, std::move(id));
        }
        for (auto _ : state) {
            for (auto& [silicon, id] : ids)
                benchmark::DoNotOptimize(manager.flash_id_database_mapping(silicon, 0, id.data()));
        }
    });
    // The least a binding does: the first record whose bytes match, by a
    // plain loop over the records' ID bytes.
    benchmark::RegisterBenchmark("flash_id_mapping/compare_loop", [](benchmark::State& state) {
        const MOXDEV_FLASH_MANAGER manager(false, 1, false, false);
        struct ID {
            bool silicon;
            BYTE at[3];
            BYTE expected[3];
        };
        std::vector<ID> table;
        for (DWORD i = 0; i < manager.get_flash_count(); ++i) {
            const MOXDEV_SFL_FLASH_INFO& r = manager.get_flash_database()[i];
            table.push_back(ID{r.silicon_id,
                               {r.memory_id_index, r.memory_type_index == 255 ? r.memory_id_index : r.memory_type_index,
                                r.mfc_id_index},
                               {r.memory_id, r.memory_type_index == 255 ? r.memory_id : r.memory_type, r.mfc_id}});
        }
        std::vector<std::pair<bool, std::vector<BYTE>>> ids;
        for (const ID& record : table) {
            std::vector<BYTE> id(256, 0);
            for (int k = 0; k < 3; ++k)
                id[record.at[k]] = record.expected[k];
            ids.emplace_back(record.silicon, std::move(id));
        }
        for (auto _ : state) {
            for (auto& [silicon, id] : ids) {
                DWORD found = INVALID_DWORD;
                for (DWORD i = 0; i < table.size(); ++i) {
                    const ID& r = table[i];
                    if (r.silicon == silicon && id[r.at[0]] == r.expected[0] &&
                        (silicon || (id[r.at[1]] == r.expected[1] && id[r.at[2]] == r.expected[2]))) {
                        found = i;
                        break;
                    }
                }
                benchmark::DoNotOptimize(found);
            }
        }
    });
}

// The largest read `flash sfdp` takes, 64 KiB, as `hexdump -C` prints it:
// an SFDP header and BFPT, then bytes that never repeat a line.
std::string largest_sfdp_text()
{
    std::vector<BYTE> bytes(MOXDEV_SFDP_MAX_BYTES);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = BYTE(i * 7 + i / 256);
    const BYTE head[] = {'S', 'F', 'D', 'P', 6, 1, 0, 0xFF, 0, 6, 1, 16, 0x10, 0, 0, 0xFF};
    std::copy(std::begin(head), std::end(head), bytes.begin());
    const BYTE density[] = {0xFF, 0xFF, 0xFF, 0x07}; // 128 Mbit
    std::copy(std::begin(density), std::end(density), bytes.begin() + 0x10 + 1 * 4);
    const BYTE erase[] = {0x0C, 0x20, 0x10, 0xD8};
    std::copy(std::begin(erase), std::end(erase), bytes.begin() + 0x10 + 7 * 4);
    std::string text;
    char line[80];
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        int used = std::snprintf(line, sizeof line, "%08zx ", at);
        for (std::size_t i = 0; i < 16; ++i)
            used += std::snprintf(line + used, sizeof line - std::size_t(used), " %02x", bytes[at + i]);
        text.append(line, std::size_t(used)).append("  |................|\n");
    }
    char end[16];
    std::snprintf(end, sizeof end, "%08zx\n", bytes.size());
    return text + end;
}

// What `moxdev flash sfdp` does with its input: read the dump, decode,
// derive the record.
bool sfdp_answer(const std::string& input)
{
    std::vector<std::uint8_t> bytes;
    std::string error;
    MOXDEV_SFDP sfdp;
    MOXDEV_SFDP_RECORD record;
    const BYTE id[3] = {0xEF, 0x40, 0x99};
    return moxdev::read_dump(input, "SFDP", MOXDEV_SFDP_MAX_BYTES, bytes, error) &&
           moxdev_decode_sfdp(bytes.data(), bytes.size(), sfdp, error) &&
           moxdev_sfdp_record(sfdp, id, "", "", MOXDEV_SFDP_ASSUMPTIONS{}, record, error);
}

void register_sfdp_benchmarks()
{
    benchmark::RegisterBenchmark("flash_sfdp/example", [](benchmark::State& state) {
        std::ifstream in(std::string(MOXDEV_BENCH_SOURCE_DIR) + "/data/sfdp/example.hexdump");
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!sfdp_answer(text))
            state.SkipWithError("the example read is refused");
        for (auto _ : state)
            benchmark::DoNotOptimize(sfdp_answer(text));
    });
    benchmark::RegisterBenchmark("flash_sfdp/largest", [](benchmark::State& state) {
        const std::string text = largest_sfdp_text();
        if (!sfdp_answer(text))
            state.SkipWithError("the largest read is refused");
        for (auto _ : state)
            benchmark::DoNotOptimize(sfdp_answer(text));
    });
}

// ---------------------------------------------------------------- tables

// Tables far larger than any shipped one, written once into a scratch
// directory: the shipped header lines and then record lines made from the
// shipped records under new unique names, so that every per-name check
// sees a new name.
class TABLES {
public:
    static constexpr std::size_t HUGE_ROWS = 1000000;

    TABLES() : m_dir(std::filesystem::temp_directory_path() / ("moxdev_bench_tables." + std::to_string(::getpid())))
    {
        std::filesystem::create_directories(m_dir);
        const std::string source = std::string(MOXDEV_BENCH_SOURCE_DIR) + "/data/";
        const std::vector<std::string> flash = lines(source + "mox_flash.csv");
        const std::vector<std::string> device = lines(source + "mox_dev_info.csv");
        // A flash record line's device name is its second cell, and each
        // name has its default record (default_dev, the 11th cell).
        const auto flash_row = [](std::vector<std::string>& cells, const std::string& name) {
            cells.at(1) = name;
            cells.at(10) = "TRUE";
        };
        write(flash_huge(), flash, moxdev::FLASH_TABLE_FIRST_RECORD, HUGE_ROWS, flash_row);
        m_flash_largest_rows = largest_flash_rows(flash);
        write(flash_largest(), flash, moxdev::FLASH_TABLE_FIRST_RECORD, m_flash_largest_rows, flash_row);
        // A device record line's file name (pcf) is its second cell.
        write(device_huge(), device, 2, HUGE_ROWS,
              [](std::vector<std::string>& cells, const std::string& name) { cells.at(1) = name; });
    }
    ~TABLES()
    {
        std::error_code ignored;
        if (!std::getenv("MOXDEV_BENCH_KEEP"))
            std::filesystem::remove_all(m_dir, ignored);
    }
    TABLES(const TABLES&) = delete;
    TABLES& operator=(const TABLES&) = delete;

    std::string flash_huge() const { return (m_dir / "flash_huge.csv").string(); }
    std::string flash_largest() const { return (m_dir / "flash_largest.csv").string(); }
    std::string device_huge() const { return (m_dir / "device_huge.csv").string(); }
    std::string output() const { return (m_dir / "out.pcf").string(); }
    std::size_t flash_largest_rows() const { return m_flash_largest_rows; }

private:
    static std::vector<std::string> lines(const std::string& path)
    {
        std::ifstream in(path);
        std::vector<std::string> out;
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        if (out.empty())
            throw std::runtime_error("cannot read " + path);
        return out;
    }

    static std::vector<std::string> cells(const std::string& line)
    {
        std::vector<std::string> out;
        std::stringstream in(line);
        for (std::string cell; std::getline(in, cell, ',');)
            out.push_back(cell);
        return out;
    }

    // Rows cycle through the shipped records; row i is named "R<i>".
    template <class NAME_ROW>
    static void write(const std::string& path, const std::vector<std::string>& source, std::size_t first_record,
                      std::size_t rows, NAME_ROW name_row)
    {
        std::ofstream out(path);
        for (std::size_t i = 0; i < first_record; ++i)
            out << source[i] << '\n';
        const std::size_t records = source.size() - first_record;
        for (std::size_t row = 0; row < rows; ++row) {
            std::vector<std::string> record = cells(source[first_record + row % records]);
            name_row(record, "R" + std::to_string(row));
            for (std::size_t i = 0; i < record.size(); ++i)
                out << (i == 0 ? "" : ",") << record[i];
            out << '\n';
        }
        if (!out.flush())
            throw std::runtime_error("cannot write " + path);
    }

    // The most rows whose payload stays below the cap a database holds, with
    // a margin of a hundred records for the longest names.
    static std::size_t largest_flash_rows(const std::vector<std::string>& source)
    {
        std::size_t most = 0;
        for (std::size_t i = moxdev::FLASH_TABLE_FIRST_RECORD; i < source.size(); ++i) {
            std::vector<std::string> record = cells(source[i]);
            record.at(1) = "R" + std::to_string(HUGE_ROWS);
            most = std::max(most, moxdev::flash_record_payload_size(record));
        }
        return MOXDEV_MAX_PAYLOAD / most - 100;
    }

    std::filesystem::path m_dir;
    std::size_t m_flash_largest_rows = 0;
};

// The least any reader of a table does: every line of the file, split into
// its cells.
std::size_t read_lines(const std::string& path)
{
    std::ifstream in(path);
    std::size_t cells = 0;
    for (std::string line; std::getline(in, line);) {
        const std::vector<absl::string_view> split = absl::StrSplit(line, ',');
        cells += split.size();
    }
    return cells;
}

void register_table_benchmarks(const TABLES& tables)
{
    const auto check = [](const std::string& path, bool (*checker)(const std::string&, moxdev::TABLE_PROBLEM&),
                          bool accepted) {
        return [path, checker, accepted](benchmark::State& state) {
            moxdev::TABLE_PROBLEM problem;
            if (checker(path, problem) != accepted)
                state.SkipWithError(accepted ? "the table is refused" : "the table is accepted");
            for (auto _ : state)
                benchmark::DoNotOptimize(checker(path, problem));
        };
    };
    const auto read = [](const std::string& path) {
        return [path](benchmark::State& state) {
            for (auto _ : state)
                benchmark::DoNotOptimize(read_lines(path));
        };
    };
    // The generators refuse a table with an internal error, as a damaged
    // build product; a refusal here is the time it takes to give it.
    const auto generate = [&tables](const std::string& path, bool device) {
        return [&tables, path, device](benchmark::State& state) {
            for (auto _ : state) {
                std::string error;
                unsigned records = 0;
                try {
                    benchmark::DoNotOptimize(
                        device ? moxdev::generate_device_database(path, tables.output(), records, error)
                               : moxdev::generate_flash_database(path, tables.output(), error));
                } catch (const MSG_INTERNAL_ERROR&) {}
            }
        };
    };
    benchmark::RegisterBenchmark("flash_table_huge/check",
                                 check(tables.flash_huge(), moxdev::check_flash_table, false));
    benchmark::RegisterBenchmark("flash_table_huge/generate", generate(tables.flash_huge(), false));
    benchmark::RegisterBenchmark("flash_table_huge/read_lines", read(tables.flash_huge()));
    benchmark::RegisterBenchmark("flash_table_largest/check",
                                 check(tables.flash_largest(), moxdev::check_flash_table, true));
    benchmark::RegisterBenchmark("flash_table_largest/generate", generate(tables.flash_largest(), false));
    benchmark::RegisterBenchmark("flash_table_largest/read_lines", read(tables.flash_largest()));
    benchmark::RegisterBenchmark("device_table_huge/check",
                                 check(tables.device_huge(), moxdev::check_device_table, false));
    benchmark::RegisterBenchmark("device_table_huge/generate", generate(tables.device_huge(), true));
    benchmark::RegisterBenchmark("device_table_huge/read_lines", read(tables.device_huge()));
}

std::size_t flash_chip_count()
{
    return MOXDEV_FLASH_MANAGER(false, 1, false, false).get_flash_count();
}

// Google Benchmark's flags, with five repetitions reported by their
// aggregates unless the caller says otherwise.
std::vector<char*> arguments(int argc, char** argv)
{
    static char repetitions[] = "--benchmark_repetitions=5";
    static char aggregates[] = "--benchmark_report_aggregates_only=true";
    std::vector<char*> args(argv, argv + argc);
    auto given = [&](const char* flag) {
        for (int i = 1; i < argc; ++i) {
            if (std::strncmp(argv[i], flag, std::strlen(flag)) == 0)
                return true;
        }
        return false;
    };
    if (!given("--benchmark_repetitions"))
        args.push_back(repetitions);
    if (!given("--benchmark_report_aggregates_only"))
        args.push_back(aggregates);
    args.push_back(nullptr);
    return args;
}

std::string count_text(std::size_t count, const char* what)
{
    return std::to_string(count) + " " + what;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<char*> args = arguments(argc, argv);
    int count = int(args.size()) - 1;
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;

    try {
        // Not const: the library normalises the names it is given in place.
        DATA data = prepare();
        register_benchmarks(data);
        register_sfdp_benchmarks();
#ifdef MOXDEV_BENCH_PYTHON
        register_python_benchmarks();
#endif
        const TABLES tables;
        register_table_benchmarks(tables);

        MEDIAN_REPORTER medians;
        benchmark::RunSpecifiedBenchmarks(&medians);

        using GOAL = ROW::GOAL;
        std::vector<ROW> rows;
        const std::string bare = "the same lookups in a bare `absl::flat_hash_map`";
        const struct {
            std::string what;
            std::string name;
            std::string literal;
        } lookups[] = {
            {"grammar reverse lookup, every name of the compiled-in image (" +
                 count_text(data.lookups.size(), "lookups") + ")",
             "reverse_lookup", "linear scan in ascending key order"},
            {"`get_opn_from_hash` over " + count_text(data.hashes.size(), "sampled parts"), "opn_from_hash",
             "linear digest search"},
            {"`get_possible_full_name` over " + count_text(data.full_names.size(), "sampled names"),
             "possible_full_name", "per-part search"},
        };
        for (const auto& lookup : lookups) {
            rows.push_back(time_row(medians, lookup.what, bare, lookup.name + "/library", lookup.name + "/bare_map",
                                    GOAL::AT_MOST, 1.3));
            rows.push_back(time_row(medians, lookup.what + ", for scale", lookup.literal, lookup.name + "/library",
                                    lookup.name + "/literal", GOAL::SCALE, 0));
        }
        rows.push_back(time_row(medians, "constructing `MOXDEV_DEV_INFO_MANAGER(false, 0)` from its file",
                                "reading the file and inflating its payload", "dev_info_manager/library",
                                "dev_info_manager/read_and_inflate", GOAL::AT_MOST, 1.5));
        rows.push_back(time_row(medians, "constructing `MOXDEV_FLASH_MANAGER(false, 1, false, false)` from its file",
                                "reading the file and inflating its payload", "flash_manager/library",
                                "flash_manager/read_and_inflate", GOAL::AT_MOST, 1.5));
        rows.push_back(time_row(medians,
                                "`flash_id_database_mapping` for every chip of the table (" +
                                    count_text(flash_chip_count(), "chips") + "), per call",
                                "the first match by a plain loop over the records' ID bytes",
                                "flash_id_mapping/library", "flash_id_mapping/compare_loop", GOAL::AT_MOST, 2,
                                double(flash_chip_count())));

        rows.push_back(time_row(medians,
                                "`flash sfdp` on the example read (`hexdump -C` text): read, decode, derive "
                                "(goal: well under 50 ms)",
                                "", "flash_sfdp/example", "", GOAL::NONE, 0));
        rows.push_back(time_row(medians,
                                "`flash sfdp` on the largest read it takes, 64 KiB as `hexdump -C` text "
                                "(goal: well under 50 ms)",
                                "", "flash_sfdp/largest", "", GOAL::NONE, 0));

        const std::string huge = count_text(TABLES::HUGE_ROWS, "rows");
        const std::string largest = count_text(tables.flash_largest_rows(), "rows");
        const std::string every_line = "reading every line of the file and splitting it into cells";
        // The checks stop at the first record past what a database holds; the
        // generators read the table whole in their checking pass before they
        // refuse it, and the writing pass compresses at zlib's best level.
        rows.push_back(time_row(medians, "`check_flash_table` on a flash table of " + huge + " (refused at the cap)",
                                every_line, "flash_table_huge/check", "flash_table_huge/read_lines", GOAL::AT_MOST,
                                1.5));
        rows.push_back(time_row(medians, "`generate_flash_database` on a flash table of " + huge + " (refused)",
                                every_line, "flash_table_huge/generate", "flash_table_huge/read_lines", GOAL::AT_MOST,
                                5));
        rows.push_back(
            time_row(medians, "`check_flash_table` on the largest flash table a database holds (" + largest + ")",
                     every_line, "flash_table_largest/check", "flash_table_largest/read_lines", GOAL::AT_MOST, 10));
        rows.push_back(
            time_row(medians, "`generate_flash_database` on the largest flash table a database holds (" + largest + ")",
                     every_line, "flash_table_largest/generate", "flash_table_largest/read_lines", GOAL::AT_MOST, 40));
        rows.push_back(
            time_row(medians, "`check_device_table` on a device table of " + huge + " (refused at the 80th record)",
                     every_line, "device_table_huge/check", "device_table_huge/read_lines", GOAL::AT_MOST, 0.01));
        rows.push_back(time_row(medians, "`generate_device_database` on a device table of " + huge + " (refused)",
                                every_line, "device_table_huge/generate", "device_table_huge/read_lines", GOAL::AT_MOST,
                                5));

#ifdef MOXDEV_BENCH_PYTHON
        add_python_rows(medians, rows);
#endif
        std::cout << "Machine: " << machine_description() << "\n\n";
        const bool met = print_table(std::cout, rows);
        benchmark::Shutdown();
        return met ? 0 : 3;
    } catch (const std::exception& error) {
        std::cerr << "moxdev_bench: " << error.what() << "\n";
        return 1;
    }
}
