#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

#include "host/NilObjectException.h"
#include "host/StringFunctions.h"
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

Pairs pairsOf(const Cmd& cmd) {
    Pairs pairs;
    for (const host::String& key : cmd.GetKeys()) {
        pairs.emplace_back(key.bytes(), cmd.MultiDict->Value(key).bytes());
    }
    return pairs;
}

Cmd received(const std::string& packet) {
    Cmd cmd;
    EXPECT_TRUE(cmd.initFromMultiPacket(host::String(packet)));
    return cmd;
}

TEST(CommonMessageTest, WriterFormsStoreTheirDefaults) {
    const std::vector<std::pair<std::function<void(Cmd&)>, std::string>> cases = {
        {[](Cmd& c) { c.Command = "2", c.Address1 = "0", c.Address2 = "3"; }, kOnA4},
        {[](Cmd&) {}, bytes({"X", 16, "a@LX", 0, "0", 0x80, 0, 0, 0, "   \r"})},
        {[](Cmd& c) { c.Command = "2", c.Address1 = "0", c.level = 7; },
         bytes({"X", 16, "a@LX", 0, "02", 0x80, 7, 0, 0, "  \r"})},
        {[](Cmd& c) {
             c.Command = "z", c.Address1 = "1", c.Address2 = "2", c.DoubleMeasurement = 1.5;
         },
         bytes({"X", 20, "a@LX", 0, "0z12", 0, 0, 0, 0, 0, 0, 0xF8, 0x3F, "\r"})},
        {[](Cmd& c) {
             c.Command = "A", c.Address1 = "1", c.Address2 = "2", c.level = 9, c.analog0 = "p",
             c.analog1 = "q", c.analog2 = "r", c.analog3 = "s";
         },
         bytes({"X", 17, "a@LX", 0, "0A12", 9, "pqrs\r"})},
        {[](Cmd& c) { c.Command = "X", c.SetRawData("abcdefghijklmnopqrst"); },
         bytes({"X", 31, "a@LX", 0, "0X", 20, "abcdefghijklmnopqrst\r"})},
        {[](Cmd& c) { c.Command = "X", c.SetRawData(""); },
         bytes({"X", 16, "a@LX", 0, "0X", 0x80, "     \r"})},
        {[](Cmd& c) { c.Header = "y", c.TransactionID = 300, c.SetFlag("&h41"), c.param1 = 263; },
         bytes({"y", 16, "a,LXA0", 0x80, 0, 7, 0, "   \r"})}};
    for (std::size_t row = 0; row < cases.size(); ++row) {
        Cmd cmd;
        cases[row].first(cmd);
        const std::string& packet = cases[row].second;
        EXPECT_EQ(cmd.GetRawCommand().bytes(), packet) << "row " << row;
        EXPECT_EQ(cmd.PacketLength, static_cast<std::int64_t>(packet.size())) << "row " << row;
        EXPECT_EQ(cmd.GetRawCommand().bytes(), packet) << "row " << row << ", second call";
    }
    Cmd fresh;
    fresh.GetRawCommand();
    EXPECT_EQ(fresh.Address1.bytes(), "\x80");
    EXPECT_TRUE(fresh.Address2.empty() && fresh.RawCommonCommand.empty());
}

