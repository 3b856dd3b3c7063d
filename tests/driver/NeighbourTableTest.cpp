#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "DriverProcess.h"
#include "scan/NeighbourDump.h"
#include "scan/NeighbourTable.h"

namespace {

using namespace std::string_literals;
using Status = NeighbourDump::Status;
using Texts = std::vector<std::string>;

constexpr std::uint32_t kSeq = 41;
const std::string kMac = "\x02\x00\x00\x00\x00\x0a"s;

template <typename T>
std::string bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// The kernel's layout: every message and attribute padded to 4 bytes.
std::string padded(std::string bytes) {
    bytes.resize((bytes.size() + 3) & ~std::size_t{3}, '\0');
    return bytes;
}

std::string message(std::uint16_t type, const std::string& payload,
                    std::uint16_t flags = NLM_F_MULTI) {
    const auto length = static_cast<std::uint32_t>(sizeof(nlmsghdr) + payload.size());
    return padded(bytesOf(nlmsghdr{length, type, flags, kSeq, 0}) + payload);
}

std::string attribute(std::uint16_t type, const std::string& value) {
    return padded(bytesOf(rtattr{static_cast<std::uint16_t>(4 + value.size()), type}) + value);
}

std::string ndm(std::uint16_t state, std::uint8_t family = AF_INET) {
    ndmsg header{};
    header.ndm_family = family;
    header.ndm_ifindex = 2;
    header.ndm_state = state;
    return bytesOf(header);
}

// One entry of 10.0.0.`last` (or of `destination`); no NDA_LLADDR when `hardware` is empty.
std::string entry(int last, std::uint16_t state = NUD_STALE, const std::string& hardware = kMac,
                  const std::string& destination = "", std::uint8_t family = AF_INET) {
    const std::string dst =
        destination.empty() ? "\x0a\0\0"s + static_cast<char>(last) : destination;
    return message(RTM_NEWNEIGH, ndm(state, family) + attribute(NDA_DST, dst) +
                                     (hardware.empty() ? "" : attribute(NDA_LLADDR, hardware)));
}

// NLMSG_DONE and NLMSG_ERROR both begin with the error.
std::string done(int error = 0, std::uint16_t flags = NLM_F_MULTI,
                 std::uint16_t type = NLMSG_DONE) {
    return message(type, bytesOf(error), flags);
}

// The bytes with the 16 bits at `at` set: a header's length (0), flags (6) or sequence (8).
std::string patched(std::string bytes, std::size_t at, std::uint16_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
    return bytes;
}

// What the dump made of its datagrams: the last status, then each entry by its last byte (with
// its hardware length and state where they are not 6 and STALE), then "cut" and the errno.
std::string outcome(const std::vector<std::string>& datagrams) {
    NeighbourDump dump(kSeq);
    Status status = Status::More;
    for (const std::string& datagram : datagrams) {
        status = dump.take(datagram);
    }
    const char* names[] = {"More", "Done", "Interrupted", "Failed"};
    std::string text = names[static_cast<int>(status)];
    for (const auto& e : dump.entries()) {
        text += " " + std::to_string(e.address - 0x0a000000);
        text += e.hardware.size() != 6 ? ":hw" + std::to_string(e.hardware.size()) : "";
        text += e.state != NUD_STALE ? ":s" + std::to_string(e.state) : "";
        text += e.interfaceIndex != 2 ? ":wrong interface" : "";
    }
    return text + (dump.cutShort() ? " cut" : "") +
           (dump.error() != 0 ? " errno " + std::to_string(dump.error()) : "");
}

TEST(NeighbourTableTest, TakeReadsWhatTheKernelSendsAndSurvivesWhatItDoesNot) {
    const std::string one = entry(1), two = entry(2), three = entry(3);
    const std::string ipv6 = entry(0, NUD_STALE, kMac, std::string(16, 1), AF_INET6);
    const std::string wideIpv4 = entry(0, NUD_STALE, kMac, std::string(16, 1));
    // The last message of a datagram may lack its padding: a 5-byte address, unpadded.
    const std::string unpadded = patched(entry(1, NUD_STALE, "12345"), 0, 45).substr(0, 45);
    const std::vector<std::tuple<const char*, std::vector<std::string>, std::string>> rows = {
        {"several datagrams, then DONE", {one + two, three, done()}, "Done 1 2 3"},
        {"DUMP_INTR on an entry", {patched(one, 6, NLM_F_DUMP_INTR), done()}, "Interrupted 1"},
        {"DUMP_INTR on DONE", {one + done(0, NLM_F_DUMP_INTR)}, "Interrupted 1"},
        {"error reply after an entry", {one, done(-EPERM, 0, NLMSG_ERROR)}, "Failed 1 errno 1"},
        {"DONE carrying the dump's error", {one + done(-EINVAL)}, "Failed 1 errno 22"},
        {"error reply without an errno", {message(NLMSG_ERROR, "")}, "Failed errno 71"},
        {"an acknowledgement is no error", {done(0, 0, NLMSG_ERROR) + one + done()}, "Done 1"},
        // clang-format off
        {"another sequence's reply", {patched(one, 8, 7) + patched(done(), 8, 7) + two, done()},
         "Done 2"},
        {"no NDA_LLADDR, and 20 bytes of it",
         {entry(1, NUD_INCOMPLETE, "") + entry(2, NUD_REACHABLE, std::string(20, 'x'))},
         "More 1:hw0:s1 2:hw20:s2"},
        {"IPv6, a 16-byte IPv4 destination, none at all",
         {ipv6 + wideIpv4 + message(RTM_NEWNEIGH, ndm(NUD_STALE)) + three + done()}, "Done 3"},
        {"a message shorter than its ndmsg", {one + message(RTM_NEWNEIGH, "ab") + three},
         "More 1 3 cut"},
        // Byte 28 is the first attribute's length.
        {"an attribute running past its message", {one + patched(two, 28, 200) + three + done()},
         "Done 1 3 cut"},
        // clang-format on
        {"a length running past the datagram", {one + two.substr(0, 40)}, "More 1 cut"},
        {"a length smaller than a header", {one + patched(two, 0, 8)}, "More 1 cut"},
        {"a stub shorter than a header", {one + "\x10\0\0"s}, "More 1 cut"},
        {"nothing read after DONE", {one + done() + two, three}, "Done 1"},
        {"an unpadded last message", {unpadded}, "More 1:hw5"},
        {"the hardware address before the destination",
         {message(RTM_NEWNEIGH, ndm(NUD_STALE) + attribute(NDA_LLADDR, kMac) +
                                    attribute(NDA_DST, "\x0a\0\0\x05"s))},
         "More 5"},
    };
    for (const auto& [name, datagrams, expected] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(outcome(datagrams), expected);
    }
}

TEST(NeighbourTableTest, EachStateReadsAsTheToolPrintedIt) {
    const std::string resolved = "? (192.168.1.7) at a4:5e:60:01:b2:0c on eth0";
    const std::string incomplete = "? (192.168.1.7) at (incomplete) on eth0";
    const std::string mac = "\xa4\x5e\x60\x01\xb2\x0c"s;
    // clang-format off
    const std::vector<std::tuple<const char*, std::uint16_t, std::string, std::string>> rows = {
        {"REACHABLE", NUD_REACHABLE, mac, resolved}, {"STALE", NUD_STALE, mac, resolved},
        {"DELAY", NUD_DELAY, mac, resolved}, {"PROBE", NUD_PROBE, mac, resolved},
        {"PERMANENT", NUD_PERMANENT, mac, resolved + " PERM"},
        {"INCOMPLETE", NUD_INCOMPLETE, "", incomplete}, {"NONE", NUD_NONE, "", incomplete},
        {"FAILED, an old address kept", NUD_FAILED, mac, incomplete},
        {"NOARP: loopback, multicast, broadcast", NUD_NOARP, mac, ""},
        {"resolved with 20 bytes", NUD_REACHABLE, std::string(20, 'x'), ""},
        {"permanent without an address", NUD_PERMANENT, "", ""}};
    // clang-format on
    for (const auto& [name, state, hardware, line] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(NeighbourTable::lineOf({0xc0a80107, hardware, state, 2}, "eth0"), line);
    }
}

// 1,100 entries take several datagrams (a 32 KiB one holds about 400). Permanent entries do not
// count against the kernel's limit of 1,024 others; a point-to-point device's entry has no
// hardware address at all.
TEST(NeighbourTableTest, ReadsEveryEntryOfARealTable) {
    std::string batch =
        "link add v0 type veth peer name v1\naddr add 10.76.0.1/24 dev v0\nlink set v1 up\n"
        "link set v0 up\ntuntap add mode tun name t0\nneigh add 10.78.0.1 dev t0 nud permanent\n"
        "neigh replace 10.77.9.1 dev v0 nud incomplete\n"
        "neigh replace 10.77.9.2 lladdr 02:00:00:00:00:02 dev v0 nud noarp\n";
    Texts expected = {"? (10.77.9.1) at (incomplete) on v0"};
    for (int i = 0; i < 1100; ++i) {
        const bool stale = i % 4 == 0;
        char mac[18];
        std::snprintf(mac, sizeof mac, "02:00:00:ab:%02x:%02x", i >> 8, i & 0xff);
        const std::string ip =
            "10.77." + std::to_string(i / 200) + "." + std::to_string(i % 200 + 1);
        batch += "neigh replace " + ip + " lladdr " + mac + " dev v0 nud " +
                 (stale ? "stale\n" : "permanent\n");
        expected.push_back("? (" + ip + ") at " + mac + " on v0" + (stale ? "" : " PERM"));
    }
    NeighbourTable::Reading reading;
    std::string whyNot;
    // In a network namespace of this thread's own, which the children it starts share; it goes
    // with the thread.
    std::thread([&] {
        if (::unshare(CLONE_NEWNET) != 0) {
            whyNot = std::string("needs root: ") + std::strerror(errno);
            return;
        }
        const auto [status, said] =
            testsupport::DriverProcess::shell("ip -batch - <<'EOF'\n" + batch + "EOF\n");
        if (status != 0) {
            whyNot = "ip failed: " + said;
            return;
        }
        errno = EINTR;  // left by an earlier call: the request still goes once
        reading = NeighbourTable::read();
        errno = ENOBUFS;  // nor does a stale one read as replies lost
        EXPECT_EQ(NeighbourTable::read().lines.size(), reading.lines.size());
    }).join();
    if (!whyNot.empty()) {
        GTEST_SKIP() << whyNot;
    }
    Texts lines, complaints;
    for (const host::String& line : reading.lines) {
        lines.push_back(line.bytes());
    }
    for (const auto& complaint : reading.complaints) {
        complaints.push_back(complaint.text);
    }
    std::ranges::sort(lines);
    std::ranges::sort(expected);
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(complaints,
              Texts{"Tamsvale: left out 1 neighbour entry whose hardware address is not of 6 "
                    "bytes (0.0.0.0 on t0, 0 bytes); the sweep goes on without it"});
}

}  // namespace
