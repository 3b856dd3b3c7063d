#include "DriverFixture.h"

namespace {

using namespace std::string_literals;
using testsupport::multiPacket;

class DispatcherTest : public DriverFixture {
protected:
    // Sends the bytes and a "ping" behind them, and returns the log lines and verbs that came
    // back up to the answer to that "ping", each as "WrtL <level> <line>" or its verb.
    Lines exchange(const std::string& bytes, std::string received = "") {
        server.send(bytes + multiPacket({{"mcmd", "PING"}, {"Valu", "echo me"}}));
        Lines seen;
        for (int turn = 0; turn < 100 && (seen.empty() || seen.back() != "mcmd=PSrp"); ++turn) {
            received += pumpAndReceive(1);
            seen = testsupport::readControllerStream(received).inOrder;
        }
        return seen;
    }
};

TEST_F(DispatcherTest, ActsOnEachVerbAndLetter) {
    const std::string log2 = "mcmd=WrtL Valu=2 DATA=", log4 = "mcmd=WrtL Valu=4 DATA=";
    const std::string quit = log2 + "The Tamsvale isf has been asked to quit. (";
    const std::string debugWas = log2 + "arp plugin debug mode is now o";
    const std::string debugMode = log4 + "DEBUG MODE O";
    // Bytes, what comes back before the answer to the closing "ping", the quit and debug flags.
    const std::vector<std::tuple<std::string, Lines, bool, bool>> rows = {
        // The reader folds the low-battery "Q" into "P" before the dispatcher sees it.
        {control('Q'), {quit + "2)"}, true, false},
        {control('q'), {quit + "1)"}, true, false},
        {control('D') + control('D'), {debugMode + "N", debugMode + "FF"}, false, false},
        {control('X'), {}, false, false},
        {"Z\x02"s, {log4 + "Tamsvale: Received malformed packet from host"}, false, false},
        {multiPacket({{"mcmd", "close"}}), {log2 + "arp Plugin shutting down..."}, true, false},
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
        EXPECT_EQ(std::pair(Globals::DoQuit, Globals::DebugMode), std::pair(quits, debug));
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
