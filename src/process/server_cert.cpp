#include "process/server_cert.h"

#include "core/files.h"
#include "core/text.h"
#include "platform/certificate_name.h"
#include "platform/paths.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>

namespace velmora::ServerCert {

namespace {

constexpr std::string_view beginMarker = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view endMarker = "-----END CERTIFICATE-----";

// Unicode white space: what a PEM body may be wrapped with, whatever the line ends.
bool isWhitespace(char32_t c) {
    switch (c) {
        case 0x09: case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x20: case 0x85: case 0xA0:
        case 0x1680: case 0x2028: case 0x2029: case 0x202F: case 0x205F: case 0x3000:
            return true;
        default:
            return c >= 0x2000 && c <= 0x200A;
    }
}

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

// "YYYY-MM-DD HH:MM:SSZ", as `openssl x509 -dates -dateopt iso_8601` prints it.
std::string isoTime(const ASN1_TIME* time) {
    std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new(BIO_s_mem()), &BIO_free);
    if (!out || !time || ASN1_TIME_print_ex(out.get(), time, ASN1_DTFLGS_ISO8601) != 1) return {};
    char* data = nullptr;
    long size = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

std::string fingerprint(X509* certificate, const EVP_MD* digest) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (X509_digest(certificate, digest, bytes, &size) != 1) return {};
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        if (i > 0) text += ':';
        text += hex[bytes[i] >> 4];
        text += hex[bytes[i] & 0x0F];
    }
    return text;
}

}  // namespace

std::string directory() { return platform::serverCertDirectory(); }
std::string certPath() { return directory() + "/shadow.crt"; }
std::string keyPath() { return directory() + "/shadow.key"; }

std::optional<std::vector<unsigned char>> decodeBase64(const std::string& text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    if (!text.empty() && text.back() == '=') padding = text.size() >= 2 && text[text.size() - 2] == '=' ? 2 : 1;
    std::vector<unsigned char> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;
    for (std::size_t i = 0; i < text.size() - padding; ++i) {
        int value = base64Value(text[i]);
        if (value < 0) return std::nullopt;  // also a '=' anywhere but at the end
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        if (++count == 4) {
            bytes.push_back(static_cast<unsigned char>(bits >> 16));
            bytes.push_back(static_cast<unsigned char>(bits >> 8));
            bytes.push_back(static_cast<unsigned char>(bits));
            bits = 0;
            count = 0;
        }
    }
    if (count == 2) bytes.push_back(static_cast<unsigned char>(bits >> 4));
    if (count == 3) {
        bytes.push_back(static_cast<unsigned char>(bits >> 10));
        bytes.push_back(static_cast<unsigned char>(bits >> 2));
    }
    return bytes;
}

std::optional<std::vector<unsigned char>> der(const std::string& fromPEM) {
    auto begin = fromPEM.find(beginMarker);
    if (begin == std::string::npos) return std::nullopt;
    auto bodyStart = begin + beginMarker.size();
    auto end = fromPEM.find(endMarker, bodyStart);
    if (end == std::string::npos) return std::nullopt;
    std::u32string body = text::utf32(std::string_view(fromPEM).substr(bodyStart, end - bodyStart));
    std::string compact;
    compact.reserve(body.size());
    for (char32_t c : body) {
        if (isWhitespace(c)) continue;
        if (c > 0x7F) return std::nullopt;  // outside the alphabet, and not white space
        compact.push_back(static_cast<char>(c));
    }
    return decodeBase64(compact);
}

std::optional<std::string> subjectName(const std::string& pem) {
    auto bytes = der(pem);
    if (!bytes) return std::nullopt;
    return platform::certificateSubjectName(*bytes);
}

std::optional<Summary> summary(const std::string& pem) {
    auto bytes = der(pem);
    if (!bytes || bytes->empty()) return std::nullopt;
    const unsigned char* cursor = bytes->data();
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &cursor, static_cast<long>(bytes->size())), &X509_free);
    if (!certificate) return std::nullopt;
    Summary result;
    result.subject = platform::certificateSubjectName(*bytes);
    result.validFrom = isoTime(X509_get0_notBefore(certificate.get()));
    result.validUntil = isoTime(X509_get0_notAfter(certificate.get()));
    result.sha256 = fingerprint(certificate.get(), EVP_sha256());
    result.sha1 = fingerprint(certificate.get(), EVP_sha1());
    return result;
}

bool removeIfNameless() {
    auto read = files::readWhole(certPath());
    if (!read) return false;
    const std::string& pem = *read;
    if (!text::isValidUtf8(pem)) return false;
    if (!der(pem)) return false;  // only a block that decodes is judged
    if (subjectName(pem)) return false;
    std::remove(certPath().c_str());
    std::remove(keyPath().c_str());
    return true;
}

}  // namespace velmora::ServerCert
