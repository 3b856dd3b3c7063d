#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

#include "host/NilObjectException.h"
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
std::string bytes(std::initializer_list<Piece> pieces) {
    std::string out;
    for (const Piece& piece : pieces) {
        out += piece.text;
    }
    return out;
}

// ON to house A, unit 4, every other field at the writer's default.
const std::string kOnA4 = bytes({"X", 16, "a@LX", 0, "0203", 0, 0, 0, " \r"});
const std::string kGetUnits = bytes({"J", 18, 0, 0x80, "mcmd", 8, 0, "getUnits"});
const std::string kRawData = bytes({1, 0, "\r raw"});

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
    const std::vector<std::pair<std::function<void(Cmd&)>, std::string>> cases = {
        {[](Cmd& c) { c.Command = "2", c.Address1 = "0", c.Address2 = "3"; }, kOnA4},
        // Without Address2 the default lands in Address1.
        {[](Cmd& c) { c.Command = "2", c.Address1 = "0", c.level = 7; },
         bytes({"X", 16, "a@LX", 0, "02", 0x80, 7, 0, 0, "  \r"})},
        {[](Cmd& c) { c.Command = "z", c.Address2 = "2", c.DoubleMeasurement = 1.5; },
         bytes({"X", 20, "a@LX", 0, "0z", 0x80, "2", 0, 0, 0, 0, 0, 0, 0xF8, 0x3F, "\r"})},
        {[](Cmd& c) { c.Command = "A", c.level = 9, c.analog0 = "p", c.analog3 = "s"; },
         bytes({"X", 16, "a@LX", 0, "0A", 0x80, 9, "ps  \r"})},
        {[](Cmd& c) { c.Command = "X", c.SetRawData(host::String(kRawData)); },
         bytes({"X", 18, "a@LX", 0, "0X", 7, 1, 0, "\r raw\r"})},
        {[](Cmd& c) { c.Header = "y", c.TransactionID = 300, c.SetFlag("&h41"), c.param1 = 263; },
         bytes({"y", 16, "a,LXA0", 0x80, 0, 7, 0, "   \r"})}};
    for (std::size_t row = 0; row < cases.size(); ++row) {
        SCOPED_TRACE(row);
        Cmd cmd;
        cases[row].first(cmd);
        const std::string& packet = cases[row].second;
        EXPECT_EQ(cmd.GetRawCommand().bytes(), packet);
        EXPECT_EQ(cmd.PacketLength, std::ssize(packet));
        EXPECT_EQ(cmd.GetRawCommand().bytes(), packet) << "the defaults were not stored";
    }
    // The reader keeps one byte of Address2, so raw data is read back from the packet.
    EXPECT_EQ(received(cases[4].second).GetSendRawData().bytes(), kRawData);
}

TEST(CommonMessageTest, ReaderAcceptsByTypeLetterAndCallsHooks) {
    static int errors = 0, logs = 0;
    static std::int64_t signal = -1;
    const auto saved = Cmd::hooks;
    Cmd::hooks = {[](const Cmd&) { ++errors; }, [](const Cmd&) { ++logs; }, &signal};
    const std::string error = bytes({"E", 8, "abcde9"});
    // packet -> accepted, log level, log text; a log level above 4 is already text
    const std::vector<std::tuple<std::string, bool, std::int64_t, std::string>> cases = {
        {kOnA4, true, 0, ""},  {"y\3a", true, 0, ""},          {"N", true, 0, ""},
        {error, false, 0, ""}, {"A\3a", false, 0, ""},         {"Q", false, 0, ""},
        {"", false, 0, ""},    {"L\6\3ab\r", true, 3, "ab\r"}, {"L\5Hey", true, 4, "Hey"},
        {"L", true, 0, ""}};
    for (const auto& [packet, accepted, logLevel, text] : cases) {
        Cmd cmd;
        EXPECT_EQ(cmd.InitFromCommonMessage(host::String(packet)), accepted) << packet;
        EXPECT_EQ(std::make_pair(cmd.LogData, cmd.LogMessage.bytes()),
                  std::make_pair(logLevel, text));
    }
    EXPECT_EQ(std::make_pair(errors, logs), std::make_pair(1, 3));
    EXPECT_EQ(received(error).GetErrorCodeDescription().bytes(), "Power restored at controller");

    // A packet too short for a field reads it as empty or 0.
    const Cmd brief = received(bytes({"X", 5, "a", 7, "P"}));
    EXPECT_EQ(std::make_tuple(brief.TransactionID, signal), std::make_tuple(7, 0));
    EXPECT_TRUE(brief.Command.empty() && brief.Address2.empty());

    const Cmd analog = received(bytes({"M", 16, "a@PX", 0, "0203", 5, "1A2F"}));
    EXPECT_EQ(std::make_tuple(analog.rawAnalog16, analog.param1, analog.param2, signal),
              std::make_tuple(0x1A2F, '1', 'A', 'F'));
    Cmd::hooks = saved;
}

