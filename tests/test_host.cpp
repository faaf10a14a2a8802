// The stand-alone host services: configuration switches, strings, numbers and
// the internal-error reporter. (Paths, compression and notices are exercised
// by every database test.)
#include "test_support.h"

using namespace moxdev_test;

TEST(HostConfig, SwitchesReadTheEnvironmentAtEveryCall)
{
    // 1: on, 0: off, -1: the caller's default (unset, empty or unrecognised).
    const std::pair<const char*, int> values[] = {{"1", 1}, {"on", 1},  {"TRUE", 1},     {"Yes", 1},   {"y", 1},
                                                  {"0", 0}, {"OFF", 0}, {"false", 0},    {"no", 0},    {"N", 0},
                                                  {"", -1}, {"2", -1},  {"enabled", -1}, {nullptr, -1}};
    for (const auto& [value, on] : values) {
        SCOPED_ENV env("MOX_ALLOW_TEST_SWITCH", value);
        const std::string shown = value ? value : "unset";
        for (bool fallback : {false, true})
            EXPECT_EQ(cfg_is_on("MOX_ALLOW_TEST_SWITCH", fallback), on < 0 ? fallback : on == 1) << shown;
        EXPECT_EQ(cfg_get_value("MOX_ALLOW_TEST_SWITCH"), value ? value : "") << shown;
    }
}

TEST(HostStrings, ConvertStringToDword)
{
    DWORD value = 7;
    for (const auto& [text, expected] : {std::pair{"1234", 1234u}, {"0x1fF", 0x1FFu}, {"0XFFFFFFFF", 0xFFFFFFFFu}}) {
        EXPECT_TRUE(MOX_COMMON::convert_string_to_dword(text, value)) << text;
        EXPECT_EQ(value, expected) << text;
    }
    for (const char* bad : {"", "0x", "12a", "-1", " 1", "4294967296", "0x100000000", "1.5"}) {
        EXPECT_FALSE(MOX_COMMON::convert_string_to_dword(bad, value)) << bad;
        EXPECT_EQ(value, 0xFFFFFFFFu) << bad << " leaves the value as it was";
    }
}

TEST(HostStrings, TokenizeTrimCaseAndCompare)
{
    const STRING_TOKENIZER tokens("a, b,,c\t\td ,", " \t\n,");
    EXPECT_EQ(tokens.tokens(), (std::vector<std::string>{"a", "b", "c", "d"})) << "empty tokens are dropped";
    EXPECT_THROW(tokens.at(4), std::out_of_range);
    EXPECT_EQ(STRING_TOKENIZER(" ,, ", " ,").size(), 0u);
    std::string text = " \t\r\nKx100 \n";
    gen_remove_leading_and_trailing_white_spaces(text);
    stl_toupper(text);
    EXPECT_EQ(text, "KX100");
    EXPECT_EQ(gen_stricmp("kx100", "KX100"), 0);
    EXPECT_LT(gen_stricmp("KX10", "kx100"), 0);
    EXPECT_GT(gen_stricmp("KY", "kx100"), 0);
}

TEST(HostMessages, InternalErrorCarriesConditionUnitAndLine)
{
    try {
        MSG_INTERNAL_ERROR::report("a == b", "MOXDEV", "/src/moxdev/moxdev_flash_manager.cpp", 42);
        FAIL();
    } catch (const MSG_INTERNAL_ERROR& error) {
        EXPECT_EQ(error.condition() + " " + error.module() + " " + error.unit(), "a == b MOXDEV moxdev_flash_manager");
        EXPECT_EQ(error.line(), 42);
        const std::string what = error.what();
        for (const char* part : {"a == b", "MOXDEV", "moxdev_flash_manager", "42"})
            EXPECT_NE(what.find(part), std::string::npos) << part;
    }
}
