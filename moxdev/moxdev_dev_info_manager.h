// The device information database: programming properties per family, device
// and part that the programmer needs beyond the host catalogue.
//
// The database is loaded from programmer/mox_dev_info.pcf below the host's
// device-database directory. Three index tables in the file map every family,
// device and part value to the record that serves it, so lookups are one
// table read. generate_device_database builds the file from the device CSV.
#pragma once

#include "moxdev/moxdev_database_codec.h"

#include "host/dev_catalogue.h"
#include "host/fio.h"
#include "host/host_types.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

// One record of the database. The fields and their order are listed in
// moxdev_device_info_fields.def.
struct MOXDEV_DEVICE_INFO {
#define MOXDEV_DEVICE_FIELD(name, stream_type, type) type name{};
#include "moxdev/moxdev_device_info_fields.def"
};

// Records per database and fields per record.
constexpr DWORD TOTAL_DATABASE_DEVICE = 79;
constexpr DWORD TOTAL_DEVICE_DATABASE_MEMBER = 86;

// Identifier of the device CSV the reader and generator are built for.
inline const std::string MOXDEV_DEV_INFO_CSV_MD5 = "5c0e9b27d4a1f8e3b6c2a7d90e4f1b38";

// Field names in record order (the CSV's name row), and the stream tag of each.
extern const char* const MOXDEV_DEVICE_FIELD_NAMES[TOTAL_DEVICE_DATABASE_MEMBER];
extern const MOXDEV_MANAGER_TYPE MOXDEV_DEVICE_FIELD_TYPES[TOTAL_DEVICE_DATABASE_MEMBER];

// Calls visit(name, tag, value) for every field of `record`, in record order.
// `value` is a reference to the member, of the member's own type.
template <class RECORD, class VISITOR>
void moxdev_for_each_device_field(RECORD& record, VISITOR&& visit)
{
#define MOXDEV_DEVICE_FIELD(name, stream_type, type) visit(#name, MOXDEV_MANAGER_##stream_type, record.name);
#include "moxdev/moxdev_device_info_fields.def"
}

// The fields of `record` as (name, text) pairs in record order, the way the
// device CSV would spell them; catalogue values are shown as identifier and
// number, e.g. "KESTREL_II (5)".
std::vector<std::pair<std::string, std::string>> moxdev_device_info_to_text(const MOXDEV_DEVICE_INFO& record);

// An entry of the part list: the programming-file name of one part.
struct MOXDEV_PART_LIST_ENTRY {
    int part = 0;
    DEV_DEVICE_ENUM device = DEV_DEVICE_INVALID;
    std::string pcf;
};

class MOXDEV_DEV_INFO_MANAGER : protected MOXDEV_DATABASE_CODEC {
public:
    // Loads the database unless skip_load is set. print_mode 1 to 4 prints a
    // listing after loading: every record, or the record per family, per
    // device or per part.
    MOXDEV_DEV_INFO_MANAGER(bool skip_load, DWORD print_mode);

    // Copies share the records, the index tables and the part list with their
    // source; the storage lives as long as any copy.
    MOXDEV_DEV_INFO_MANAGER(const MOXDEV_DEV_INFO_MANAGER&) = default;
    MOXDEV_DEV_INFO_MANAGER& operator=(const MOXDEV_DEV_INFO_MANAGER&) = default;
    ~MOXDEV_DEV_INFO_MANAGER() = default;

    // A new copy of the record that serves the value, which the caller frees
    // with delete; null when no record serves it.
    MOXDEV_DEVICE_INFO* get_db_by_family(DEV_FAMILY_ENUM family);
    MOXDEV_DEVICE_INFO* get_db_by_device(DEV_DEVICE_ENUM device);
    MOXDEV_DEVICE_INFO* get_db_by_part(int part);

    // The records themselves, read-only; get_device_count() of them.
    const MOXDEV_DEVICE_INFO* get_device_database() const;
    DWORD get_device_count() const { return m_device_count; }

