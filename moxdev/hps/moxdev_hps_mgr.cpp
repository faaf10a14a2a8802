#include "moxdev/moxdev_hps_mgr.h"

#include <cstring>
#include <memory>

// ---------------------------------------------------------------- records

const MOXDEV_PARAM_TYPE MOXDEV_HPS_NAND_STRUCTURE::TYPES[PARAMS] = {
    MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD, MOXDEV_PARAM_QWORD};

MOXDEV_HPS_NAND_STRUCTURE::MOXDEV_HPS_NAND_STRUCTURE(DWORD manufacturer_id_, DWORD device_id_,
                                                     QWORD flash_byte_size_)
    : manufacturer_id(manufacturer_id_), device_id(device_id_), flash_byte_size(flash_byte_size_),
      param{&manufacturer_id, &device_id, &flash_byte_size}
{
}

MOXDEV_HPS_NAND_STRUCTURE::MOXDEV_HPS_NAND_STRUCTURE(const MOXDEV_HPS_NAND_STRUCTURE& other)
    : MOXDEV_HPS_NAND_STRUCTURE(other.manufacturer_id, other.device_id, other.flash_byte_size)
{
}

MOXDEV_HPS_NAND_STRUCTURE& MOXDEV_HPS_NAND_STRUCTURE::operator=(const MOXDEV_HPS_NAND_STRUCTURE& other)
{
    // The pointer array keeps pointing at this record's own fields.
    manufacturer_id = other.manufacturer_id;
    device_id = other.device_id;
    flash_byte_size = other.flash_byte_size;
    return *this;
}

const MOXDEV_PARAM_TYPE MOXDEV_HPS_SPI_STRUCTURE::TYPES[PARAMS] = {
    MOXDEV_PARAM_DWORD,  MOXDEV_PARAM_DWORD,  MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD, MOXDEV_PARAM_STRING,
    MOXDEV_PARAM_STRING, MOXDEV_PARAM_QWORD,  MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD,
    MOXDEV_PARAM_DWORD,  MOXDEV_PARAM_DWORD,  MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD,
    MOXDEV_PARAM_BOOL,   MOXDEV_PARAM_DWORD,  MOXDEV_PARAM_DWORD, MOXDEV_PARAM_DWORD};

MOXDEV_HPS_SPI_STRUCTURE::MOXDEV_HPS_SPI_STRUCTURE()
    : MOXDEV_HPS_SPI_STRUCTURE(0, 0, 0, 0, "", "", 0, 0, 0, 0, 0, 0, 0, 0, 0, false, 0, 0, 0)
{
}

MOXDEV_HPS_SPI_STRUCTURE::MOXDEV_HPS_SPI_STRUCTURE(
    DWORD siid_, DWORD mask_, DWORD ext_siid_, DWORD ext_mask_, std::string manufacturer_, std::string name_,
    QWORD flash_bit_size_, DWORD sector_byte_size_, DWORD page_byte_size_, DWORD bulk_erase_time_,
    DWORD bulk_erase_interval_wait_time_, DWORD sector_erase_time_, DWORD page_program_time_,
    DWORD program_time_, DWORD die_size_, bool speed_mode_, DWORD byte4_se_opcode_, DWORD byte4_pp_opcode_,
    DWORD byte4_read_opcode_)
    : siid(siid_), mask(mask_), ext_siid(ext_siid_), ext_mask(ext_mask_),
      manufacturer(std::move(manufacturer_)), name(std::move(name_)), flash_bit_size(flash_bit_size_),
      sector_byte_size(sector_byte_size_), page_byte_size(page_byte_size_), bulk_erase_time(bulk_erase_time_),
      bulk_erase_interval_wait_time(bulk_erase_interval_wait_time_), sector_erase_time(sector_erase_time_),
      page_program_time(page_program_time_), program_time(program_time_), die_size(die_size_),
      speed_mode(speed_mode_), byte4_se_opcode(byte4_se_opcode_), byte4_pp_opcode(byte4_pp_opcode_),
      byte4_read_opcode(byte4_read_opcode_)
{
    bind();
}

