// The serial configuration flash database, and the binding of the devices of a
// programming chain to the flash chips behind them.
//
// The database is loaded from programmer/mox_flash.pcf below the host's
// device-database directory. Records behind a switch ("MOX_ALLOW_" + the
// record's ini name) are kept only while the switch is on. One flash chip the
// database does not know can be defined by the user in the configuration
// value "MOX_SUPPORT_EXT_SPI_DEV"; it becomes record 0 and so wins over the
// database when both match the same ID bytes.
#pragma once

#include "moxdev/moxdev_database_codec.h"

#include "host/fio.h"
#include "host/host_types.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// One flash chip. The fields and their order are listed in
// moxdev_flash_info_fields.def.
struct MOXDEV_SFL_FLASH_INFO {
#define MOXDEV_FLASH_FIELD(name, stream_type, type) type name{};
#include "moxdev/moxdev_flash_info_fields.def"
};

// Fields per flash record.
constexpr DWORD TOTAL_DATABASE_MEMBER = 33;

// Identifier of the flash CSV the reader and generator are built for.
inline const std::string MOXDEV_FLASH_INFO_CSV_MD5 = "3a7f0c9e5d21b846f0e2c7a19b5d3e64";

// Field names in record order (the CSV's name row), and the stream tag of each.
extern const char* const MOXDEV_FLASH_FIELD_NAMES[TOTAL_DATABASE_MEMBER];
extern const MOXDEV_MANAGER_TYPE MOXDEV_FLASH_FIELD_TYPES[TOTAL_DATABASE_MEMBER];

