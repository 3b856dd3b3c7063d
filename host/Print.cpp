#include "host/Print.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace host {

void Print(const String& text) {
    // One buffer, so that a line normally leaves in one write and is not interleaved with
    // another writer's.
    std::string line;
    line.reserve(text.size() + 1);
    line += text.bytes();
    line += '\n';
    const char* next = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t written = ::write(STDOUT_FILENO, next, left);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        next += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace host
