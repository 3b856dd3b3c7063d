#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/TextEncoding.h"

namespace host {

// The host's string: a value holding bytes and an encoding tag. Literals are UTF-8, as in the
// host language; bytes from the wire or a child process carry no tag.
//
// operator== is the host's equality: ASCII letters compare without case, and the empty string
// equals a nil one. Exact byte comparison is sameBytes(), so nobody gets it by accident.
class String {
public:
    String() = default;
    // Text converts implicitly, as literals do in the host language.
    // NOLINTBEGIN(google-explicit-constructor)
    String(const char* text) : bytes_(text), encoding_(TextEncoding::UTF8) {}
    String(std::string_view text) : bytes_(text), encoding_(TextEncoding::UTF8) {}
    // NOLINTEND(google-explicit-constructor)
    explicit String(std::string bytes, TextEncoding encoding = TextEncoding::None)
        : bytes_(std::move(bytes)), encoding_(encoding) {}

    const std::string& bytes() const { return bytes_; }
    std::string& bytes() { return bytes_; }
    TextEncoding encoding() const { return encoding_; }
    void setEncoding(TextEncoding encoding) { encoding_ = encoding; }
    std::size_t size() const { return bytes_.size(); }
    bool empty() const { return bytes_.empty(); }
    const char* data() const { return bytes_.data(); }
    unsigned char byteAt(std::size_t offset) const {
        return static_cast<unsigned char>(bytes_[offset]);
    }
    std::string_view view() const { return bytes_; }

    bool sameBytes(const String& other) const { return bytes_ == other.bytes_; }

    String& operator+=(const String& other);

    friend String operator+(String left, const String& right) { return left += right; }
    friend bool operator==(const String& a, const String& b) {
        return equalFolded(a.view(), b.view());
    }

    // ASCII case-insensitive comparison and hash, shared with Dictionary keys.
    static bool equalFolded(std::string_view a, std::string_view b);
    static std::size_t hashFolded(std::string_view text);

private:
    std::string bytes_;
    TextEncoding encoding_ = TextEncoding::None;
};

}  // namespace host