// Calls visit(name, tag, value) for every field of `record`, in record order.
template <class RECORD, class VISITOR>
void moxdev_for_each_flash_field(RECORD& record, VISITOR&& visit)
{
#define MOXDEV_FLASH_FIELD(name, stream_type, type)                                             \
    visit(#name, MOXDEV_MANAGER_##stream_type, record.name);
#include "moxdev/moxdev_flash_info_fields.def"
}

// The fields of `record` as (name, text) pairs in record order: ID bytes and
// masks in hex, "-1" for an unused index, sizes and times in decimal.
std::vector<std::pair<std::string, std::string>>
moxdev_flash_info_to_text(const MOXDEV_SFL_FLASH_INFO& record);

class MOXDEV_FLASH_MANAGER : protected MOXDEV_DATABASE_CODEC {
public:
    // Loads the database for a chain of `device_count` devices unless
    // skip_loading is set. With `debug` the records are printed after loading.
    // The first argument is ignored.
    MOXDEV_FLASH_MANAGER(bool ignored_flag, DWORD device_count, bool skip_loading, bool debug);

    // Copies share the records and the device-to-flash map with their source;
    // the storage lives as long as any copy.
    MOXDEV_FLASH_MANAGER(const MOXDEV_FLASH_MANAGER&) = default;
    MOXDEV_FLASH_MANAGER& operator=(const MOXDEV_FLASH_MANAGER&) = default;
    ~MOXDEV_FLASH_MANAGER() = default;

    // ------------------------------------------------------------ records
    DWORD get_flash_count() const { return m_flash_count; }
    const MOXDEV_SFL_FLASH_INFO* get_flash_database() const;
    // The default record of a flash name (letter case ignored), or null.
    const MOXDEV_SFL_FLASH_INFO* get_default_flash(std::string device_name) const;

    // ------------------------------------------------------------ binding
    // Binds device `device_index` of the chain to the first record whose ID
    // bytes match `id_bytes`: in silicon-ID mode the single silicon-ID byte,
    // otherwise memory ID, memory type (unless its index is 255) and
    // manufacturer ID. `id_bytes` must hold every byte a record may index.
    bool flash_id_database_mapping(bool silicon_id_mode, DWORD device_index, BYTE* id_bytes);
    // The same for `id_count` bytes read from the chip: a record that indexes
    // a byte beyond them does not match.
    bool flash_id_database_mapping(bool silicon_id_mode, DWORD device_index, const BYTE* id_bytes,
                                   DWORD id_count);
    // The record that flash_id_database_mapping would bind to these bytes,
    // or null; binds nothing.
    const MOXDEV_SFL_FLASH_INFO* find_flash(bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count) const;
    // Binds device `device_index` to the chip that answered `id_bytes` (at
    // least maker, type and capacity) and, for a chip no record knows, to the
    // record derived from its SFDP read (`sfdp`, `sfdp_size` bytes from
    // address 0; see moxdev_sfdp.h). A record of the table, or the user
    // record, always wins for an ID it knows. A derived record is added behind
    // the others, so later pointers from get_flash_database() must be asked
    // for again. False, with the reason in `error`, when neither binds.
    // The maker name of the first record with this maker and type byte, "" if
    // none (makers that share a code, like Micron and XMC, differ in type).
    std::string maker_name(BYTE mfc_id, BYTE memory_type) const;
    bool flash_sfdp_mapping(DWORD device_index, const BYTE* id_bytes, DWORD id_count, const BYTE* sfdp,
                            std::size_t sfdp_size, std::string* error = nullptr);
    DWORD get_flash_mapping_index(DWORD device, bool allow_invalid) const;
    void set_flash_mapping_index(DWORD device, DWORD index);
    DWORD get_device_count() const { return m_device_count; }

    // The largest page-program time over the bound devices of the chain.
    DWORD sfl_get_chain_longest_program_utime() const;

    // sfl_get_<field>(device): the field of the record bound to `device`.
#define MOXDEV_FLASH_FIELD(name, stream_type, type) type sfl_get_##name(DWORD device) const;
#include "moxdev/moxdev_flash_info_fields.def"

    // ------------------------------------------------------------ user flash
    // The printable encoding of the user definition: zlib, then 6 bits per
    // character. An empty result means failure (a message is printed).
    std::string encode_ini(std::string text) const;
    std::string decode_ini(std::string text) const;
    // The 16-letter check value that binds a definition to this tool version.
    std::string gen_ini_password(std::string text) const;
    bool cmp_ini_password(std::string password, std::string text) const;

    // The interactive definition: asks for up to three chips and prints the
    // value to store in "MOX_SUPPORT_EXT_SPI_DEV".
    // The value of "MOX_SUPPORT_EXT_SPI_DEV" that defines `record` as the user
    // flash, in the encoding the dialogue prints; empty when a text field
    // holds '@' or '#', which the encoding cannot carry.
    std::string definition_value(const MOXDEV_SFL_FLASH_INFO& record) const;

    void gen_flash_ini();
    void gen_flash_ini(std::istream& in, std::ostream& out);

    // ------------------------------------------------------------ generation
    // Builds the database file `out` from the flash CSV. On any failure an
    // earlier file is left as it was.
    void generate_flash_database(FIO_PATH csv, FIO_PATH out);

    // ------------------------------------------------------------ listings
    void print_database() const;
    void print_ini_database() const;

    // The trailer checksum of the database files: deliberately always 0.
    static WORD calculate_crc16(const BYTE* data, DWORD length);

    static bool is_power_of_two(DWORD value);
    // "-1" for INVALID_DWORD (and for 255 when byte_value), else "%d".
    static std::string to_string(DWORD value, bool byte_value);

protected:
    void initialize_flash_database(FIO_PATH flash_file);
    bool parse_database(BYTE* data);
    bool get_database(BYTE* data, DWORD& index, DWORD slot);
    bool enable_device(DWORD index);
    void null_info_database(MOXDEV_SFL_FLASH_INFO* record);
    void confirm_default_value(DWORD first);
    void copy_ini_database();

    void parse_ext_flash_info();
    bool get_string_from_ini(std::string text, std::string* field, size_t& position);
    bool assign_ini(std::string* fields);
    bool get_boolean_from_string(std::string text, bool& valid);
    DWORD get_number_from_string(std::string text, DWORD maximum, bool& valid);
    DWORD get_dword_from_string(std::string text, bool* valid);

    bool prompt_flash_info(std::string& definition);

    DWORD check_flash_file(FIO_PATH csv, DWORD& record_count);
    void dump_to_database(BYTE*& data, DWORD& index, std::vector<std::string> cells);

    DWORD m_debug = 0;
    DWORD version = 0;
    DWORD m_device_count = 0;
    DWORD m_flash_count = 0;
    DWORD m_ini_count = 0;
    DWORD m_type_count = 0;
    std::shared_ptr<std::vector<DWORD>> m_device_to_flash_map;
    std::shared_ptr<std::vector<MOXDEV_SFL_FLASH_INFO>> m_flash_database;
    MOXDEV_SFL_FLASH_INFO m_ini_database;
    // Keeps every record while loading, whatever its switch says (listings
    // of the whole table).
    bool m_enable_all = false;

private:
    // Loading and generation on the codec's reader and writer; the protected
    // forms above are thin wrappers that trust the caller's buffer.
    void parse_payload(MOXDEV_FIELD_READER& in);
    bool read_record(MOXDEV_FIELD_READER& in, DWORD slot);
    void write_record(MOXDEV_FIELD_WRITER& out, const std::vector<std::string>& cells);

    const MOXDEV_SFL_FLASH_INFO& bound_record(DWORD device) const;
    // One chip of the dialogue, asked on `out`, answered on `in`.
    bool prompt_chip(std::istream& in, std::ostream& out, std::string& definition);
    // The index of the first record matching the ID bytes, INVALID_DWORD if none.
    DWORD first_match(bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count) const;
    std::string decode_ini_text(const std::string& text, std::ostream* report) const;

};
