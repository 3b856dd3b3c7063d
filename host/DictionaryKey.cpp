#include "host/DictionaryKey.h"

#include <functional>

namespace host {

const String& DictionaryKey::stringValue() const {
    static const String empty;
    const String* text = std::get_if<String>(&value_);
    return text != nullptr ? *text : empty;
}

double DictionaryKey::doubleValue() const {
    const double* number = std::get_if<double>(&value_);
    return number != nullptr ? *number : 0.0;
}

bool operator==(const DictionaryKey& a, const DictionaryKey& b) {
    if (a.value_.index() != b.value_.index()) {
        return false;
    }
    if (a.isString()) {
        return std::get<String>(a.value_) == std::get<String>(b.value_);
    }
    return std::get<double>(a.value_) == std::get<double>(b.value_);
}

std::size_t DictionaryKey::hash() const {
    if (const String* text = std::get_if<String>(&value_)) {
        return String::hashFolded(text->view());
    }
    double number = std::get<double>(value_);
    // 0.0 and -0.0 are one key; the low bit keeps doubles apart from strings of equal hash.
    return (std::hash<double>{}(number == 0.0 ? 0.0 : number) << 1) | 1U;
}

}  // namespace host
