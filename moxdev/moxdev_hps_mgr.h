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

// One NAND flash part an HPS can boot from; its fields are listed in
// moxdev_hps_nand_fields.def.
struct MOXDEV_HPS_NAND_STRUCTURE {
#define MOXDEV_HPS_FIELD(name, type, ...) +1
    static constexpr DWORD PARAMS = 0
#include "moxdev/moxdev_hps_nand_fields.def"
        ;
    static const MOXDEV_PARAM_TYPE TYPES[PARAMS];

    // Zero numbers.
    MOXDEV_HPS_NAND_STRUCTURE();
    // Every field, in order.
#define MOXDEV_HPS_FIELD(name, type, ...) type name,
#define MOXDEV_HPS_LAST_FIELD(name, type, ...) type name
    MOXDEV_HPS_NAND_STRUCTURE(
#include "moxdev/moxdev_hps_nand_fields.def"
    );
    // A copy points its parameters at its own fields.
    MOXDEV_HPS_NAND_STRUCTURE(const MOXDEV_HPS_NAND_STRUCTURE& other);
    MOXDEV_HPS_NAND_STRUCTURE& operator=(const MOXDEV_HPS_NAND_STRUCTURE& other);

#define MOXDEV_HPS_FIELD(name, type, ...) type name{};
#include "moxdev/moxdev_hps_nand_fields.def"
    // The fields above, in order, for packing and unpacking.
    void* param[PARAMS];
};

// One serial NOR flash part an HPS can boot from; its fields are listed in
// moxdev_hps_spi_fields.def.
struct MOXDEV_HPS_SPI_STRUCTURE {
#define MOXDEV_HPS_FIELD(name, type, ...) +1
    static constexpr DWORD PARAMS = 0
#include "moxdev/moxdev_hps_spi_fields.def"
        ;
    static const MOXDEV_PARAM_TYPE TYPES[PARAMS];

    // Zero numbers and empty texts.
    MOXDEV_HPS_SPI_STRUCTURE();
    // Every field, in order (the texts by value).
#define MOXDEV_HPS_FIELD(name, type, ...) type name,
#define MOXDEV_HPS_LAST_FIELD(name, type, ...) type name
    MOXDEV_HPS_SPI_STRUCTURE(
#include "moxdev/moxdev_hps_spi_fields.def"
    );
    // A copy points its parameters at its own fields.
    MOXDEV_HPS_SPI_STRUCTURE(const MOXDEV_HPS_SPI_STRUCTURE& other);
    MOXDEV_HPS_SPI_STRUCTURE& operator=(const MOXDEV_HPS_SPI_STRUCTURE& other);

#define MOXDEV_HPS_FIELD(name, type, ...) type name{};
#include "moxdev/moxdev_hps_spi_fields.def"
    // The fields above, in order, for packing and unpacking.
    void* param[PARAMS];
};

// Parameter names and the prompts a client shows when a user adds a part.
extern const char* const MOXDEV_HPS_NAND_PARAM_NAMES[MOXDEV_HPS_NAND_STRUCTURE::PARAMS];
extern const char* const MOXDEV_HPS_NAND_PROMPTS[MOXDEV_HPS_NAND_STRUCTURE::PARAMS];
extern const char* const MOXDEV_HPS_SPI_PARAM_NAMES[MOXDEV_HPS_SPI_STRUCTURE::PARAMS];
extern const char* const MOXDEV_HPS_SPI_PROMPTS[MOXDEV_HPS_SPI_STRUCTURE::PARAMS];

// Signatures that open the user data sets.
extern const char MOXDEV_HPS_NAND_SIGNATURE[33];
extern const char MOXDEV_HPS_SPI_SIGNATURE[33];

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

    // Appends the user's records of this kind from the parameter file; a
    // damaged record ends the reading, keeping those before it.
    void read_user_records();
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
