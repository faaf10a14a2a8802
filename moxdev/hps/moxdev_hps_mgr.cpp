#include "moxdev/moxdev_hps_mgr.h"

#include "moxdev/hps.h"
#include "moxdev/hps/moxdev_hps_fields.h"

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

namespace {

// ---------------------------------------------------------------- built-in parts
//
// NAND: manufacturer, device, bytes. The 0xF1 part of Micron-code 0x2C is
// eight times the size of the code-0x01 0xF1 part; both are as shipped.
const MOXDEV_HPS_NAND_STRUCTURE NAND_PARTS[] = {
    {0x2C, 0x68, 0x100000000ull},
    {0x2C, 0x48, 0x80000000ull},
    {0x2C, 0xA1, 0x40000000ull},
    {0x2C, 0xF1, 0x40000000ull},
    {0x01, 0xF1, 0x8000000ull},
    {0x01, 0xDA, 0x10000000ull},
    {0x01, 0xDC, 0x20000000ull},
    {0x01, 0xC1, 0x8000000ull},
    {0x01, 0xCA, 0x10000000ull},
    {0x01, 0xCC, 0x20000000ull},
};

// SPI NOR: where one ID has two rows (4/5, 10/11, 12/13, 17/18, 19/20), the
// extended ID tells them apart and both are kept in this order.
//   siid      mask      ext ext_mask maker        class        bits         sector   page
//   bulk int sector program poll dies speed  SE    PP    read
const MOXDEV_HPS_SPI_STRUCTURE SPI_PARTS[] = {
    {0x17BA20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_64", 0x4000000, 0x10000, 256,
     120, 2, 3, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x18BA20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_128", 0x8000000, 0x10000, 256,
     250, 2, 3, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x19BA20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_256", 0x10000000, 0x10000, 256,
     480, 3, 3, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x20BA20, 0xFFFFFF, 68, 255, "MICRON", "QSPI_512", 0x20000000, 0x10000, 256,
     460, 3, 1, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x20BA20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_512", 0x20000000, 0x10000, 256,
     480, 3, 3, 1000, 1, 2, false, 0xD8, 0x02, 0x03},
    {0x21BA20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_1024", 0x40000000, 0x10000, 256,
     480, 3, 3, 1000, 1, 4, false, 0xD8, 0x02, 0x03},
    {0x22BA20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_2048", 0x80000000, 0x10000, 256,
     460, 3, 1, 1000, 1, 4, true, 0xD8, 0x02, 0x03},
    {0x18BB20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_128", 0x8000000, 0x10000, 256,
     250, 2, 3, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x19BB20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_256", 0x10000000, 0x10000, 256,
     480, 3, 3, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x20BB20, 0xFFFFFF, 68, 255, "MICRON", "QSPI_512", 0x20000000, 0x10000, 256,
     460, 3, 1, 1000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x20BB20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_512", 0x20000000, 0x10000, 256,
     480, 3, 3, 1000, 1, 2, false, 0xD8, 0x02, 0x03},
    {0x21BB20, 0xFFFFFF, 68, 255, "MICRON", "QSPI_1024", 0x40000000, 0x10000, 256,
     460, 3, 1, 1000, 1, 2, true, 0xD8, 0x02, 0x03},
    {0x21BB20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_1024", 0x40000000, 0x10000, 256,
     480, 3, 3, 1000, 1, 4, false, 0xD8, 0x02, 0x03},
    {0x22BB20, 0xFFFFFF, 0, 0, "MICRON", "QSPI_2048", 0x80000000, 0x10000, 256,
     460, 3, 1, 1000, 1, 4, true, 0xD8, 0x02, 0x03},
    {0x132020, 0xFFFFFF, 0, 0, "MICRON", "SPI_4", 0x400000, 0x10000, 256,
     10, 2, 3, 3000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x152020, 0xFFFFFF, 0, 0, "MICRON", "SPI_16", 0x1000000, 0x10000, 256,
     40, 2, 3, 3000, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x182001, 0xFFFFFF, 1, 255, "SPANSION", "QSPI_128", 0x8000000, 0x10000, 256,
     256, 2, 11, 2200, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x182001, 0xFFFFFF, 0, 255, "SPANSION", "QSPI_128", 0x8000000, 0x40000, 256,
     256, 2, 11, 2200, 1, 1, true, 0xD8, 0x02, 0x03},
    {0x190201, 0xFFFFFF, 1, 255, "SPANSION", "QSPI_256", 0x10000000, 0x10000, 256,
     330, 3, 11, 2200, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x190201, 0xFFFFFF, 0, 255, "SPANSION", "QSPI_256", 0x10000000, 0x40000, 256,
     330, 3, 11, 2200, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x200201, 0xFFFFFF, 0, 255, "SPANSION", "QSPI_512", 0x20000000, 0x40000, 512,
     460, 3, 3, 2200, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x1820C2, 0xFFFFFF, 0, 0, "MACRONIX", "QSPI_128", 0x8000000, 0x10000, 256,
     80, 3, 1, 1500, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x1920C2, 0xFFFFFF, 0, 0, "MACRONIX", "QSPI_256", 0x10000000, 0x10000, 256,
     300, 3, 2, 3000, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x1A20C2, 0xFFFFFF, 0, 0, "MACRONIX", "QSPI_512", 0x20000000, 0x10000, 256,
     300, 3, 3, 1500, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x3A25C2, 0xFFFFFF, 0, 0, "MACRONIX", "QSPI_512", 0x20000000, 0x10000, 256,
     320, 3, 3, 3000, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x1B20C2, 0xFFFFFF, 0, 0, "MACRONIX", "QSPI_1024", 0x40000000, 0x10000, 256,
     600, 3, 2, 1000, 1, 1, true, 0xDC, 0x12, 0x13},
    {0x1840C8, 0xFFFFFF, 0, 0, "GIGADEVICE", "QSPI_128", 0x8000000, 0x10000, 256,
     300, 3, 3, 3000, 1, 1, true, 0xDC, 0x12, 0x13},
};

} // namespace

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
    append_built_in(NAND_PARTS, sizeof NAND_PARTS / sizeof NAND_PARTS[0]);
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
    append_built_in(SPI_PARTS, sizeof SPI_PARTS / sizeof SPI_PARTS[0]);
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
