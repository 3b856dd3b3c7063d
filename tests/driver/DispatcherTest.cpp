#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DriverFixture.h"

namespace {

using namespace std::string_literals;
using testsupport::multiPacket;

// A control message from the controller: full layout, flag byte as given.
std::string control(char command, char flags = 0x40) {
    return "X\x10"
           "a\x40LX"s +
           flags + "0" + command + "03\x00\x00\x00 \r"s;
}

class DispatcherTest : public DriverFixture {
protected:
    // Sends the bytes and a "ping" behind them, and returns the log lines and verbs that came
    // back up to the answer to that "ping", each as "WrtL <level> <line>" or its verb.
    std::vector<std::string> exchange(const std::string& bytes, std::string received = "") {
        server.send(bytes + multiPacket({{"mcmd", "PING"}, {"Valu", "echo me"}}));
        std::vector<std::string> seen;
        for (int turn = 0; turn < 100 && (seen.empty() || seen.back() != "PSrp"); ++turn) {
            received += pumpAndReceive(1);
            seen.clear();
            for (const auto& message : testsupport::readControllerStream(received).messages) {
                const std::string& verb = message.at("mcmd");
                seen.push_back(verb == "WrtL"
                                   ? "WrtL " + message.at("Valu") + " " + message.at("DATA")
                                   : verb);
            }
        }
        return seen;
    }
};

struct Row {
    std::string bytes;
    std::vector<std::string> seen;  // before the answer to the closing "ping"
    bool quit;
    bool debug;
};

TEST_F(DispatcherTest, ActsOnEachVerbAndLetter) {
    const std::string quit = "WrtL 2 The Tamsvale isf has been asked to quit. (";
    const std::string debugWas = "WrtL 2 arp plugin debug mode is now o";
    const std::vector<Row> rows = {
        // The reader folds the low-battery "Q" into "P" before the dispatcher sees it.
        {control('Q'), {quit + "2)"}, true, false},
        {control('q'), {quit + "1)"}, true, false},
        {control('D') + control('D'),
         {"WrtL 4 DEBUG MODE ON", "WrtL 4 DEBUG MODE OFF"},
         false,
         false},
        {control('X'), {}, false, false},
        {multiPacket({{"mcmd", "close"}}), {"WrtL 2 arp Plugin shutting down..."}, true, false},
        {multiPacket({{"mcmd", "debug"}, {"Valu", "TRUE"}}), {debugWas + "n"}, false, true},
        {multiPacket({{"mcmd", "debug"}, {"Valu", "yes"}}), {debugWas + "ff'"}, false, false},
        {multiPacket({{"mcmd", "Debug"}}), {debugWas + "ff'"}, false, false},
        {multiPacket({{"mcmd", "Q"}}), {}, false, false},
    };
    connect();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes);
        Globals::DoQuit = false;
        Globals::DebugMode = false;
        auto expected = row.seen;
        expected.push_back("PSrp");
        EXPECT_EQ(exchange(row.bytes), expected);
        EXPECT_EQ(Globals::DoQuit, row.quit);
        EXPECT_EQ(Globals::DebugMode, row.debug);
    }
}

TEST_F(DispatcherTest, UnanswerableMessagesEndInTheGuardAndTheLinkGoesOn) {
    connect();
    for (const std::string& bytes : {control('D', 0x00), multiPacket({{"mcmd", "setUnits"}}),
                                     multiPacket({{"mcmd", "UnitDeleted"}, {"UnID", "7"}})}) {
        SCOPED_TRACE(bytes);
        server.send(bytes);
        const auto seen = exchange("", pumpAndReceive(1));
        ASSERT_GE(seen.size(), 3u);
        EXPECT_EQ(seen.front(), "WrtL 4 An unhandled NilObject Exception was trapped globally.");
        for (std::size_t i = 1; i + 1 < seen.size(); ++i) {
            EXPECT_EQ(seen[i].rfind("WrtL 4 ", 0), 0u) << seen[i];  // the stack, at level 4
        }
        EXPECT_FALSE(Globals::DoQuit);
    }
}

}  // namespace
