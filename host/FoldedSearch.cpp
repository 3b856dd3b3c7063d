#include <algorithm>
#include <string>

#include "host/StringFunctions.h"
#include "host/TextUnits.h"

namespace host {

namespace {

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

}  // namespace

String NthField(const String& text, const String& separator, std::int64_t n) {
    if (separator.empty() || n < 1) {
        return n == 1 ? text : slice(text, 0, 0);
    }
    std::string_view s = text.view();
    std::size_t begin = 0;
    for (std::int64_t field = 1; field < n; ++field) {
        std::size_t at = findFolded(s, separator.view(), begin);
        if (at == kNotFound) {
            return slice(text, 0, 0);
        }
        begin = at + separator.size();
    }
    std::size_t end = findFolded(s, separator.view(), begin);
    return slice(text, begin, end == kNotFound ? kNotFound : end - begin);
}

std::int64_t InStr(std::int64_t start, const String& text, const String& find) {
    bool characters = countsCharacters(text);
    std::uint64_t skipped = start < 1 ? 0 : static_cast<std::uint64_t>(start - 1);
    if (skipped > static_cast<std::uint64_t>(Len(text))) {
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

// Every piece but the last ends where a separator (or, without one, a unit) begins.
Array<String> Split(const String& text, const String& separator) {
    Array<String> pieces;
    std::string_view s = text.view();
    std::size_t begin = 0;
    if (separator.empty()) {
        bool characters = countsCharacters(text);
        for (std::size_t end; (end = begin + unitOffset(s.substr(begin), 1, characters)) < s.size();
             begin = end) {
            pieces.Append(slice(text, begin, end - begin));
        }
    } else {
        for (std::size_t at; (at = findFolded(s, separator.view(), begin)) != kNotFound;
             begin = at + separator.size()) {
            pieces.Append(slice(text, begin, at - begin));
        }
    }
    pieces.Append(slice(text, begin, kNotFound));
    return pieces;
}

String Trim(const String& text) {
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    std::size_t begin = text.view().find_first_not_of(kBlanks);
    if (begin == kNotFound) {
        return slice(text, 0, 0);
    }
    return slice(text, begin, text.view().find_last_not_of(kBlanks) + 1 - begin);
}

String ReplaceAll(const String& text, const String& find, const String& replacement) {
    if (find.empty()) {
        return text;
    }
    std::string_view s = text.view();
    std::string out;
    out.reserve(s.size());
    std::size_t begin = 0;
    for (std::size_t at; (at = findFolded(s, find.view(), begin)) != kNotFound;
         begin = at + find.size()) {
        out.append(s, begin, at - begin);
        out += replacement.view();
    }
    out.append(s, begin);
    return String(std::move(out), text.encoding());
}

}  // namespace host
