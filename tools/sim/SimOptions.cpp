#include "tools/sim/SimOptions.h"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>

namespace sim {

namespace {

constexpr std::size_t kMostLogLines = 1000;
constexpr double kMostSeconds = 86400.0 * 365;

template <class Number>
std::optional<Number> parseNumber(const std::string& text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

// The number when the text is one from least to most.
template <class Number>
std::optional<Number> parseWithin(const std::string& text, Number least, Number most) {
    const auto value = parseNumber<Number>(text);
    if (!value || *value < least || *value > most) {
        return std::nullopt;
    }
    return value;
}

void addLine(std::string& text, const std::string& line) {
    text += (text.empty() ? "" : "\n") + line;
}

}  // namespace

SimOptions::Outcome SimOptions::parse(const std::vector<std::string>& arguments,
                                      std::string& message) {
    // Every bad value is reported, so that one run shows all there is to mend; a bad option name
    // ends the reading, as what follows it can no longer be told apart.
    message.clear();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string name = arguments[i];
        std::optional<std::string> inlineValue;
        if (const auto equals = name.find('=');
            name.rfind("--", 0) == 0 && equals != std::string::npos) {
            inlineValue = name.substr(equals + 1);
            name.resize(equals);
        }
        if (name == "--help" || name == "-h" || name == "--version") {
            // A problem found before them still wins.
            if (!message.empty()) {
                break;
            }
            return name == "--version" ? Outcome::Version : Outcome::Help;
        }
        const bool takesValue = name == "--port" || name == "--driver" || name == "--id" ||
                                name == "--units" || name == "--unit" || name == "--for" ||
                                name == "--log-lines";
        if (!takesValue) {
            addLine(message, "ambrelis-sim: unknown option " + arguments[i] + " (see --help)");
            break;
        }
        if (!inlineValue && i + 1 == arguments.size()) {
            addLine(message, "ambrelis-sim: " + name + " needs a value (see --help)");
            break;
        }
        const std::string value = inlineValue ? *inlineValue : arguments[++i];
        for (const std::string& problem : apply(name, value)) {
            addLine(message, problem);
        }
    }
    return message.empty() ? Outcome::Run : Outcome::Error;
}

std::vector<std::string> SimOptions::apply(const std::string& name, const std::string& value) {
    const auto bad = [&](const std::string& what) {
        return std::vector<std::string>{"ambrelis-sim: " + name + " " + value + ": " + what};
    };
    if (name == "--port") {
        const auto number = parseWithin<int>(value, 0, 65535);
        if (!number) {
            return bad("not a port number from 0 to 65535");
        }
        port = *number;
    } else if (name == "--driver") {
        driverPath = value;
    } else if (name == "--id") {
        if (value.find('\r') != std::string::npos) {
            return bad("a connection id cannot hold a carriage return");
        }
        connectionId = value;
    } else if (name == "--units") {
        return units.addFile(value);
    } else if (name == "--unit") {
        if (auto problem = units.addUnit(value)) {
            return bad(*problem);
        }
    } else if (name == "--for") {
        const auto seconds = parseNumber<double>(value);
        if (!seconds || !std::isfinite(*seconds) || *seconds <= 0 || *seconds > kMostSeconds) {
            return bad("not a number of seconds above 0");
        }
        runSeconds = *seconds;
    } else {
        const auto lines = parseWithin<std::size_t>(value, 1, kMostLogLines);
        if (!lines) {
            return bad("not a count from 1 to " + std::to_string(kMostLogLines));
        }
        logLines = *lines;
    }
    return {};
}

std::string SimOptions::driverToStart() const {
    if (!driverPath.empty()) {
        return driverPath;
    }
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return (error ? std::filesystem::path("arp-presence") : self.parent_path() / "arp-presence")
        .string();
}

std::string SimOptions::versionText() {
    return "ambrelis-sim " AMBRELIS_SIM_VERSION;
}

std::string SimOptions::helpText() {
    return R"(Usage: ambrelis-sim [options]

Plays the Ambrelis controller for the arp-presence driver: listens on 127.0.0.1, starts the
driver as the controller does, answers its request for units, and shows what it reports.

Options:
  --port N          port to listen on (default 20300); 0, or a busy port, takes a free one
  --driver PATH     driver to start (default: arp-presence beside this program)
  --id ID           connection id passed to the driver and expected in its greeting
                    (default sim-1)
  --units FILE      read units from FILE (may be given more than once)
  --unit ID,NAME,ADDRESS
                    one unit in the units-file form (may be given more than once)
  --for SECONDS     send "close" after SECONDS and end with the driver
  --log-lines N     driver log lines kept on screen (default 10)
  --help            this text
  --version         the version

Units file: one unit a line, "uniqueid, name, address", separated by commas, blanks around
each field trimmed. Blank lines and lines starting with # are ignored.
  uniqueid  a whole number from 1 up, used once
  name      any text without commas, not empty
  address   an IPv4 address or a host name (the driver pings it), or a hardware address of
            six two-digit hex groups joined by colons (the driver looks for it in the
            neighbour table); used once, letter case aside
Example:
  # id, name, address
  1, Router, 192.168.1.1
  2, Phone, 02:fc:3a:11:9e:40
Every bad line is reported, as FILE:LINE: what is wrong (a bad --unit as --unit VALUE: what
is wrong), and then nothing is started (exit status 2).

Keys (when standard input is a terminal):
  p     send "ping" and show the answer
  d     switch debug mode on or off ("debug" message)
  D     send the control message D, which toggles debug mode
  c, q  send "close"
Ctrl-C or SIGTERM also sends "close"; a second one stops the driver at once.

Without a terminal on standard output, each event is printed as one line, "12.3s what".

Exit status: the driver's own (128 + the signal, if one ended it); 1 when the driver had to be
killed or never connected; 2 for a bad command line or units file.
)";
}

}  // namespace sim
