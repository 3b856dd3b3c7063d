#pragma once

#include <cstddef>
#include <utility>
#include <variant>

#include "host/String.h"

namespace host {

// A Dictionary key: a string or a double, side by side in one table. A string key never equals
// a double key; strings match by the host's equality (case of letters ignored), doubles by value.
class DictionaryKey {
public:
    // Strings and numbers convert to keys implicitly, as in the host.
    // NOLINTBEGIN(google-explicit-constructor)
    DictionaryKey(const String& text) : value_(text) {}
    DictionaryKey(String&& text) : value_(std::move(text)) {}
    DictionaryKey(const char* text) : value_(String(text)) {}
    DictionaryKey(double number) : value_(number) {}
    // NOLINTEND(google-explicit-constructor)

    bool isString() const { return std::holds_alternative<String>(value_); }
    bool isDouble() const { return std::holds_alternative<double>(value_); }
    // The text of a string key; a double key gives the empty string.
    const String& stringValue() const;
    // The number of a double key; a string key gives 0.
    double doubleValue() const;

    friend bool operator==(const DictionaryKey& a, const DictionaryKey& b);
    std::size_t hash() const;

private:
    std::variant<String, double> value_;
};

struct DictionaryKeyHash {
    std::size_t operator()(const DictionaryKey& key) const { return key.hash(); }
};

}  // namespace host
