#include "server-linux/sam_file.h"
#include "server-linux/server_translation.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace velmora;
using namespace velmora::ServerHelper;

namespace {
const std::string hash = "b39a61f16a4e11fa80580241f1d4aae8";
}

TEST(ServerTranslation, SamFileCoversTheUsualSpellingsOfTheName) {
    // Split at the last colon; an upper-case hash is written in lower case.
    EXPECT_EQ(parseLoginEntry("Anna Berg:B39A61F16A4E11FA80580241F1D4AAE8"), (SamLogin{"Anna Berg", hash}));
    EXPECT_EQ(samFileText(SamLogin{"anna", hash}),
              "anna:::" + hash + ":::\nANNA:::" + hash + ":::\nAnna:::" + hash + ":::\n");
    EXPECT_EQ(samFileText(SamLogin{"McKay Berg", hash}),
              "McKay Berg:::" + hash + ":::\nmckay berg:::" + hash + ":::\nMCKAY BERG:::" + hash +
                  ":::\nMckay berg:::" + hash + ":::\n");
    // Letters beyond ASCII stay as they are (and can't be matched by FreeRDP 2 anyway).
    EXPECT_EQ(samFileText(SamLogin{"Zo\xc3\xab", hash}),
              "Zo\xc3\xab:::" + hash + ":::\nzo\xc3\xab:::" + hash + ":::\nZO\xc3\xab:::" + hash + ":::\n");
    EXPECT_FALSE(nlaCanMatch("Zo\xc3\xab"));
    EXPECT_TRUE(nlaCanMatch("Anna Berg"));
}

TEST(ServerTranslation, MalformedLoginEntriesAreRefused) {
    for (const std::string& entry :
         {std::string(), hash, ":" + hash, "anna" + hash, "anna:" + hash.substr(1), "anna:" + hash + "0",
          "anna:" + hash.substr(0, 31) + "g", "   :" + hash,
          // A second colon would shift the SAM fields; a line feed would add a line of its own.
          "an:na:" + hash, "anna\nbob:" + hash, "anna\t:" + hash}) {
        EXPECT_FALSE(parseLoginEntry(entry)) << entry;
    }
}

TEST(ServerTranslation, KeepsWhatTheShadowServerKnowsAndDropsTheRest) {
    const std::vector<std::string> plan = {"/port:3390", "+auth", "/sec:tls", "+sec-nla",
                                           "-gfx-avc444", "+server-side-cursor", "/max-connections:5"};
    // No SAM file: NLA stays off rather than checking clients against a system-wide file.
    auto withoutLogin = shadowArguments(plan, std::nullopt);
    EXPECT_EQ(withoutLogin.arguments, (std::vector<std::string>{"/port:3390", "+auth", "/sec:tls"}));
    EXPECT_EQ(withoutLogin.dropped.front(), "+sec-nla");
    auto open = shadowArguments({"/port:3389", "-auth", "/sec:tls", "+gfx-avc444", "/max-connections:5"},
                                std::string("/unused"));
    EXPECT_EQ(open.arguments, (std::vector<std::string>{"/port:3389", "-auth", "/sec:tls"}));

    // Only real port numbers pass; anything else could change the server's meaning.
    auto odd = shadowArguments({"/port:", "/port:0", "/port:65536", "/port:12a", "/port:-1", "/port:65535",
                                "/sam-file:/etc/passwd", "/sec:rdp"},
                               std::nullopt);
    EXPECT_EQ(odd.arguments, (std::vector<std::string>{"/port:65535"}));
    EXPECT_EQ(odd.dropped.size(), 7u);

}

TEST(ServerTranslation, ModesAndEnvironment) {
    EXPECT_EQ(probeMode({{"MAC_SHADOW_PERMS", "request"}}), "request");
    EXPECT_FALSE(probeMode({{"MAC_SHADOW_PERMS", ""}}));
    // Only Velmora's own variables are removed before the server starts.
    EXPECT_EQ(shadowEnvironment({{"MAC_SHADOW_NLA", "anna:" + hash}, {"HOME", "/home/a"}, {"XMAC_SHADOW_KEEP", "x"}}),
              (Environment{{"HOME", "/home/a"}, {"XMAC_SHADOW_KEEP", "x"}}));
}

TEST(SamFile, SealedAndNotInherited) {
    SamFile sam(SamLogin{"anna", hash});
    ASSERT_TRUE(sam.valid());
    EXPECT_EQ(::fcntl(sam.descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);

    // Nobody may rewrite the login the server reads (which the server reads by path, once per
    // login: see the helper's process test).
    EXPECT_LT(::write(sam.descriptor(), "x", 1), 0);
}
