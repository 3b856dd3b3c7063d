#include "host/SystemTools.h"

#include <chrono>
#include <cstdlib>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "host/Spawn.h"
#include "host/StringFunctions.h"

namespace host::SystemTools {

namespace {

// The kernel gives up an unanswered resolution after 3 seconds, and until then each address
// holds a neighbour entry; past 1024 entries (its default gc_thresh3) it makes no more, and the
// addresses asked for after that stay unresolved. Up to 768 addresses go at once; more are paced
// to one request every 4 ms in all, so that about 750 wait at a time.
constexpr std::uint64_t kQuickFillAddresses = 768;
constexpr std::int64_t kPacedFillMs = 4;
// As long as the broadcast may take: a sweep never keeps the link waiting longer.
constexpr std::chrono::milliseconds kFillWait{2000};

// A driver started with a user's PATH still finds `arp`, which lives in sbin.
constexpr std::string_view kFallbackFolders = "/usr/sbin:/sbin:/usr/bin:/bin";

// Found through PATH first, so that tests can put fakes in front.
String toolPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string found = Spawn::findExecutable(path != nullptr ? path : "", name);
    if (found.empty()) {
        found = Spawn::findExecutable(kFallbackFolders, name);
    }
    return String(found.empty() ? name : found);
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    std::size_t at = 0;
    while (at < text.size()) {
        while (at < text.size() && isBlank(text[at])) {
            ++at;
        }
        std::size_t end = at;
        while (end < text.size() && !isBlank(text[end])) {
            ++end;
        }
        if (end > at) {
            found.push_back(text.substr(at, end - at));
        }
        at = end;
    }
    return found;
}

// "? (IP) at HW [TYPE] FLAGS on IFACE" becomes "? (IP) at HW on IFACE FLAGS".
void appendInBsdForm(std::string_view line, std::string& into) {
    const std::size_t at = line.find(" at ");
    const std::size_t on = at == std::string_view::npos ? at : line.find(" on ", at + 4);
    if (on == std::string_view::npos) {
        into.append(line);
        return;
    }
    const std::size_t hardwareStart = at + 4;
    const auto middle = words(line.substr(hardwareStart, on - hardwareStart));
    // An entry without a hardware address: the kernel has not resolved it, or it is a proxy.
    const bool unresolved =
        !middle.empty() && (middle.front().starts_with('<') || middle.front() == "*");
    if (middle.empty() || (middle.size() == 1 && !unresolved)) {
        into.append(line);
        return;
    }
    std::string_view tail = line.substr(on);
    const std::size_t lineEnd = tail.find_last_not_of('\r') + 1;
    const std::string_view carriageReturns = tail.substr(lineEnd);
    tail = tail.substr(0, lineEnd);
    into.append(line.substr(0, hardwareStart));
    into.append(unresolved ? "(incomplete)" : middle.front());
    into.append(tail);
    for (std::size_t i = 1; i < middle.size(); ++i) {
        if (!middle[i].starts_with('[') && !(unresolved && middle[i].starts_with('<'))) {
            into.append(" ").append(middle[i]);
        }
    }
    into.append(carriageReturns);
}

// The count after "packets transmitted, ", or 0 when there is none.
long repliesCounted(std::string_view output) {
    constexpr std::string_view kTransmitted = "packets transmitted, ";
    const std::size_t at = output.find(kTransmitted);
    if (at == std::string_view::npos) {
        return 0;
    }
    long count = 0;
    for (std::size_t i = at + kTransmitted.size(); i < output.size(); ++i) {
        const char c = output[i];
        if (c < '0' || c > '9' || count > 1'000'000) {
            break;
        }
        count = count * 10 + (c - '0');
    }
    return count;
}

}  // namespace

void fillNeighbourTable(Shell& sweep, Shell& fill,
                        const std::vector<LocalNetworks::Range>& ranges) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    fillNeighbours(fill, ranges);
    sweep.executeArguments(toolPath("ping"), {"-b", "-c", "2", "-w", "2", "255.255.255.255"});
    // Without a default route the broadcast fails at once.
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(kFillWait - (Clock::now() - started));
    fill.waitWhileRunning(left.count());
}

void fillNeighbours(Shell& shell, const std::vector<LocalNetworks::Range>& ranges) {
    const std::uint64_t addresses =
        std::accumulate(ranges.begin(), ranges.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const auto& range) { return sum + range.size(); });
    const std::int64_t intervalMs = addresses <= kQuickFillAddresses
                                        ? 1
                                        : kPacedFillMs * static_cast<std::int64_t>(ranges.size());
    shell.Close();
    shell.Mode = 1;
    for (const LocalNetworks::Range& range : ranges) {
        // No retry and a short time-out: the replies are not what is wanted, the resolution is,
        // and the kernel goes on with it after the tool has ended.
        shell.executeArguments(toolPath("fping"),
                               {"-q", "-r", "0", "-t", "50", "-i", Str(intervalMs), "-g",
                                String(LocalNetworks::dotted(range.first)),
                                String(LocalNetworks::dotted(range.last))});
    }
}

String neighbourTable(Shell& shell) {
    shell.executeArguments(toolPath("arp"), {"-a", "-n"});
    return neighbourLinesInBsdForm(shell.Result());
}

void startProbe(Shell& shell, const String& address) {
    // A deadline (-w) would make ping send until two replies came, a third request included.
    shell.executeArguments(toolPath("ping"), {"-c", "2", "-W", "2", "--", Trim(address)});
}

String neighbourLinesInBsdForm(const String& output) {
    std::string_view text = output.view();
    std::string bsd;
    bsd.reserve(text.size());
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        appendInBsdForm(text.substr(0, end), bsd);
        if (end == std::string_view::npos) {
            break;
        }
        bsd.push_back('\n');
        text.remove_prefix(end + 1);
    }
    return String(std::move(bsd), output.encoding());
}

ProbeOutcome probeOutcome(std::int64_t exitCode, const String& output) {
    constexpr std::string_view kLinuxSummary = "rtt min/avg/max/mdev = ";
    constexpr std::string_view kBsdSummary = "round-trip min/avg/max/stddev = ";
    std::string text = output.bytes();
    const std::size_t at = text.find(kLinuxSummary);
    if (at != std::string::npos) {
        text.replace(at, kLinuxSummary.size(), kBsdSummary);
    }
    // 1 is the Linux tool's "fewer replies than asked for"; other codes are errors of their own.
    if (exitCode == 1 && repliesCounted(text) > 0) {
        exitCode = 0;
    }
    return {exitCode, String(std::move(text), output.encoding())};
}

}  // namespace host::SystemTools
