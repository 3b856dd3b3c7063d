#include "host/StringFunctions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "host/UnsupportedFormatException.h"

namespace host {

namespace {

constexpr std::size_t kNotFound = std::string_view::npos;

bool countsCharacters(const String& text) {
    return text.encoding() == TextEncoding::UTF8;
}

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Characters of a UTF-8 text begin at offset 0 and at every byte that is not a continuation byte,
// so broken sequences still count and cut consistently.
std::size_t characterCount(std::string_view bytes) {
    std::size_t count = bytes.empty() ? 0 : 1;
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        count += isContinuation(bytes[i]) ? 0 : 1;
    }
    return count;
}

// Byte offset of the unit at index (from 0), or the size when the text is shorter.
std::size_t unitOffset(std::string_view bytes, std::uint64_t index, bool characters) {
    if (!characters || index == 0) {
        return index < bytes.size() ? static_cast<std::size_t>(index) : bytes.size();
    }
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        if (!isContinuation(bytes[i]) && --index == 0) {
            return i;
        }
    }
    return bytes.size();
}

// Byte offset where the last count units begin.
std::size_t offsetFromEnd(std::string_view bytes, std::uint64_t count, bool characters) {
    if (!characters) {
        return count < bytes.size() ? bytes.size() - static_cast<std::size_t>(count) : 0;
    }
    for (std::size_t i = bytes.size(); i-- > 0;) {
        if ((i == 0 || !isContinuation(bytes[i])) && --count == 0) {
            return i;
        }
    }
    return 0;
}

String slice(const String& text, std::size_t offset, std::size_t length) {
    return String(std::string(text.view().substr(offset, length)), text.encoding());
}

String left(const String& text, std::int64_t count, bool characters) {
    if (count <= 0) {
        return String(std::string(), text.encoding());
    }
    return slice(text, 0, unitOffset(text.view(), static_cast<std::uint64_t>(count), characters));
}

String right(const String& text, std::int64_t count, bool characters) {
    if (count <= 0) {
        return String(std::string(), text.encoding());
    }
    return slice(text, offsetFromEnd(text.view(), static_cast<std::uint64_t>(count), characters),
                 kNotFound);
}

String mid(const String& text, std::int64_t start, std::int64_t length, bool characters) {
    if (length <= 0) {
        return String(std::string(), text.encoding());
    }
    std::uint64_t skipped = start < 1 ? 0 : static_cast<std::uint64_t>(start - 1);
    std::size_t begin = unitOffset(text.view(), skipped, characters);
    std::size_t size =
        unitOffset(text.view().substr(begin), static_cast<std::uint64_t>(length), characters);
    return slice(text, begin, size);
}

