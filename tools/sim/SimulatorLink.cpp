#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/StringFunctions.h"
#include "tools/sim/Printable.h"
#include "tools/sim/Simulator.h"

namespace sim {

namespace {

constexpr std::size_t kReadChunk = 65536;
constexpr std::size_t kMostOutputLine = 4096;
constexpr std::size_t kMostShownValue = 60;
// "NoOp" numbers its property pairs from 0; the driver sends two at most.
constexpr int kMostProperties = 10;

std::string milliseconds(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms", seconds * 1000);
    return text.data();
}

std::string trimmed(const host::String& text) {
    return host::Trim(text).bytes();
}

// The address as the driver wrote it and the name of its unit.
std::string who(const std::string& address, const PresenceTable::Row& row) {
    return Printable::of(address) + "  " + Printable::of(row.name.empty() ? "-" : row.name);
}

std::string responseText(const std::string& responseTime) {
    return responseTime.empty() ? "" : "  " + Printable::of(responseTime) + " ms";
}

}  // namespace

void Simulator::acceptDriver() {
    const int fd = listener_.accept();
    if (fd < 0) {
        return;
    }
    // The driver connects once; nobody else is let in.
    listener_.close();
    client_ = fd;
    phase_ = Phase::Linked;
    notice("the driver connected");
}

bool Simulator::readLink() {
    std::array<char, kReadChunk> buffer;
    const ssize_t got = ::read(client_, buffer.data(), buffer.size());
    if (got == 0) {
        linkLost("the driver closed the link");
        return false;
    }
    if (got < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            linkLost(std::string("the link failed: ") + std::strerror(errno));
        }
        return false;
    }
    stream_.append(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
    while (auto item = stream_.next()) {
        handle(*item);
    }
    return true;
}

void Simulator::writeLink() {
    while (!outgoing_.empty()) {
        const ssize_t sent = ::send(client_, outgoing_.data(), outgoing_.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno != EAGAIN && errno != EINTR) {
                linkLost(std::string("the link failed: ") + std::strerror(errno));
            }
            return;
        }
        outgoing_.erase(0, static_cast<std::size_t>(sent));
    }
}

bool Simulator::send(const std::string& bytes) {
    if (client_ < 0) {
        notice("no link: nothing sent");
        return false;
    }
    outgoing_ += bytes;
    writeLink();
    return true;
}

void Simulator::linkLost(const std::string& why) {
    notice(why);
    ::close(client_);
    client_ = -1;
    outgoing_.clear();
    // A driver without its link ends on its own; it gets the same time as after "close".
    phase_ = Phase::Closing;
    giveTimeToEnd();
}

void Simulator::handle(const DriverStream::Item& item) {
    switch (item.kind) {
        case DriverStream::Item::Kind::Greeting: {
            const std::string expected = "ard:" + options_.connectionId;
            if (item.text == expected) {
                notice("greeting " + Printable::of(item.text) + " ok");
            } else {
                notice("wrong greeting: expected \"" + Printable::of(expected + "\r") +
                       "\", got \"" + Printable::of(item.text + "\r") + "\"");
            }
            break;
        }
        case DriverStream::Item::Kind::Garbage:
            notice("stream: " + item.text);
            break;
        case DriverStream::Item::Kind::Message:
            handleMessage(*item.message);
            break;
    }
}

void Simulator::handleMessage(cAmbrelisCommand& message) {
    const host::String verb = message.GetMulti("mcmd");
    if (verb == "WrtL") {
        const std::string line = message.GetMulti("DATA").bytes();
        display_->event(now(), "log: " + Printable::of(line));
        table_.addLog(line);
        clock_.logLine(now(), line);
    } else if (verb == "getUnits") {
        clock_.unitsAsked(now());
        send(setUnitsPacket_);
        notice("getUnits: sent setUnits with " + std::to_string(options_.units.units().size()) +
               " units (" + std::to_string(setUnitsPacket_.size()) + " bytes)");
    } else if (verb == "ON" || verb == "OFF") {
        reportPresence(message,
                       verb == "ON" ? PresenceTable::State::On : PresenceTable::State::Off);
    } else if (verb == "NoOp") {
        reportResponse(message);
    } else if (verb == "PSrp") {
        notice("ping answered (PSrp)" +
               (pingSentAt_ ? " after " + milliseconds(now() - *pingSentAt_) : std::string()));
        pingSentAt_.reset();
    } else {
        std::string pairs;
        const auto keys = message.GetKeys();
        for (std::int64_t i = 0; i < keys.Count(); ++i) {
            const std::string value = message.GetMulti(keys[i]).bytes();
            pairs += " " + Printable::of(keys[i].bytes()) + "=" +
                     Printable::of(value.substr(0, kMostShownValue)) +
                     (value.size() > kMostShownValue ? "..." : "");
        }
        notice("other message:" + (pairs.empty() ? std::string(" (no keys)") : pairs));
    }
}

void Simulator::reportPresence(cAmbrelisCommand& message, PresenceTable::State state) {
    const std::string address = message.GetMulti("addr").bytes();
    const bool update = message.GetMulti("UpDt") == "true";
    clock_.reported(now());
    const auto& row = table_.setState(address, state, now());
    display_->event(now(), std::string(state == PresenceTable::State::On ? "ON  " : "OFF ") +
                               who(address, row) + responseText(row.responseTime) +
                               (update ? "  (update)" : ""));
}

void Simulator::reportResponse(cAmbrelisCommand& message) {
    std::string ip;
    std::string responseTime;
    for (int n = 0; n < kMostProperties; ++n) {
        const host::String name = message.GetMulti("UPN" + host::Str(n));
        if (name.empty()) {
            break;
        }
        const host::String value = message.GetMulti("UPV" + host::Str(n));
        if (name == "IP") {
            ip = trimmed(value);
        } else if (name == "response time") {
            responseTime = trimmed(value);
        }
    }
    const std::string address = message.GetMulti("addr").bytes();
    clock_.reported(now());
    const auto& row = table_.setResponse(address, ip, responseTime);
    display_->event(now(), "NoOp " + who(address, row) + responseText(responseTime) +
                               (ip.empty() ? "" : "  IP " + Printable::of(ip)));
}

bool Simulator::readDriverOutput() {
    std::array<char, kReadChunk> buffer;
    const ssize_t got = ::read(driver_->outputFd(), buffer.data(), buffer.size());
    if (got <= 0) {
        if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
            driver_->closeOutput();
        }
        return false;
    }
    driverOutput_.append(buffer.data(), static_cast<std::size_t>(got));
    std::size_t end;
    while ((end = driverOutput_.find('\n')) != std::string::npos) {
        driverSays(driverOutput_.substr(0, end));
        driverOutput_.erase(0, end + 1);
    }
    if (driverOutput_.size() > kMostOutputLine) {
        driverSays(std::move(driverOutput_));
        driverOutput_.clear();
    }
    return true;
}

void Simulator::driverSays(std::string line) {
    // The driver frames its direct lines with carriage returns.
    const std::string text = trimmed(host::ReplaceAll(host::String(std::move(line)), "\r", ""));
    if (!text.empty()) {
        notice("driver output: " + Printable::of(text));
    }
}

}  // namespace sim