TEST(CommonMessageTest, ReaderAcceptsByTypeLetterAndCallsHooks) {
    static int errors = 0, logs = 0;
    static std::int64_t signal = -1;
    const auto saved = Cmd::hooks;
    Cmd::hooks = {[](const Cmd&) { ++errors; }, [](const Cmd&) { ++logs; }, &signal};
    const std::string error = bytes({"E", 8, "abcde9"});
    // packet -> accepted, error hook calls, log hook calls
    const std::vector<std::tuple<std::string, bool, int, int>> cases = {
        {kOnA4, true, 0, 0},  {"y\3a", true, 0, 0},  {"N", true, 0, 0},  {"L\2", true, 0, 1},
        {error, false, 1, 0}, {"A\3a", false, 0, 0}, {"Q", false, 0, 0}, {"", false, 0, 0}};
    for (const auto& [packet, accepted, errorCalls, logCalls] : cases) {
        errors = logs = 0;
        Cmd cmd;
        EXPECT_EQ(cmd.InitFromCommonMessage(host::String(packet)), accepted) << packet;
        EXPECT_EQ(std::make_pair(errors, logs), std::make_pair(errorCalls, logCalls)) << packet;
    }
    Cmd failed;
    failed.InitFromCommonMessage(host::String(error));
    EXPECT_EQ(failed.GetErrorCodeDescription().bytes(), "Power restored at controller");

    // A packet too short for a field reads it as empty or 0.
    Cmd brief;
    EXPECT_TRUE(brief.InitFromCommonMessage(host::String(bytes({"X", 5, "a", 7, "P"}))));
    EXPECT_EQ(std::make_tuple(brief.TransactionID, signal), std::make_tuple(7, 0));
    EXPECT_TRUE(brief.Command.empty() && brief.Address2.empty());

    Cmd analog;
    analog.InitFromCommonMessage(host::String(bytes({"M", 16, "a@PX", 0, "0203", 5, "1A2F"})));
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
        std::string packet = kOnA4;
        packet[8] = command;
        packet[11] = levelByte;
        Cmd cmd;
        cmd.InitFromCommonMessage(host::String(packet));
        EXPECT_EQ(std::make_tuple(cmd.Command.bytes(), cmd.LowBattery, cmd.level),
                  std::make_tuple(std::string(1, folded), lowBattery, expectedLevel))
            << int(command);
        EXPECT_EQ(cmd.GetRawCommand().bytes()[8], folded) << "the received byte is lost";
    }

    std::string flagged = kOnA4;
    flagged[6] = '\xFE';
    Cmd cmd;
    cmd.InitFromCommonMessage(host::String(flagged));
    cmd.SetFlag("&hFE");  // clears the bits on the wire; the booleans only ever get set
    EXPECT_EQ(cmd.GetRawCommand().bytes()[6], '\0');
    EXPECT_TRUE(cmd.fDoTransmit && cmd.fCCM && cmd.fAddressOnly && cmd.fCommandOnly &&
                cmd.fWireless && cmd.fPassThrough && cmd.fStacked);
    Cmd stacked;
    stacked.SetFlag("&b00000010");
    EXPECT_EQ(stacked.Flags, 2);
    stacked.SetFlag("2");
    EXPECT_TRUE(stacked.Flags == 0 && stacked.fStacked && !stacked.fWireless);
}

TEST(CommonMessageTest, LogPacketsLeaveTheFullLayoutAlone) {
    const std::vector<std::tuple<std::string, std::int64_t, std::string>> cases = {
        {"L\6\3ab\r", 3, "ab\r"}, {"L\5Hey", 4, "Hey"}, {"L", 0, ""}};
    for (const auto& [packet, logLevel, text] : cases) {
        Cmd cmd;
        EXPECT_TRUE(cmd.InitFromCommonMessage(host::String(packet)));
        EXPECT_EQ(std::make_pair(cmd.LogData, cmd.LogMessage.bytes()),
                  std::make_pair(logLevel, text));
        EXPECT_TRUE(cmd.Version.empty() && cmd.Command.empty() && cmd.PacketLength == packet[1]);
    }
}

