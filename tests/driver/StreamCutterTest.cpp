#include <gtest/gtest.h>

#include <string>

#include "DriverFixture.h"
#include "link/cAmbrelisDeviceSocket.h"

namespace {

using namespace std::string_literals;

// A control message of the full layout, 16 bytes: "X", which asks for nothing.
const std::string kCommon =
    "X\x10"
    "a\x40LX\x40"
    "0X\x30\x33\x00\x00\x00 \r"s;
// "mcmd" = "getUnits" as a multi-packet, 18 bytes.
const std::string kGetUnits = "J\x12\x00\x80mcmd\x08\x00getUnits"s;
const std::string kMalformed = "Tamsvale: Received malformed packet from host\n";

struct CutCase {
    const char* name;
    std::string buffer;
    std::uint64_t passes;
    bool returns;           // returned by itself within the passes
    std::string remaining;  // Buffer afterwards
    std::string output;     // log lines, on standard output as no link stands
    std::size_t shortBy;    // bytes a reading must add so that it ends where a message ends
};

class StreamCutterTest : public DriverFixture, public ::testing::WithParamInterface<CutCase> {};

TEST_P(StreamCutterTest, CutsAsDesigned) {
    const CutCase& c = GetParam();
    cAmbrelisDeviceSocket socket;
    socket.appendToBuffer(host::String(c.buffer));
    EXPECT_EQ(socket.bytesShortOfWholeMessage(""), c.shortBy);
    ::testing::internal::CaptureStdout();
    bool returned = socket.cutStream(c.passes);
    std::string output = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(returned, c.returns);
    EXPECT_EQ(socket.Buffer().bytes(), c.remaining);
    EXPECT_EQ(output, c.output);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StreamCutterTest,
    ::testing::Values(
        CutCase{"Empty", "", 10, true, "", "", 0},
        CutCase{"MixedWholeMessages", kGetUnits + kCommon + kGetUnits, 10, true, "", "", 0},
        CutCase{"LowerCaseLeadIsMultiPacket", "j\x05\x00\x80X"s, 10, true, "", "", 0},
        CutCase{"MalformedThenGoodInOneDelivery", "Z\x02"s + kCommon, 10, true, "", kMalformed, 0},
        CutCase{"ErrorPacketIsMalformed", "E\x03x"s, 10, true, "", kMalformed, 0},
        CutCase{"IncompleteMultiPacketWaits", kGetUnits.substr(0, 7), 10, true,
                kGetUnits.substr(0, 7), "bufflength is 7 packet length is: 18\n", 11},
        // A multi-packet piece of under five bytes is read as a common message: its length
        // byte 18 is more than there is, so the same bytes are tested again and again.
        CutCase{"ShortMultiPacketPieceSpins", kGetUnits.substr(0, 4), 1000, false,
                kGetUnits.substr(0, 4), "", 1},
        CutCase{"IncompleteCommonSpins", kCommon.substr(0, 9), 1000, false, kCommon.substr(0, 9),
                "", 7},
        // One byte has no length byte: an empty frame is cut, refused, and cut again.
        CutCase{"SingleByteRepeatsMalformed", "Q", 3, false, "Q",
                kMalformed + kMalformed + kMalformed, 1},
        // A length field of 0 cuts nothing, so the same multi-packet comes up again.
        CutCase{"ZeroLengthMultiPacketRepeats", "J\x00\x00\x80X"s, 50, false, "J\x00\x00\x80X"s, "",
                0},
        // The length field is little-endian whatever the flag byte says.
        CutCase{"LengthIgnoresFlag", "J\x06\x00\x00zzQ"s, 2, false, "Q", kMalformed, 1}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(DriverFixture, IncompleteMultiPacketCompletesOnNextDelivery) {
    cAmbrelisDeviceSocket socket;
    socket.appendToBuffer(host::String(kGetUnits.substr(0, 10)));
    // What a reading must add is counted from the buffer on.
    EXPECT_EQ(socket.bytesShortOfWholeMessage(kGetUnits.substr(10, 3)), 5u);
    EXPECT_EQ(socket.bytesShortOfWholeMessage(kGetUnits.substr(10) + "J\x12"s), 3u);
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(socket.cutStream(10));
    socket.appendToBuffer(host::String(kGetUnits.substr(10) + kCommon));
    EXPECT_TRUE(socket.cutStream(10));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "bufflength is 10 packet length is: 18\n");
    EXPECT_EQ(socket.Buffer().bytes(), "");
}

}  // namespace
