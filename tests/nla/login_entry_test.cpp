#include "nla/nla_login.h"

#include <gtest/gtest.h>

using velmora::NLALogin::entry;
using velmora::NLALogin::user;

namespace {
const std::string hash = "8846f7eaee8fb117ad06bdd830b7586c";
}

TEST(LoginEntry, TrimsSpacesButRefusesSeparatorsAndControlCharacters) {
    EXPECT_EQ(entry("  anna\t", hash), "anna:" + hash);
    // U+00A0 and U+3000 are space separators too.
    EXPECT_EQ(entry("\xC2\xA0" "anna\xE3\x80\x80", hash), "anna:" + hash);
    EXPECT_EQ(entry("an\x7Fna", hash), "an\x7Fna:" + hash);
    EXPECT_EQ(entry("J\xC3\xBCrgen M\xC3\xBCller", hash), "J\xC3\xBCrgen M\xC3\xBCller:" + hash);
    for (const std::string name : {"anna\n", "an\tna", "   ", "", "DOMAIN\\anna", "anna@example.org", "an:na", "an\x01na"})
        EXPECT_EQ(entry(name, hash), std::nullopt) << name;
}

TEST(LoginEntry, CountsCharactersNotBytesUpTo127) {
    EXPECT_TRUE(entry(std::string(127, 'a'), hash));
    EXPECT_FALSE(entry(std::string(128, 'a'), hash));
    std::string umlauts;
    for (int i = 0; i < 127; ++i) umlauts += "\xC3\xBC";  // 254 bytes, 127 characters
    EXPECT_TRUE(entry(umlauts, hash));
    // One user-perceived character each: "e" with a combining accent, Devanagari "ki", Thai "kam",
    // Hangul jamo "ga", the German flag, a family emoji joined by ZWJ.
    for (const char* cluster : {"e\xCC\x81", "\xE0\xA4\x95\xE0\xA4\xBF", "\xE0\xB8\x81\xE0\xB8\xB3",
                                "\xE1\x84\x80\xE1\x85\xA1", "\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA",
                                "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7"}) {
        std::string name;
        for (int i = 0; i < 127; ++i) name += cluster;
        EXPECT_TRUE(entry(name, hash)) << cluster;
        EXPECT_FALSE(entry(name + "e", hash)) << cluster;
    }
}

TEST(LoginEntry, NeedsExactlyThirtyTwoHexDigitsAndStoresThemLowerCase) {
    EXPECT_EQ(entry("anna", "8846F7EAEE8FB117AD06BDD830B7586C"), "anna:" + hash);
    for (const std::string& bad : {hash.substr(1), hash + "0", std::string("g846f7eaee8fb117ad06bdd830b7586c")})
        EXPECT_FALSE(entry("anna", bad)) << bad;
}

TEST(LoginEntry, UserOfSplitsAtTheLastColon) {
    EXPECT_EQ(user(std::nullopt), std::nullopt);
    EXPECT_EQ(user(std::string("no colon")), std::nullopt);
    EXPECT_EQ(user(":" + hash), std::nullopt);
    EXPECT_EQ(user("anna:" + hash), "anna");
    EXPECT_EQ(user(std::string("a:b:c")), "a:b");
}
