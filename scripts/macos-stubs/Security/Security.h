#pragma once
// Stand-in for scripts/check-macos-syntax.sh, declared as Apple documents it (see CoreFoundation.h).
#include <CoreFoundation/CoreFoundation.h>
#ifdef __cplusplus
extern "C" {
#endif
enum { errSecSuccess = 0, errSecParam = -50, errSecItemNotFound = -25300, errSecDecode = -26275 };
extern const CFStringRef kSecClass, kSecClassGenericPassword, kSecAttrService, kSecAttrAccount, kSecReturnData,
    kSecMatchLimit, kSecMatchLimitOne, kSecValueData, kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock;
OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result);
OSStatus SecItemUpdate(CFDictionaryRef query, CFDictionaryRef attributesToUpdate);
OSStatus SecItemAdd(CFDictionaryRef attributes, CFTypeRef* result);
OSStatus SecItemDelete(CFDictionaryRef query);
typedef struct __SecCertificate* SecCertificateRef;
SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef data);
CFStringRef SecCertificateCopySubjectSummary(SecCertificateRef certificate);
#ifdef __cplusplus
}
#endif
