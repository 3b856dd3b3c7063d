#include "host/LogChannel.h"

#include <utility>

#include "host/Print.h"

namespace host {

namespace {
LogChannel::Sink& sink() {
    static LogChannel::Sink installed;
    return installed;
}
}  // namespace

void LogChannel::setSink(Sink next) {
    sink() = std::move(next);
}

void LogChannel::write(const String& text, std::int64_t level) {
    if (sink()) {
        sink()(text, level);
    } else {
        Print(text);
    }
}

}  // namespace host
