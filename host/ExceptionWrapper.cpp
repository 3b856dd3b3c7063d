#include "host/ExceptionWrapper.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>

#include "host/EndException.h"
#include "host/IllegalCastException.h"
#include "host/OutOfBoundsException.h"
#include "host/OutOfMemoryException.h"
#include "host/ThreadEndException.h"

namespace host {

namespace {

ExceptionWrapper::Handler& installedHandler() {
    static ExceptionWrapper::Handler handler;
    return handler;
}

// Hands the exception in flight to `deliver` as a host exception. Only call from a catch block.
template <class Deliver>
void deliverInFlight(Deliver deliver) {
    try {
        throw;
    } catch (const RuntimeException& err) {
        deliver(err);
    } catch (const std::bad_alloc&) {
        deliver(OutOfMemoryException(String("out of memory")));
    } catch (const std::out_of_range& err) {
        deliver(OutOfBoundsException(String(err.what())));
    } catch (const std::bad_cast& err) {
        deliver(IllegalCastException(String(err.what())));
    } catch (const std::exception& err) {
        deliver(RuntimeException(String(err.what())));
    } catch (...) {
        deliver(RuntimeException(String("exception of unknown type")));
    }
}

}  // namespace

void ExceptionWrapper::setHandler(Handler handler) {
    installedHandler() = std::move(handler);
}

bool ExceptionWrapper::run(const std::function<void()>& work) {
    try {
        work();
        return true;
    } catch (const EndException&) {
    } catch (const ThreadEndException&) {
    } catch (...) {
        deliverInFlight(&ExceptionWrapper::dispatch);
    }
    return false;
}

void ExceptionWrapper::dispatch(const RuntimeException& err) {
    // A copy, so that a handler that installs another handler does not destroy itself.
    Handler handler = installedHandler();
    if (!handler) {
        defaultReport(err);
    }
    // What the handler itself throws is reported, not offered to it again.
    try {
        if (handler(err)) {
            return;
        }
    } catch (...) {
        deliverInFlight(&ExceptionWrapper::defaultReport);
    }
    defaultReport(err);
}

void ExceptionWrapper::defaultReport(const RuntimeException& err) {
    // One write for the whole report, so it is not interleaved with other output.
    std::string report = std::string("Unhandled ") + err.className() + ": " + err.Message.bytes();
    report += '\n';
    for (const String& frame : err.Stack) {
        report += "    " + frame.bytes() + '\n';
    }
    std::fwrite(report.data(), 1, report.size(), stderr);
    std::exit(1);
}

}  // namespace host
