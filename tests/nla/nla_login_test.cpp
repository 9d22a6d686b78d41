// The NT hash (MD4 of UTF-16LE) and the login entry "user:hash" built from it.

#include "core/text.h"
#include "nla/md4.h"
#include "nla/nla_login.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/provider.h>

#include <string>
#include <vector>

namespace {

std::string md4Hex(const std::string& message) {
    uint8_t out[16];
    velmora_md4(reinterpret_cast<const uint8_t*>(message.data()), message.size(), out);
    return velmora::text::hex(out, 16);
}

}  // namespace

TEST(Md4, MatchesRfc1320TestVectors) {
    EXPECT_EQ(md4Hex(""), "31d6cfe0d16ae931b73c59d7e0c089c0");
    EXPECT_EQ(md4Hex("abc"), "a448017aaf21d8525fc10ae87aa6729d");
    // 80 bytes: two blocks, as OpenSSL's comparison below checks at every boundary.
    EXPECT_EQ(md4Hex("1234567890123456789012345678901234567890"
                     "1234567890123456789012345678901234567890"),
              "e33b4ddc9c38f2199c3e7b164fcc0536");
}

// The padding boundaries (55/56/63/64/119/120 bytes), unaligned input and long input, checked
// against OpenSSL's MD4 from its legacy provider.
TEST(Md4, AgreesWithOpenSslAcrossPaddingBoundariesAndAlignments) {
    OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    OSSL_PROVIDER* base = OSSL_PROVIDER_load(nullptr, "default");
    EVP_MD* md4 = legacy ? EVP_MD_fetch(nullptr, "MD4", nullptr) : nullptr;
    if (!md4) GTEST_SKIP() << "OpenSSL's legacy provider is not available";
    std::vector<uint8_t> data(5100);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + i / 251);
    for (std::size_t length : {0, 1, 55, 56, 57, 63, 64, 65, 119, 120, 127, 128, 129, 4999}) {
        for (std::size_t offset : {0, 1, 3}) {
            uint8_t ours[16];
            unsigned char theirs[EVP_MAX_MD_SIZE];
            unsigned int theirLength = 0;
            velmora_md4(data.data() + offset, length, ours);
            EVP_Digest(data.data() + offset, length, theirs, &theirLength, md4, nullptr);
            ASSERT_EQ(theirLength, 16u);
            EXPECT_EQ(velmora::text::hex(ours, 16), velmora::text::hex(theirs, 16))
                << "length " << length << " offset " << offset;
        }
    }
    EVP_MD_free(md4);
    OSSL_PROVIDER_unload(legacy);
    OSSL_PROVIDER_unload(base);
}

TEST(NtHash, HashesUtf16LittleEndianWithSurrogatePairs) {
    using velmora::NLALogin::ntHashHex;
    EXPECT_EQ(ntHashHex("password"), "8846f7eaee8fb117ad06bdd830b7586c");
    // "é" is one code unit E9 00; U+1F600 is the surrogate pair D83D DE00, lead first.
    EXPECT_EQ(ntHashHex("\xC3\xA9"), md4Hex(std::string("\xE9\x00", 2)));
    EXPECT_EQ(ntHashHex("\xF0\x9F\x98\x80"), md4Hex(std::string("\x3D\xD8\x00\xDE", 4)));
    // No trimming or normalisation: the spaces are hashed.
    EXPECT_NE(ntHashHex(" password "), ntHashHex("password"));
}

namespace NLALogin = velmora::NLALogin;
const std::string hash = "8846f7eaee8fb117ad06bdd830b7586c";

TEST(LoginEntry, TrimsSpacesButRefusesSeparatorsAndControlCharacters) {
    // U+00A0 and U+3000 are space separators too.
    EXPECT_EQ(NLALogin::entry(" \xC2\xA0" "anna\t\xE3\x80\x80", hash), "anna:" + hash);
    EXPECT_EQ(NLALogin::entry("an\x7Fna", hash), "an\x7Fna:" + hash);
    EXPECT_EQ(NLALogin::entry("J\xC3\xBCrgen M\xC3\xBCller", hash), "J\xC3\xBCrgen M\xC3\xBCller:" + hash);
    for (const std::string name : {"anna\n", "an\tna", "   ", "", "DOMAIN\\anna", "anna@example.org", "an:na", "an\x01na"})
        EXPECT_EQ(NLALogin::entry(name, hash), std::nullopt) << name;
}

TEST(LoginEntry, CountsCharactersNotBytesUpTo127) {
    EXPECT_TRUE(NLALogin::entry(std::string(127, 'a'), hash));
    EXPECT_FALSE(NLALogin::entry(std::string(128, 'a'), hash));
    // One user-perceived character each: "ü", "e" with a combining accent, a family emoji joined by
    // ZWJ (the segmenting itself is the system library's).
    for (const char* cluster : {"\xC3\xBC", "e\xCC\x81", "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7"}) {
        std::string name;
        for (int i = 0; i < 127; ++i) name += cluster;
        EXPECT_TRUE(NLALogin::entry(name, hash)) << cluster;
        EXPECT_FALSE(NLALogin::entry(name + "e", hash)) << cluster;
    }
}