TEST(VocabularyTest, HouseAndUnitCodes) {
    const std::string letters = "ABCDEFGHIJKLMNOP";
    Cmd cmd;
    for (std::int64_t house = 0; house < 16; ++house) {
        cmd.SetHouseCode(host::String(letters.substr(house, 1)));
        EXPECT_EQ(cmd.Address1.bytes(), host::Hex(house).bytes());
        EXPECT_EQ(cmd.GetHouseCode().bytes(), letters.substr(house, 1));
    }
    cmd.SetHouseCode("Q");  // ignored
    cmd.SetHouseCode("c");
    EXPECT_EQ(cmd.Address1.bytes(), "2");
    cmd.Address1 = "\x80";
    EXPECT_EQ(cmd.GetHouseCode().bytes(), "A");
    for (const auto& [unit, digits] : std::vector<std::pair<std::int64_t, std::string>>{
             {1, "0"}, {16, "F"}, {17, "10"}, {256, "FF"}}) {
        cmd.SetUnitCode(unit);
        EXPECT_EQ(cmd.Address2.bytes(), digits);
        EXPECT_EQ(cmd.GetUnitCode().bytes(), host::Str(unit).bytes());
    }
    cmd.Address1 = cmd.Address2 = "";
    EXPECT_EQ(cmd.GetHouseCode().bytes() + cmd.GetUnitCode().bytes(), "A1");
}

TEST(VocabularyTest, CommandAndErrorDescriptions) {
    // header, control flag, command -> description
    const std::vector<std::tuple<const char*, bool, std::string, std::string>> commands = {
        {"X", false, "f", "Status Request"},
        {"X", false, "", "Safe Condition"},
        {"X", false, "P", "UNKNOWN COMMAND CODE: (P) 0x50"},
        {"X", true, "P", "Ping"},
        {"X", false, "\x04", "UNKNOWN COMMAND CODE: (\x04) 0x4"},
        {"X", true, "R", "R"},
        {"X", true, "l", "Set transmitter output amplitude"},
        {"X", true, "", "Unknown CCM code"},
        {"N", true, "a", "pan right"},
        {"n", false, "`", "pan left"},
        {"N", false, "", "UNKNOWN Ninja command (0)"}};
    for (const auto& [header, control, command, text] : commands) {
        Cmd cmd;
        cmd.Header = header;
        cmd.fCCM = control;
        cmd.SetCommand(host::String(command));
        EXPECT_EQ(cmd.GetCommandCodeDescription().bytes(), text) << header << " " << command;
    }
    for (const auto& [code, text] : Pairs{{"6", "Lost transmission echoes from TW523"},
                                          {"0", "UNKNOWN ERROR CODE: (0) 0x30"},
                                          {"", "UNKNOWN ERROR CODE: () 0x0"}}) {
        Cmd cmd;
        cmd.Code = host::String(code);
        EXPECT_EQ(cmd.GetErrorCodeDescription().bytes(), text) << code;
    }
}

TEST(DiagnosticsTest, DebugStringAndLogLine) {
    const std::string packet = bytes({"X", 16, "a", 7, "LX", 0xC8, "0203", 5, 0, 0, " \r"});
    Cmd fresh;
    EXPECT_THROW(fresh.DebugString(), host::NilObjectException);
    fresh.Constructor();
    Cmd read;
    read.Constructor();
    read.InitFromCommonMessage(host::String(packet));
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
    EXPECT_EQ(read.GetLogLine().bytes(), "ON for address A4 (W)");
    read.fStacked = true;
    EXPECT_EQ(read.GetLogLine().bytes(), "stacked ON for address A4 (W)");
}

TEST(DiagnosticsTest, RawDataRoundTrip) {
    const std::string data = bytes({1, 0, "\r raw"});
    Cmd sent, got;
    sent.Command = "X";
    sent.SetRawData(host::String(data));
    ASSERT_TRUE(got.InitFromCommonMessage(sent.GetRawCommand()));
    EXPECT_EQ(got.GetSendRawData().bytes(), data);  // the reader keeps one byte of Address2
}

