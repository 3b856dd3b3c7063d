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
        for (int turn = 0; turn < 100 && (seen.empty() || seen.back() != "mcmd=PSrp"); ++turn) {
            received += pumpAndReceive(1);
            seen = testsupport::readControllerStream(received).inOrder;
        }
        return seen;
    }
};

// Bytes, what comes back before the answer to the closing "ping", and the quit and debug flags.
using Row = std::tuple<std::string, std::vector<std::string>, bool, bool>;

TEST_F(DispatcherTest, ActsOnEachVerbAndLetter) {
    const std::string quit = "mcmd=WrtL Valu=2 DATA=The Tamsvale isf has been asked to quit. (";
    const std::string debugWas = "mcmd=WrtL Valu=2 DATA=arp plugin debug mode is now o";
    const std::vector<Row> rows = {
        // The reader folds the low-battery "Q" into "P" before the dispatcher sees it.
        {control('Q'), {quit + "2)"}, true, false},
        {control('q'), {quit + "1)"}, true, false},
        {control('D') + control('D'),
         {"mcmd=WrtL Valu=4 DATA=DEBUG MODE ON", "mcmd=WrtL Valu=4 DATA=DEBUG MODE OFF"},
         false,
         false},
        {control('X'), {}, false, false},
        {multiPacket({{"mcmd", "close"}}),
         {"mcmd=WrtL Valu=2 DATA=arp Plugin shutting down..."},
         true,
         false},
        {multiPacket({{"mcmd", "debug"}, {"Valu", "TRUE"}}), {debugWas + "n"}, false, true},
        {multiPacket({{"mcmd", "debug"}, {"Valu", "yes"}}), {debugWas + "ff'"}, false, false},
    };
    connect();
    for (auto [bytes, seen, quits, debug] : rows) {
        SCOPED_TRACE(bytes);
        Globals::DoQuit = false;
        Globals::DebugMode = false;
        seen.push_back("mcmd=PSrp");
        EXPECT_EQ(exchange(bytes), seen);
        EXPECT_EQ(Globals::DoQuit, quits);
        EXPECT_EQ(Globals::DebugMode, debug);
    }
}

TEST_F(DispatcherTest, UnanswerableMessagesEndInTheGuardAndTheLinkGoesOn) {
    connect();
    for (const std::string& bytes : {control('D', 0x00), multiPacket({{"mcmd", "setUnits"}})}) {
        server.send(bytes);
        const auto seen = exchange("", pumpAndReceive(1));
        EXPECT_EQ(seen.front(),
                  "mcmd=WrtL Valu=4 DATA=An unhandled NilObject Exception was trapped globally.");
        EXPECT_EQ(seen.back(), "mcmd=PSrp");
    }
}

}  // namespace
