// Captures the kernel's real replies to neighbour dumps as the seeds of neighbour_dump. Run as
// root from the source tree: `build-fuzz/fuzz/capture_neighbours fuzz/corpus/neighbour_dump`
// (target capture_neighbours, not built by default; it needs iproute2, ping and /dev/net/tun).
// It moves itself into a network namespace of its own and makes one more, the peer, joined to it
// by a veth: every packet it causes stays between the two. A seed is every datagram of one reply,
// back to back, each message's sequence number set to the target's (kSequence there).
#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "scan/NeighbourDump.h"

namespace {

constexpr std::uint32_t kSequence = 1;  // neighbour_dump.cpp reads this sequence only
std::filesystem::path folder;
std::string peer;

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "capture: failed: %s\n", command.c_str());
        std::exit(1);
    }
}

// Every message of the reply renumbered: `sequence` for the request's, `sequence + 1` for any
// other (an earlier dump's).
std::string renumbered(std::string bytes, std::uint32_t asked, std::uint32_t sequence) {
    std::size_t at = 0;
    while (at + sizeof(nlmsghdr) <= bytes.size()) {
        nlmsghdr header{};
        std::memcpy(&header, bytes.data() + at, sizeof header);
        header.nlmsg_seq = header.nlmsg_seq == asked ? sequence : sequence + 1;
        std::memcpy(bytes.data() + at, &header, sizeof header);
        at += std::max<std::size_t>((header.nlmsg_len + 3) & ~3U, sizeof header);
    }
    return bytes;
}

struct Request {
    std::uint16_t type = RTM_GETNEIGH;
    std::uint16_t flags = NLM_F_REQUEST | NLM_F_DUMP;
    ndmsg neighbour{};
    std::string attributes;
    bool strict = false;  // NETLINK_GET_STRICT_CHK: a bad header is refused, not ignored
};

std::string attribute(std::uint16_t type, const void* value, std::size_t size) {
    const rtattr header{static_cast<unsigned short>(sizeof(rtattr) + size), type};
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes.append(static_cast<const char*>(value), size);
    bytes.resize((bytes.size() + 3) & ~std::size_t{3}, '\0');
    return bytes;
}

Request dumpOf(unsigned char family) {
    Request request;
    request.neighbour.ndm_family = family;
    return request;
}

// Sends the request and gathers the datagrams of its reply, each renumbered.
std::string exchange(const Request& request, std::uint32_t sequence = kSequence) {
    const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    const timeval timeout{1, 0};
    const int on = 1;
    if (fd < 0 || ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        (request.strict &&
         ::setsockopt(fd, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on) != 0)) {
        std::perror("capture: socket");
        std::exit(1);
    }
    const std::uint32_t asked = 1000 + sequence;
    std::string bytes(sizeof(nlmsghdr), '\0');
    bytes += std::string(reinterpret_cast<const char*>(&request.neighbour), sizeof(ndmsg));
    bytes += request.attributes;
    const nlmsghdr header{static_cast<std::uint32_t>(bytes.size()), request.type, request.flags,
                          asked, 0};
    std::memcpy(bytes.data(), &header, sizeof header);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&kernel),
                 sizeof kernel) < 0) {
        std::perror("capture: send");
        std::exit(1);
    }
    // A dump ends with DONE or an error; anything else is one datagram.
    const bool dump = (request.flags & NLM_F_DUMP) == NLM_F_DUMP;
    NeighbourDump reading(asked);
    std::string reply;
    std::string buffer(64 * 1024, '\0');
    for (;;) {
        const ssize_t got = ::recv(fd, buffer.data(), buffer.size(), 0);
        if (got <= 0) {
            break;
        }
        const std::string_view datagram(buffer.data(), static_cast<std::size_t>(got));
        reply += datagram;
        if (!dump || reading.take(datagram) != NeighbourDump::Status::More) {
            break;
        }
    }
    ::close(fd);
    return renumbered(reply, asked, sequence);
}

void write(const char* name, const std::string& bytes) {
    std::ofstream(folder / name, std::ios::binary) << bytes;
    std::printf("%-22s %7zu bytes\n", name, bytes.size());
}

// The dump again and again while a child adds and removes entries, until one says that the
// table changed under it; none when the kernel never says so.
std::string interruptedDump() {
    const pid_t churn = ::fork();
    if (churn == 0) {
        ::setpgid(0, 0);
        for (int i = 0;; ++i) {
            const std::string address = "10.80.9." + std::to_string(i % 250 + 1);
            std::system(("ip neigh replace " + address +
                         " lladdr 02:00:00:00:09:01 dev v0 nud stale; ip neigh del " + address +
                         " dev v0")
                            .c_str());
        }
    }
    ::setpgid(churn, churn);  // both sides, so that the kill below finds the group
    std::string found;
    for (int attempt = 0; attempt < 100 && found.empty(); ++attempt) {
        const std::string reply = exchange(dumpOf(AF_INET));
        NeighbourDump reading(kSequence);
        if (reading.take(reply) == NeighbourDump::Status::Interrupted) {
            found = reply;
        }
    }
    ::kill(-churn, SIGKILL);
    ::waitpid(churn, nullptr, 0);
    return found;
}

