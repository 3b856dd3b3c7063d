#pragma once

#include <cstdint>

#include "host/Array.h"
#include "host/ConsoleApplication.h"
#include "host/Date.h"
#include "host/RuntimeException.h"
#include "host/String.h"

// The application object: the whole life of the process is Event_Run.
class App : public host::ConsoleApplication {
public:
    App();

    std::int64_t Event_Run(const host::Array<host::String>& args) override;
    // The failure guard: names the class of what escaped a handler, logs its stack, and
    // always reports it handled so that the pump goes on.
    bool Event_UnhandledException(const host::RuntimeException& err) override;
    virtual void LogStack(const host::RuntimeException& err);

    // Declared and never used.
    std::int64_t SleepTime = 0;

    // Hands the lower layers the driver's log call and the message reader's hooks; the first
    // thing a process that runs driver code does.
    static void wireLayers();

    // A sweep is due once strictly more than 30 seconds have passed since the last one ended.
    static bool sweepIsDue(const host::Date& lastSweepEnd, const host::Date& now);

private:
    std::int64_t runDriver(const host::Array<host::String>& args);
};
