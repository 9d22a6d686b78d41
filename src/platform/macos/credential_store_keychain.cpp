// The credential store on macOS: generic-password items of the login Keychain.

#include "platform/credential_store.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

namespace velmora::platform {

namespace {

CFStringRef makeString(const std::string& text) {
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                   static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}

CFDataRef makeData(const std::string& bytes) {
    return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size()));
}

// The base query: generic password, service, account. NULL when the service or the account is not
// valid UTF-8 (no such item can exist then); callers answer errSecParam.
CFMutableDictionaryRef baseQuery(const std::string& service, const std::string& account) {
    CFStringRef serviceString = makeString(service);
    CFStringRef accountString = makeString(account);
    CFMutableDictionaryRef query = nullptr;
    if (serviceString && accountString) {
        query = CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    }
    if (query) {
        CFDictionarySetValue(query, kSecClass, kSecClassGenericPassword);
        CFDictionarySetValue(query, kSecAttrService, serviceString);
        CFDictionarySetValue(query, kSecAttrAccount, accountString);
    }
    if (serviceString) CFRelease(serviceString);
    if (accountString) CFRelease(accountString);
    return query;
}

}  // namespace

SecretReading readSecret(const std::string& service, const std::string& account) {
    CFMutableDictionaryRef query = baseQuery(service, account);
    if (!query) return SecretReading{static_cast<int>(errSecParam), {}};
    CFDictionarySetValue(query, kSecReturnData, kCFBooleanTrue);
    CFDictionarySetValue(query, kSecMatchLimit, kSecMatchLimitOne);
    CFTypeRef result = nullptr;
    OSStatus status = SecItemCopyMatching(query, &result);
    CFRelease(query);
    SecretReading reading;
    reading.status = static_cast<int>(status);
    if (status == errSecSuccess && result && CFGetTypeID(result) == CFDataGetTypeID()) {
        auto data = static_cast<CFDataRef>(result);
        reading.data.assign(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                            static_cast<std::size_t>(CFDataGetLength(data)));
    } else if (status == errSecSuccess) {
        reading.status = errSecDecode;
    }
    if (result) CFRelease(result);
    return reading;
}

int updateSecret(const std::string& service, const std::string& account, const std::string& bytes) {
    CFMutableDictionaryRef query = baseQuery(service, account);
    CFDataRef data = makeData(bytes);
    CFMutableDictionaryRef change = CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                              &kCFTypeDictionaryValueCallBacks);
    OSStatus status = errSecParam;
    if (query && data && change) {
        CFDictionarySetValue(change, kSecValueData, data);
        status = SecItemUpdate(query, change);
    }
    if (change) CFRelease(change);
    if (data) CFRelease(data);
    if (query) CFRelease(query);
    return static_cast<int>(status);
}

int addSecret(const std::string& service, const std::string& account, const std::string& bytes) {
    CFMutableDictionaryRef query = baseQuery(service, account);
    CFDataRef data = makeData(bytes);
    OSStatus status = errSecParam;
    if (query && data) {
        CFDictionarySetValue(query, kSecValueData, data);
        CFDictionarySetValue(query, kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock);
        status = SecItemAdd(query, nullptr);
    }
    if (data) CFRelease(data);
    if (query) CFRelease(query);
    return static_cast<int>(status);
}

int deleteSecret(const std::string& service, const std::string& account) {
    CFMutableDictionaryRef query = baseQuery(service, account);
    if (!query) return secretSuccess;  // no item can carry a name that is not UTF-8
    OSStatus status = SecItemDelete(query);
    CFRelease(query);
    return status == errSecItemNotFound ? secretSuccess : static_cast<int>(status);
}

}  // namespace velmora::platform