void captureAll() {
    run("ip link set lo up && ip link add v0 type veth peer name v1 netns " + peer +
        " && ip addr add 10.80.0.1/24 dev v0 && ip link set v0 up && ip -n " + peer +
        " addr add 10.80.0.2/24 dev v1 && ip -n " + peer + " link set v1 up && ip -n " + peer +
        " link set lo up");
    write("empty_but_loopback", exchange(dumpOf(AF_INET)));

    // Every state an administrator can set, with and without a hardware address.
    const char* states[] = {"reachable", "stale", "delay",  "probe",     "permanent",
                            "noarp",     "none",  "failed", "incomplete"};
    int host = 1;
    for (const char* state : states) {
        const std::string address = "10.80.1." + std::to_string(host++);
        run("ip neigh add " + address + " lladdr 02:00:00:00:01:0" + std::to_string(host) +
            " dev v0 nud " + state);
    }
    run("ip neigh add 10.80.1.20 dev v0 nud incomplete && ip neigh add 10.80.1.21 dev v0 nud none");
    write("every_state", exchange(dumpOf(AF_INET)));

    // A real exchange: the peer answers, the absent address stays unresolved, then fails.
    run("ping -q -c 1 -W 1 10.80.0.2 >/dev/null");
    std::system("ping -q -c 1 -W 1 10.80.0.99 >/dev/null");
    write("resolved_and_incomplete", exchange(dumpOf(AF_INET)));
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    write("failed_after_probes", exchange(dumpOf(AF_INET)));

    // A point-to-point device has no hardware address of 6 bytes.
    run("ip tuntap add mode tun name t0 && ip link set t0 up && "
        "ip neigh add 10.81.0.1 dev t0 nud permanent");
    write("point_to_point", exchange(dumpOf(AF_INET)));

    // Every family: the IPv6 entries that an IPv4 dump leaves out.
    run("ip -6 neigh add 2001:db8::1 lladdr 02:00:00:00:06:01 dev v0 nud permanent && "
        "ping -6 -q -c 1 -W 1 ff02::1%v0 >/dev/null");
    write("every_family", exchange(dumpOf(AF_UNSPEC)));

    // The kernel's refusals: a dump header with a state set, under strict checking, and a get
    // of an entry that is not there.
    Request refused = dumpOf(AF_INET);
    refused.strict = true;
    refused.neighbour.ndm_state = NUD_STALE;
    write("error_reply", exchange(refused));
    Request get = dumpOf(AF_INET);
    get.flags = NLM_F_REQUEST;
    get.neighbour.ndm_ifindex = static_cast<int>(::if_nametoindex("v0"));
    const std::uint32_t absent = htonl(0x0a5001feU);
    get.attributes = attribute(NDA_DST, &absent, sizeof absent);
    write("error_then_dump", exchange(get) + exchange(dumpOf(AF_INET)));
    // An acknowledged change, then the dump.
    Request change = dumpOf(AF_INET);
    change.type = RTM_NEWNEIGH;
    change.flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_REPLACE;
    change.neighbour = get.neighbour;
    change.neighbour.ndm_family = AF_INET;
    change.neighbour.ndm_state = NUD_PERMANENT;
    const std::uint32_t added = htonl(0x0a5001fdU);
    const char hardware[6] = {2, 0, 0, 0, 1, static_cast<char>(0xfd)};
    change.attributes =
        attribute(NDA_DST, &added, sizeof added) + attribute(NDA_LLADDR, hardware, sizeof hardware);
    write("ack_then_dump", exchange(change) + exchange(dumpOf(AF_INET)));
    // An earlier dump's replies, which the reader must pass over, then its own.
    write("earlier_dump_first",
          exchange(dumpOf(AF_INET), kSequence + 1) + exchange(dumpOf(AF_INET)));

    // 1,100 entries, over several datagrams. Permanent entries are not counted against the
    // table's limit of 1,024 entries that can be collected.
    const std::filesystem::path batch = folder.parent_path() / ".neighbour_batch";
    {
        std::ofstream lines(batch);
        for (int i = 0; i < 1100; ++i) {
            lines << "neigh add 10.82." << i / 250 << '.' << i % 250 + 1
                  << " lladdr 02:00:00:82:" << i / 256 % 10 << i / 256 / 10 << ':' << std::hex
                  << (i % 256 < 16 ? "0" : "") << i % 256 << std::dec << " dev v0 nud "
                  << (i % 4 == 0 ? "stale" : "permanent") << '\n';
        }
    }
    run("ip -batch " + batch.string());
    std::filesystem::remove(batch);
    write("table_of_1100", exchange(dumpOf(AF_INET)));

    const std::string interrupted = interruptedDump();
    if (interrupted.empty()) {
        std::printf("no dump came back interrupted\n");
    } else {
        write("interrupted", interrupted);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
        return 2;
    }
    folder = std::filesystem::absolute(argv[1]);
    std::filesystem::create_directories(folder);
    if (::unshare(CLONE_NEWNET) != 0) {
        std::perror("capture: unshare(CLONE_NEWNET)");
        return 1;
    }
    peer = "nlcapture" + std::to_string(::getpid());
    run("ip netns add " + peer);
    captureAll();
    run("ip netns del " + peer);
    return 0;
}
