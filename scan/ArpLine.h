#pragma once

#include "host/String.h"
#include "host/StringFunctions.h"

// The cuts of a neighbour-table line, "? (IP) at HW on IFACE", made the one way the scanner keys
// its hosts by and the device reads them back.
namespace ArpLine {

// Between the first "at " and the " on" after it, or everything behind "at ", untouched.
inline host::String hardwareAddress(const host::String& line) {
    return host::NthField(host::NthField(line, "at ", 2), " on", 1);
}

// Between the first "(" and the ")" after it.
inline host::String ipAddress(const host::String& line) {
    return host::NthField(host::NthField(line, "(", 2), ")", 1);
}

}  // namespace ArpLine
