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
#define MOXDEV_FLASH_FIELD(name, stream_type, type) visit(#name, MOXDEV_MANAGER_##stream_type, record.name);
#include "moxdev/moxdev_flash_info_fields.def"
}

// The fields of `record` as (name, text) pairs in record order: ID bytes and
// masks in hex, "none" for an unused index, divisor or bottom value (255),
// sizes and times in decimal, flags as "true" or "false".
std::vector<std::pair<std::string, std::string>> moxdev_flash_info_to_text(const MOXDEV_SFL_FLASH_INFO& record);

namespace moxdev::detail {
// The project's own flash functions (moxdev/flash.h, moxdev/user_flash.h)
// reach the manager's records through this one door.
struct FLASH_MANAGER_ACCESS;
} // namespace moxdev::detail

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
    // manufacturer ID. `id_bytes` must hold every byte a record may index;
    // moxdev::bind_flash() takes a count instead.
    bool flash_id_database_mapping(bool silicon_id_mode, DWORD device_index, BYTE* id_bytes);
    DWORD get_flash_mapping_index(DWORD device, bool allow_invalid) const;
    void set_flash_mapping_index(DWORD device, DWORD index);

    // The largest page-program time over the bound devices of the chain.
    DWORD sfl_get_chain_longest_program_utime() const;

    // sfl_get_<field>(device): the field of the record bound to `device`.
#define MOXDEV_FLASH_FIELD(name, stream_type, type) type sfl_get_##name(DWORD device) const;
#include "moxdev/moxdev_flash_info_fields.def"

    // ------------------------------------------------------------ user flash
    // The printable encoding of the user definition: zlib, then 6 bits per
    // character. An empty result means failure, and a message is printed on
    // standard output.
    std::string encode_ini(std::string text) const;
    std::string decode_ini(std::string text) const;
    // The 16-letter check value that binds a definition to this tool version.
    std::string gen_ini_password(std::string text) const;
    bool cmp_ini_password(std::string password, std::string text) const;

    // The definition dialogue: asks for up to three chips and prints the
    // value to store in "MOX_SUPPORT_EXT_SPI_DEV". The first refused answer
    // ends it. The plain form talks on standard input and output.
    // moxdev::define_user_flash() is the forgiving dialogue for people.
    void gen_flash_ini();
    void gen_flash_ini(std::istream& in, std::ostream& out);

    // ------------------------------------------------------------ generation
    // Builds the database file `out` from the flash CSV.
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

private:
    friend struct moxdev::detail::FLASH_MANAGER_ACCESS;

    // Which records loading keeps: those whose switch is on (what the
    // constructor does), or every one (listings of the whole table).
    enum class KEEP { ENABLED, EVERY };

    // Loading and generation on the codec's reader and writer; the protected
    // forms above are thin wrappers that trust the caller's buffer.
    void load(const FIO_PATH& flash_file, KEEP keep);
    void parse_payload(MOXDEV_FIELD_READER& in, KEEP keep);
    bool read_record(MOXDEV_FIELD_READER& in, DWORD slot, KEEP keep);
    void write_record(MOXDEV_FIELD_WRITER& out, const std::vector<std::string>& cells);
    // Sets up the device-to-flash map of a loaded manager.
    void attach_chain(DWORD device_count);

    const MOXDEV_SFL_FLASH_INFO& bound_record(DWORD device) const;
    // One chip of the definition dialogue, asked on `out`, answered on `in`.
    bool prompt_chip(std::istream& in, std::ostream& out, std::string& definition);
    // flash_id_database_mapping() for `id_count` ID bytes.
    bool bind(bool silicon_id_mode, DWORD device_index, const BYTE* id_bytes, DWORD id_count);
    // The index of the first record matching `id_count` ID bytes (a record
    // that indexes a byte beyond them does not match), INVALID_DWORD if none.
    DWORD first_match(bool silicon_id_mode, const BYTE* id_bytes, DWORD id_count) const;
    // The user definition's fields into m_ini_database, as the loader reads
    // them; false when one is invalid.
    bool read_definition(const std::string& definition);
};
