#pragma once

namespace testsupport {

// Descriptors this process holds open, from /proc/self/fd.
int openDescriptors();
// Children of this process, running or not yet reaped, from /proc.
int childProcesses();

}  // namespace testsupport
