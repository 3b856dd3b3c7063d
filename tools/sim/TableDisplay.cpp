#include "tools/sim/TableDisplay.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "tools/sim/Printable.h"

namespace sim {

namespace {

constexpr std::size_t kAddressWidth = 18;  // a hardware address and a blank
constexpr std::size_t kStateWidth = 6;
constexpr std::size_t kResponseWidth = 11;
constexpr std::size_t kIpWidth = 16;
constexpr std::size_t kChangedWidth = 10;  // "59m59s ago"
constexpr std::size_t kLeastNameWidth = 12;
constexpr std::size_t kClockWidth = 9;  // "12:34:56 "
// Two status lines, blank, titles, blank, log title, keys.
constexpr std::size_t kFixedLines = 7;

constexpr const char* kKeys = "keys: p ping   d debug on/off   D debug (control)   c/q close";
// The driver reads the unit list after its first sweep, so a unit it pings is first pinged at
// the second.
constexpr int kFirstUnitPingSweep = 2;

bool isHardware(const std::string& address) {
    return address.find(':') != std::string::npos;
}

// An "OFF" under a hardware address says less than it seems: see the note.
bool isOffByHardware(const PresenceTable::Row& row) {
    return row.state == PresenceTable::State::Off && isHardware(row.address);
}

constexpr const char* kOffByHardwareNote =
    "OFF* by hardware address: not in the neighbour table when the driver looked, or no answer to "
    "ping (some hosts drop every ping); the driver says ON only once that changes.";

std::string ago(double seconds) {
    const long s = std::max(0L, static_cast<long>(seconds));
    std::array<char, 32> text{};
    if (s < 60) {
        std::snprintf(text.data(), text.size(), "%lds ago", s);
    } else if (s < 3600) {
        std::snprintf(text.data(), text.size(), "%ldm%02lds ago", s / 60, s % 60);
    } else {
        std::snprintf(text.data(), text.size(), "%ldh%02ldm ago", s / 3600, s % 3600 / 60);
    }
    return text.data();
}

std::string clockTime(std::time_t at) {
    std::tm local{};
    ::localtime_r(&at, &local);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    return text.data();
}

const char* stateWord(const PresenceTable::Row& row) {
    if (row.state == PresenceTable::State::Unknown) {
        return "-";
    }
    return row.state == PresenceTable::State::On ? "ON" : isOffByHardware(row) ? "OFF*" : "OFF";
}

std::string nameOf(const PresenceTable::Row& row) {
    if (!row.name.empty()) {
        return Printable::of(row.name);
    }
    return row.ipUnitName.empty() ? "-" : "(" + Printable::of(row.ipUnitName) + ")";
}

}  // namespace

TableDisplay::TableDisplay(const PresenceTable& table, const SweepClock& clock)
    : table_(table), clock_(clock) {}

std::string TableDisplay::waiting(const PresenceTable::Row& row, double now) const {
    if (clock_.stopped()) {
        return "no report before close";
    }
    if (clock_.sweepAt(now) == 0) {
        return "waiting for the driver to ask for its units";
    }
    if (isHardware(row.address)) {
        return row.isUnit ? "told once the driver has read the unit list"
                          : "looked for in the neighbour table at every sweep";
    }
    if (clock_.sweepAt(now) < kFirstUnitPingSweep) {
        const double left = std::ceil(clock_.startOf(kFirstUnitPingSweep) - now);
        return "first ping at sweep 2, in " + std::to_string(static_cast<long>(left)) + "s";
    }
    return "first ping under way";
}

std::string TableDisplay::rowLine(const PresenceTable::Row& row, double now,
                                  std::size_t nameWidth) const {
    std::string line = Printable::clip(Printable::of(row.address), kAddressWidth - 1) + " " +
                       Printable::clip(nameOf(row), nameWidth - 1) + " " +
                       Printable::fit(stateWord(row), kStateWidth);
    if (row.state == PresenceTable::State::Unknown) {
        return line + waiting(row, now);
    }
    return line +
           Printable::fit(row.responseTime.empty() ? "" : Printable::of(row.responseTime) + " ms",
                          kResponseWidth) +
           Printable::clip(Printable::of(row.ip), kIpWidth - 1) + " " + ago(now - row.changedAt);
}

std::vector<std::string> TableDisplay::screen(double now, const std::string& status,
                                              std::size_t columns, std::size_t lines) const {
    // One column short of the edge, so that no line wraps.
    const std::size_t width = columns > 1 ? columns - 1 : columns;
    const std::size_t nameWidth = std::max(
        kLeastNameWidth, width - std::min(width, kAddressWidth + kStateWidth + kResponseWidth +
                                                     kIpWidth + kChangedWidth));
    std::vector<std::string> out;
    const auto put = [&](const std::string& line) {
        std::string shown = Printable::clip(line, width);
        shown.erase(shown.find_last_not_of(' ') + 1);
        out.push_back(std::move(shown));
    };

    const std::size_t cut = status.find('\n');
    put(status.substr(0, cut));
    put(cut == std::string::npos ? "" : status.substr(cut + 1));
    put("");
    put(Printable::fit("ADDRESS", kAddressWidth) + Printable::fit("NAME", nameWidth) +
        Printable::fit("STATE", kStateWidth) + Printable::fit("RESPONSE", kResponseWidth) +
        Printable::fit("IP", kIpWidth) + "CHANGED");

    std::vector<std::string> notes;
    const auto& rows = table_.rows();
    if (std::any_of(rows.begin(), rows.end(), isOffByHardware)) {
        notes = Printable::wrap(kOffByHardwareNote, width);
    }
    std::vector<std::string> log;
    for (const auto& entry : table_.log()) {
        const auto wrapped = Printable::wrap(Printable::of(entry.text), width - kClockWidth);
        for (std::size_t i = 0; i < wrapped.size(); ++i) {
            log.push_back(Printable::fit(i == 0 ? clockTime(entry.clock) : "", kClockWidth) +
                          wrapped[i]);
        }
    }
    const std::size_t room = lines > kFixedLines ? lines - kFixedLines : 0;
    const std::size_t wanted = rows.size() + notes.size();
    const std::size_t logRoom =
        std::min(log.size(), std::max(room / 2, room - std::min(room, wanted)));
    const std::size_t tableRoom = room - logRoom;
    const std::size_t rowRoom = tableRoom - std::min(tableRoom, notes.size());
    for (std::size_t i = 0; i < rows.size() && i < rowRoom; ++i) {
        put(i + 1 == rowRoom && rows.size() > rowRoom
                ? "... and " + std::to_string(rows.size() - i) + " more rows"
                : rowLine(rows[i], now, nameWidth));
    }
    for (std::size_t i = 0; i < notes.size() && out.size() < 4 + tableRoom; ++i) {
        put(notes[i]);
    }
    put("");
    put("log (local time):");
    for (std::size_t i = log.size() - logRoom; i < log.size(); ++i) {
        put(log[i]);
    }
    put(kKeys);
    return out;
}

void TableDisplay::show(double now, const std::string& status) {
    winsize size{};
    std::size_t columns = 80;
    std::size_t lines = 24;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        columns = size.ws_col;
        lines = size.ws_row;
    }
    std::string out = "\x1b[H";
    const auto shown = screen(now, status, columns, lines);
    for (std::size_t i = 0; i < shown.size(); ++i) {
        out += shown[i] + (i + 1 < shown.size() ? "\x1b[K\n" : "\x1b[K\x1b[J");
    }
    if (out != drawn_) {
        std::fputs(out.c_str(), stdout);
        std::fflush(stdout);
        drawn_ = std::move(out);
    }
}

}  // namespace sim
