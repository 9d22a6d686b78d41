#pragma once
// The user's defaults store: typed values under string keys, re-read on every access, with an
// in-memory layer of registered defaults that is consulted after the stored values and never
// written. Linux keeps one JSON object in a file (platform/linux/defaults_store_file.cpp says what
// happens when it cannot be read); macOS uses the user defaults of a domain.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace velmora::platform {

using DefaultsValue = std::variant<bool, std::int64_t, double, std::string>;

class DefaultsStore {
public:
    // The standard store of this user (Linux: $XDG_CONFIG_HOME/velmora/defaults.json).
    DefaultsStore();
    // A store at another location: a file path on Linux, a preferences domain on macOS.
    explicit DefaultsStore(std::string location);

    const std::string& location() const { return location_; }

    // Replaces the registered defaults with `values`; nothing is written.
    void registerDefaults(const std::map<std::string, DefaultsValue>& values);

    // The stored value, else the registered one, else absent.
    std::optional<DefaultsValue> object(const std::string& key) const;
    // Only what is stored, ignoring registered defaults.
    std::optional<DefaultsValue> storedObject(const std::string& key) const;
    // False while the stored values cannot be read and none were read earlier in this run (Linux: an
    // unreadable file at start-up): the readings are then the registered defaults, a guess at what
    // the user chose, and nothing the user may have turned off (usage pings) may act on them.
    bool storedValuesKnown() const;

    // Typed readings: 0, false or absent for a missing key; numbers and numeric text convert
    // (3.9 reads as the integer 3, "12" as 12, "abc" as 0; a non-zero number reads as true).
    std::int64_t integer(const std::string& key) const;
    bool boolean(const std::string& key) const;
    double real(const std::string& key) const;
    // Only a text value reads as text: anything else is absent.
    std::optional<std::string> string(const std::string& key) const;

    // Writes or removes one key, only when that changes what is stored; false when the store could
    // not be written (nothing is lost then).
    bool set(const std::string& key, const DefaultsValue& value);
    bool remove(const std::string& key);

private:
    std::string location_;
    std::map<std::string, DefaultsValue> registered_;
};

// Removes everything stored at `location` (tests throw their private stores away with it).
void discardStoredDefaults(const std::string& location);

// The conversions used by the typed readings, shared by both platforms.
std::int64_t integerReading(const DefaultsValue& value);
bool booleanReading(const DefaultsValue& value);
double realReading(const DefaultsValue& value);

}  // namespace velmora::platform
