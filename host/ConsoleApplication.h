#pragma once

#include <cstdint>

#include "host/Array.h"
#include "host/RuntimeException.h"
#include "host/String.h"

namespace host {

// Base of the application object: holds the version data, runs Event_Run under the exception
// wrapper with the argument array (element 0 the program's path) and makes its result the exit
// status. A run that leaves through an exception ends with status 1.
class ConsoleApplication {
public:
    ConsoleApplication();
    virtual ~ConsoleApplication();
    ConsoleApplication(const ConsoleApplication&) = delete;
    ConsoleApplication& operator=(const ConsoleApplication&) = delete;

    int Run(int argc, char** argv);
    int Run(const Array<String>& args);

    // The event pump; see EventPump::run.
    static void DoEvents(std::int64_t milliseconds);

    std::int64_t MajorVersion = 0;
    std::int64_t MinorVersion = 0;
    std::int64_t BugVersion = 0;
    std::int64_t NonReleaseVersion = 0;
    std::int64_t StageCode = 0;
    String LongVersion;
    String ShortVersion;
    String Copyright;

protected:
    virtual std::int64_t Event_Run(const Array<String>& args) = 0;
    // The host's last chance for an exception that left a handler; true means handled.
    virtual bool Event_UnhandledException(const RuntimeException& err);
};

}  // namespace host
