#pragma once

#include <poll.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace host {

// The one event loop of the process: a poll() over the descriptors that sockets and running
// children have registered, plus tasks posted for the next turn. Handlers run one at a time, to
// their end, under the ExceptionWrapper, and only inside run() or runOnce(): nothing else in the
// host delivers events. A watch may hold a strong reference, so that an object whose last owner
// dropped it (a device with its ping still running) lives until its event has been delivered.
class EventPump {
public:
    using Handler = std::function<void(short revents)>;
    using WatchId = std::uint64_t;

    static EventPump& instance();

    WatchId watch(int fd, short events, Handler handler, std::shared_ptr<void> keepAlive = {});
    void setEvents(WatchId id, short events);
    // Safe from inside any handler, also for the watch being served.
    void unwatch(WatchId id);
    // Runs the task in the next turn of the pump, before waiting.
    void post(std::function<void()> task, std::shared_ptr<void> keepAlive = {});

    // The host's DoEvents: serves events until about `milliseconds` have passed, sleeping in
    // poll() in between. 0 or less serves what is ready now and returns.
    void run(std::int64_t milliseconds);
    // Serves events until `done` holds, checked before each wait, or about `milliseconds` have
    // passed.
    void runUntil(std::int64_t milliseconds, const std::function<bool()>& done);
    // One turn: posted tasks, then one poll() of at most timeoutMs, then its ready handlers.
    void runOnce(int timeoutMs);
    // Serves only the given watch, without waiting (a socket's or a child's own Poll).
    void serviceNow(WatchId id);

    std::size_t watchCount() const { return watches_.size(); }
    std::size_t postedCount() const { return posted_.size(); }

private:
    struct Watch {
        WatchId id;
        int fd;
        short events;
        Handler handler;
        std::shared_ptr<void> keepAlive;
    };
    struct Task {
        std::function<void()> run;
        std::shared_ptr<void> keepAlive;
    };

    Watch* find(WatchId id);
    void dispatch(WatchId id, short revents);
    void runPosted();

    std::vector<Watch> watches_;
    std::deque<Task> posted_;
    WatchId nextId_ = 1;
    std::vector<pollfd> pollSet_;
    std::vector<WatchId> pollIds_;
};

}  // namespace host
