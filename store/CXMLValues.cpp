// Keys and scalar values: the two encoding rules, the typed getters and setters, key operations.
#include <cstdint>

#include "host/Base64.h"
#include "host/StringFunctions.h"
#include "store/CXML.h"

namespace {

constexpr double kTopBit = 9223372036854775808.0;  // 2 to the 63rd

}  // namespace

const host::String& CXML::hiddenMark() {
    static const host::String mark = host::String("en") + host::Chr(0);
    return mark;
}

host::String CXML::convertRule(const host::String& text) {
    if (text.encoding() == host::TextEncoding::UTF8) {
        return text;
    }
    return host::ConvertEncoding(text, host::Encodings::UTF8);
}

host::String CXML::defineRule(const host::String& text) {
    if (text.encoding() == host::TextEncoding::None) {
        return host::DefineEncoding(text, host::Encodings::UTF8);
    }
    return convertRule(text);
}

host::String* CXML::storedText(const host::String& key) {
    return Values.lookup(convertRule(key));
}

host::String CXML::GetStringValue(const host::String& key) {
    const host::String* stored = storedText(key);
    if (stored == nullptr) {
        return {};
    }
    host::String s = *stored;
    if (host::LeftB(s, 3) == hiddenMark()) {
        s = host::DecodeBase64(host::RightB(s, host::LenB(s) - 3));
    } else if (host::Left(s, 5) == "en111" && host::Right(s, 5) == "en000") {
        s = host::DecodeBase64(host::Mid(s, 6, host::Len(s) - 10));
    }
    if (s.encoding() != host::TextEncoding::UTF8) {
        s = host::DefineEncoding(s, host::Encodings::UTF8);
    }
    return s;
}

// Differs from the one-argument form on purpose: the hidden body is cut by characters, the
// bracketed form is tested and cut by bytes, and a decoded result gets no UTF-8 label.
host::String CXML::GetStringValue(const host::String& key, const host::String& defaultValue) {
    const host::String* stored = storedText(key);
    if (stored == nullptr) {
        return defaultValue;
    }
    host::String s = *stored;
    if (host::LeftB(s, 3) == hiddenMark()) {
        s = host::DecodeBase64(host::Right(s, host::Len(s) - 3));
    } else if (host::LeftB(s, 5) == "en111" && host::RightB(s, 5) == "en000") {
        s = host::DecodeBase64(host::MidB(s, 6, host::LenB(s) - 10));
    }
    return s;
}

void CXML::SetStringValue(const host::String& key, const host::String& value) {
    Values.SetValue(defineRule(key), defineRule(value));
}

std::int64_t CXML::GetIntegerValue(const host::String& key) {
    return GetIntegerValue(key, 0);
}

std::int64_t CXML::GetIntegerValue(const host::String& key, std::int64_t defaultValue) {
    const host::String* stored = storedText(key);
    return stored == nullptr ? defaultValue : host::truncateToInt64(host::Val(*stored));
}

void CXML::SetIntegervalue(const host::String& key, std::int64_t value) {
    Values.SetValue(convertRule(key), defineRule(host::Str(value)));
}

double CXML::GetDoubleValue(const host::String& key) {
    return GetDoubleValue(key, 0.0);
}

double CXML::GetDoubleValue(const host::String& key, double defaultValue) {
    const host::String* stored = storedText(key);
    return stored == nullptr ? defaultValue : host::Val(*stored);
}

void CXML::SetDoubleValue(const host::String& key, double value) {
    Values.SetValue(defineRule(key), host::Format(value, "-#.##########"));
}

std::uint64_t CXML::GetUInt64Value(const host::String& key) {
    return GetUInt64Value(key, 0);
}

// Values from 2 to the 63rd up are taken from their excess over it, with the top bit flipped
// back in; past 2 to the 64th the excess overflows to the top bit alone, which then clears.
std::uint64_t CXML::GetUInt64Value(const host::String& key, std::uint64_t defaultValue) {
    const host::String* stored = storedText(key);
    if (stored == nullptr) {
        return defaultValue;
    }
    double d = host::Val(*stored);
    if (d >= kTopBit) {
        return static_cast<std::uint64_t>(host::truncateToInt64(d - kTopBit)) ^ (1ULL << 63);
    }
    return static_cast<std::uint64_t>(host::truncateToInt64(d));
}

bool CXML::GetBooleanValue(const host::String& key) {
    return getBooleanValue(key, false);
}

bool CXML::getBooleanValue(const host::String& key, bool defaultValue) {
    const host::String* stored = storedText(key);
    return stored == nullptr ? defaultValue : *stored == "true";
}

void CXML::SetBooleanValue(const host::String& key, bool value) {
    Values.SetValue(defineRule(key), defineRule(value ? "true" : "false"));
}

// Alpha is dropped.
void CXML::SetColorValue(const host::String& key, host::Color value) {
    SetStringValue(defineRule(key), host::Str(value.Red()) + ", " + host::Str(value.Green()) +
                                        ", " + host::Str(value.Blue()));
}

host::Color CXML::GetColorValue(const host::String& key) {
    return GetColorValue(key, host::Color{});
}

host::Color CXML::GetColorValue(const host::String& key, host::Color defaultValue) {
    host::String text = GetStringValue(key);
    if (text.empty()) {
        return defaultValue;
    }
    auto component = [&text](std::int64_t n) {
        return host::truncateToInt64(host::Val(host::NthField(text, ",", n)));
    };
    return host::RGB(component(1), component(2), component(3), 0);
}

bool CXML::ObjectExists(const host::String& key) {
    return storedText(key) != nullptr;
}

void CXML::removeObject(const host::String& key) {
    if (Values.HasKey(key)) {
        Values.Remove(key);
    }
}

std::int64_t CXML::GetKeyCount() {
    return Values.Count();
}

host::String CXML::GetKeyByIndex(std::int64_t index) {
    return Values.Key(index).stringValue();
}

void CXML::DeleteObjects() {
    Values = host::Dictionary<host::String>();
}
