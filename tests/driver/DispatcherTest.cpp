#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "LinkFixture.h"
#include "MultiPacketReader.h"
#include "core/Globals.h"
#include "scan/cScanner.h"

namespace {

using namespace std::string_literals;
using testsupport::multiPacket;

// A control message from the controller: full layout, flag byte as given.
std::string control(char command, char flags = 0x40) {
    return "X\x10"
           "a\x40LX"s +
           flags + "0" + command + "03\x00\x00\x00 \r"s;
}

class DispatcherTest : public LinkFixture {
protected:
    // What the controller got, every message as "WrtL <level> <line>" or its verb.
    static std::vector<std::string> seenIn(const std::string& received) {
        std::vector<std::string> seen;
        for (const auto& message : testsupport::readControllerStream(received).messages) {
            const std::string& verb = message.at("mcmd");
            seen.push_back(verb == "WrtL" ? "WrtL " + message.at("Valu") + " " + message.at("DATA")
                                          : verb + (message.size() == 1 ? "" : " +keys"));
        }
        return seen;
    }

    // Sends the bytes and a "ping" behind them, and returns what came back up to the answer to
    // that "ping".
    std::vector<std::string> exchange(const std::string& bytes) {
        server.send(bytes + multiPacket({{"mcmd", "ping"}}));
        std::string received;
        for (int turn = 0; turn < 100; ++turn) {
            received += pumpAndReceive(1);
            const auto seen = seenIn(received);
            if (!seen.empty() && seen.back() == "PSrp") {
                break;
            }
        }
        return seenIn(received);
    }
};

struct Case {
    const char* name;
    std::string bytes;
    std::vector<std::string> seen;  // before the answer to the closing "ping"
    bool quit;
    bool debug;
};

TEST_F(DispatcherTest, ActsOnEachVerbAndLetter) {
    const std::vector<Case> cases = {
        // The reader folds the low-battery "Q" into "P" before the dispatcher sees it.
        {"Q from the wire",
         control('Q'),
         {"WrtL 2 The Tamsvale isf has been asked to quit. (2)"},
         true,
         false},
        {"lower-case q",
         control('q'),
         {"WrtL 2 The Tamsvale isf has been asked to quit. (1)"},
         true,
         false},
        {"P", control('P'), {"WrtL 2 The Tamsvale isf has been asked to quit. (2)"}, true, false},
        {"D toggles twice",
         control('D') + control('D'),
         {"WrtL 4 DEBUG MODE ON", "WrtL 4 DEBUG MODE OFF"},
         false,
         false},
        {"d once", control('d'), {"WrtL 4 DEBUG MODE ON"}, false, true},
        {"X does nothing", control('X'), {}, false, false},
        {"unknown letter", control('Z'), {}, false, false},
        {"ping in capitals",
         multiPacket({{"mcmd", "PING"}, {"Valu", "echo me"}}),
         {"PSrp"},
         false,
         false},
        {"close",
         multiPacket({{"mcmd", "close"}}),
         {"WrtL 2 arp Plugin shutting down..."},
         true,
         false},
        {"debug TRUE",
         multiPacket({{"mcmd", "debug"}, {"Valu", "TRUE"}}),
         {"WrtL 2 arp plugin debug mode is now on"},
         false,
         true},
        {"debug other word",
         multiPacket({{"mcmd", "debug"}, {"Valu", "yes"}}),
         {"WrtL 2 arp plugin debug mode is now off'"},
         false,
         false},
        {"debug without Valu",
         multiPacket({{"mcmd", "Debug"}}),
         {"WrtL 2 arp plugin debug mode is now off'"},
         false,
         false},
        {"control letter as verb", multiPacket({{"mcmd", "Q"}}), {}, false, false},
        {"no mcmd", multiPacket({{"Valu", "true"}}), {}, false, false},
    };
    connect();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Globals::DoQuit = false;
        Globals::DebugMode = false;
        auto expected = c.seen;
        expected.push_back("PSrp");
        EXPECT_EQ(exchange(c.bytes), expected);
        EXPECT_EQ(Globals::DoQuit, c.quit);
        EXPECT_EQ(Globals::DebugMode, c.debug);
    }
}

TEST_F(DispatcherTest, UnanswerableMessagesEndInTheGuardAndTheLinkGoesOn) {
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"common message without the control flag", control('D', 0x00)},
        {"unit list before the scanner", multiPacket({{"mcmd", "setUnits"}, {"DATA", ""}})},
        {"deletion before the scanner", multiPacket({{"mcmd", "UnitDeleted"}, {"UnID", "7"}})},
    };
    connect();
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        server.send(bytes);
        const auto report = seenIn(pumpAndReceive(1));
        ASSERT_GE(report.size(), 2u);
        EXPECT_EQ(report.front(), "WrtL 4 An unhandled NilObject Exception was trapped globally.");
        for (std::size_t i = 1; i < report.size(); ++i) {
            EXPECT_EQ(report[i].rfind("WrtL 4 ", 0), 0u) << report[i];  // the stack, at level 4
        }
        EXPECT_EQ(exchange(""), std::vector<std::string>{"PSrp"});
        EXPECT_FALSE(Globals::DoQuit);
    }
}

TEST_F(DispatcherTest, UnitMessagesReachTheScanner) {
    struct RecordingScanner : cScanner {
        std::vector<std::string> calls;
        void gotUnitsFromAmbrelis(const host::Ref<cAmbrelisCommand>&) override {
            calls.push_back("units");
        }
        void unitDeleted(const host::Ref<cAmbrelisCommand>&) override {
            calls.push_back("deleted");
        }
    };
    auto scanner = host::New<RecordingScanner>();
    Globals::gScanner = scanner;
    connect();
    exchange(multiPacket({{"mcmd", "setunits"}}) + multiPacket({{"mcmd", "UNITDELETED"}}));
    EXPECT_EQ(scanner->calls, (std::vector<std::string>{"units", "deleted"}));
    Globals::gScanner = nullptr;
}

}  // namespace