bool isAsciiLetter(char c) {
    return (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
}

// Offset of the first match of find at or after from, ASCII letters matching without case.
std::size_t findFolded(std::string_view text, std::string_view find, std::size_t from) {
    if (find.empty() || from > text.size() || find.size() > text.size() - from) {
        return find.empty() && from <= text.size() ? from : kNotFound;
    }
    // Without letters a plain byte search matches the same, and much faster.
    if (std::ranges::none_of(find, [](char c) { return isAsciiLetter(c); })) {
        return text.find(find, from);
    }
    char first = find[0];
    char other = isAsciiLetter(first) ? static_cast<char>(first ^ 0x20) : first;
    for (std::size_t i = from, last = text.size() - find.size(); i <= last; ++i) {
        char c = text[i];
        if ((c == first || c == other) && String::equalFolded(text.substr(i, find.size()), find)) {
            return i;
        }
    }
    return kNotFound;
}

String fromChars(const char* first, const char* last, TextEncoding encoding) {
    return String(std::string(first, last), encoding);
}

void appendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

bool isValidUtf8(std::string_view s) {
    char32_t cp;
    for (std::size_t i = 0; i < s.size();) {
        std::size_t length = decodeUtf8(s, i, cp);
        if (length == 0) {
            return false;
        }
        i += length;
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
        if (length == 0) {
            out += s[i++];
            continue;
        }
        out += cp < 0x100 ? static_cast<char>(cp) : '?';
        i += length;
    }
    return String(std::move(out), TextEncoding::Latin1);
}

// Accepts "[-]#+[.#+]" and gives the number of decimals, or -1.
int formatDecimals(std::string_view pattern) {
    std::size_t i = pattern.starts_with('-') ? 1 : 0;
    std::size_t point = std::min(pattern.find_first_not_of('#', i), pattern.size());
    if (point == i) {
        return -1;
    }
    if (point == pattern.size()) {
        return 0;
    }
    if (pattern[point] != '.' || point + 1 == pattern.size() ||
        pattern.find_first_not_of('#', point + 1) != kNotFound) {
        return -1;
    }
    return static_cast<int>(pattern.size() - point - 1);
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

double readRadix(std::string_view s, std::size_t i, unsigned radix) {
    std::uint64_t value = 0;
    for (; i < s.size(); ++i) {
        char c = s[i];
        unsigned digit;
        if (isDigit(c)) {
            digit = static_cast<unsigned>(c - '0');
        } else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') {
            digit = static_cast<unsigned>((c | 0x20) - 'a' + 10);
        } else {
            break;
        }
        if (digit >= radix) {
            break;
        }
        value = value * radix + digit;
    }
    return static_cast<double>(value);
}

std::size_t skipDigits(std::string_view s, std::size_t i) {
    while (i < s.size() && isDigit(s[i])) {
        ++i;
    }
    return i;
}

// End of the exponent ("e", an optional sign, digits) that starts at i; i when there is none.
std::size_t skipExponent(std::string_view s, std::size_t i) {
    if (i >= s.size() || (s[i] != 'e' && s[i] != 'E')) {
        return i;
    }
    std::size_t digitsStart = i + 1;
    if (digitsStart < s.size() && (s[digitsStart] == '-' || s[digitsStart] == '+')) {
        ++digitsStart;
    }
    std::size_t digitsEnd = skipDigits(s, digitsStart);
    return digitsEnd > digitsStart ? digitsEnd : i;
}

// from_chars leaves the value alone when it is out of range; the decimal exponent of the first
// significant digit tells overflow (infinity) from underflow (zero).
double outOfRange(std::string_view mantissa, std::string_view exponent) {
    std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    std::size_t first = mantissa.find_first_not_of("0.");
    auto magnitude = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
    magnitude += first < point ? 0 : 1;
    std::int64_t shift = 0;
    std::size_t k = exponent.empty() || isDigit(exponent[0]) ? 0 : 1;
    for (; k < exponent.size() && shift < 100000; ++k) {
        shift = shift * 10 + (exponent[k] - '0');
    }
    magnitude += exponent.starts_with('-') ? -shift : shift;
    return magnitude > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

}  // namespace

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

std::int64_t LenB(const String& text) {
    return static_cast<std::int64_t>(text.size());
}
String LeftB(const String& text, std::int64_t count) {
    return left(text, count, false);
}
String RightB(const String& text, std::int64_t count) {
    return right(text, count, false);
}
String MidB(const String& text, std::int64_t start) {
    return mid(text, start, std::numeric_limits<std::int64_t>::max(), false);
}
String MidB(const String& text, std::int64_t start, std::int64_t length) {
    return mid(text, start, length, false);
}
std::int64_t AscB(const String& text) {
    return text.empty() ? 0 : text.byteAt(0);
}
String ChrB(std::int64_t n) {
    return String(std::string(1, static_cast<char>(n & 0xFF)), TextEncoding::None);
}

std::int64_t Len(const String& text) {
    return static_cast<std::int64_t>(countsCharacters(text) ? characterCount(text.view())
                                                            : text.size());
}
String Left(const String& text, std::int64_t count) {
    return left(text, count, countsCharacters(text));
}
String Right(const String& text, std::int64_t count) {
    return right(text, count, countsCharacters(text));
}
String Mid(const String& text, std::int64_t start) {
    return mid(text, start, std::numeric_limits<std::int64_t>::max(), countsCharacters(text));
}
String Mid(const String& text, std::int64_t start, std::int64_t length) {
    return mid(text, start, length, countsCharacters(text));
}

// Code points no UTF-8 text can hold (negative, surrogates, past U+10FFFF) give "".
String Chr(std::int64_t codePoint) {
    std::string out;
    if (codePoint >= 0 && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF)) {
        appendUtf8(out, static_cast<char32_t>(codePoint));
    }
    return String(std::move(out), TextEncoding::UTF8);
}

String Str(std::int64_t n) {
    std::array<char, 24> buffer{};
    auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), n);
    return fromChars(buffer.data(), result.ptr, TextEncoding::UTF8);
}