MOXDEV_HPS_SPI_STRUCTURE::MOXDEV_HPS_SPI_STRUCTURE(const MOXDEV_HPS_SPI_STRUCTURE& other)
    : MOXDEV_HPS_SPI_STRUCTURE(other.siid, other.mask, other.ext_siid, other.ext_mask, other.manufacturer,
                               other.name, other.flash_bit_size, other.sector_byte_size,
                               other.page_byte_size, other.bulk_erase_time,
                               other.bulk_erase_interval_wait_time, other.sector_erase_time,
                               other.page_program_time, other.program_time, other.die_size,
                               other.speed_mode, other.byte4_se_opcode, other.byte4_pp_opcode,
                               other.byte4_read_opcode)
{
}

MOXDEV_HPS_SPI_STRUCTURE& MOXDEV_HPS_SPI_STRUCTURE::operator=(const MOXDEV_HPS_SPI_STRUCTURE& other)
{
    if (this != &other) {
        MOXDEV_HPS_SPI_STRUCTURE copy(other);
        siid = copy.siid;
        mask = copy.mask;
        ext_siid = copy.ext_siid;
        ext_mask = copy.ext_mask;
        manufacturer = std::move(copy.manufacturer);
        name = std::move(copy.name);
        flash_bit_size = copy.flash_bit_size;
        sector_byte_size = copy.sector_byte_size;
        page_byte_size = copy.page_byte_size;
        bulk_erase_time = copy.bulk_erase_time;
        bulk_erase_interval_wait_time = copy.bulk_erase_interval_wait_time;
        sector_erase_time = copy.sector_erase_time;
        page_program_time = copy.page_program_time;
        program_time = copy.program_time;
        die_size = copy.die_size;
        speed_mode = copy.speed_mode;
        byte4_se_opcode = copy.byte4_se_opcode;
        byte4_pp_opcode = copy.byte4_pp_opcode;
        byte4_read_opcode = copy.byte4_read_opcode;
    }
    return *this;
}

void MOXDEV_HPS_SPI_STRUCTURE::bind()
{
    void* const fields[PARAMS] = {&siid, &mask, &ext_siid, &ext_mask, &manufacturer, &name,
                                  &flash_bit_size, &sector_byte_size, &page_byte_size, &bulk_erase_time,
                                  &bulk_erase_interval_wait_time, &sector_erase_time, &page_program_time,
                                  &program_time, &die_size, &speed_mode, &byte4_se_opcode,
                                  &byte4_pp_opcode, &byte4_read_opcode};
    std::memcpy(param, fields, sizeof param);
}

// ---------------------------------------------------------------- names

const char* const MOXDEV_HPS_NAND_PARAM_NAMES[MOXDEV_HPS_NAND_STRUCTURE::PARAMS] = {
    "manufacturer_id", "device_id", "flash_byte_size"};
const char* const MOXDEV_HPS_NAND_PROMPTS[MOXDEV_HPS_NAND_STRUCTURE::PARAMS] = {
    "Manufacturer ID (hex) [Cannot be all 0's or all 1's]",
    "Device ID (hex) [Cannot be all 0's or all 1's]",
    "Memory Density [1 - 64k MByte]"};

const char* const MOXDEV_HPS_SPI_PARAM_NAMES[MOXDEV_HPS_SPI_STRUCTURE::PARAMS] = {
    "siid", "mask", "ext_siid", "ext_mask", "manufacturer", "name", "flash_bit_size",
    "sector_byte_size", "page_byte_size", "bulk_erase_time", "bulk_erase_interval_wait_time",
    "sector_erase_time", "page_program_time", "program_time", "die_size", "speed_mode",
    "byte4_se_opcode", "byte4_pp_opcode", "byte4_read_opcode"};
