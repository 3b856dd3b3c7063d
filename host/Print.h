#pragma once

#include "host/String.h"

namespace host {

// Writes the text and a line end to standard output at once, unbuffered. A closed or broken
// standard output loses the line silently.
void Print(const String& text);

}  // namespace host
