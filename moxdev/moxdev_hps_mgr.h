// The hard processor system (HPS) managers: the descriptor of the HPS found on
// a device, and the NAND and SPI flash parts an HPS can boot from.
//
// All three are process-wide singletons: get_mgr creates one on first use
// (the flash lists then read the user's records from the parameter
// container), delete_mgr destroys it. They are not guarded against first use
// from two threads at once.
#pragma once

#include "moxdev/moxdev_flash_ini.h"

#include "host/host_types.h"

#include <string>
#include <vector>

constexpr DWORD MOXDEV_HPS_WORDS = 335;

// One HPS: word 0 is the JTAG IDCODE of its debug access port, the others
// register block bases, offsets, masks and values of its peripherals;
// 0xFFFFFFFF marks an item this HPS does not have. Word names are in
// moxdev_hps_words.h.
struct MOXDEV_HPS_STRUCTURE {
    DWORD word[MOXDEV_HPS_WORDS];
};

#include "moxdev/moxdev_hps_words.h"

// The descriptors of the HPSs the library knows, in selection order.
extern const MOXDEV_HPS_STRUCTURE MOXDEV_HPS_DESCRIPTORS[2];

// One NAND flash part an HPS can boot from.
struct MOXDEV_HPS_NAND_STRUCTURE {
    static constexpr DWORD PARAMS = 3;
    static const MOXDEV_PARAM_TYPE TYPES[PARAMS];

    MOXDEV_HPS_NAND_STRUCTURE(DWORD manufacturer_id = 0, DWORD device_id = 0, QWORD flash_byte_size = 0);
    MOXDEV_HPS_NAND_STRUCTURE(const MOXDEV_HPS_NAND_STRUCTURE& other);
    MOXDEV_HPS_NAND_STRUCTURE& operator=(const MOXDEV_HPS_NAND_STRUCTURE& other);

    DWORD manufacturer_id;
    DWORD device_id;
    QWORD flash_byte_size;
    // The three fields above, in order, for packing and unpacking.
    void* param[PARAMS];
};

// One serial NOR flash part an HPS can boot from.
struct MOXDEV_HPS_SPI_STRUCTURE {
    static constexpr DWORD PARAMS = 19;
    static const MOXDEV_PARAM_TYPE TYPES[PARAMS];

    MOXDEV_HPS_SPI_STRUCTURE();
    MOXDEV_HPS_SPI_STRUCTURE(DWORD siid, DWORD mask, DWORD ext_siid, DWORD ext_mask, std::string manufacturer,
                             std::string name, QWORD flash_bit_size, DWORD sector_byte_size,
                             DWORD page_byte_size, DWORD bulk_erase_time, DWORD bulk_erase_interval_wait_time,
                             DWORD sector_erase_time, DWORD page_program_time, DWORD program_time,
                             DWORD die_size, bool speed_mode, DWORD byte4_se_opcode, DWORD byte4_pp_opcode,
                             DWORD byte4_read_opcode);
    MOXDEV_HPS_SPI_STRUCTURE(const MOXDEV_HPS_SPI_STRUCTURE& other);
    MOXDEV_HPS_SPI_STRUCTURE& operator=(const MOXDEV_HPS_SPI_STRUCTURE& other);

    DWORD siid;       // JEDEC ID bytes, manufacturer in the low 8 bits
    DWORD mask;       // bits of siid that must match
    DWORD ext_siid;   // a further identification byte
    DWORD ext_mask;
    std::string manufacturer;
    std::string name; // part class, e.g. QSPI_128
    QWORD flash_bit_size;
    DWORD sector_byte_size;
    DWORD page_byte_size;
    DWORD bulk_erase_time;               // seconds
    DWORD bulk_erase_interval_wait_time; // seconds
    DWORD sector_erase_time;             // seconds
    DWORD page_program_time;             // microseconds
    DWORD program_time;                  // polling time, seconds
    DWORD die_size;
    bool speed_mode;
    DWORD byte4_se_opcode;
    DWORD byte4_pp_opcode;
    DWORD byte4_read_opcode;
    // The nineteen fields above, in order, for packing and unpacking.
    void* param[PARAMS];

private:
    void bind();
};