TEST(CommonMessageTest, ReaderFieldsFoldingAndFlags) {
    // command byte, level byte -> command, low battery, level
    const std::vector<std::tuple<char, char, char, bool, int>> cases = {
        {5, 0, 4, true, 0},         {85, 0, 84, true, 0}, {1, 0, 0, true, 0},
        {81, 0, 80, true, 0},       {4, 0, 4, false, 0},  {'2', 'L', '2', false, 0},
        {'2', 'K', '2', false, 'K'}};
    for (const auto& [command, levelByte, folded, lowBattery, expectedLevel] : cases) {
        Cmd cmd = received(kOnA4.substr(0, 8) + command + "03" + levelByte + kOnA4.substr(12));
        EXPECT_EQ(std::make_tuple(cmd.Command.bytes(), cmd.LowBattery, cmd.level),
                  std::make_tuple(std::string(1, folded), lowBattery, expectedLevel))
            << int(command);
        EXPECT_EQ(cmd.GetRawCommand().bytes()[8], folded) << "the received byte is lost";
    }

    Cmd cmd = received(kOnA4.substr(0, 6) + '\x0E' + kOnA4.substr(7));
    cmd.SetFlag("&hF6");  // toggles the bits on the wire; the booleans only ever get set
    EXPECT_EQ(cmd.GetRawCommand().bytes()[6], '\xF8');
    cmd.SetFlag("&b10000001");
    EXPECT_EQ(cmd.Flags, 0x79);
    EXPECT_TRUE(cmd.fDoTransmit && cmd.fCCM && cmd.fAddressOnly && cmd.fCommandOnly &&
                cmd.fWireless && cmd.fPassThrough && cmd.fStacked);
}

TEST(VocabularyTest, HouseUnitCommandAndErrorCodes) {
    Cmd cmd;
    // letter set -> Address1, letter read back; a letter past P is ignored
    const std::vector<std::tuple<const char*, std::string, std::string>> houses = {
        {"A", "0", "A"}, {"p", "F", "P"}, {"Q", "F", "P"}, {"c", "2", "C"}};
    for (const auto& [letter, digit, readBack] : houses) {
        cmd.SetHouseCode(letter);
        EXPECT_EQ(cmd.Address1.bytes() + cmd.GetHouseCode().bytes(), digit + readBack) << letter;
    }
    cmd.Address1 = "\x80";  // the writer's default
    EXPECT_EQ(cmd.GetHouseCode().bytes(), "A");
    for (const auto& [unit, digits] : Pairs{{"1", "0"}, {"17", "10"}, {"256", "FF"}}) {
        cmd.SetUnitCode(std::stoll(unit));
        EXPECT_EQ(cmd.Address2.bytes() + " " + cmd.GetUnitCode().bytes(), digits + " " + unit);
    }

    // header, control flag, command -> description
    const std::vector<std::tuple<const char*, bool, std::string, std::string>> commands = {
        {"X", false, "f", "Status Request"},
        {"X", false, "", "Safe Condition"},
        {"X", false, "\x04", "UNKNOWN COMMAND CODE: (\x04) 0x4"},
        {"X", true, "P", "Ping"},
        {"X", true, "", "Unknown CCM code"},
        {"n", false, "`", "pan left"},
        {"N", false, "", "UNKNOWN Ninja command (0)"}};
    for (const auto& [header, control, command, text] : commands) {
        cmd.Header = header, cmd.fCCM = control, cmd.Command = host::String(command);
        EXPECT_EQ(cmd.GetCommandCodeDescription().bytes(), text) << header << command;
    }
    EXPECT_EQ(Cmd().GetErrorCodeDescription().bytes(), "UNKNOWN ERROR CODE: () 0x0");
}

TEST(DiagnosticsTest, DebugStringAndLogLine) {
    const std::string packet = bytes({"X", 16, "a", 7, "LX", 0xC8, "0203", 5, 0, 0, " \r"});
    Cmd fresh;
    EXPECT_THROW(fresh.DebugString(), host::NilObjectException);
    fresh.Constructor();
    Cmd read = received(packet);
    read.Constructor();
    const std::string flags = "DoTrans:0  CMM:0  AddressOnly:0  CommandOnly:0  Wireless:0  Pass:0";
    const std::vector<std::pair<Cmd*, std::vector<std::string>>> cases = {
        {&fresh,
         {"Header: UNKNOWN ()", "Packet Length: 0 RealLength: 0", "Version: ", "Transaction ID: 0",
          "InterfaceType: ", "UnitClass: ", "Code: ", "Command: Safe Condition", "Address: A1",
          "Level: 0       " + flags, "raw command:()"}},
        {&read,
         {"Header: Development (X)", "Packet Length: 16 RealLength: 16", "Version: a",
          "Transaction ID: 7", "InterfaceType: L", "UnitClass: X", "Code: 0",
          "Command: Unknown CCM code", "Address: A4",
          "Level: 5       DoTrans:1  CCM:1  AddressOnly:0  CommandOnly:0  Wireless:1 Pass:0",
          "raw command:(" + packet + ")"}}};
    for (const auto& [cmd, lines] : cases) {
        std::string expected = "Packet Debug: " + cmd->TimeStamp->LongTime().bytes() + " " +
                               cmd->TimeStamp->ShortDate().bytes() + "\r";
        for (const std::string& line : lines) {
            expected += "       " + line + "\r";
        }
        EXPECT_EQ(cmd->DebugString().bytes(), expected);
    }
    read.fCCM = false;
    read.fStacked = true;
    EXPECT_EQ(read.GetLogLine().bytes(), "stacked ON for address A4 (W)");
}

