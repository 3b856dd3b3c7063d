#include <gtest/gtest.h>

#include <functional>

#include "wire/cAmbrelisCommand.h"

namespace {

using Cmd = cAmbrelisCommand;
using Pairs = std::vector<std::pair<std::string, std::string>>;

// Packets are written as text pieces and single byte values, so no byte needs an escape.
struct Piece {
    Piece(int byte) : text(1, static_cast<char>(byte)) {}  // NOLINT
    Piece(const char* chars) : text(chars) {}              // NOLINT
    std::string text;
};
template <class... Pieces>
std::string bytes(Pieces... pieces) {
    return (std::string() + ... + Piece(pieces).text);
}

// A command to house A, unit 4, every other field at the writer's default; "2" is ON.
std::string common(int command = '2', int level = 0) {
    return bytes("X", 16, "a@LX", 0, "0", command, "03", level, 0, 0, " \r");
}
const std::string kGetUnits = bytes("J", 18, 0, 0x80, "mcmd", 8, 0, "getUnits");

// Read by the reader of its form: "J" leads a multi-packet.
Cmd received(const std::string& packet) {
    Cmd cmd;
    const auto reader =
        packet.starts_with('J') ? &Cmd::initFromMultiPacket : &Cmd::InitFromCommonMessage;
    (cmd.*reader)(host::String(packet));
    return cmd;
}

Pairs pairsOf(const Cmd& cmd) {
    Pairs pairs;
    for (const host::String& key : cmd.GetKeys()) {
        pairs.emplace_back(key.bytes(), cmd.MultiDict->Value(key).bytes());
    }
    return pairs;
}

TEST(CommonMessageTest, WriterFormsStoreTheirDefaults) {
    const std::string rawData = bytes(1, 0, "\r raw");
    const std::vector<std::pair<std::function<void(Cmd&)>, std::string>> cases = {
        // Without Address2 the default lands in Address1.
        {[](Cmd& c) { c.Command = "2", c.Address1 = "0", c.level = 7; },
         bytes("X", 16, "a@LX", 0, "02", 0x80, 7, 0, 0, "  \r")},
        {[&](Cmd& c) { c.Command = "X", c.SetRawData(host::String(rawData)); },
         bytes("X", 18, "a@LX", 0, "0X", 7, 1, 0, "\r raw\r")},
        {[](Cmd& c) { c.Header = "y", c.TransactionID = 300, c.SetFlag("&h41"), c.param1 = 263; },
         bytes("y", 16, "a,LXA0", 0x80, 0, 7, 0, "   \r")}};
    for (const auto& [write, packet] : cases) {
        SCOPED_TRACE(::testing::PrintToString(packet));
        Cmd cmd;
        write(cmd);
        // The defaults are stored, so a second write gives the same bytes.
        EXPECT_EQ(cmd.GetRawCommand().bytes() + cmd.GetRawCommand().bytes(), packet + packet);
    }
    // The reader keeps one byte of Address2, so raw data is read back from the packet.
    EXPECT_EQ(received(cases[1].second).GetSendRawData().bytes(), rawData);
}

TEST(CommonMessageTest, ReaderAcceptsByTypeLetterAndCallsHooks) {
    static int errors = 0, logs = 0;
    static std::int64_t signal = -1;
    const auto saved = Cmd::hooks;
    Cmd::hooks = {[](const Cmd&) { ++errors; }, [](const Cmd&) { ++logs; }, &signal};
    // The low-battery fold is for the command byte alone: interface Q does not become P.
    const std::string error = bytes("E", 8, "abcde9"), fromQ = common(81).replace(4, 1, "Q");
    // packet -> accepted, log level, log text; above 4 the level byte is already text
    const std::vector<std::tuple<std::string, bool, std::int64_t, std::string>> cases = {
        {fromQ, true, 0, ""},  {"y\3a", true, 0, ""},          {"N", true, 0, ""},
        {error, false, 0, ""}, {"A\3a", false, 0, ""},         {"Q", false, 0, ""},
        {"", false, 0, ""},    {"L\6\3ab\r", true, 3, "ab\r"}, {"L\5Hey", true, 4, "Hey"},
        {"L", true, 0, ""},    {"L\4\4ab", true, 4, "ab"}};
    for (const auto& [packet, accepted, logLevel, text] : cases) {
        SCOPED_TRACE(::testing::PrintToString(packet));
        Cmd cmd;
        EXPECT_EQ(cmd.InitFromCommonMessage(host::String(packet)), accepted);
        EXPECT_EQ(std::make_pair(cmd.LogData, cmd.LogMessage.bytes()),
                  std::make_pair(logLevel, text));
    }
    // Only a packet from interface P carries the signal strength.
    EXPECT_EQ(std::make_tuple(errors, logs, signal), std::make_tuple(1, 4, -1));

    const Cmd analog = received(bytes("M", 16, "a@PX", 0, "0203", 5, "1A2F"));
    EXPECT_EQ(std::make_tuple(analog.rawAnalog16, analog.param1, analog.param2, signal),
              std::make_tuple(0x1A2F, '1', 'A', 'F'));
    Cmd::hooks = saved;
}

// Low-battery forms of a command read as the command; a level byte "L" means no level.
TEST(CommonMessageTest, ReaderFoldsCommandLevelAndFlags) {
    // command byte, level byte -> command, low battery, level
    const std::vector<std::tuple<int, int, int, bool, int>> cases = {
        {5, 0, 4, true, 0},         {85, 0, 84, true, 0}, {1, 0, 0, true, 0},
        {'Q', 'L', 'P', true, 0},   {4, 0, 4, false, 0},  {80, 0, 80, false, 0},
        {'2', 'K', '2', false, 'K'}};
    for (const auto& [command, levelByte, folded, lowBattery, level] : cases) {
        SCOPED_TRACE(command);
        Cmd cmd = received(common(command, levelByte));
        EXPECT_EQ(std::make_tuple(cmd.Command.bytes(), cmd.LowBattery, cmd.level),
                  std::make_tuple(std::string(1, char(folded)), lowBattery, level));
        EXPECT_EQ(cmd.GetRawCommand().bytes(), common(folded, level));  // what goes back out
    }
    // The flag bits toggle on the wire; the booleans only ever get set.
    Cmd cmd = received(common().substr(0, 6) + '\x0E' + common().substr(7));
    EXPECT_TRUE(cmd.fWireless && cmd.fStacked && !cmd.fDoTransmit && !cmd.fCCM);
    cmd.SetFlag("&hF6");
    EXPECT_TRUE(cmd.GetRawCommand().bytes()[6] == '\xF8' && cmd.fDoTransmit && cmd.fPassThrough);
}

TEST(VocabularyTest, HouseAndUnitCodesAndAnUnknownHeader) {
    Cmd cmd;
    // letter set -> Address1 and the letter read back; a letter past P is ignored
    for (auto [letter, read] : Pairs{{"A", "0A"}, {"p", "FP"}, {"Q", "FP"}, {"c", "2C"}}) {
        cmd.SetHouseCode(host::String(letter));
        EXPECT_EQ(cmd.Address1.bytes() + cmd.GetHouseCode().bytes(), read) << letter;
    }
    for (const auto& [unit, digits] : Pairs{{"1", "0"}, {"17", "10"}, {"256", "FF"}}) {
        cmd.SetUnitCode(std::stoll(unit));
        EXPECT_EQ(cmd.Address2.bytes() + " " + cmd.GetUnitCode().bytes(), digits + " " + unit);
    }
    // A camera's commands have words of their own.
    cmd.Header = "N";
    for (auto [command, text] : Pairs{{"C", "tilt down"}, {"Z", "UNKNOWN Ninja command (5A)"}}) {
        cmd.Command = host::String(command);
        EXPECT_EQ(cmd.GetCommandCodeDescription().bytes(), text) << command;
    }
    cmd.Header = "";
    cmd.fCCM = true;
    cmd.Command = "P";
    EXPECT_EQ(cmd.GetCommandCodeDescription().bytes(), "Ping");
    cmd.fCCM = false;
    cmd.Command = "";
    cmd.Constructor();  // the report needs its time stamp; a header it does not know is named so
    EXPECT_NE(cmd.DebugString().bytes().find("\r       Header: UNKNOWN ()\r"), std::string::npos);
    EXPECT_EQ(cmd.GetLogLine().bytes(), "Safe Condition for address C256");  // command ""
}

TEST(MultiPacketTest, WriterPadsKeysAndCutsLengths) {
    const std::string huge(70000, 'd');
    const std::vector<std::pair<Pairs, std::string>> cases = {
        {{{"mcmd", "getUnits"}}, kGetUnits},
        {{{"IP", "x"}}, bytes("J", 11, 0, 0x80, "  IP", 1, 0, "x")},
        {{{"UPN10", "v"}}, bytes("J", 11, 0, 0x80, "PN10", 1, 0, "v")},
        {{{"DATA", bytes(0, "\r")}, {"addr", ""}},
         bytes("J", 18, 0, 0x80, "DATA", 2, 0, 0, "\raddr", 0, 0)},
        {{{"DATA", huge}}, bytes("J", 0x7A, 0x11, 0x80, "DATA", 0x70, 0x11) + huge}};
    for (const auto& [pairs, packet] : cases) {
        Cmd cmd;
        for (const auto& [key, value] : pairs) {
            cmd.SetMulti(host::String(key), host::String(value));
        }
        EXPECT_TRUE(cmd.GetRawCommand().bytes() == packet) << pairs[0].first;
    }
}

TEST(MultiPacketTest, ReaderHonoursTheFlagStopsAtTheEndAndMatchesKeysAsHeld) {
    const std::vector<std::tuple<std::string, bool, Pairs>> cases = {
        {kGetUnits, true, {{"mcmd", "getUnits"}}},
        {bytes("J", 13, 0, 0, "abcd", 0, 3, "xyz"), false, {{"abcd", "xyz"}}},
        {bytes("J", 13, 0, 0x80, "abcd", 0, 3, "xyzw"), true, {{"abcd", "xyzw"}}},  // 768
        {bytes("J", 13, 0, 0x81, "abcd", 3, 0, "xyzw"), true, {{"abcd", "xyz"}, {"w", ""}}},
        {bytes("J", 0, 0, 0xFF, "abcd", 1, 0, "xABCD", 1, 0, "y"), true, {{"abcd", "y"}}},
        {bytes("J", 0, 0, 0x80, "abcd", 5), true, {{"abcd", ""}}},
        {bytes("J", 0, 0, 0x7F), false, {}},
        {"J", false, {}}};
    for (const auto& [packet, littleEndian, pairs] : cases) {
        SCOPED_TRACE(::testing::PrintToString(packet));
        Cmd cmd;
        EXPECT_TRUE(cmd.initFromMultiPacket(host::String(packet)));
        EXPECT_EQ(std::make_tuple(cmd.LittleEndian, pairsOf(cmd), cmd.isMultiPacket && !cmd.fCCM,
                                  cmd.RawCommonCommand.bytes()),
                  std::make_tuple(littleEndian, pairs, true, packet));
    }
    Cmd sent;
    sent.SetMulti("IP", "x");
    sent.SetMulti("PkID", "17");
    const Cmd got = received(sent.GetRawCommand().bytes());
    // The sender holds "IP" unpadded, so only the receiver finds it; keys ignore case.
    EXPECT_EQ(sent.GetMulti("IP").bytes() + "|" + got.GetMulti("ip").bytes(), "|x");
    // The acknowledgement is a multi-packet itself.
    EXPECT_EQ(got.MakeAck()->GetRawCommand().bytes(),
              bytes("J", 21, 0, 0x80, "mcmd", 3, 0, "ACK", "PkID", 2, 0, "17"));
}

}  // namespace
