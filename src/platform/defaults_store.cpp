#include "platform/defaults_store.h"

#include "core/text.h"
#include "platform/paths.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace velmora::platform {

DefaultsStore::DefaultsStore() : location_(defaultsLocation()) {}

DefaultsStore::DefaultsStore(std::string location) : location_(std::move(location)) {}

void DefaultsStore::registerDefaults(const std::map<std::string, DefaultsValue>& values) {
    registered_ = values;
}

std::optional<DefaultsValue> DefaultsStore::object(const std::string& key) const {
    if (auto stored = storedObject(key)) return stored;
    auto it = registered_.find(key);
    if (it == registered_.end()) return std::nullopt;
    return it->second;
}

std::int64_t DefaultsStore::integer(const std::string& key) const {
    auto value = object(key);
    return value ? integerReading(*value) : 0;
}

bool DefaultsStore::boolean(const std::string& key) const {
    auto value = object(key);
    return value ? booleanReading(*value) : false;
}

double DefaultsStore::real(const std::string& key) const {
    auto value = object(key);
    return value ? realReading(*value) : 0.0;
}

std::optional<std::string> DefaultsStore::string(const std::string& key) const {
    auto value = object(key);
    if (!value) return std::nullopt;
    if (const auto* text = std::get_if<std::string>(&*value)) return *text;
    return std::nullopt;
}

namespace {

std::int64_t clampToInteger(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9.2e18) return std::numeric_limits<std::int64_t>::max();
    if (value <= -9.2e18) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);  // truncates toward zero
}

}  // namespace

std::int64_t integerReading(const DefaultsValue& value) {
    if (const auto* b = std::get_if<bool>(&value)) return *b ? 1 : 0;
    if (const auto* i = std::get_if<std::int64_t>(&value)) return *i;
    if (const auto* d = std::get_if<double>(&value)) return clampToInteger(*d);
    return clampToInteger(text::leadingNumber(std::get<std::string>(value)));
}

bool booleanReading(const DefaultsValue& value) {
    if (const auto* b = std::get_if<bool>(&value)) return *b;
    if (const auto* i = std::get_if<std::int64_t>(&value)) return *i != 0;
    if (const auto* d = std::get_if<double>(&value)) return *d != 0.0;
    // Text: "YES", "true", "y", "t" or a non-zero number, ignoring leading blanks and case.
    const std::string& text = std::get<std::string>(value);
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (i == text.size()) return false;
    char first = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    if (first == 'y' || first == 't') return true;
    return text::leadingNumber(text.substr(i)) != 0.0;
}

double realReading(const DefaultsValue& value) {
    if (const auto* b = std::get_if<bool>(&value)) return *b ? 1.0 : 0.0;
    if (const auto* i = std::get_if<std::int64_t>(&value)) return static_cast<double>(*i);
    if (const auto* d = std::get_if<double>(&value)) return *d;
    return text::leadingNumber(std::get<std::string>(value));
}

}  // namespace velmora::platform