String Str(double n) {
    if (std::trunc(n) == n) {
        if (std::fabs(n) < 0x1p63) {
            return Str(static_cast<std::int64_t>(n));
        }
        // Past 64 bits, the shortest digits that read back as the value; 1e308 takes 309.
        std::array<char, 320> digits{};
        auto result = std::to_chars(digits.data(), digits.data() + digits.size(), n,
                                    std::chars_format::fixed);
        return fromChars(digits.data(), result.ptr, TextEncoding::UTF8);
    }
    std::array<char, 32> buffer{};
    auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), n,
                                std::chars_format::general, 7);
    return fromChars(buffer.data(), result.ptr, TextEncoding::UTF8);
}

// Rounds the shortest decimal that reads back as the value, so that 2.675 gives 2.68 as
// written, and not 2.67 as its binary approximation would.
String Format(double value, const String& pattern) {
    int decimals = formatDecimals(pattern.view());
    if (decimals < 0) {
        throw UnsupportedFormatException(String("unsupported format pattern: ") + pattern);
    }
    if (!std::isfinite(value)) {
        return Str(value);
    }
    // The longest fixed form, of a value near the smallest normal double, is under 330 chars.
    std::array<char, 400> buffer{};
    auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                std::chars_format::fixed);
    std::string_view fixed(buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data()));
    bool negative = fixed.starts_with('-');
    fixed.remove_prefix(negative ? 1 : 0);
    std::size_t point = std::min(fixed.find('.'), fixed.size());

    // One spare leading digit takes the carry of rounding 9.5 up to 10.
    std::string digits = "0";
    digits.append(fixed.substr(0, point));
    std::string_view fraction = fixed.substr(std::min(point + 1, fixed.size()));
    std::size_t kept = std::min(fraction.size(), static_cast<std::size_t>(decimals));
    digits.append(fraction.substr(0, kept));
    if (kept < fraction.size() && fraction[kept] >= '5') {
        std::size_t i = digits.size();
        while (digits[--i] == '9') {
            digits[i] = '0';
        }
        ++digits[i];
    }
    std::size_t integerEnd = digits.size() - kept;
    std::size_t fractionEnd = digits.find_last_not_of('0');
    fractionEnd = fractionEnd == kNotFound ? integerEnd : std::max(fractionEnd + 1, integerEnd);
    std::size_t integerStart = std::min(digits.find_first_not_of('0'), integerEnd - 1);

    std::string out;
    out.reserve(fractionEnd - integerStart + 2);
    if (negative && digits.find_first_not_of('0') != kNotFound) {
        out += '-';
    }
    out.append(digits, integerStart, integerEnd - integerStart);
    if (fractionEnd > integerEnd) {
        out += '.';
        out.append(digits, integerEnd, fractionEnd - integerEnd);
    }
    return String(std::move(out), TextEncoding::UTF8);
}

double Val(const String& text) {
    std::string_view s = text.view();
    std::size_t i = 0;
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) {
        ++i;
    }
    if (i + 1 < s.size() && s[i] == '&') {
        char kind = static_cast<char>(s[i + 1] | 0x20);
        if (kind == 'h' || kind == 'b') {
            return readRadix(s, i + 2, kind == 'h' ? 16 : 2);
        }
    }
    bool negative = i < s.size() && s[i] == '-';
    i += negative || (i < s.size() && s[i] == '+') ? 1 : 0;
    std::size_t start = i;
    i = skipDigits(s, i);
    bool hasDigits = i > start;
    if (i < s.size() && s[i] == '.') {
        std::size_t fractionStart = i + 1;
        i = skipDigits(s, fractionStart);
        hasDigits = hasDigits || i > fractionStart;
    }
    if (!hasDigits) {
        return 0.0;
    }
    std::size_t mantissaEnd = i;
    i = skipExponent(s, i);
    std::size_t exponentStart = i > mantissaEnd ? mantissaEnd + 1 : mantissaEnd;
    double value = 0.0;
    if (std::from_chars(s.data() + start, s.data() + i, value).ec ==
        std::errc::result_out_of_range) {
        value = outOfRange(s.substr(start, mantissaEnd - start),
                           s.substr(exponentStart, i - exponentStart));
    }
    return negative ? -value : value;
}

std::int64_t truncateToInt64(double value) {
    constexpr double kLimit = 9223372036854775808.0;  // 2^63
    if (!(value > -kLimit && value < kLimit)) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(value);
}

