#pragma once

#include <sys/types.h>

namespace testsupport {

// Descriptors this process holds open, from /proc/self/fd.
int openDescriptors();
// Whether this process has a child, running or not yet reaped.
bool hasChildren();
// Makes this process the reaper of its orphaned descendants: a grandchild left running then
// counts among its children.
void adoptOrphans();
// Kills and reaps every child of this process, and the orphans that come of it; how many.
int endChildren();
// CPU time of a process's main thread in seconds, children excluded, from the nanosecond count
// in /proc/<pid>/schedstat: the clock ticks of /proc/<pid>/stat are too coarse.
double cpuSeconds(pid_t pid);
// Resident memory of a process, VmRSS from /proc/<pid>/status; -1 when it cannot be read.
long residentKilobytes(pid_t pid);

}  // namespace testsupport
