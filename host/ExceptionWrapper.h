#pragma once

#include <functional>

#include "host/RuntimeException.h"

namespace host {

// Runs one unit of work (an event handler, or the run procedure) the way the host does:
// EndException and ThreadEndException are swallowed; any other RuntimeException goes to the
// installed handler; a handler that returns false, or none installed, ends the process with a
// report on standard error and status 1. Standard-library failures are translated at this edge
// (bad_alloc to OutOfMemoryException, out_of_range to OutOfBoundsException, bad_cast to
// IllegalCastException, the rest to RuntimeException), so nothing escapes as a crash.
class ExceptionWrapper {
public:
    using Handler = std::function<bool(const RuntimeException&)>;

    static void setHandler(Handler handler);
    // True when the work ran to its end; false when it left through an exception that was
    // swallowed or handled.
    static bool run(const std::function<void()>& work);

private:
    [[noreturn]] static void defaultReport(const RuntimeException& err);
    // Returns only when the installed handler took the error.
    static void dispatch(const RuntimeException& err);
};

}  // namespace host
