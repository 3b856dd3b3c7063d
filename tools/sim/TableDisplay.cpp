#include "tools/sim/TableDisplay.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/sim/Printable.h"

namespace sim {

namespace {

constexpr std::size_t kAddressWidth = 19;
constexpr std::size_t kNameWidth = 20;
constexpr std::size_t kStateWidth = 6;
constexpr std::size_t kResponseWidth = 12;
constexpr std::size_t kIpWidth = 17;
// Status, blank, header, blank, log title, keys.
constexpr std::size_t kFixedLines = 6;

constexpr const char* kKeys =
    "keys: p ping   d debug on/off   D debug toggle (control)   c/q close";

std::string seconds(double at, int width = 0) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%*.1fs", width, at);
    return text.data();
}

const char* stateWord(PresenceTable::State state) {
    switch (state) {
        case PresenceTable::State::On:
            return "ON";
        case PresenceTable::State::Off:
            return "OFF";
        case PresenceTable::State::Unknown:
            break;
    }
    return "-";
}

std::string rowLine(const PresenceTable::Row& row) {
    return Printable::fit(Printable::of(row.address), kAddressWidth) +
           Printable::fit(Printable::of(row.name.empty() ? "-" : row.name), kNameWidth) +
           Printable::fit(stateWord(row.state), kStateWidth) +
           Printable::fit(row.responseTime.empty() ? "" : Printable::of(row.responseTime) + " ms",
                          kResponseWidth) +
           Printable::fit(Printable::of(row.ip), kIpWidth) +
           (row.changedAt < 0 ? std::string() : seconds(row.changedAt));
}

}  // namespace

TableDisplay::TableDisplay(const PresenceTable& table) : table_(table) {}

TableDisplay::~TableDisplay() {
    // The last picture stays on screen; what follows goes below it.
    std::fputs("\n", stdout);
    std::fflush(stdout);
}

void TableDisplay::event(double /*at*/, const std::string& /*line*/) {
    dirty_ = true;
}

void TableDisplay::show(const std::string& status) {
    if (!dirty_ && status == lastStatus_) {
        return;
    }
    dirty_ = false;
    lastStatus_ = status;

    winsize size{};
    std::size_t columns = 80;
    std::size_t lines = 24;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        columns = size.ws_col;
        lines = size.ws_row;
    }
    // One column short of the edge, so that no line wraps.
    const std::size_t width = columns > 1 ? columns - 1 : columns;
    std::string out = "\x1b[H";
    const auto put = [&](const std::string& line) {
        out += Printable::fit(line, width) + "\x1b[K\n";
    };

    const std::size_t room = lines > kFixedLines ? lines - kFixedLines : 0;
    const std::size_t logRoom = std::min(table_.log().size(), room / 2);
    const std::size_t rowRoom = room - logRoom;

    put(status);
    put("");
    put(Printable::fit("ADDRESS", kAddressWidth) + Printable::fit("NAME", kNameWidth) +
        Printable::fit("STATE", kStateWidth) + Printable::fit("RESPONSE", kResponseWidth) +
        Printable::fit("IP", kIpWidth) + "CHANGED");
    const auto& rows = table_.rows();
    for (std::size_t i = 0; i < rows.size() && i < rowRoom; ++i) {
        put(i + 1 == rowRoom && rows.size() > rowRoom
                ? "... and " + std::to_string(rows.size() - i) + " more"
                : rowLine(rows[i]));
    }
    put("");
    put("log:");
    const auto& log = table_.log();
    for (std::size_t i = log.size() - logRoom; i < log.size(); ++i) {
        put(seconds(log[i].at, 7) + "  " + Printable::of(log[i].text));
    }
    out += Printable::fit(kKeys, width) + "\x1b[K\x1b[J";
    std::fputs(out.c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace sim
