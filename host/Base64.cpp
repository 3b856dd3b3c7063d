#include "host/Base64.h"

#include <array>
#include <cstring>
#include <string>
#include <string_view>

namespace host {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::int8_t kSkip = -1;
constexpr std::int8_t kPad = -2;

// Sextet value of every byte; kSkip for bytes outside the alphabet, kPad for "=".
constexpr std::array<std::int8_t, 256> kSextets = [] {
    std::array<std::int8_t, 256> table{};
    table.fill(kSkip);
    for (int i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    }
    table['='] = kPad;
    return table;
}();

void encodeFlat(const unsigned char* in, std::size_t size, char* out) {
    std::size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        std::uint32_t group = (in[i] << 16) | (in[i + 1] << 8) | in[i + 2];
        *out++ = kAlphabet[group >> 18];
        *out++ = kAlphabet[(group >> 12) & 0x3F];
        *out++ = kAlphabet[(group >> 6) & 0x3F];
        *out++ = kAlphabet[group & 0x3F];
    }
    if (std::size_t rest = size - i; rest > 0) {
        std::uint32_t group = (in[i] << 16) | (rest == 2 ? in[i + 1] << 8 : 0);
        *out++ = kAlphabet[group >> 18];
        *out++ = kAlphabet[(group >> 12) & 0x3F];
        *out++ = rest == 2 ? kAlphabet[(group >> 6) & 0x3F] : '=';
        *out = '=';
    }
}

}  // namespace

String EncodeBase64(const String& data, std::int64_t lineLength) {
    std::size_t encoded = (data.size() + 2) / 3 * 4;
    auto line = static_cast<std::size_t>(lineLength > 0 ? lineLength : 0);
    std::size_t breaks = line > 0 && encoded > 0 ? (encoded - 1) / line : 0;
    std::string out(encoded + breaks, '\0');
    // Encoded into the tail, then each line moved down to its place: a line's destination never
    // overlaps a line not yet moved, so one buffer does.
    char* flat = out.data() + breaks;
    encodeFlat(reinterpret_cast<const unsigned char*>(data.data()), data.size(), flat);
    for (std::size_t k = 0; k < breaks; ++k) {
        std::memmove(out.data() + k * (line + 1), flat + k * line, line);
        out[k * (line + 1) + line] = '\n';
    }
    return String(std::move(out), TextEncoding::None);
}

String DecodeBase64(const String& text, TextEncoding encoding) {
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t size = text.size();
    std::string out(size / 4 * 3 + 3, '\0');
    char* write = out.data();
    std::uint32_t group = 0;
    int pending = 0;
    std::size_t i = 0;
    while (i < size) {
        // Whole quartets of alphabet bytes, the usual case, skip the per-byte checks.
        if (pending == 0 && i + 4 <= size) {
            std::int8_t a = kSextets[in[i]];
            std::int8_t b = kSextets[in[i + 1]];
            std::int8_t c = kSextets[in[i + 2]];
            std::int8_t d = kSextets[in[i + 3]];
            if ((a | b | c | d) >= 0) {
                std::uint32_t quartet = (a << 18) | (b << 12) | (c << 6) | d;
                *write++ = static_cast<char>(quartet >> 16);
                *write++ = static_cast<char>(quartet >> 8);
                *write++ = static_cast<char>(quartet);
                i += 4;
                continue;
            }
        }
        std::int8_t sextet = kSextets[in[i++]];
        if (sextet == kPad) {
            break;
        }
        if (sextet == kSkip) {
            continue;
        }
        group = (group << 6) | static_cast<std::uint32_t>(sextet);
        if (++pending == 4) {
            *write++ = static_cast<char>(group >> 16);
            *write++ = static_cast<char>(group >> 8);
            *write++ = static_cast<char>(group);
            group = 0;
            pending = 0;
        }
    }
    // Two sextets carry one byte, three carry two; a lone one carries none.
    if (pending >= 2) {
        group <<= 6 * (4 - pending);
        *write++ = static_cast<char>(group >> 16);
        if (pending == 3) {
            *write++ = static_cast<char>(group >> 8);
        }
    }
    out.resize(static_cast<std::size_t>(write - out.data()));
    return String(std::move(out), encoding);
}

}  // namespace host
