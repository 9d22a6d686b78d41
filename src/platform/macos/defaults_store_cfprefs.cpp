// The defaults store on macOS: the standard user defaults of the application's domain, through
// CFPreferences (what NSUserDefaults itself stores into).

#include "platform/defaults_store.h"

#include <CoreFoundation/CoreFoundation.h>

namespace velmora::platform {

namespace {

CFStringRef makeString(const std::string& text) {
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                   static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}

std::string toString(CFStringRef text) {
    CFIndex length = CFStringGetLength(text);
    CFIndex size = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8) + 1;
    std::string out(static_cast<std::size_t>(size), '\0');
    if (!CFStringGetCString(text, out.data(), size, kCFStringEncodingUTF8)) return {};
    out.resize(std::char_traits<char>::length(out.c_str()));
    return out;
}

CFPropertyListRef makeValue(const DefaultsValue& value) {
    if (const auto* b = std::get_if<bool>(&value)) return *b ? kCFBooleanTrue : kCFBooleanFalse;
    if (const auto* i = std::get_if<std::int64_t>(&value)) return CFNumberCreate(nullptr, kCFNumberSInt64Type, i);
    if (const auto* d = std::get_if<double>(&value)) return CFNumberCreate(nullptr, kCFNumberDoubleType, d);
    return makeString(std::get<std::string>(value));
}

}  // namespace

std::optional<DefaultsValue> DefaultsStore::storedObject(const std::string& key) const {
    CFStringRef domain = makeString(location_);
    CFStringRef name = makeString(key);
    CFPropertyListRef value = CFPreferencesCopyAppValue(name, domain);
    CFRelease(name);
    CFRelease(domain);
    if (!value) return std::nullopt;
    std::optional<DefaultsValue> result;
    if (CFGetTypeID(value) == CFBooleanGetTypeID()) {
        result = DefaultsValue(CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0);
    } else if (CFGetTypeID(value) == CFNumberGetTypeID()) {
        auto number = static_cast<CFNumberRef>(value);
        if (CFNumberIsFloatType(number)) {
            double d = 0;
            CFNumberGetValue(number, kCFNumberDoubleType, &d);
            result = DefaultsValue(d);
        } else {
            std::int64_t i = 0;
            CFNumberGetValue(number, kCFNumberSInt64Type, &i);
            result = DefaultsValue(i);
        }
    } else if (CFGetTypeID(value) == CFStringGetTypeID()) {
        result = DefaultsValue(toString(static_cast<CFStringRef>(value)));
    }
    CFRelease(value);
    return result;
}

bool DefaultsStore::set(const std::string& key, const DefaultsValue& value) {
    CFStringRef domain = makeString(location_);
    CFStringRef name = makeString(key);
    CFPropertyListRef cfValue = makeValue(value);
    CFPreferencesSetAppValue(name, cfValue, domain);
    bool ok = CFPreferencesAppSynchronize(domain);
    CFRelease(cfValue);
    CFRelease(name);
    CFRelease(domain);
    return ok;
}

bool DefaultsStore::remove(const std::string& key) {
    CFStringRef domain = makeString(location_);
    CFStringRef name = makeString(key);
    CFPreferencesSetAppValue(name, nullptr, domain);
    bool ok = CFPreferencesAppSynchronize(domain);
    CFRelease(name);
    CFRelease(domain);
    return ok;
}

}  // namespace velmora::platform
