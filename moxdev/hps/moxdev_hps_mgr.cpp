#include "moxdev/moxdev_hps_mgr.h"

#include "moxdev/hps.h"
#include "moxdev/hps/moxdev_hps_fields.h"
#include "moxdev/hps/moxdev_hps_parts.h"

#include <cstring>
#include <memory>

// ---------------------------------------------------------------- records

#define MOXDEV_HPS_RECORD MOXDEV_HPS_NAND_STRUCTURE
#define MOXDEV_HPS_FIELDS "moxdev/moxdev_hps_nand_fields.def"
#define MOXDEV_HPS_NAMES MOXDEV_HPS_NAND_PARAM_NAMES
#define MOXDEV_HPS_PROMPTS MOXDEV_HPS_NAND_PROMPTS
#include "moxdev/hps/moxdev_hps_record.inc"

#define MOXDEV_HPS_RECORD MOXDEV_HPS_SPI_STRUCTURE
#define MOXDEV_HPS_FIELDS "moxdev/moxdev_hps_spi_fields.def"
#define MOXDEV_HPS_NAMES MOXDEV_HPS_SPI_PARAM_NAMES
#define MOXDEV_HPS_PROMPTS MOXDEV_HPS_SPI_PROMPTS
#include "moxdev/hps/moxdev_hps_record.inc"

const char MOXDEV_HPS_NAND_SIGNATURE[33] = "0123456789abcdef0123456789abcdef";
const char MOXDEV_HPS_SPI_SIGNATURE[33] = "fedcba9876543210fedcba9876543210";

// ---------------------------------------------------------------- lists

template <class RECORD>
MOXDEV_HPS_FLASH_LIST<RECORD>::~MOXDEV_HPS_FLASH_LIST()
{
    for (RECORD* record : m_list)
        delete record;
}

template <class RECORD>
void MOXDEV_HPS_FLASH_LIST<RECORD>::read_user_records()
{
    DWORD size = 0;
    const std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(moxdev::HPS_KIND<RECORD>::set, size));
    if (!data)
        return;
    const std::vector<RECORD> records =
        moxdev::unpack_hps_user_set<RECORD>(std::vector<BYTE>(data.get(), data.get() + size));
    m_list.reserve(m_list.size() + records.size());
    m_user_list.reserve(m_user_list.size() + records.size());
    for (const RECORD& record : records) {
        m_list.push_back(new RECORD(record));
        m_user_list.push_back(m_list.back());
    }
}

template <class RECORD>
void MOXDEV_HPS_FLASH_LIST<RECORD>::append_built_in(const RECORD* rows, std::size_t count)
{
    m_list.reserve(m_list.size() + count);
    for (std::size_t i = 0; i < count; ++i)
        m_list.push_back(new RECORD(rows[i]));
}

template class MOXDEV_HPS_FLASH_LIST<MOXDEV_HPS_NAND_STRUCTURE>;
template class MOXDEV_HPS_FLASH_LIST<MOXDEV_HPS_SPI_STRUCTURE>;

// ---------------------------------------------------------------- singletons

MOXDEV_HPS_MGR* MOXDEV_HPS_MGR::m_mgr = nullptr;
MOXDEV_HPS_NAND_MGR* MOXDEV_HPS_NAND_MGR::m_mgr = nullptr;
MOXDEV_HPS_SPI_MGR* MOXDEV_HPS_SPI_MGR::m_mgr = nullptr;

MOXDEV_HPS_MGR* MOXDEV_HPS_MGR::get_mgr()
{
    if (m_mgr == nullptr)
        m_mgr = new MOXDEV_HPS_MGR();
    return m_mgr;
}

void MOXDEV_HPS_MGR::delete_mgr()
{
    delete m_mgr;
    m_mgr = nullptr;
}

bool MOXDEV_HPS_MGR::set_current_hps(DWORD id)
{
    m_current = INVALID_DWORD;
    for (DWORD i = 0; i < 2; ++i) {
        if (MOXDEV_HPS_DESCRIPTORS[i].word[0] == id) {
            m_current = i;
            return true;
        }
    }
    return false;
}

const MOXDEV_HPS_STRUCTURE* MOXDEV_HPS_MGR::get_current_hps() const
{
    return m_current < 2 ? &MOXDEV_HPS_DESCRIPTORS[m_current] : nullptr;
}

MOXDEV_HPS_NAND_MGR::MOXDEV_HPS_NAND_MGR()
{
    initialize_ini_file();
    append_built_in(MOXDEV_HPS_NAND_PARTS, MOXDEV_HPS_NAND_PARTS_COUNT);
}

void MOXDEV_HPS_NAND_MGR::initialize_ini_file()
{
    read_user_records();
}

MOXDEV_HPS_NAND_MGR* MOXDEV_HPS_NAND_MGR::get_mgr()
{
    if (m_mgr == nullptr)
        m_mgr = new MOXDEV_HPS_NAND_MGR();
    return m_mgr;
}

void MOXDEV_HPS_NAND_MGR::delete_mgr()
{
    delete m_mgr;
    m_mgr = nullptr;
}

MOXDEV_HPS_SPI_MGR::MOXDEV_HPS_SPI_MGR()
{
    initialize_ini_file();
    append_built_in(MOXDEV_HPS_SPI_PARTS, MOXDEV_HPS_SPI_PARTS_COUNT);
}

void MOXDEV_HPS_SPI_MGR::initialize_ini_file()
{
    read_user_records();
}

MOXDEV_HPS_SPI_MGR* MOXDEV_HPS_SPI_MGR::get_mgr()
{
    if (m_mgr == nullptr)
        m_mgr = new MOXDEV_HPS_SPI_MGR();
    return m_mgr;
}

void MOXDEV_HPS_SPI_MGR::delete_mgr()
{
    delete m_mgr;
    m_mgr = nullptr;
}