TEST(MultiPacketTest, WriterPadsKeysAndCutsLengths) {
    const std::vector<std::pair<Pairs, std::string>> cases = {
        {{{"mcmd", "getUnits"}}, kGetUnits},
        {{{"IP", "x"}}, bytes({"J", 11, 0, 0x80, "  IP", 1, 0, "x"})},
        {{{"UPN10", "v"}}, bytes({"J", 11, 0, 0x80, "PN10", 1, 0, "v"})},
        {{{"Valu", "1"}, {"VALU", "2"}}, bytes({"J", 11, 0, 0x80, "Valu", 1, 0, "2"})},
        {{{"DATA", bytes({0, "\r"})}, {"addr", ""}},
         bytes({"J", 18, 0, 0x80, "DATA", 2, 0, 0, "\raddr", 0, 0})}};
    for (const auto& [pairs, packet] : cases) {
        Cmd cmd;
        for (const auto& [key, value] : pairs) {
            cmd.SetMulti(host::String(key), host::String(value));
        }
        EXPECT_EQ(cmd.GetRawCommand().bytes(), packet);
        EXPECT_EQ(cmd.PacketLength, 0);
    }
    // A received message has no Header and still writes the multi-packet form.
    EXPECT_EQ(received(bytes({"J", 4, 0, 0})).GetRawCommand().bytes(), bytes({"J", 4, 0, 0x80}));

    Cmd huge;
    huge.SetMulti("DATA", host::String(std::string(70000, 'd')));
    const std::string packet = huge.GetRawCommand().bytes();
    ASSERT_EQ(packet.size(), 70010u);
    EXPECT_EQ(packet.substr(0, 10), bytes({"J", 0x7A, 0x11, 0x80, "DATA", 0x70, 0x11}));
}

TEST(MultiPacketTest, ReaderHonoursTheFlagAndStopsAtTheEnd) {
    const std::vector<std::tuple<std::string, bool, Pairs>> cases = {
        {kGetUnits, true, {{"mcmd", "getUnits"}}},
        {bytes({"J", 13, 0, 0, "abcd", 0, 3, "xyz"}), false, {{"abcd", "xyz"}}},
        {bytes({"J", 13, 0, 0x80, "abcd", 0, 3, "xyzw"}), true, {{"abcd", "xyzw"}}},  // 768
        {bytes({"J", 13, 0, 0x81, "abcd", 3, 0, "xyzw"}), true, {{"abcd", "xyz"}, {"w", ""}}},
        {bytes({"J", 0, 0, 0xFF, "abcd", 1, 0, "xABCD", 1, 0, "y"}), true, {{"abcd", "y"}}},
        {bytes({"J", 0, 0, 0x80, "DATA", 2, 0, 0, "\r"}), true, {{"DATA", bytes({0, "\r"})}}},
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
    Cmd sent;
    sent.SetMulti("IP", "x");
    sent.SetMulti("mcmd", "NoOp");
    sent.SetMulti("Empt", "");
    const Cmd got = received(sent.GetRawCommand().bytes());
    // key -> the sender's value, the receiver's value
    const std::vector<std::tuple<const char*, std::string, std::string>> cases = {
        {"IP", "", "x"}, {"MCMD", "NoOp", "NoOp"}, {"Empt", "", ""}, {"none", "", ""}};
    for (const auto& [key, onSender, onReceiver] : cases) {
        EXPECT_EQ(sent.GetMulti(key).bytes(), onSender) << key;
        EXPECT_EQ(got.GetMulti(key).bytes(), onReceiver) << key;
    }
    EXPECT_EQ(pairsOf(got), (Pairs{{"  IP", "x"}, {"mcmd", "NoOp"}, {"Empt", ""}}));
    EXPECT_EQ(pairsOf(*got.MakeAck()), (Pairs{{"mcmd", "ACK"}, {"PkID", ""}}));
    sent.SetMulti("PkID", "17");
    const auto ack = sent.MakeAck();
    EXPECT_TRUE(ack->isMultiPacket && !ack->TimeStamp.IsNil());
    EXPECT_EQ(pairsOf(*ack), (Pairs{{"mcmd", "ACK"}, {"PkID", "17"}}));
    EXPECT_EQ(sent.GetMulti("mcmd").bytes(), "NoOp");
}

TEST(MultiPacketTest, NoDictionaryRaises) {
    Cmd common;
    EXPECT_THROW(common.GetMulti("mcmd"), host::NilObjectException);
    EXPECT_THROW(common.GetKeys(), host::NilObjectException);
    EXPECT_THROW(common.MakeAck(), host::NilObjectException);
}

}  // namespace
