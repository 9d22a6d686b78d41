#include "process/server_cert.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <vector>

using namespace velmora;
using namespace velmora::test;

namespace {

// A self-signed certificate in PEM form whose subject holds exactly `entries` (field, value).
std::string makeCertificate(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    std::unique_ptr<X509, decltype(&X509_free)> cert(X509_new(), &X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 7);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 3600);
    X509_NAME* name = X509_get_subject_name(cert.get());
    for (const auto& [field, value] : entries)
        X509_NAME_add_entry_by_txt(name, field.c_str(), MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(value.data()),
                                   static_cast<int>(value.size()), -1, 0);
    X509_set_issuer_name(cert.get(), name);
    X509_set_pubkey(cert.get(), key.get());
    X509_sign(cert.get(), key.get(), EVP_sha256());
    std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new(BIO_s_mem()), &BIO_free);
    PEM_write_bio_X509(out.get(), cert.get());
    char* data = nullptr;
    long size = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

const std::string begin = "-----BEGIN CERTIFICATE-----", end = "-----END CERTIFICATE-----";

}  // namespace

TEST(ServerCert, DerDecodesTheFirstBlockWhateverTheWrappingAndRejectsAnythingButStrictBase64) {
    const std::string pem = makeCertificate({{"CN", "shadow"}});
    auto reference = ServerCert::der(pem);
    ASSERT_TRUE(reference);
    std::string body = pem.substr(begin.size() + 1, pem.find(end) - begin.size() - 1);
    body.erase(std::remove(body.begin(), body.end(), '\n'), body.end());

    std::string crlf = "junk before\r\n" + begin + "\r\n";
    for (std::size_t i = 0; i < body.size(); i += 64) crlf += body.substr(i, 64) + "\r\n";
    EXPECT_EQ(ServerCert::der(crlf + end + "\r\ntrailing text"), reference);
    // Only the first block counts.
    EXPECT_EQ(ServerCert::der(pem + makeCertificate({})), reference);
    // No markers, no end, the end first, a stray character, a length that is no base64.
    for (const std::string& bad : {std::string("no markers"), begin + "\n" + body + "\n", end + "\n" + begin + "\n" + body,
                                   begin + body.substr(0, 5) + "*" + body.substr(6) + end, begin + body.substr(1) + end})
        EXPECT_FALSE(ServerCert::der(bad)) << bad;

    using Bytes = std::vector<unsigned char>;
    EXPECT_EQ(ServerCert::decodeBase64("TWE="), (Bytes{'M', 'a'}));
    EXPECT_EQ(ServerCert::decodeBase64("+/+/"), (Bytes{0xfb, 0xff, 0xbf}));
    // Missing, extra or inner padding, and the URL alphabet.
    for (const char* bad : {"TQ", "TQ===", "T===", "TQ==TWFu", "TW-u"}) EXPECT_FALSE(ServerCert::decodeBase64(bad)) << bad;
}

TEST(ServerCert, TheSubjectNameIsTheFirstNonEmptyNamingFieldAndOnlyANamelessCertificateIsRemoved) {
    EXPECT_EQ(ServerCert::subjectName(makeCertificate({{"O", "Org"}, {"CN", "host.example"}})), "host.example");
    EXPECT_EQ(ServerCert::subjectName(makeCertificate({{"C", "DE"}, {"OU", "Unit"}, {"O", "Org"}})), "Org");
    EXPECT_EQ(ServerCert::subjectName(makeCertificate({{"CN", ""}, {"OU", "Unit"}})), "Unit");
    EXPECT_EQ(ServerCert::subjectName(makeCertificate({{"CN", "Zoë"}})), "Zoë");
    EXPECT_FALSE(ServerCert::subjectName(makeCertificate({{"C", "DE"}})));

    TempHome home;
    // Where freerdp-shadow-cli keeps them; only decodable blocks are judged.
    const std::string cert = home.configHome() + "/freerdp/shadow/shadow.crt";
    const std::string key = home.configHome() + "/freerdp/shadow/shadow.key";
    EXPECT_FALSE(ServerCert::removeIfNameless());  // no file at all

    const std::pair<std::string, bool> cases[] = {
        {makeCertificate({{"CN", "named"}}), false},
        {"\xFF\xFE not UTF-8 " + begin + "\nTWFu\n" + end + "\n", false},
        {makeCertificate({}), true},
        {begin + "\naGVsbG8gd29ybGQ=\n" + end + "\n", true},  // bytes that are no certificate
    };
    for (const auto& [contents, nameless] : cases) {
        writeFile(cert, contents);
        writeFile(key, "key");
        EXPECT_EQ(ServerCert::removeIfNameless(), nameless) << contents;
        EXPECT_EQ(fileExists(cert), !nameless);
        EXPECT_EQ(fileExists(key), !nameless);
    }
    writeFile(cert, makeCertificate({}));  // and no key file beside it
    EXPECT_TRUE(ServerCert::removeIfNameless());
}
