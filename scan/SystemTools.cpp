#include "scan/SystemTools.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <string_view>

#include "host/StringFunctions.h"
#include "scan/SweepTiming.h"

namespace SystemTools {

namespace {

using host::String;

// The kernel gives up an unanswered resolution after 3 seconds, and until then each address
// holds a neighbour entry; past 1024 entries (its default gc_thresh3) it makes no more, and the
// addresses asked for after that stay unresolved. Up to 768 addresses go at once; more are paced
// to one request every 4 ms in all, so that about 750 wait at a time.
constexpr std::uint64_t kQuickFillAddresses = 768;
constexpr std::int64_t kPacedFillMs = 4;
// fping's wait for the last reply (-t).
constexpr std::int64_t kFillTimeoutMs = 50;

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

std::chrono::milliseconds startFill(host::Shell& fill, host::Shell& broadcast,
                                    const std::vector<LocalNetworks::Range>& ranges) {
    const std::uint64_t addresses =
        std::accumulate(ranges.begin(), ranges.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const auto& range) { return sum + range.size(); });
    const std::int64_t intervalMs = addresses <= kQuickFillAddresses
                                        ? 1
                                        : kPacedFillMs * static_cast<std::int64_t>(ranges.size());
    for (host::Shell* shell : {&fill, &broadcast}) {
        shell->Close();
        shell->Mode = 1;
    }
    std::uint64_t longest = 0;
    for (const LocalNetworks::Range& range : ranges) {
        // No retry and a short time-out: the replies are not what is wanted, the resolution is,
        // and the kernel goes on with it after the tool has ended.
        fill.executeArguments(
            "fping", {"-q", "-r", "0", "-t", host::Str(kFillTimeoutMs), "-i", host::Str(intervalMs),
                      "-g", String(LocalNetworks::dotted(range.first)),
                      String(LocalNetworks::dotted(range.last))});
        longest = std::max(longest, range.size());
    }
    // Linux ignores broadcast echo by default, and so do most phones; the hosts that answer it
    // show through it alone where no fill runs.
    broadcast.executeArguments(
        "ping",
        {"-b", "-c", "2", "-w", host::Str(SweepTiming::kBroadcastSeconds), "255.255.255.255"});
    return std::chrono::milliseconds(
        ranges.empty() ? 0 : static_cast<std::int64_t>(longest) * intervalMs + kFillTimeoutMs);
}

void startProbe(host::Shell& shell, const String& address) {
    // A deadline (-w) would make ping send until two replies came, a third request included.
    shell.executeArguments("ping", {"-c", "2", "-W", host::Str(SweepTiming::kProbeReplyWaitSeconds),
                                    "--", host::Trim(address)});
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

}  // namespace SystemTools
