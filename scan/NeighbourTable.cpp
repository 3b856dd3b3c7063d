#include "scan/NeighbourTable.h"

#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <unordered_map>

#include "host/UniqueFd.h"
#include "scan/LocalNetworks.h"

namespace {

using Problem = NeighbourTable::Problem;

// Dumps made in all before the last one's entries stand: a table that changes under every read
// is still read, only not whole.
constexpr int kTries = 3;
// The kernel fills a dump datagram up to 32 KiB; a larger buffer leaves room should that grow.
constexpr std::size_t kDatagramBytes = std::size_t{64} * 1024;
constexpr std::size_t kEthernetBytes = 6;
constexpr std::uint16_t kResolved =
    NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT;
constexpr std::size_t kProblems = static_cast<std::size_t>(Problem::InterfaceGone) + 1;

std::uint32_t nextSequence() {
    // Seeded by the clock, so that a dump's replies are not taken for a previous run's.
    static std::atomic<std::uint32_t> next{static_cast<std::uint32_t>(::time(nullptr))};
    return next++;
}

std::string withErrno(const std::string& call) {
    return call + ": " + std::strerror(errno);
}

// What one dump brought, and what went wrong with it: the first detail of each kind.
struct Dump {
    std::vector<NeighbourDump::Entry> entries;
    std::array<std::optional<std::string>, kProblems> problems;
    // Why a new dump could bring the whole table where this one did not.
    std::optional<std::string> again;

    void note(Problem problem, std::string detail) {
        auto& slot = problems.at(static_cast<std::size_t>(problem));
        if (!slot) {
            slot = std::move(detail);
        }
    }
};

bool sendRequest(int fd, std::uint32_t sequence) {
    struct {
        nlmsghdr header;
        ndmsg neighbour;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETNEIGH;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = sequence;
    request.neighbour.ndm_family = AF_INET;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = 0;
    do {
        sent = ::sendto(fd, &request, sizeof request, 0, reinterpret_cast<sockaddr*>(&kernel),
                        sizeof kernel);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(sizeof request);
}

// Reads the replies until the dump is over or cannot go on.
void receive(int fd, NeighbourDump& reading, Dump& dump) {
    std::string buffer(kDatagramBytes, '\0');
    auto status = NeighbourDump::Status::More;
    while (status == NeighbourDump::Status::More) {
        sockaddr_nl from{};
        socklen_t fromLength = sizeof from;
        const ssize_t got = ::recvfrom(fd, buffer.data(), buffer.size(), MSG_TRUNC,
                                       reinterpret_cast<sockaddr*>(&from), &fromLength);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 && errno == ENOBUFS) {
            dump.again = "replies were lost: " + std::string(std::strerror(ENOBUFS));
            return;
        }
        if (got < 0) {
            dump.note(Problem::CutShort, errno == EAGAIN || errno == EWOULDBLOCK
                                             ? "no answer within a second"
                                             : withErrno("recv"));
            return;
        }
        if (got == 0) {
            dump.note(Problem::CutShort, "an empty reply");
            return;
        }
        // Only the kernel answers a dump; anything else is not ours to read.
        if (from.nl_pid != 0) {
            continue;
        }
        const auto size = static_cast<std::size_t>(got);
        if (size > buffer.size()) {
            dump.note(Problem::CutShort, "a reply of " + std::to_string(size) +
                                             " bytes, more than " + std::to_string(buffer.size()));
        }
        status = reading.take(std::string_view(buffer).substr(0, size));
    }
    if (status == NeighbourDump::Status::Failed) {
        dump.note(Problem::Failed, std::strerror(reading.error()));
    } else if (status == NeighbourDump::Status::Interrupted) {
        dump.again = "it changed while it was read";
    }
}

Dump dumpOnce() {
    Dump dump;
    const host::UniqueFd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (socket.get() < 0) {
        dump.note(Problem::NoSocket, withErrno("socket(NETLINK_ROUTE)"));
        return dump;
    }
    // A kernel that never answers must not hold the sweep.
    const timeval timeout{1, 0};
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        dump.note(Problem::NoSocket, withErrno("setsockopt(SO_RCVTIMEO)"));
        return dump;
    }
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        dump.note(Problem::NoSocket, withErrno("bind"));
        return dump;
    }
    const std::uint32_t sequence = nextSequence();
    if (!sendRequest(socket.get(), sequence)) {
        dump.note(Problem::NoSocket, withErrno("send"));
        return dump;
    }
    NeighbourDump reading(sequence);
    receive(socket.get(), reading, dump);
    if (reading.cutShort()) {
        dump.note(Problem::CutShort, "a malformed reply");
    }
    dump.entries = reading.entries();
    return dump;
}

// Interface names by index, each asked of the kernel once a read.
class InterfaceNames {
public:
    const std::optional<std::string>& of(int index) {
        auto [at, added] = names_.try_emplace(index);
        if (added) {
            std::array<char, IF_NAMESIZE> name{};
            if (index > 0 &&
                ::if_indextoname(static_cast<unsigned>(index), name.data()) != nullptr) {
                at->second = std::string(name.data());
            }
        }
        return at->second;
    }

private:
    std::unordered_map<int, std::optional<std::string>> names_;
};

