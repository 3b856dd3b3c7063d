#include "host/EventPump.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "host/Deadline.h"
#include "host/ExceptionWrapper.h"
#include "host/IOException.h"

namespace host {

namespace {

// poll() that resumes after a signal (EINTR) with the time still left.
int pollFor(pollfd* fds, nfds_t count, int timeoutMs) {
    const Deadline deadline = Deadline::in(std::chrono::milliseconds(std::max(timeoutMs, 0)));
    for (;;) {
        int ready = ::poll(fds, count, timeoutMs);
        if (ready >= 0) {
            return ready;
        }
        if (errno != EINTR) {
            int error = errno;
            throw IOException(String(std::string("poll: ") + std::strerror(error)), error);
        }
        if (timeoutMs > 0) {
            timeoutMs = deadline.pollTimeout();
        }
    }
}

}  // namespace

EventPump& EventPump::instance() {
    // Never destroyed: objects that outlive main (statics, a watch's keepAlive) still unwatch
    // themselves from their destructors during exit.
    static auto* pump = new EventPump;
    return *pump;
}

EventPump::WatchId EventPump::watch(int fd, short events, Handler handler,
                                    std::shared_ptr<void> keepAlive) {
    WatchId id = nextId_++;
    watches_.push_back(Watch{id, fd, events, std::move(handler), std::move(keepAlive)});
    return id;
}

void EventPump::setEvents(WatchId id, short events) {
    if (Watch* entry = find(id)) {
        entry->events = events;
    }
}

void EventPump::unwatch(WatchId id) {
    if (Watch* entry = find(id)) {
        watches_.erase(watches_.begin() + (entry - watches_.data()));
    }
}

void EventPump::post(std::function<void()> task, std::shared_ptr<void> keepAlive) {
    posted_.push_back(Task{std::move(task), std::move(keepAlive)});
}

void EventPump::run(std::int64_t milliseconds) {
    if (milliseconds <= 0) {
        runOnce(0);
        return;
    }
    runUntil(milliseconds, [] { return false; });
}

void EventPump::runUntil(std::int64_t milliseconds, const std::function<bool()>& done) {
    const Deadline deadline = Deadline::in(std::chrono::milliseconds(milliseconds));
    while (!done()) {
        runOnce(deadline.pollTimeout());
        if (deadline.passed()) {
            return;
        }
    }
}

void EventPump::runOnce(int timeoutMs) {
    runPosted();
    if (!posted_.empty()) {
        timeoutMs = 0;
    }

    // Taken out of the members for this turn: a handler that pumps again builds its own set.
    std::vector<pollfd> fds;
    std::vector<WatchId> ids;
    fds.swap(pollSet_);
    ids.swap(pollIds_);
    fds.clear();
    ids.clear();
    for (const Watch& entry : watches_) {
        fds.push_back(pollfd{entry.fd, entry.events, 0});
        ids.push_back(entry.id);
    }

    pollFor(fds.data(), fds.size(), timeoutMs);
    for (std::size_t i = 0; i < fds.size(); ++i) {
        if (fds[i].revents != 0) {
            dispatch(ids[i], fds[i].revents);
        }
    }

    fds.swap(pollSet_);
    ids.swap(pollIds_);
}

void EventPump::serviceNow(WatchId id) {
    Watch* entry = find(id);
    if (entry == nullptr) {
        return;
    }
    pollfd probe{entry->fd, entry->events, 0};
    if (pollFor(&probe, 1, 0) > 0) {
        dispatch(id, probe.revents);
    }
}

EventPump::Watch* EventPump::find(WatchId id) {
    auto it = std::find_if(watches_.begin(), watches_.end(),
                           [id](const Watch& entry) { return entry.id == id; });
    return it == watches_.end() ? nullptr : &*it;
}

void EventPump::dispatch(WatchId id, short revents) {
    // Looked up again: an earlier handler of this turn may have unwatched it.
    Watch* entry = find(id);
    if (entry == nullptr) {
        return;
    }
    // An earlier handler may also have narrowed its interest since the poll.
    revents = static_cast<short>(revents & (entry->events | POLLERR | POLLHUP | POLLNVAL));
    if (revents == 0) {
        return;
    }
    // Copies: the handler may unwatch itself, which destroys the stored ones, and the
    // keepAlive may be the last reference to the object the handler belongs to.
    Handler handler = entry->handler;
    std::shared_ptr<void> keepAlive = entry->keepAlive;
    ExceptionWrapper::run([&] { handler(revents); });
}

void EventPump::runPosted() {
    // Only what was posted before this turn; tasks posted now wait for the next one.
    std::deque<Task> batch;
    batch.swap(posted_);
    while (!batch.empty()) {
        Task task = std::move(batch.front());
        batch.pop_front();
        ExceptionWrapper::run(task.run);
    }
}

}  // namespace host