// Parameter names and the prompts a client shows when a user adds a part.
extern const char* const MOXDEV_HPS_NAND_PARAM_NAMES[MOXDEV_HPS_NAND_STRUCTURE::PARAMS];
extern const char* const MOXDEV_HPS_NAND_PROMPTS[MOXDEV_HPS_NAND_STRUCTURE::PARAMS];
extern const char* const MOXDEV_HPS_SPI_PARAM_NAMES[MOXDEV_HPS_SPI_STRUCTURE::PARAMS];
extern const char* const MOXDEV_HPS_SPI_PROMPTS[MOXDEV_HPS_SPI_STRUCTURE::PARAMS];

// Signatures that open the user data sets.
extern const char MOXDEV_HPS_NAND_SIGNATURE[33];
extern const char MOXDEV_HPS_SPI_SIGNATURE[33];

// The user records held by the bytes of a data set that opens with
// `signature` (the 32 characters), in order; a damaged record ends them.
// `foreign` tells a set that opens with another signature (it has none).
template <class RECORD>
std::vector<RECORD> moxdev_hps_unpack_user_set(const std::vector<BYTE>& set, const char* signature,
                                               bool* foreign = nullptr);
// The bytes of a user data set holding `records`; no bytes for none.
template <class RECORD>
std::vector<BYTE> moxdev_hps_pack_user_set(const std::vector<RECORD>& records, const char* signature);

class MOXDEV_HPS_MGR {
public:
    static MOXDEV_HPS_MGR* get_mgr();
    static void delete_mgr();

    // Selects the descriptor whose IDCODE is `id`; false (nothing selected)
    // when none has it.
    bool set_current_hps(DWORD id);
    const MOXDEV_HPS_STRUCTURE* get_current_hps() const;

private:
    MOXDEV_HPS_MGR() = default;
    MOXDEV_HPS_MGR(const MOXDEV_HPS_MGR&) = delete;
    MOXDEV_HPS_MGR& operator=(const MOXDEV_HPS_MGR&) = delete;

    DWORD m_current = INVALID_DWORD;
    static MOXDEV_HPS_MGR* m_mgr;
};

// The NAND and SPI lists: the user's records (from the parameter container)
// first, then the built-in parts.
template <class RECORD>
class MOXDEV_HPS_FLASH_LIST {
public:
    ~MOXDEV_HPS_FLASH_LIST();
    const std::vector<RECORD*>& get_list() const { return m_list; }
    const std::vector<RECORD*>& get_user_list() const { return m_user_list; }

protected:
    MOXDEV_HPS_FLASH_LIST() = default;
    MOXDEV_HPS_FLASH_LIST(const MOXDEV_HPS_FLASH_LIST&) = delete;
    MOXDEV_HPS_FLASH_LIST& operator=(const MOXDEV_HPS_FLASH_LIST&) = delete;

    // Appends the user's records of data set `set` (which opens with
    // `signature`); a damaged record ends the reading, keeping those before it.
    void read_user_records(MOXDEV_FLASH_INI_ENUM set, const char* signature);
    void append_built_in(const RECORD* rows, std::size_t count);

    std::vector<RECORD*> m_list;      // owns every record
    std::vector<RECORD*> m_user_list; // the user's records, not owned
};

class MOXDEV_HPS_NAND_MGR : public MOXDEV_HPS_FLASH_LIST<MOXDEV_HPS_NAND_STRUCTURE> {
public:
    static MOXDEV_HPS_NAND_MGR* get_mgr();
    static void delete_mgr();

private:
    MOXDEV_HPS_NAND_MGR();
    void initialize_ini_file();
    static MOXDEV_HPS_NAND_MGR* m_mgr;
};

class MOXDEV_HPS_SPI_MGR : public MOXDEV_HPS_FLASH_LIST<MOXDEV_HPS_SPI_STRUCTURE> {
public:
    static MOXDEV_HPS_SPI_MGR* get_mgr();
    static void delete_mgr();

private:
    MOXDEV_HPS_SPI_MGR();
    void initialize_ini_file();
    static MOXDEV_HPS_SPI_MGR* m_mgr;
};
