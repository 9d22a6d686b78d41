#include "platform/certificate_name.h"

#include <openssl/objects.h>
#include <openssl/x509.h>

#include <memory>

namespace velmora::platform {

namespace {

// The first non-empty entry of `nid` in the name, as UTF-8.
std::optional<std::string> entryText(X509_NAME* name, int nid) {
    for (int index = X509_NAME_get_index_by_NID(name, nid, -1); index >= 0;
         index = X509_NAME_get_index_by_NID(name, nid, index)) {
        ASN1_STRING* data = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
        unsigned char* utf8 = nullptr;
        int length = ASN1_STRING_to_UTF8(&utf8, data);
        if (length < 0) continue;
        std::string text(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(length));
        OPENSSL_free(utf8);
        if (!text.empty()) return text;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> certificateSubjectName(const std::vector<unsigned char>& der) {
    if (der.empty()) return std::nullopt;
    const unsigned char* cursor = der.data();
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &cursor, static_cast<long>(der.size())), &X509_free);
    if (!certificate) return std::nullopt;
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    if (!subject) return std::nullopt;
    for (int nid : {NID_commonName, NID_organizationName, NID_organizationalUnitName, NID_pkcs9_emailAddress})
        if (auto text = entryText(subject, nid)) return text;
    return std::nullopt;
}

}  // namespace velmora::platform
