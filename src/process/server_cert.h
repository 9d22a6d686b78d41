#pragma once
// Housekeeping of the shadow server's TLS certificate: before each launch a certificate whose
// subject has no name is removed with its key, so that the server makes a fresh pair. Nothing here
// ever writes or creates a certificate.

#include <optional>
#include <string>
#include <vector>

namespace velmora::ServerCert {

// Built afresh on every call from the user's folders.
std::string directory();
std::string certPath();
std::string keyPath();

// The DER bytes of the first "-----BEGIN CERTIFICATE-----" block: white space dropped, then strict
// standard base64 (a foreign character or wrong padding gives nothing).
std::optional<std::vector<unsigned char>> der(const std::string& fromPEM);

// The subject's name; absent when the text holds no certificate or the subject has no name.
std::optional<std::string> subjectName(const std::string& pem);

// Removes certPath() and keyPath() when the certificate decodes but has no subject name (or the
// bytes are no certificate). True when it removed them; false when there was nothing to judge.
bool removeIfNameless();

// What a user compares with the certificate a Remote Desktop client shows before it trusts the server.
struct Summary {
    std::optional<std::string> subject;  // the subject's name, as subjectName gives it
    std::string validFrom;               // "2026-11-23 02:08:00Z"
    std::string validUntil;
    std::string sha256;                  // "AB:CD:…", the form `openssl x509 -fingerprint` prints
    std::string sha1;                    // Windows shows this one as the certificate's thumbprint
};

// Absent when the text holds no block that decodes to a certificate.
std::optional<Summary> summary(const std::string& pem);

// Strict standard base64: length a multiple of 4, at most two '=' and only at the end.
std::optional<std::vector<unsigned char>> decodeBase64(const std::string& text);

}  // namespace velmora::ServerCert