std::string plural(std::size_t count, const char* one, const char* many) {
    return count == 1 ? one : many;
}

// The entries left out for one reason: how many, and the first of them.
struct LeftOut {
    std::size_t count = 0;
    std::string first;

    void add(const std::string& what) {
        if (count++ == 0) {
            first = what;
        } else if (count == 2) {
            first = "the first " + first;
        }
    }
};

std::string leftOut(std::size_t count) {
    return std::to_string(count) + plural(count, " neighbour entry", " neighbour entries");
}

std::string whatTheSweepDoes(std::size_t lines, const char* ofWhat) {
    if (lines == 0) {
        return "this sweep finds no new host";
    }
    return "this sweep goes on with the " + std::to_string(lines) +
           plural(lines, " entry", " entries") + ofWhat;
}

void complain(NeighbourTable::Reading& reading, Problem problem, std::string text) {
    reading.complaints.push_back({problem, "Tamsvale: " + std::move(text)});
}

}  // namespace

NeighbourTable::Reading NeighbourTable::read() {
    Dump dump = dumpOnce();
    int tries = 1;
    while (dump.again && tries < kTries) {
        Dump next = dumpOnce();
        ++tries;
        // Without a socket now, the last dump is still better than none.
        if (next.problems.at(static_cast<std::size_t>(Problem::NoSocket))) {
            dump.note(Problem::NoSocket,
                      *next.problems.at(static_cast<std::size_t>(Problem::NoSocket)));
            break;
        }
        dump = std::move(next);
    }

    Reading reading;
    InterfaceNames names;
    LeftOut gone;
    LeftOut odd;
    for (const NeighbourDump::Entry& entry : dump.entries) {
        if (entry.state == NUD_NOARP) {
            continue;
        }
        const std::string address = LocalNetworks::dotted(entry.address);
        const std::optional<std::string>& name = names.of(entry.interfaceIndex);
        if (!name) {
            gone.add(address + ", interface " + std::to_string(entry.interfaceIndex));
            continue;
        }
        if ((entry.state & kResolved) != 0 && entry.hardware.size() != kEthernetBytes) {
            odd.add(address + " on " + *name + ", " + std::to_string(entry.hardware.size()) +
                    plural(entry.hardware.size(), " byte", " bytes"));
            continue;
        }
        reading.lines.emplace_back(lineOf(entry, *name));
    }

    const std::size_t lines = reading.lines.size();
    const auto detail = [&dump](Problem problem) {
        return dump.problems.at(static_cast<std::size_t>(problem));
    };
    if (auto why = detail(Problem::NoSocket)) {
        complain(reading, Problem::NoSocket,
                 "cannot read the neighbour table (" + *why + "); " +
                     whatTheSweepDoes(lines, " of an earlier try"));
    }
    if (auto why = detail(Problem::Failed)) {
        complain(reading, Problem::Failed,
                 "the kernel refused to list the neighbour table (" + *why + "); " +
                     whatTheSweepDoes(lines, " listed before"));
    }
    if (auto why = detail(Problem::CutShort)) {
        complain(reading, Problem::CutShort,
                 "the neighbour table came cut short (" + *why + "); " +
                     whatTheSweepDoes(lines, " that came"));
    }
    if (dump.again) {
        complain(reading, Problem::Interrupted,
                 "could not read the neighbour table whole in " + std::to_string(tries) +
                     " tries (" + *dump.again + "); " +
                     whatTheSweepDoes(lines, " of the last try"));
    }
    if (odd.count != 0) {
        complain(reading, Problem::OddHardware,
                 "left out " + leftOut(odd.count) + " whose hardware address is not of 6 bytes (" +
                     odd.first + "); the sweep goes on without " + plural(odd.count, "it", "them"));
    }
    if (gone.count != 0) {
        complain(reading, Problem::InterfaceGone,
                 "left out " + leftOut(gone.count) +
                     " whose interface went away while the table was read (" + gone.first +
                     "); the sweep goes on without " + plural(gone.count, "it", "them"));
    }
    return reading;
}

std::string NeighbourTable::lineOf(const NeighbourDump::Entry& entry, std::string_view interface) {
    if (entry.state == NUD_NOARP) {
        return {};
    }
    const bool resolved = (entry.state & kResolved) != 0;
    if (resolved && entry.hardware.size() != kEthernetBytes) {
        return {};
    }
    std::string line;
    line.reserve(64);
    line.append("? (").append(LocalNetworks::dotted(entry.address)).append(") at ");
    if (resolved) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        for (std::size_t i = 0; i < entry.hardware.size(); ++i) {
            const auto byte = static_cast<unsigned char>(entry.hardware[i]);
            if (i != 0) {
                line += ':';
            }
            line += kDigits[byte >> 4];
            line += kDigits[byte & 0xf];
        }
    } else {
        line += "(incomplete)";
    }
    line += " on ";
    line += interface;
    if ((entry.state & NUD_PERMANENT) != 0) {
        line += " PERM";
    }
    return line;
}
