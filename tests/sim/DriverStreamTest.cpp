#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MultiPacketReader.h"
#include "tools/sim/DriverStream.h"

namespace {

using namespace std::string_literals;
using Kind = sim::DriverStream::Item::Kind;

// What the stream makes of the bytes, one word per item: the greeting, a message's "mcmd", or
// "garbage".
std::vector<std::string> cut(const std::vector<std::string>& deliveries) {
    sim::DriverStream stream;
    std::vector<std::string> items;
    for (const std::string& bytes : deliveries) {
        stream.append(bytes);
        while (auto item = stream.next()) {
            items.push_back(item->kind == Kind::Greeting  ? item->text
                            : item->kind == Kind::Message ? item->message->GetMulti("mcmd").bytes()
                                                          : "garbage");
        }
    }
    return items;
}

TEST(DriverStreamTest, CutsTheGreetingAndMessagesAndResynchronisesOnBadBytes) {
    const std::string on = testsupport::multiPacket({{"mcmd", "ON"}, {"addr", "10.0.0.1"}});
    const std::string log = testsupport::multiPacket({{"mcmd", "WrtL"}, {"DATA", "x\ry"}});
    struct Case {
        std::vector<std::string> deliveries;
        std::vector<std::string> items;
    };
    const Case cases[] = {
        {{"ard:sim-1\r" + on + log}, {"ard:sim-1", "ON", "WrtL"}},
        // Split anywhere, even inside the length field.
        {{"ard:", "x\r" + on.substr(0, 2), on.substr(2, 5), on.substr(7) + log},
         {"ard:x", "ON", "WrtL"}},
        // A partial message waits; nothing is read past what its length says.
        {{"\r" + on.substr(0, on.size() - 1)}, {""}},
        {{"\rXY" + on}, {"", "garbage", "ON"}},
        {{"\rJ\x03\x00\x80"s + on}, {"", "garbage", "garbage", "ON"}},
        {{std::string(sim::DriverStream::kMostGreetingBytes, 'a') + on},
         {"garbage", "garbage", "ON"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(cut(c.deliveries), c.items) << c.deliveries[0].substr(0, 20);
    }
}

}  // namespace