    // Index of the record that serves a value, INVALID_DWORD for none.
    DWORD get_family_index(DEV_FAMILY_ENUM family) const;
    DWORD get_device_index(DEV_DEVICE_ENUM device) const;
    DWORD get_part_index(int part) const;

    // Builds the database file `device_file` from the device CSV. On any
    // failure an earlier file is left as it was.
    void generate_device_database(FIO_PATH csv_file, FIO_PATH device_file);

    // The name under which the "family", "device" or "part" name table lists
    // `id`.
    std::string convert_id_enum_to_string(std::string type_name, DWORD id) const;

    // Listings: every record, and the record per family, device or part.
    void print_database(DWORD print_mode) const;

protected:
    void initialize_device_database(FIO_PATH device_file);
    bool parse_database(BYTE* data, bool generating);
    void get_database(BYTE* data, DWORD& index, DWORD record);
    void get_table(BYTE* data, DWORD& index);
    DWORD get_table_size() const;

    bool search_family(DEV_FAMILY_ENUM family, bool allow_invalid);
    bool search_device(DEV_DEVICE_ENUM device, bool allow_invalid);
    bool search_part(int part, bool allow_invalid);
    MOXDEV_DEVICE_INFO* copy_database();

    void parse_mox_parts();
    bool search_pcf_for_device(DEV_DEVICE_ENUM device);
    bool search_pcf_for_part(int part);

    DWORD check_device_file(FIO_PATH csv_file, DWORD& device_count);
    void dump_to_database(BYTE*& data, DWORD& index, std::vector<std::string> cells);
    void dump_enum_to_database(BYTE*& data, DWORD& index, std::string type_name, std::string value);
    // Appends the family, device and part index tables to a database image
    // and fills the manager's tables with the same entries.
    void print_table(MOXDEV_FIELD_WRITER& out);

    DWORD version = 0;
    DWORD m_device_count = 0;
    DWORD m_type_count = 0;
    DWORD m_index = INVALID_DWORD;
    DWORD m_csv_memory_size = 0;
    std::shared_ptr<std::vector<MOXDEV_DEVICE_INFO>> m_device_database;
    DWORD m_print_mode = 0;
    std::shared_ptr<std::vector<DWORD>> m_family_table;
    std::shared_ptr<std::vector<DWORD>> m_device_table;
    std::shared_ptr<std::vector<DWORD>> m_part_table;
    std::shared_ptr<std::vector<MOXDEV_PART_LIST_ENTRY>> m_part_list;

private:
    // The loading and generation steps on the codec's reader and writer; the
    // protected forms above are thin wrappers that trust the caller's buffer.
    void parse_payload(MOXDEV_FIELD_READER& in, bool generating);
    void read_record(MOXDEV_FIELD_READER& in, DWORD record);
    void read_tables(MOXDEV_FIELD_READER& in);
    void write_record(MOXDEV_FIELD_WRITER& out, const std::vector<std::string>& cells);
    void write_enum(MOXDEV_FIELD_WRITER& out, const std::string& type_name, const std::string& value);
    // The whole generation, on a manager made for it.
    void build_database_file(const FIO_PATH& csv_file, const FIO_PATH& device_file);

    // The number of records a scan may visit: at most the fixed database size,
    // and never more than were loaded.
    DWORD scan_limit() const;
    // Sets m_index to the first record (within scan_limit) that matches.
    template <class PREDICATE>
    bool find_record(PREDICATE matches);
    // Finds the record named by the first part-list entry that matches.
    template <class PREDICATE>
    bool search_pcf_of_first_entry(PREDICATE matches);
    // A copy of the record that `table` names for `value`, or null.
    MOXDEV_DEVICE_INFO* copy_of_table_entry(const std::vector<DWORD>& table, DWORD value);
    void send_missing_family_notice(DEV_FAMILY_ENUM family) const;
    void print_record(const MOXDEV_DEVICE_INFO& record) const;
};
