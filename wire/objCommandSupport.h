#pragma once

#include "host/String.h"

// The security conditions of the command vocabulary. They have never been given values, so all
// six are empty: the first of them catches an empty command, and the others are never reached.
namespace objCommandSupport {

inline const host::String kCommSecurityMaxAlarm;
inline const host::String kCommSecurityMaxSafe;
inline const host::String kCommSecurityMinAlarm;
inline const host::String kCommSecurityMinSafe;
inline const host::String kCommSecurityMotion;
inline const host::String kCommSecurityNoMotion;

}  // namespace objCommandSupport
