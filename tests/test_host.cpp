// The stand-alone host services: configuration, paths, strings, numbers,
// compression and the internal-error reporter.
#include "test_support.h"

#include <zlib.h>

using namespace moxdev_test;

TEST(HostConfig, SwitchesReadTheEnvironmentAtEveryCall)
{
    for (const char* on : {"1", "on", "TRUE", "Yes", "y"}) {
        SCOPED_ENV env("MOX_ALLOW_TEST_SWITCH", on);
        EXPECT_TRUE(cfg_is_on("MOX_ALLOW_TEST_SWITCH", false)) << on;
    }
    for (const char* off : {"0", "OFF", "false", "no", "N"}) {
        SCOPED_ENV env("MOX_ALLOW_TEST_SWITCH", off);
        EXPECT_FALSE(cfg_is_on("MOX_ALLOW_TEST_SWITCH", true)) << off;
    }
    for (const char* other : {"", "2", "enabled"}) {
        SCOPED_ENV env("MOX_ALLOW_TEST_SWITCH", other);
        EXPECT_TRUE(cfg_is_on("MOX_ALLOW_TEST_SWITCH", true)) << other;
        EXPECT_FALSE(cfg_is_on("MOX_ALLOW_TEST_SWITCH", false)) << other;
    }
    SCOPED_ENV unset("MOX_ALLOW_TEST_SWITCH", nullptr);
    EXPECT_TRUE(cfg_is_on("MOX_ALLOW_TEST_SWITCH", true));
    EXPECT_EQ(cfg_get_value("MOX_ALLOW_TEST_SWITCH"), "");
}

TEST(HostPaths, EnvironmentOverridesAndBuiltInDefaults)
{
    {
        SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", "/opt/db");
        SCOPED_ENV install("MOXDEV_INSTALL_DIR", "/opt/install");
        SCOPED_ENV module("MOXDEV_MODULE_DIR", "/opt/module");
        EXPECT_EQ(gen_get_device_db_fullpath(), "/opt/db");
        EXPECT_EQ(gen_get_install_fullpath(), "/opt/install");
        EXPECT_EQ(gen_get_module_fullpath(), "/opt/module");
    }
    SCOPED_ENV db("MOXDEV_DEVICE_DB_DIR", nullptr);
    SCOPED_ENV install("MOXDEV_INSTALL_DIR", nullptr);
    // With nothing set, the build tree's own data is found.
    EXPECT_TRUE(FIO_FILE_SYSTEM::exists(
        (gen_get_device_db_fullpath() + "/programmer/mox_dev_info.pcf").c_str()));
    EXPECT_TRUE(FIO_FILE_SYSTEM::exists((gen_get_install_fullpath() + "/h/mox_parts.txt").c_str()));
}

TEST(HostVersion, IndexNumberPacksServicePackAndBuild)
{
    const DWORD index = ver_get_current_version_index_number();
    EXPECT_EQ(index >> 24, 0u);
    EXPECT_FALSE(ver_get_version().empty());
}

TEST(HostStrings, ConvertStringToDword)
{
    DWORD value = 7;
    EXPECT_TRUE(MOX_COMMON::convert_string_to_dword("1234", value));
    EXPECT_EQ(value, 1234u);
    EXPECT_TRUE(MOX_COMMON::convert_string_to_dword("0x1fF", value));
    EXPECT_EQ(value, 0x1FFu);
    EXPECT_TRUE(MOX_COMMON::convert_string_to_dword("0XFFFFFFFF", value));
    EXPECT_EQ(value, 0xFFFFFFFFu);
    value = 7;
    for (const char* bad : {"", "0x", "12a", "-1", " 1", "4294967296", "0x100000000", "1.5"}) {
        EXPECT_FALSE(MOX_COMMON::convert_string_to_dword(bad, value)) << bad;
        EXPECT_EQ(value, 7u) << bad;
    }
}

