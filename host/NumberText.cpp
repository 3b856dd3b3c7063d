#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

#include "host/StringFunctions.h"
#include "host/UnsupportedFormatException.h"

namespace host {

namespace {

// Accepts "[-]#+[.#+]" and gives the number of decimals, or -1.
int formatDecimals(std::string_view pattern) {
    auto hashes = [](std::string_view s) {
        return !s.empty() && s.find_first_not_of('#') == std::string_view::npos;
    };
    pattern.remove_prefix(pattern.starts_with('-') ? 1 : 0);
    std::size_t point = std::min(pattern.find('.'), pattern.size());
    std::string_view fraction = pattern.substr(std::min(point + 1, pattern.size()));
    if (!hashes(pattern.substr(0, point)) || (point < pattern.size() && !hashes(fraction))) {
        return -1;
    }
    return static_cast<int>(fraction.size());
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

double readRadix(std::string_view s, std::size_t i, unsigned radix) {
    std::uint64_t value = 0;
    for (; i < s.size(); ++i) {
        auto lower = static_cast<char>(s[i] | 0x20);
        unsigned digit = isDigit(s[i])                  ? static_cast<unsigned>(s[i] - '0')
                         : lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a' + 10)
                                                        : radix;
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

String Str(std::int64_t n) {
    std::array<char, 24> buffer{};
    auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), n);
    return String(std::string(buffer.data(), result.ptr), TextEncoding::UTF8);
}

// Whole numbers past 64 bits in the shortest digits that read back as the value (1e308 takes
// 309), fractions in 7 significant digits.
String Str(double n) {
    bool whole = std::trunc(n) == n;
    if (whole && std::fabs(n) < 0x1p63) {
        return Str(static_cast<std::int64_t>(n));
    }
    std::array<char, 320> buffer{};
    char* last = buffer.data() + buffer.size();
    auto result = whole ? std::to_chars(buffer.data(), last, n, std::chars_format::fixed)
                        : std::to_chars(buffer.data(), last, n, std::chars_format::general, 7);
    return String(std::string(buffer.data(), result.ptr), TextEncoding::UTF8);
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
    auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::fabs(value),
                                std::chars_format::fixed);
    std::string_view fixed(buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data()));
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
    // Trailing zero decimals go (npos + 1 is 0), and leading zeros but the units digit.
    std::size_t integerEnd = digits.size() - kept;
    digits.resize(std::max(digits.find_last_not_of('0') + 1, integerEnd));
    if (digits.size() > integerEnd) {
        digits.insert(integerEnd, 1, '.');
    }
    bool zero = digits.find_first_not_of("0.") == std::string_view::npos;
    digits.erase(0, std::min(digits.find_first_not_of('0'), integerEnd - 1));
    return String((std::signbit(value) && !zero ? "-" : "") + digits, TextEncoding::UTF8);
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
    return String(std::string(first, buffer.data() + buffer.size()), TextEncoding::None);
}

}  // namespace host