TEST(MultiPacketTest, WriterPadsKeysAndCutsLengths) {
    const std::string huge(70000, 'd');
    const std::vector<std::pair<Pairs, std::string>> cases = {
        {{{"mcmd", "getUnits"}}, kGetUnits},
        {{{"IP", "x"}}, bytes({"J", 11, 0, 0x80, "  IP", 1, 0, "x"})},
        {{{"UPN10", "v"}}, bytes({"J", 11, 0, 0x80, "PN10", 1, 0, "v"})},
        {{{"DATA", bytes({0, "\r"})}, {"addr", ""}},
         bytes({"J", 18, 0, 0x80, "DATA", 2, 0, 0, "\raddr", 0, 0})},
        {{{"DATA", huge}}, bytes({"J", 0x7A, 0x11, 0x80, "DATA", 0x70, 0x11}) + huge}};
    for (const auto& [pairs, packet] : cases) {
        Cmd cmd;
        for (const auto& [key, value] : pairs) {
            cmd.SetMulti(host::String(key), host::String(value));
        }
        EXPECT_TRUE(cmd.GetRawCommand().bytes() == packet) << pairs[0].first;
    }
    // A received message has no Header and still writes the multi-packet form.
    EXPECT_EQ(received(bytes({"J", 4, 0, 0})).GetRawCommand().bytes(), bytes({"J", 4, 0, 0x80}));
}

TEST(MultiPacketTest, ReaderHonoursTheFlagAndStopsAtTheEnd) {
    const std::vector<std::tuple<std::string, bool, Pairs>> cases = {
        {kGetUnits, true, {{"mcmd", "getUnits"}}},
        {bytes({"J", 13, 0, 0, "abcd", 0, 3, "xyz"}), false, {{"abcd", "xyz"}}},
        {bytes({"J", 13, 0, 0x80, "abcd", 0, 3, "xyzw"}), true, {{"abcd", "xyzw"}}},  // 768
        {bytes({"J", 13, 0, 0x81, "abcd", 3, 0, "xyzw"}), true, {{"abcd", "xyz"}, {"w", ""}}},
        {bytes({"J", 0, 0, 0xFF, "abcd", 1, 0, "xABCD", 1, 0, "y"}), true, {{"abcd", "y"}}},
        {bytes({"J", 0, 0, 0x80, "abcd", 5}), true, {{"abcd", ""}}},
        {bytes({"J", 0, 0, 0x7F}), false, {}},
        {"J", false, {}}};
    for (const auto& [packet, littleEndian, pairs] : cases) {
        const Cmd cmd = received(packet);
        EXPECT_EQ(cmd.LittleEndian, littleEndian) << packet;
        EXPECT_EQ(pairsOf(cmd), pairs) << packet;
        EXPECT_TRUE(cmd.isMultiPacket && cmd.Header.empty() && !cmd.fCCM);
        EXPECT_TRUE(cmd.RawCommonCommand.sameBytes(host::String(packet)));
    }
}

TEST(MultiPacketTest, KeysMatchAsHeldAndTheAcknowledgeCopiesOne) {
    EXPECT_THROW(Cmd().GetMulti("mcmd"), host::NilObjectException);  // no dictionary yet
    Cmd sent;
    sent.SetMulti("IP", "x");
    sent.SetMulti("PkID", "17");
    const Cmd got = received(sent.GetRawCommand().bytes());
    // The sender holds "IP" unpadded, so only the receiver finds it; keys ignore case.
    EXPECT_EQ(sent.GetMulti("IP").bytes() + "|" + got.GetMulti("ip").bytes(), "|x");
    EXPECT_EQ(got.GetMulti("none").bytes(), "");
    EXPECT_EQ(pairsOf(*got.MakeAck()), (Pairs{{"mcmd", "ACK"}, {"PkID", "17"}}));
    EXPECT_EQ(pairsOf(*received(kGetUnits).MakeAck()), (Pairs{{"mcmd", "ACK"}, {"PkID", ""}}));
}

}  // namespace
