#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "host/Array.h"
#include "host/EventPump.h"
#include "host/String.h"

namespace host {

// A child process of the host. Mode 0 runs synchronously: Execute returns when the child has
// ended, with Result and ErrorCode complete, and delivers no event meanwhile. Mode 1 returns at
// once; the end arrives as Event_Completed inside the pump, exactly once per Execute, and the
// pump keeps the object alive until then. Standard output and standard error share one pipe;
// the executable is found through PATH, then in the system folders; no shell stands in between
// except for the whole command-line form. Every child is reaped; a child killed by signal n has
// ErrorCode 128 + n, and one that could not be started has 127.
class Shell : public std::enable_shared_from_this<Shell> {
public:
    Shell();
    virtual ~Shell();
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    std::int64_t Mode = 0;

    // A whole command line, run by /bin/sh -c.
    virtual void Execute(const String& command);
    // An executable and its parameters in one string, split at blanks.
    virtual void Execute(const String& executable, const String& parameters);
    // Output not yet read by ReadAll.
    virtual String ReadAll();
    // To the running child's standard input; ShellNotRunningException when none runs.
    virtual void Write(const String& text);
    virtual void WriteLine(const String& text);
    // Kills the running child; in mode 1 its Event_Completed still follows.
    virtual void Close();
    // Serves this object's pending child events now.
    virtual void Poll();

    // Each element one argument, exactly as given: no splitting, no shell, no option parsing.
    void executeArguments(const String& executable, const Array<String>& arguments);
    // Blocks until every running child has ended or `milliseconds` have passed, delivering
    // nothing: in mode 1 their ends still come as events in the pump.
    void waitWhileRunning(std::int64_t milliseconds);

    // Everything the last child wrote; complete once it has ended.
    const String& Result() const { return result_; }
    // The last child's exit code, or -1 while it runs.
    std::int64_t ErrorCode() const { return errorCode_; }
    bool IsRunning() const { return !children_.empty(); }

protected:
    virtual void Event_Completed() {}

private:
    struct Child;

    void start(const std::vector<std::string>& argv, bool searchPath);
    // Mode 0: blocks on this child alone until it has ended.
    void waitFor(Child& child);
    // Mode 1: hands the child to the pump, which keeps `self` until its end is delivered.
    void watchChild(Child& child, const std::shared_ptr<Shell>& self);
    void collect(Child& child, std::size_t limit);
    void onExit(Child& child);
    // After the exit: takes the rest of the output, reaps the child, sets Result and ErrorCode.
    void finish(Child& child);

    String result_;
    std::int64_t errorCode_ = 0;
    std::size_t unread_ = 0;  // bytes of result_ already returned by ReadAll
    std::vector<std::unique_ptr<Child>> children_;
};

}  // namespace host
