#pragma once

#include <cstdint>

#include "host/String.h"
#include "host/TextEncoding.h"

namespace host {

// Standard Base64. A line length above 0 breaks the output into lines of that many characters,
// joined by EndOfLine. The result is untagged ASCII.
String EncodeBase64(const String& data, std::int64_t lineLength = 0);
// Skips line ends and any other byte outside the alphabet; stops at "=". The result carries the
// given tag (none by default).
String DecodeBase64(const String& text, TextEncoding encoding = TextEncoding::None);

}  // namespace host
