#include <limits>
#include <string>

#include "host/StringFunctions.h"
#include "host/TextUnits.h"

namespace host {

// Characters of a UTF-8 text begin at offset 0 and at every byte that is not a continuation byte,
// so broken sequences still count and cut consistently.
std::size_t characterCount(std::string_view bytes) {
    std::size_t count = bytes.empty() ? 0 : 1;
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        count += isContinuation(bytes[i]) ? 0 : 1;
    }
    return count;
}

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

String slice(const String& text, std::size_t offset, std::size_t length) {
    return String(std::string(text.view().substr(offset, length)), text.encoding());
}

namespace {

constexpr std::int64_t kAll = std::numeric_limits<std::int64_t>::max();

// Byte offset where the last count units begin; scanned from the end, as the text may be long.
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

String right(const String& text, std::int64_t count, bool characters) {
    std::size_t begin =
        count <= 0 ? text.size()
                   : offsetFromEnd(text.view(), static_cast<std::uint64_t>(count), characters);
    return slice(text, begin, kNotFound);
}

// A start below 1 counts as 1.
String mid(const String& text, std::int64_t start, std::int64_t length, bool characters) {
    std::uint64_t skipped = start < 1 ? 0 : static_cast<std::uint64_t>(start - 1);
    std::size_t begin = unitOffset(text.view(), skipped, characters);
    std::size_t size = length <= 0 ? 0
                                   : unitOffset(text.view().substr(begin),
                                                static_cast<std::uint64_t>(length), characters);
    return slice(text, begin, size);
}

}  // namespace

std::int64_t LenB(const String& text) {
    return static_cast<std::int64_t>(text.size());
}
String LeftB(const String& text, std::int64_t count) {
    return mid(text, 1, count, false);
}
String RightB(const String& text, std::int64_t count) {
    return right(text, count, false);
}
String MidB(const String& text, std::int64_t start) {
    return mid(text, start, kAll, false);
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
    return mid(text, 1, count, countsCharacters(text));
}
String Right(const String& text, std::int64_t count) {
    return right(text, count, countsCharacters(text));
}
String Mid(const String& text, std::int64_t start) {
    return mid(text, start, kAll, countsCharacters(text));
}
String Mid(const String& text, std::int64_t start, std::int64_t length) {
    return mid(text, start, length, countsCharacters(text));
}

}  // namespace host