String Hex(std::int64_t n) {
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    auto bits = static_cast<std::uint64_t>(n);
    std::array<char, 16> buffer{};
    char* first = buffer.data() + buffer.size();
    do {
        *--first = kDigits[bits & 0xF];
        bits >>= 4;
    } while (bits != 0);
    return fromChars(first, buffer.data() + buffer.size(), TextEncoding::None);
}

String NthField(const String& text, const String& separator, std::int64_t n) {
    if (n < 1 || (separator.empty() && n > 1)) {
        return String(std::string(), text.encoding());
    }
    if (separator.empty()) {
        return text;
    }
    std::string_view s = text.view();
    std::size_t begin = 0;
    for (std::int64_t field = 1; field < n; ++field) {
        std::size_t at = findFolded(s, separator.view(), begin);
        if (at == kNotFound) {
            return String(std::string(), text.encoding());
        }
        begin = at + separator.size();
    }
    std::size_t end = findFolded(s, separator.view(), begin);
    return slice(text, begin, end == kNotFound ? kNotFound : end - begin);
}

std::int64_t InStr(std::int64_t start, const String& text, const String& find) {
    bool characters = countsCharacters(text);
    std::uint64_t skipped = start < 1 ? 0 : static_cast<std::uint64_t>(start - 1);
    std::uint64_t length = characters ? characterCount(text.view()) : text.size();
    if (skipped > length) {
        return 0;
    }
    std::size_t from = unitOffset(text.view(), skipped, characters);
    std::size_t at = findFolded(text.view(), find.view(), from);
    if (at == kNotFound) {
        return 0;
    }
    if (find.empty()) {
        return static_cast<std::int64_t>(skipped + 1);
    }
    return static_cast<std::int64_t>(characters ? characterCount(text.view().substr(0, at + 1))
                                                : at + 1);
}

std::int64_t InStr(const String& text, const String& find) {
    return InStr(1, text, find);
}

Array<String> Split(const String& text, const String& separator) {
    Array<String> pieces;
    std::string_view s = text.view();
    if (separator.empty()) {
        bool characters = countsCharacters(text);
        for (std::size_t begin = 0; begin < s.size();) {
            std::size_t end = begin + unitOffset(s.substr(begin), 1, characters);
            pieces.Append(slice(text, begin, end - begin));
            begin = end;
        }
        if (s.empty()) {
            pieces.Append(text);
        }
        return pieces;
    }
    std::size_t begin = 0;
    for (std::size_t at; (at = findFolded(s, separator.view(), begin)) != kNotFound;
         begin = at + separator.size()) {
        pieces.Append(slice(text, begin, at - begin));
    }
    pieces.Append(slice(text, begin, kNotFound));
    return pieces;
}

String Trim(const String& text) {
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    std::size_t begin = text.view().find_first_not_of(kBlanks);
    if (begin == kNotFound) {
        return String(std::string(), text.encoding());
    }
    std::size_t end = text.view().find_last_not_of(kBlanks);
    return slice(text, begin, end + 1 - begin);
}

String ReplaceAll(const String& text, const String& find, const String& replacement) {
    std::string_view s = text.view();
    std::size_t at = find.empty() ? kNotFound : findFolded(s, find.view(), 0);
    if (at == kNotFound) {
        return text;
    }
    std::string out;
    out.reserve(s.size());
    std::size_t begin = 0;
    for (; at != kNotFound; at = findFolded(s, find.view(), begin)) {
        out.append(s, begin, at - begin);
        out += replacement.view();
        begin = at + find.size();
    }
    out.append(s, begin);
    return String(std::move(out), text.encoding());
}

String EndOfLine() {
    return {"\n"};
}

String DefineEncoding(const String& text, TextEncoding encoding) {
    return String(text.bytes(), encoding);
}

String ConvertEncoding(const String& text, TextEncoding encoding) {
    TextEncoding from = text.encoding();
    if (encoding == TextEncoding::None || encoding == from) {
        return DefineEncoding(text, encoding);
    }
    if (from == TextEncoding::None) {
        from = isValidUtf8(text.view()) ? TextEncoding::UTF8 : TextEncoding::Latin1;
    }
    if (encoding == from) {
        return DefineEncoding(text, encoding);
    }
    return encoding == TextEncoding::UTF8 ? latin1ToUtf8(text.view()) : utf8ToLatin1(text.view());
}

}  // namespace host
