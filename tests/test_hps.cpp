// The HPS managers: the built-in descriptors and their selection, the
// built-in flash lists, and the user's records read from the parameter file.
#include "test_support.h"

#include <set>

using namespace moxdev_test;

namespace {

// A fresh module directory, and fresh singletons that read it.
class Hps : public ::testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset()
    {
        MOXDEV_HPS_MGR::delete_mgr();
        MOXDEV_HPS_NAND_MGR::delete_mgr();
        MOXDEV_HPS_SPI_MGR::delete_mgr();
    }

    // Stores `records` as the user NAND set behind `signature`.
    static void store_nand(const std::string& signature, const BYTES& records)
    {
        BYTES set(signature.begin(), signature.end());
        set.insert(set.end(), records.begin(), records.end());
        ASSERT_TRUE(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_NAND, set.data(), DWORD(set.size())));
    }

    static const std::vector<MOXDEV_HPS_NAND_STRUCTURE*>& user_nand()
    {
        MOXDEV_HPS_NAND_MGR::delete_mgr();
        return MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list();
    }

    TEMP_DIR dir;
    SCOPED_ENV module{"MOXDEV_MODULE_DIR", dir.path().c_str()};
};

BYTES nand_record(DWORD manufacturer, DWORD device, QWORD bytes)
{
    BYTES record;
    append_dword(record, manufacturer);
    append_dword(record, device);
    append_dword(record, DWORD(bytes));
    append_dword(record, DWORD(bytes >> 32));
    return record;
}

