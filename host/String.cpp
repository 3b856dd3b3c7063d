#include "host/String.h"

namespace host {

namespace {

constexpr unsigned char foldAscii(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

}  // namespace

// Concatenation keeps a shared tag; an empty side takes the other's tag; two different tags
// give raw bytes, since the result is no longer valid in either.
String& String::operator+=(const String& other) {
    if (bytes_.empty()) {
        encoding_ = other.encoding_;
    } else if (!other.bytes_.empty() && other.encoding_ != encoding_) {
        encoding_ = TextEncoding::None;
    }
    bytes_ += other.bytes_;
    return *this;
}

bool String::equalFolded(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (foldAscii(static_cast<unsigned char>(a[i])) !=
            foldAscii(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

std::size_t String::hashFolded(std::string_view text) {
    // FNV-1a over the folded bytes: no allocation on lookups.
    std::size_t hash = 14695981039346656037ULL;
    for (char c : text) {
        hash ^= foldAscii(static_cast<unsigned char>(c));
        hash *= 1099511628211ULL;
    }
    return hash;
}

}  // namespace host
