#include "core/App.h"

#include <array>

#include "core/Globals.h"
#include "host/Clock.h"
#include "host/ExceptionWrapper.h"
#include "host/IllegalCastException.h"
#include "host/KeyNotFoundException.h"
#include "host/LogChannel.h"
#include "host/NilObjectException.h"
#include "host/OutOfBoundsException.h"
#include "host/OutOfMemoryException.h"
#include "host/Print.h"
#include "host/Random.h"
#include "host/ShellNotRunningException.h"
#include "host/StackOverflowException.h"
#include "host/StringFunctions.h"
#include "host/TypeMismatchException.h"
#include "host/UnsupportedFormatException.h"
#include "link/AmbrelisSupport.h"
#include "scan/SweepTiming.h"
#include "scan/cScanner.h"
#include "wire/cAmbrelisCommand.h"

using host::String;

namespace {

const char* const kCreditLine = "Copyright Tamsvale. All rights reserved.";
constexpr std::int64_t kLastFlushMilliseconds = 1000;

template <class T>
bool isA(const host::RuntimeException& err) {
    return dynamic_cast<const T*>(&err) != nullptr;
}

struct GuardRow {
    bool (*matches)(const host::RuntimeException&);
    const char* line;
};

// Tested in this order, first match wins; the wordings differ on purpose and stay as they are.
constexpr auto kGuardRows = std::to_array<GuardRow>({
    {isA<host::OutOfBoundsException>, "An unhandled OutOfBounds Exception was trapped globally."},
    {isA<host::NilObjectException>, "An unhandled NilObject Exception was trapped globally."},
    {isA<host::IllegalCastException>, "An unhandled IllegalCastException was trapped globally."},
    {isA<host::KeyNotFoundException>, "An unhandled KeyNotFoundException was trapped globally."},
    {isA<host::OutOfMemoryException>, "An unhandled OutOfMemoryException was trapped globally."},
    {isA<host::ShellNotRunningException>,
     "An unhandled ShellNotRunningException was trapped globally."},
    {isA<host::StackOverflowException>, "A StackOverflowException has been handled globally."},
    {isA<host::TypeMismatchException>, "A TypeMismatchException has been handled globally."},
    {isA<host::UnsupportedFormatException>,
     "An UnsupportedFormatException has been handled globally."},
});

String guardLine(const host::RuntimeException& err) {
    for (const GuardRow& row : kGuardRows) {
        if (row.matches(err)) {
            return row.line;
        }
    }
    return "an unhandled exception was trapped globally.";
}

}  // namespace

App::App() {
    MajorVersion = 2;
    MinorVersion = 0;
    BugVersion = 4;
    NonReleaseVersion = 5;
    StageCode = 3;
    LongVersion = "2.0 (build 3)";
    ShortVersion = "2.0.4";
    Copyright = kCreditLine;
}

void App::wireLayers() {
    // The record store logs through the host's channel; its lines take the same road.
    host::LogChannel::setSink(&Globals::writelog);
    cAmbrelisCommand::hooks = {&AmbrelisSupport::ErrorPacketReceived,
                               &AmbrelisSupport::LogCommandReceived,
                               &AmbrelisSupport::gSignalStrength};
}

bool App::sweepIsDue(const host::Date& lastSweepEnd, const host::Date& now) {
    return now.TotalSeconds() - lastSweepEnd.TotalSeconds() > SweepTiming::kPeriodSeconds;
}

std::int64_t App::Event_Run(const host::Array<String>& args) {
    std::int64_t status = 1;
    host::ExceptionWrapper::run([&] { status = runDriver(args); });
    // What is queued on the way out, the guard's report of what ended the run included, still
    // reaches the controller.
    if (AmbrelisSupport::AmbrelisSocket) {
        AmbrelisSupport::AmbrelisSocket->flushWithin(kLastFlushMilliseconds);
    }
    return status;
}

std::int64_t App::runDriver(const host::Array<String>& args) {
    if (args.Ubound() == 1) {
        host::Print("Ambrelis Arp Table Presence Driver" + host::Chr(13));
        host::Print(String(kCreditLine) + host::Chr(13));
        host::Print("version 2 (build 003)" + host::Chr(13));
    } else {
        host::Random random;
        DoEvents(random.InRange(100, 500));
        std::int64_t start = host::Ticks();
        const String& address = args[2];
        std::int64_t port = host::truncateToInt64(host::Val(args[3]));
        const String& connectionID = args[4];

        AmbrelisSupport::OpenAmbrelisConnection(address, port, connectionID);
        if (!AmbrelisSupport::WaitForAmbrelisConnection(15)) {
            host::Print("Tamsvale: Timeout waiting for answer from Ambrelis" + host::Chr(13));
        } else {
            if (Globals::DebugMode) {
                Globals::writelog("Ambrelis connection successful after: " +
                                      host::Str(host::Ticks() - start) + " ticks.",
                                  4);
            }
            Globals::writelog("Tamsvale driver version " + LongVersion + " Ready...", 2);
            DoEvents(1000);

            auto getUnits = host::New<cAmbrelisCommand>();
            getUnits->Constructor();
            getUnits->SetMulti("mcmd", "getUnits");
            AmbrelisSupport::AmbrelisSocket->SendCommand(getUnits);

            Globals::gScanner = host::New<cScanner>();
            Globals::gScanner->Constructor();
            Globals::gScanner->DoScan();
            host::Date lastSweepEnd;

            while (!Globals::DoQuit) {
                DoEvents(SweepTiming::kLoopTurnMilliseconds);
                const host::Date now;
                if (sweepIsDue(lastSweepEnd, now)) {
                    Globals::gScanner->DoScan();
                    lastSweepEnd = host::Date();
                } else {
                    Globals::gScanner->prepareScan(
                        SweepTiming::kPeriodSeconds -
                        (now.TotalSeconds() - lastSweepEnd.TotalSeconds()));
                }
            }
        }
    }

    // Pings still running are not waited for.
    constexpr std::int64_t kLastTurnMilliseconds = 10;
    for (std::int64_t turn = 1;
         turn <= SweepTiming::kLastEventsMilliseconds / kLastTurnMilliseconds; ++turn) {
        DoEvents(kLastTurnMilliseconds);
    }
    return 0;
}

bool App::Event_UnhandledException(const host::RuntimeException& err) {
    Globals::writelog(guardLine(err), 4);
    LogStack(err);
    return true;
}

void App::LogStack(const host::RuntimeException& err) {
    const auto& stack = err.Stack;
    for (std::int64_t i = 0; i <= stack.Ubound(); ++i) {
        Globals::writelog(stack[i], 4);
    }
}