BYTES operator+(BYTES a, const BYTES& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

// The generated descriptors keep every word at its index: the key, the
// first and last block bases, and one name per word.
TEST(HpsDescriptors, KeysBlockBasesAndWordNamesSitAtTheirWords)
{
    static_assert(sizeof(MOXDEV_HPS_STRUCTURE) == 335 * 4, "clients read descriptors as words");
    const DWORD words[2][3] = {{0x4BA00477, 0xFF705000, 0xFFFF0000}, {0x4BA00478, 0xFF809000, 0xFFE00000}};
    for (int d = 0; d < 2; ++d) {
        const DWORD* word = MOXDEV_HPS_DESCRIPTORS[d].word;
        EXPECT_EQ(std::vector<DWORD>(
                      {word[MOXDEV_HPS_DAP_IDCODE], word[MOXDEV_HPS_QSPI_REGISTER_BASE], word[MOXDEV_HPS_OCRAM_BASE]}),
                  std::vector<DWORD>(words[d], words[d] + 3));
    }
    EXPECT_EQ(MOXDEV_HPS_DESCRIPTORS[1].word[30], 0xFFFFFFFFu) << "a block the device lacks";
    std::set<std::string> names;
    for (DWORD i = 0; i < MOXDEV_HPS_WORD_COUNT; ++i)
        EXPECT_TRUE(MOXDEV_HPS_WORD_NAMES[i] && names.insert(MOXDEV_HPS_WORD_NAMES[i]).second) << i;
    EXPECT_STREQ(MOXDEV_HPS_WORD_NAMES[MOXDEV_HPS_QSPI_REGISTER_BASE], "qspi_register_base");
}

TEST_F(Hps, SelectsADescriptorByIdcode)
{
    MOXDEV_HPS_MGR* mgr = MOXDEV_HPS_MGR::get_mgr();
    EXPECT_EQ(MOXDEV_HPS_MGR::get_mgr(), mgr);
    EXPECT_EQ(mgr->get_current_hps(), nullptr);
    ASSERT_TRUE(mgr->set_current_hps(0x4BA00478));
    EXPECT_EQ(mgr->get_current_hps(), &MOXDEV_HPS_DESCRIPTORS[1]);
    EXPECT_FALSE(mgr->set_current_hps(1));
    EXPECT_EQ(mgr->get_current_hps(), nullptr);
    ASSERT_TRUE(mgr->set_current_hps(0x4BA00477));
    EXPECT_EQ(mgr->get_current_hps(), &MOXDEV_HPS_DESCRIPTORS[0]);
    MOXDEV_HPS_MGR::delete_mgr();
    EXPECT_EQ(MOXDEV_HPS_MGR::get_mgr()->get_current_hps(), nullptr) << "a new manager selects nothing";
}

TEST_F(Hps, BuiltInListsWithoutAContainer)
{
    const auto& nand = MOXDEV_HPS_NAND_MGR::get_mgr()->get_list();
    ASSERT_EQ(nand.size(), 10u);
    EXPECT_TRUE(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().empty());
    EXPECT_EQ(nand[3]->flash_byte_size, 0x40000000u);
    EXPECT_EQ(nand[0]->param[2], &nand[0]->flash_byte_size) << "each record points at its own fields";
    const auto& spi = MOXDEV_HPS_SPI_MGR::get_mgr()->get_list();
    ASSERT_EQ(spi.size(), 27u);
    EXPECT_EQ(spi[26]->manufacturer, "GIGADEVICE");
    for (const MOXDEV_HPS_SPI_STRUCTURE* part : spi)
        EXPECT_EQ(part->param[4], &part->manufacturer);
    // Rows that differ from their neighbours in one field or two, as shipped:
    // number, ID, extended ID and mask, sector, page, dies, speed, erase and
    // program opcodes, bulk erase time.
    const std::tuple<std::size_t, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, bool, DWORD, DWORD, DWORD> rows[] = {
        {3, 0x20BA20, 68, 255, 0x10000, 256, 1, true, 0xD8, 0x02, 460},
        {4, 0x20BA20, 0, 0, 0x10000, 256, 2, false, 0xD8, 0x02, 480},
        {17, 0x182001, 0, 255, 0x40000, 256, 1, true, 0xD8, 0x02, 256},
        {18, 0x190201, 1, 255, 0x10000, 256, 1, true, 0xDC, 0x12, 330},
        {20, 0x200201, 0, 255, 0x40000, 512, 1, true, 0xDC, 0x12, 460},
        {24, 0x3A25C2, 0, 0, 0x10000, 256, 1, true, 0xDC, 0x12, 320},
    };
    for (const auto& [row, siid, ext, ext_mask, sector, page, dies, speed, erase, program, bulk] : rows) {
        const MOXDEV_HPS_SPI_STRUCTURE& part = *spi.at(row);
        EXPECT_EQ(std::tuple(part.siid, part.ext_siid, part.ext_mask, part.sector_byte_size, part.page_byte_size,
                             part.die_size, part.speed_mode, part.byte4_se_opcode, part.byte4_pp_opcode,
                             part.bulk_erase_time),
                  std::tuple(siid, ext, ext_mask, sector, page, dies, speed, erase, program, bulk))
            << "row " << row;
        EXPECT_EQ(part.mask, 0xFFFFFFu);
    }
}

// The part list is checked before a table is written: a part without a
// field, an unknown field or a value of the wrong kind names its line.
TEST(HpsParts, TheGeneratorRefusesAnIncompletePartList)
{
    const TEMP_DIR dir;
    const std::pair<const char*, const char*> cases[] = {
        {"nand\n  manufacturer_id 0x2C\n  device_id 0x68\n", ":1: error: nand part without flash_byte_size"},
        {"nand\n  colour blue\n", ":2: error: 'colour' is no field of a nand part"},
        {"spi\n  speed_mode maybe\n", ":2: error: 'maybe' is not a value for speed_mode (bool)"},
        {"nand\n  device_id 0x1FFFFFFFF\n", ":2: error: '0x1FFFFFFFF' is not a value for device_id (DWORD)"},
        {"  siid 0x17BA20\n", ":1: error: 'siid' before any 'nand', 'spi' or 'defaults' line"},
    };
    for (const auto& [text, message] : cases) {
        write_text(dir.file("parts.txt"), text);
        std::string output;
        EXPECT_EQ(run_command(std::string(MOXDEV_GEN_HPS_PARTS) + " '" + dir.file("parts.txt") + "' '" +
                                  dir.file("out.cpp") + "'",
                              output, true),
                  1);
        EXPECT_NE(output.find(message), std::string::npos) << output;
        EXPECT_FALSE(std::filesystem::exists(dir.file("out.cpp")));
    }
}

TEST_F(Hps, UserRecordsComeFirstAndAreReadWhenTheManagerIsMade)
{
    // Eight bytes too few for a third record.
    store_nand(MOXDEV_HPS_NAND_SIGNATURE,
               nand_record(0x98, 0xD3, 0x40000000) + nand_record(0xEC, 0xDA, 0x10000000) + BYTES(8, 0x77));
    const MOXDEV_HPS_NAND_MGR* mgr = MOXDEV_HPS_NAND_MGR::get_mgr();
    ASSERT_EQ(mgr->get_user_list().size(), 2u);
    ASSERT_EQ(mgr->get_list().size(), 12u);
    EXPECT_EQ(mgr->get_list()[0], mgr->get_user_list()[0]);
    EXPECT_EQ(mgr->get_list()[1]->manufacturer_id, 0xECu);
    EXPECT_EQ(mgr->get_list()[0]->flash_byte_size, 0x40000000u);
    EXPECT_EQ(mgr->get_list()[2]->manufacturer_id, 0x2Cu);

    store_nand(MOXDEV_HPS_NAND_SIGNATURE, nand_record(1, 2, 3));
    EXPECT_EQ(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().size(), 2u);
    EXPECT_EQ(user_nand().size(), 1u);

    // The QWORD of a last record cut after four of its bytes is unpacked from
    // the zero bytes the library keeps behind every set it reads, never from
    // outside that buffer.
    const BYTES cut = nand_record(0xEC, 0xDA, 0xFFFFFFFF12345678ull);
    store_nand(MOXDEV_HPS_NAND_SIGNATURE, nand_record(0x98, 0xD3, 1) + BYTES(cut.begin(), cut.end() - 4));
    ASSERT_EQ(user_nand().size(), 2u);
    EXPECT_EQ(user_nand()[1]->flash_byte_size, 0x12345678u);
}

TEST_F(Hps, ForeignOrDamagedSetsGiveNoUserRecords)
{
    std::string foreign = MOXDEV_HPS_NAND_SIGNATURE;
    foreign[31] = 'e';
    store_nand(foreign, nand_record(0x98, 0xD3, 1));
    EXPECT_TRUE(user_nand().empty());
    store_nand(MOXDEV_HPS_NAND_SIGNATURE, {});
    EXPECT_TRUE(user_nand().empty()) << "32 bytes are too few";

    // An SPI record whose string runs off the end of the data.
    BYTES spi(MOXDEV_HPS_SPI_SIGNATURE, MOXDEV_HPS_SPI_SIGNATURE + 32);
    spi = spi + BYTES(16, 0x11) + BYTES{'A', 'C', 'M', 'E'};
    ASSERT_TRUE(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, spi.data(), DWORD(spi.size())));
    EXPECT_TRUE(MOXDEV_HPS_SPI_MGR::get_mgr()->get_user_list().empty());
    EXPECT_EQ(MOXDEV_HPS_SPI_MGR::get_mgr()->get_list().size(), 27u);

    write_text(dir.file("mox_flash.ini"), "MOXDEV_FLASH_INI garbage that is no container");
    MOXDEV_HPS_SPI_MGR::delete_mgr();
    EXPECT_TRUE(MOXDEV_HPS_SPI_MGR::get_mgr()->get_user_list().empty());
}
