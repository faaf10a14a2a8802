// The HPS managers: descriptor selection, the built-in flash lists, and the
// user's records read from the parameter container.
#include "test_support.h"

#include <cstring>

using namespace moxdev_test;

namespace {

// A fresh module directory, and fresh singletons that read it.
class HPS : public ::testing::Test {
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
    void store_nand(const std::string& signature, const BYTES& records)
    {
        BYTES set(signature.begin(), signature.end());
        set.insert(set.end(), records.begin(), records.end());
        ASSERT_TRUE(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_NAND, set.data(), DWORD(set.size())));
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

} // namespace

TEST_F(HPS, SelectsADescriptorByIdcode)
{
    static_assert(sizeof(MOXDEV_HPS_STRUCTURE) == 335 * 4);
    MOXDEV_HPS_MGR* mgr = MOXDEV_HPS_MGR::get_mgr();
    EXPECT_EQ(MOXDEV_HPS_MGR::get_mgr(), mgr);
    EXPECT_EQ(mgr->get_current_hps(), nullptr);
    ASSERT_TRUE(mgr->set_current_hps(0x4BA00478));
    ASSERT_NE(mgr->get_current_hps(), nullptr);
    EXPECT_EQ(mgr->get_current_hps()->word[0], 0x4BA00478u);
    EXPECT_EQ(mgr->get_current_hps()->word[28], 0xFF809000u);
    EXPECT_FALSE(mgr->set_current_hps(1));
    EXPECT_EQ(mgr->get_current_hps(), nullptr);
    ASSERT_TRUE(mgr->set_current_hps(0x4BA00477));
    EXPECT_EQ(mgr->get_current_hps()->word[39], 0xFFFF0000u);
    MOXDEV_HPS_MGR::delete_mgr();
    EXPECT_EQ(MOXDEV_HPS_MGR::get_mgr()->get_current_hps(), nullptr) << "a new manager selects nothing";
}

TEST_F(HPS, BuiltInListsWithoutAContainer)
{
    const auto& nand = MOXDEV_HPS_NAND_MGR::get_mgr()->get_list();
    ASSERT_EQ(nand.size(), 10u);
    EXPECT_TRUE(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().empty());
    EXPECT_EQ(nand[3]->flash_byte_size, 0x40000000u);
    EXPECT_EQ(nand[4]->flash_byte_size, 0x8000000u);
    EXPECT_EQ(nand[0]->param[2], &nand[0]->flash_byte_size) << "each record points at its own fields";

    const auto& spi = MOXDEV_HPS_SPI_MGR::get_mgr()->get_list();
    ASSERT_EQ(spi.size(), 27u);
    EXPECT_EQ(spi[3]->siid, spi[4]->siid);
    EXPECT_EQ(spi[3]->ext_siid, 68u);
    EXPECT_EQ(spi[4]->die_size, 2u);
    EXPECT_EQ(spi[26]->manufacturer, "GIGADEVICE");
    EXPECT_EQ(spi[20]->page_byte_size, 512u);
    for (const MOXDEV_HPS_SPI_STRUCTURE* part : spi) {
        EXPECT_EQ(part->mask, 0xFFFFFFu);
        EXPECT_EQ(part->program_time, 1u);
        EXPECT_EQ(part->param[4], &part->manufacturer);
    }
}

TEST_F(HPS, UserRecordsComeFirst)
{
    BYTES records = nand_record(0x98, 0xD3, 0x40000000);
    const BYTES second = nand_record(0xEC, 0xDA, 0x10000000);
    records.insert(records.end(), second.begin(), second.end());
    records.insert(records.end(), 8, 0x77); // too short for a third record
    store_nand(MOXDEV_HPS_NAND_SIGNATURE, records);

    const MOXDEV_HPS_NAND_MGR* mgr = MOXDEV_HPS_NAND_MGR::get_mgr();
    ASSERT_EQ(mgr->get_user_list().size(), 2u);
    ASSERT_EQ(mgr->get_list().size(), 12u);
    EXPECT_EQ(mgr->get_list()[0], mgr->get_user_list()[0]);
    EXPECT_EQ(mgr->get_list()[1]->manufacturer_id, 0xECu);
    EXPECT_EQ(mgr->get_list()[0]->flash_byte_size, 0x40000000u);
    EXPECT_EQ(mgr->get_list()[2]->manufacturer_id, 0x2Cu);

    // The file is read when the manager is made, not later.
    store_nand(MOXDEV_HPS_NAND_SIGNATURE, nand_record(1, 2, 3));
    EXPECT_EQ(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().size(), 2u);
    MOXDEV_HPS_NAND_MGR::delete_mgr();
    EXPECT_EQ(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().size(), 1u);
}

TEST_F(HPS, ASetEndingInsideAQwordReadsZerosBehindIt)
{
    // The QWORD of the last record is unpacked once four of its bytes are
    // there; its other four come from the zero bytes the library keeps behind
    // every set it reads, never from outside that buffer.
    BYTES records = nand_record(0x98, 0xD3, 0x40000000);
    const BYTES cut = nand_record(0xEC, 0xDA, 0xFFFFFFFF12345678ull);
    records.insert(records.end(), cut.begin(), cut.end() - 4);
    store_nand(MOXDEV_HPS_NAND_SIGNATURE, records);
    const auto& users = MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list();
    ASSERT_EQ(users.size(), 2u);
    EXPECT_EQ(users[1]->flash_byte_size, 0x12345678u);
}

TEST_F(HPS, ForeignOrDamagedSetsGiveNoUserRecords)
{
    std::string foreign = MOXDEV_HPS_NAND_SIGNATURE;
    foreign[31] = 'e';
    store_nand(foreign, nand_record(0x98, 0xD3, 1));
    EXPECT_TRUE(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().empty());
    MOXDEV_HPS_NAND_MGR::delete_mgr();

    store_nand(MOXDEV_HPS_NAND_SIGNATURE, {});
    EXPECT_TRUE(MOXDEV_HPS_NAND_MGR::get_mgr()->get_user_list().empty()) << "32 bytes are too few";

    // An SPI record whose string runs off the end of the data.
    BYTES spi(MOXDEV_HPS_SPI_SIGNATURE, MOXDEV_HPS_SPI_SIGNATURE + 32);
    for (int i = 0; i < 16; ++i)
        spi.push_back(0x11);
    spi.insert(spi.end(), {'A', 'C', 'M', 'E'});
    ASSERT_TRUE(MOXDEV_FLASH_INI::write_flash_ini_data(MOXDEV_FLASH_INI_HPS_SPI, spi.data(), DWORD(spi.size())));
    EXPECT_TRUE(MOXDEV_HPS_SPI_MGR::get_mgr()->get_user_list().empty());
    EXPECT_EQ(MOXDEV_HPS_SPI_MGR::get_mgr()->get_list().size(), 27u);

    write_text(dir.file("mox_flash.ini"), "MOXDEV_FLASH_INI garbage that is no container");
    MOXDEV_HPS_SPI_MGR::delete_mgr();
    EXPECT_TRUE(MOXDEV_HPS_SPI_MGR::get_mgr()->get_user_list().empty());
}