const char* const MOXDEV_HPS_SPI_PROMPTS[MOXDEV_HPS_SPI_STRUCTURE::PARAMS] = {
    "Silicon ID (hex) [Cannot be all 0's or all 1's]",
    "Silicon ID Mask (hex) [FFFFFF/FFFFFFFF]",
    "Extensive Silicon ID (hex)",
    "Extensive Silicon Mask (hex) [0/FF]",
    "Manufacturer",
    "Device name",
    "Memory Density [1 - 2048 Mbit]",
    "Sector Size [1 - 1024 Kbyte]",
    "Page BYTE size",
    "Bulk Erase time [1 - 900 seconds]",
    "Bulk erase time interval time [2 - 10 seconds]",
    "Sector Erase Time [1 - 60 seconds]",
    "Page Program Time [1000 - 1000000 microseconds]",
    "Program time polling time [1 - 5 seconds]",
    "Die size [1/2/4]",
    "Speed Mode [Y/N]",
    "Byte4 SE Opcode (hex) [1 - FE]",
    "Byte4 PP Opcode (hex) [1 - FE]",
    "Byte4 Read Opcode (hex) [1 - FE]"};

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
std::vector<RECORD> moxdev_hps_unpack_user_set(const std::vector<BYTE>& set, const char* signature, bool* foreign)
{
    constexpr DWORD SIGNATURE_SIZE = 32;
    std::vector<RECORD> records;
    const bool signed_set = set.size() > SIGNATURE_SIZE && std::memcmp(set.data(), signature, SIGNATURE_SIZE) == 0;
    if (foreign != nullptr)
        *foreign = !set.empty() && !signed_set;
    if (!signed_set)
        return records;
    // A QWORD is taken once four of its bytes are there: zeros behind the
    // set keep the other four inside this copy.
    std::vector<BYTE> data(set);
    data.resize(set.size() + 8, 0);
    const DWORD size = DWORD(set.size());
    DWORD index = SIGNATURE_SIZE;
    while (index < size) {
        RECORD scratch;
        if (!MOXDEV_FLASH_INI::assign_flash_ini_data(data.data(), index, size, RECORD::PARAMS, RECORD::TYPES,
                                                     scratch.param))
            break;
        records.push_back(scratch);
    }
    return records;
}

template <class RECORD>
std::vector<BYTE> moxdev_hps_pack_user_set(const std::vector<RECORD>& records, const char* signature)
{
    if (records.empty())
        return {};
    DWORD size = 32;
    for (const RECORD& record : records)
        for (DWORD p = 0; p < RECORD::PARAMS; ++p)
            MOXDEV_FLASH_INI::calculate_flash_ini_data_size(size, RECORD::TYPES[p], record.param[p]);
    std::vector<BYTE> data(size, 0);
    std::memcpy(data.data(), signature, 32);
    DWORD index = 32;
    for (const RECORD& record : records)
        for (DWORD p = 0; p < RECORD::PARAMS; ++p)
            MOXDEV_FLASH_INI::fillup_flash_ini_data(data.data(), index, RECORD::TYPES[p], record.param[p]);
    return data;
}

template std::vector<MOXDEV_HPS_NAND_STRUCTURE>
moxdev_hps_unpack_user_set(const std::vector<BYTE>&, const char*, bool*);
template std::vector<MOXDEV_HPS_SPI_STRUCTURE> moxdev_hps_unpack_user_set(const std::vector<BYTE>&, const char*,
                                                                          bool*);
template std::vector<BYTE> moxdev_hps_pack_user_set(const std::vector<MOXDEV_HPS_NAND_STRUCTURE>&, const char*);
template std::vector<BYTE> moxdev_hps_pack_user_set(const std::vector<MOXDEV_HPS_SPI_STRUCTURE>&, const char*);

template <class RECORD>
void MOXDEV_HPS_FLASH_LIST<RECORD>::read_user_records(MOXDEV_FLASH_INI_ENUM set, const char* signature)
{
    DWORD size = 0;
    const std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(set, size));
    if (!data)
        return;
    const std::vector<RECORD> records =
        moxdev_hps_unpack_user_set<RECORD>(std::vector<BYTE>(data.get(), data.get() + size), signature);
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
    read_user_records(MOXDEV_FLASH_INI_HPS_NAND, MOXDEV_HPS_NAND_SIGNATURE);
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
    read_user_records(MOXDEV_FLASH_INI_HPS_SPI, MOXDEV_HPS_SPI_SIGNATURE);
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