TEST(HostStrings, TokenizerDropsEmptyTokens)
{
    const STRING_TOKENIZER tokens("a, b,,c\t\td ,", " \t\n,");
    ASSERT_EQ(tokens.size(), 4u);
    EXPECT_EQ(tokens.at(0), "a");
    EXPECT_EQ(tokens.at(3), "d");
    EXPECT_THROW(tokens.at(4), std::out_of_range);
    EXPECT_EQ(STRING_TOKENIZER(" ,, ", " ,").size(), 0u);
}

TEST(HostStrings, TrimCaseAndCompare)
{
    std::string text = " \t\r\nKx100 \n";
    gen_remove_leading_and_trailing_white_spaces(text);
    EXPECT_EQ(text, "Kx100");
    stl_toupper(text);
    EXPECT_EQ(text, "KX100");
    EXPECT_EQ(gen_stricmp("kx100", "KX100"), 0);
    EXPECT_LT(gen_stricmp("KX10", "kx100"), 0);
    EXPECT_GT(gen_stricmp("KY", "kx100"), 0);
}

TEST(HostZlib, UncompressReportsShortAndLongStreamsByLength)
{
    const BYTES data(1000, 0x5A);
    BYTES compressed(100);
    DWORD compressed_size = DWORD(compressed.size());
    ASSERT_EQ(zlib_compress(compressed.data(), &compressed_size, data.data(), DWORD(data.size())),
              ZLIB_OK);

    BYTES out(2000);
    DWORD size = 2000;
    EXPECT_EQ(zlib_uncompress(out.data(), &size, compressed.data(), compressed_size), ZLIB_OK);
    EXPECT_EQ(size, 1000u);

    size = 1000;
    EXPECT_EQ(zlib_uncompress(out.data(), &size, compressed.data(), compressed_size), ZLIB_OK);
    EXPECT_EQ(size, 1000u);

    size = 999;
    EXPECT_EQ(zlib_uncompress(out.data(), &size, compressed.data(), compressed_size), ZLIB_OK);
    EXPECT_EQ(size, 1000u) << "a stream longer than the buffer reports capacity + 1";

    size = 2000;
    EXPECT_NE(zlib_uncompress(out.data(), &size, compressed.data(), compressed_size - 3), ZLIB_OK);
    BYTES garbage(50, 0x11);
    size = 2000;
    EXPECT_NE(zlib_uncompress(out.data(), &size, garbage.data(), DWORD(garbage.size())), ZLIB_OK);
}

TEST(HostMessages, InternalErrorCarriesConditionUnitAndLine)
{
    try {
        MSG_INTERNAL_ERROR::report("a == b", "MOXDEV", "/src/moxdev/moxdev_flash_manager.cpp", 42);
        FAIL();
    } catch (const MSG_INTERNAL_ERROR& error) {
        EXPECT_EQ(error.condition(), "a == b");
        EXPECT_EQ(error.module(), "MOXDEV");
        EXPECT_EQ(error.unit(), "moxdev_flash_manager");
        EXPECT_EQ(error.line(), 42);
        const std::string what = error.what();
        for (const char* part : {"a == b", "MOXDEV", "moxdev_flash_manager", "42"})
            EXPECT_NE(what.find(part), std::string::npos) << part;
    }
}

TEST(HostNotices, NoticeIsAppendedToTheNoticesFile)
{
    TEMP_DIR dir;
    SCOPED_ENV env("MOXDEV_NOTICES_FILE", dir.file("notices.txt").c_str());
    EXPECT_TRUE(MOX_COMMON::send_auto_email_file("to@example", "subject one", "body one\n"));
    EXPECT_TRUE(MOX_COMMON::send_auto_email_file("to@example", "subject two", "body two\n"));
    const std::string text = read_text(dir.file("notices.txt"));
    EXPECT_NE(text.find("subject one"), std::string::npos);
    EXPECT_NE(text.find("body two"), std::string::npos);
}
