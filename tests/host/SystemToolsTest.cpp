#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/SystemTools.h"

namespace {

using host::SystemTools::neighbourLinesInBsdForm;
using host::SystemTools::probeOutcome;

struct ArpCase {
    const char* linux;
    const char* bsd;
};

TEST(SystemToolsTest, NeighbourLinesComeInBsdForm) {
    const std::vector<ArpCase> cases = {
        {"? (192.0.2.1) at 02:fc:00:00:00:05 [ether] on eth0",
         "? (192.0.2.1) at 02:fc:00:00:00:05 on eth0"},
        {"? (192.0.2.77) at <incomplete> on eth0", "? (192.0.2.77) at (incomplete) on eth0"},
        {"? (10.0.0.1) at 00:11:22:33:44:55 [ether] PERM on br0",
         "? (10.0.0.1) at 00:11:22:33:44:55 on br0 PERM"},
        {"? (10.0.0.2) at *       <from_interface>    PUB on eth0",
         "? (10.0.0.2) at (incomplete) on eth0 PUB"},
        {"? (10.0.0.3) at 0:1:2:3:4:5 [ether] on eth0\r", "? (10.0.0.3) at 0:1:2:3:4:5 on eth0\r"},
        // Already BSD, or not an entry at all: untouched.
        {"? (10.0.0.4) at 0:1:2:3:4:5 on em0 expires in 1190 seconds [ethernet]",
         "? (10.0.0.4) at 0:1:2:3:4:5 on em0 expires in 1190 seconds [ethernet]"},
        {"arp: in 2 entries no match found.", "arp: in 2 entries no match found."},
        {"? (10.0.0.5) at 0:1:2:3:4:5 [ether]", "? (10.0.0.5) at 0:1:2:3:4:5 [ether]"},
        {"", ""},
    };
    std::string linuxTable;
    std::string bsdTable;
    for (const ArpCase& row : cases) {
        EXPECT_EQ(neighbourLinesInBsdForm(row.linux).bytes(), row.bsd) << row.linux;
        linuxTable += std::string(row.linux) + "\n";
        bsdTable += std::string(row.bsd) + "\n";
    }
    EXPECT_EQ(neighbourLinesInBsdForm(host::String(linuxTable)).bytes(), bsdTable);
}

struct ProbeCase {
    std::int64_t linuxCode;
    const char* linuxOutput;
    std::int64_t bsdCode;
    const char* bsdOutput;
};

TEST(SystemToolsTest, ProbeOutcomeReadsAsABsdPing) {
    const std::vector<ProbeCase> cases = {
        {0,
         "2 packets transmitted, 2 received, 0% packet loss\nrtt min/avg/max/mdev = 1/2/3/4 ms\n",
         0,
         "2 packets transmitted, 2 received, 0% packet loss\n"
         "round-trip min/avg/max/stddev = 1/2/3/4 ms\n"},
        // One reply of two by the deadline: the Linux tool says 1, a BSD ping 0.
        {1, "2 packets transmitted, 1 received, 50% packet loss", 0,
         "2 packets transmitted, 1 received, 50% packet loss"},
        {1, "3 packets transmitted, 0 received, 100% packet loss", 1,
         "3 packets transmitted, 0 received, 100% packet loss"},
        {1, "", 1, ""},
        {2, "ping: x: Name or service not known", 2, "ping: x: Name or service not known"},
        // Killed after a reply is still a failure; a BSD-style summary stays as it is.
        {137, "2 packets transmitted, 1 received", 137, "2 packets transmitted, 1 received"},
        {0, "round-trip min/avg/max = 1/2/3 ms", 0, "round-trip min/avg/max = 1/2/3 ms"},
        {1, "packets transmitted, 99999999999999999999 received", 0,
         "packets transmitted, 99999999999999999999 received"},
    };
    for (const ProbeCase& row : cases) {
        const auto outcome = probeOutcome(row.linuxCode, row.linuxOutput);
        EXPECT_EQ(outcome.exitCode, row.bsdCode) << row.linuxOutput;
        EXPECT_EQ(outcome.output.bytes(), row.bsdOutput);
    }
}

}  // namespace
