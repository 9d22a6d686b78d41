// ServerCert::der reads a file anybody could have written: it must never crash, and whatever it
// decodes must round-trip through the certificate name lookup without trouble.

#include "process/server_cert.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    auto der = velmora::ServerCert::der(text);
    if (der && text.find("-----BEGIN CERTIFICATE-----") == std::string::npos) std::abort();
    velmora::ServerCert::subjectName(text);
    // The base64 decoder alone, on the raw input.
    auto bytes = velmora::ServerCert::decodeBase64(text);
    if (bytes && bytes->size() > text.size()) std::abort();
    return 0;
}
