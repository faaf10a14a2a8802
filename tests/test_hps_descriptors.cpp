// The two built-in HPS descriptors: their layout, keys, block bases and the
// names of their words.
#include "moxdev/moxdev_hps_mgr.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <type_traits>

TEST(HpsDescriptors, AreExactlyTheirWords) {
    static_assert(std::is_standard_layout<MOXDEV_HPS_STRUCTURE>::value, "clients read descriptors as words");
    EXPECT_EQ(sizeof(MOXDEV_HPS_STRUCTURE), 335u * 4u);
    EXPECT_EQ(offsetof(MOXDEV_HPS_STRUCTURE, word), 0u);
    EXPECT_EQ(MOXDEV_HPS_WORD_COUNT, 335u);
}

TEST(HpsDescriptors, KeysAndBlockBasesSitAtTheirFixedWords) {
    const DWORD absent = 0xFFFFFFFF;
    const DWORD keys[2] = {0x4BA00477, 0x4BA00478};
    const DWORD bases[2][12] = {
        {0xFF705000, 0xFF706000, 0xFF800000, 0xFF900000, 0xFFA00000, 0xFFB80000, 0xFFB90000, 0xFFC02000,
         0xFFD05000, 0xFFD08000, 0xFFF02000, 0xFFFF0000},
        {0xFF809000, 0xFFD03000, absent, 0xFFB90000, 0xFFA00000, 0xFFB80000, 0xFFCFE400, 0xFFC02000,
         0xFFD05000, 0xFFD06000, absent, 0xFFE00000}};
    for (int d = 0; d < 2; ++d) {
        EXPECT_EQ(MOXDEV_HPS_DESCRIPTORS[d].word[MOXDEV_HPS_DAP_IDCODE], keys[d]) << "descriptor " << d;
        for (int i = 0; i < 12; ++i)
            EXPECT_EQ(MOXDEV_HPS_DESCRIPTORS[d].word[28 + i], bases[d][i]) << "descriptor " << d << " word " << 28 + i;
    }
    // The table's names for the first and last of those words.
    EXPECT_EQ(MOXDEV_HPS_DAP_IDCODE, 0u);
    EXPECT_EQ(MOXDEV_HPS_QSPI_REGISTER_BASE, 28u);
    EXPECT_EQ(MOXDEV_HPS_OCRAM_BASE, 39u);
}

TEST(HpsDescriptors, WordNamesAreUniqueAndFollowTheEnumeration) {
    std::set<std::string> names;
    for (DWORD i = 0; i < MOXDEV_HPS_WORD_COUNT; ++i) {
        ASSERT_NE(MOXDEV_HPS_WORD_NAMES[i], nullptr) << "word " << i;
        EXPECT_TRUE(names.insert(MOXDEV_HPS_WORD_NAMES[i]).second) << MOXDEV_HPS_WORD_NAMES[i];
    }
    EXPECT_STREQ(MOXDEV_HPS_WORD_NAMES[MOXDEV_HPS_QSPI_REGISTER_BASE], "qspi_register_base");
}
