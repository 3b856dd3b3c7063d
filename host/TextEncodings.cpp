#include <string>

#include "host/StringFunctions.h"
#include "host/TextUnits.h"

namespace host {

namespace {

// The lead byte has one high bit set per byte of the sequence; every further byte holds 6 bits.
void appendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
        return;
    }
    int extra = cp < 0x800 ? 1 : cp < 0x10000 ? 2 : 3;
    out += static_cast<char>((0xFF << (7 - extra)) | (cp >> (6 * extra)));
    while (extra-- > 0) {
        out += static_cast<char>(0x80 | ((cp >> (6 * extra)) & 0x3F));
    }
}

bool isValidUtf8(std::string_view s) {
    char32_t cp;
    for (std::size_t i = 0, length; i < s.size(); i += length) {
        if ((length = decodeUtf8(s, i, cp)) == 0) {
            return false;
        }
    }
    return true;
}

String latin1ToUtf8(std::string_view s) {
    std::string out;
    out.reserve(s.size() * 2);
    for (char c : s) {
        appendUtf8(out, static_cast<unsigned char>(c));
    }
    return String(std::move(out), TextEncoding::UTF8);
}

// Bytes that are no UTF-8 are kept as they are: they are most likely Latin-1 already.
String utf8ToLatin1(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    char32_t cp;
    for (std::size_t i = 0; i < s.size();) {
        std::size_t length = decodeUtf8(s, i, cp);
        out += length == 0 ? s[i] : cp < 0x100 ? static_cast<char>(cp) : '?';
        i += length == 0 ? 1 : length;
    }
    return String(std::move(out), TextEncoding::Latin1);
}

}  // namespace

// The second byte's range shuts out overlong forms (after 0xE0 and 0xF0), surrogates (after
// 0xED) and values past U+10FFFF (after 0xF4).
std::size_t decodeUtf8(std::string_view s, std::size_t i, char32_t& cp) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[i + k]); };
    unsigned char lead = byte(0);
    if (lead < 0x80) {
        cp = lead;
        return 1;
    }
    std::size_t length;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        cp = lead & 0x0F;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        cp = lead & 0x07;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (s.size() - i < length || byte(1) < low || byte(1) > high) {
        return 0;
    }
    for (std::size_t k = 1; k < length; ++k) {
        if (!isContinuation(s[i + k])) {
            return 0;
        }
        cp = (cp << 6) | (byte(k) & 0x3F);
    }
    return length;
}

// Code points no UTF-8 text can hold (negative, surrogates, past U+10FFFF) give "".
String Chr(std::int64_t codePoint) {
    std::string out;
    if (codePoint >= 0 && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF)) {
        appendUtf8(out, static_cast<char32_t>(codePoint));
    }
    return String(std::move(out), TextEncoding::UTF8);
}

String DefineEncoding(const String& text, TextEncoding encoding) {
    return String(text.bytes(), encoding);
}

String ConvertEncoding(const String& text, TextEncoding encoding) {
    TextEncoding from = text.encoding();
    if (from == TextEncoding::None && encoding != TextEncoding::None) {
        from = isValidUtf8(text.view()) ? TextEncoding::UTF8 : TextEncoding::Latin1;
    }
    if (encoding == TextEncoding::None || encoding == from) {
        return DefineEncoding(text, encoding);
    }
    return encoding == TextEncoding::UTF8 ? latin1ToUtf8(text.view()) : utf8ToLatin1(text.view());
}

}  // namespace host
