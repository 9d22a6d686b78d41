// The defaults store on macOS: the standard user defaults of the application's domain, through
// CFPreferences (what NSUserDefaults itself stores into).

#include "platform/defaults_store.h"

#include <CoreFoundation/CoreFoundation.h>

namespace velmora::platform {

namespace {

// NULL when `text` is not valid UTF-8: every caller must check.
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

// An owned reference (the caller releases it), or NULL when the value cannot be made.
CFPropertyListRef makeValue(const DefaultsValue& value) {
    // The boolean constants are not created here, so they are retained to keep one release rule.
    if (const auto* b = std::get_if<bool>(&value)) return CFRetain(*b ? kCFBooleanTrue : kCFBooleanFalse);
    if (const auto* i = std::get_if<std::int64_t>(&value)) return CFNumberCreate(nullptr, kCFNumberSInt64Type, i);
    if (const auto* d = std::get_if<double>(&value)) return CFNumberCreate(nullptr, kCFNumberDoubleType, d);
    return makeString(std::get<std::string>(value));
}

void release(CFTypeRef object) {
    if (object) CFRelease(object);
}

std::optional<DefaultsValue> fromNumber(CFNumberRef number) {
    if (!CFNumberIsFloatType(number)) {
        std::int64_t i = 0;
        // False when the stored integer does not fit in 64 bits (a property list may hold 128).
        if (CFNumberGetValue(number, kCFNumberSInt64Type, &i)) return DefaultsValue(i);
    }
    double d = 0;
    CFNumberGetValue(number, kCFNumberDoubleType, &d);
    return DefaultsValue(d);
}

// Writes `value` under `key`, or removes the key when `value` is absent; false when the names or
// the value cannot be expressed (text that is not UTF-8) or the domain could not be written.
bool change(const std::string& location, const std::string& key, const DefaultsValue* value) {
    CFStringRef domain = makeString(location);
    CFStringRef name = makeString(key);
    CFPropertyListRef cfValue = value ? makeValue(*value) : nullptr;
    bool ok = false;
    // A value that could not be made must not reach CFPreferences: NULL there removes the key.
    if (domain && name && (cfValue || !value)) {
        CFPreferencesSetAppValue(name, cfValue, domain);
        ok = CFPreferencesAppSynchronize(domain);
    }
    release(cfValue);
    release(name);
    release(domain);
    return ok;
}

}  // namespace

std::optional<DefaultsValue> DefaultsStore::storedObject(const std::string& key) const {
    CFStringRef domain = makeString(location_);
    CFStringRef name = makeString(key);
    CFPropertyListRef value = domain && name ? CFPreferencesCopyAppValue(name, domain) : nullptr;
    release(name);
    release(domain);
    if (!value) return std::nullopt;
    std::optional<DefaultsValue> result;
    if (CFGetTypeID(value) == CFBooleanGetTypeID()) {
        result = DefaultsValue(CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0);
    } else if (CFGetTypeID(value) == CFNumberGetTypeID()) {
        result = fromNumber(static_cast<CFNumberRef>(value));
    } else if (CFGetTypeID(value) == CFStringGetTypeID()) {
        result = DefaultsValue(toString(static_cast<CFStringRef>(value)));
    }
    CFRelease(value);
    return result;
}

// CFPreferences reads its own files and never hands back a guess.
bool DefaultsStore::storedValuesKnown() const { return true; }

bool DefaultsStore::set(const std::string& key, const DefaultsValue& value) {
    return change(location_, key, &value);
}

bool DefaultsStore::remove(const std::string& key) { return change(location_, key, nullptr); }

void discardStoredDefaults(const std::string& location) {
    CFStringRef domain = makeString(location);
    if (!domain) return;
    CFArrayRef keys = CFPreferencesCopyKeyList(domain, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
    if (keys) {
        CFPreferencesSetMultiple(nullptr, keys, domain, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
        CFPreferencesSynchronize(domain, kCFPreferencesCurrentUser, kCFPreferencesAnyHost);
        CFRelease(keys);
    }
    CFRelease(domain);
}

}  // namespace velmora::platform
