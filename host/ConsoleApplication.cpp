#include "host/ConsoleApplication.h"

#include "host/EventPump.h"
#include "host/ExceptionWrapper.h"

namespace host {

ConsoleApplication::ConsoleApplication() = default;

ConsoleApplication::~ConsoleApplication() = default;

int ConsoleApplication::Run(int argc, char** argv) {
    Array<String> args;
    for (int i = 0; i < argc; ++i) {
        args.Append(String(std::string(argv[i]), TextEncoding::UTF8));
    }
    return Run(args);
}

int ConsoleApplication::Run(const Array<String>& args) {
    ExceptionWrapper::setHandler(
        [this](const RuntimeException& err) { return Event_UnhandledException(err); });
    std::int64_t result = 1;
    ExceptionWrapper::run([&] { result = Event_Run(args); });
    // The handler points at this object, which may not outlive Run.
    ExceptionWrapper::setHandler({});
    return static_cast<int>(result);
}

void ConsoleApplication::DoEvents(std::int64_t milliseconds) {
    EventPump::instance().run(milliseconds);
}

bool ConsoleApplication::Event_UnhandledException(const RuntimeException& err) {
    (void)err;
    return false;
}

}  // namespace host
