#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "host/StackCheck.h"
#include "host/StackOverflowException.h"
#include "store/CXML.h"

using namespace std::string_literals;

namespace {

// A length of 32 bits and the bytes.
std::string field(const std::string& bytes, bool little = true) {
    std::string length(4, '\0');
    length[little ? 0 : 3] = static_cast<char>(bytes.size());
    return length + bytes;
}

const std::string kHeader = "Mfrq\x41L  ";
// A record with the key a holding 1 and one child named b with nothing in it.
const std::string kExample =
    kHeader + "V" + field("a") + field("1") + "O" + field("b") + kHeader + "EE";

host::Ref<CXML> load(const std::string& bytes) {
    auto record = host::New<CXML>();
    record->loadFromString(host::String(bytes));
    return record;
}

TEST(CXMLStreamTest, WritesAndReadsTheWorkedExampleByteForByte) {
    auto record = load(kHeader + "V" + field("a") + field("1"));
    record->SetName("the outermost name is not stored");
    record->InsertContainer(load(kHeader));
    record->GetContainer("", 1)->SetName("b");
    EXPECT_EQ(record->SaveToString().bytes(), kExample);
    EXPECT_EQ(load(kExample)->GetContainer("b", 1)->Name().encoding(), host::TextEncoding::None);
    EXPECT_EQ(load(kExample)->Values.valueAt(0).encoding(), host::TextEncoding::UTF8);
    // Big-endian lengths read the same and are written back little-endian.
    const std::string big =
        "Mfrq\x41"
        "B  V" +
        field("a", false) + field("1", false) + "O";
    EXPECT_EQ(load(big + field("b", false) + kHeader + "EE")->SaveToString().bytes(), kExample);
}

TEST(CXMLStreamTest, DamagedStreamsKeepWhatWasReadAndRaiseOnlyForAHeader) {
    const std::string value = "V" + field("k") + field("v\0"s), magic = kHeader.substr(0, 4);
    struct Case {
        std::string bytes;
        bool raises;
        std::int64_t keys, children;
        Lines log;
    } cases[] = {
        {"xfrq" + kHeader.substr(4) + value, false, 0, 0, {}},  // refused without a word
        {"mFRQ" + kHeader.substr(4) + value, false, 1, 0, {}},  // no end tag is no failure
        {magic + "\0L  "s + value + "V" + field("K") + field("") + "E", false, 1, 0, {}},
        {magic + "\x42L  E", true, 0, 0, {}},
        {magic + "\x41?  E", false, 0, 0, {"4 read error unable to get byte order"}},
        {kHeader + "\xFFZ" + value + "\x01" + value + "E", false, 1, 0, {}},
        {kHeader + value + "O" + field("c") + "Xfrq", true, 1, 1, {}},  // bad magic below
        {kHeader + "O" + field("") + kHeader + value, false, 0, 1, {}},
        {kHeader + "V" + field("k") + "\xFF\xFF\xFF\xFFshort", false, 1, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        LogCapture log;
        auto record = host::New<CXML>();
        try {
            record->loadFromString(host::String(c.bytes));
            EXPECT_FALSE(c.raises);
        } catch (const host::RuntimeException& e) {
            EXPECT_TRUE(c.raises && e.Message.empty());
        }
        EXPECT_EQ(record->GetKeyCount(), c.keys);
        EXPECT_EQ(record->Containers().Ubound(), c.children);
        EXPECT_EQ(log.lines, c.log);
    }
    EXPECT_EQ(load(kHeader + value)->Values.Value("k").bytes(), "v\0"s);
    // Random damage returns or raises; the sanitizer build checks no read leaves the data.
    std::mt19937 random(11);
    for (int round = 0; round < 5000; ++round) {
        std::string bytes = kExample + kExample;  // 70 bytes; the magic is left whole
        bytes[4 + random() % 66] = static_cast<char>(random());
        try {
            load(bytes.substr(0, 4 + random() % 67))->SaveToString();
        } catch (const host::RuntimeException&) {
        }
    }
}

TEST(CXMLStreamTest, ReadableFormsShowValuesAsStored) {
    auto record = load(kHeader + "V" + field("a") + field("1") + "V" + field("z") + field("\0\n"s));
    record->InsertContainer(load(kHeader + "V" + field("k") + field("v")));
    record->GetContainer("", 1)->SetName("unit");
    const std::string head = "(2) value keys\n    a=1\n    z=\0\n\n"s;
    EXPECT_EQ(record->getAsDebugData().bytes(),
              head + "    Container: unit (1) value keys\n        k=v\n");
    record->InsertContainer(host::New<CXML>());
    record->Release();
    EXPECT_EQ(record->getAsDebugData().bytes(),
              head + "    Container is nil at index 1\n    Container is nil at index 2\n");
    LogCapture log;
    record->DebugToLog();
    EXPECT_EQ(log.lines, (Lines{"4 --- begin debug", "4 a : 1", "4 z : \0\n"s, "4 ---end debug"}));
    EXPECT_EQ(record->DecodeXMLString("a_b__c&amp;").bytes(), "a b  c&amp;");
}

std::string nestedStream(std::size_t depth) {
    std::string bytes;
    for (std::size_t i = 0; i < depth; ++i) {
        bytes += kHeader + "O" + field("");
    }
    return bytes + kHeader + std::string(depth + 1, 'E');
}

void* runTellingOverflow(void* work) {
    try {
        (*static_cast<std::function<void()>*>(work))();
        return nullptr;
    } catch (const host::StackOverflowException&) {
        return work;
    }
}

// On a thread with little stack beyond the safety margin, so that modest depth exhausts it.
bool overflowsOnSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, host::kStackSafetyMargin + 512 * 1024);
    pthread_t thread;
    void* overflowed = nullptr;
    pthread_create(&thread, &attributes, runTellingOverflow, &work);
    pthread_join(thread, &overflowed);
    return overflowed != nullptr;
}

TEST(CXMLStreamTest, NestingBeyondTheStackRaisesInsteadOfCrashing) {
    const host::String deep(nestedStream(200000));
    EXPECT_TRUE(overflowsOnSmallStack([&] { host::New<CXML>()->loadFromString(deep); }));
    // Built without recursion, too deep for every recursive walk; it still dies quietly.
    auto root = host::New<CXML>();
    for (auto [at, i] = std::pair{root, 0}; i < 100000; ++i, at = at->GetContainer("", 1)) {
        at->InsertContainer(host::New<CXML>());
    }
    EXPECT_TRUE(overflowsOnSmallStack([&] { root->SaveToString(); }));
    EXPECT_TRUE(overflowsOnSmallStack([&] { root->Clone(); }));
    EXPECT_TRUE(overflowsOnSmallStack([&] { root->getAsDebugData(); }));
    EXPECT_FALSE(overflowsOnSmallStack([&] { root = nullptr; }));
    try {  // on the main thread 5,000 levels load whole or raise, never crash
        EXPECT_EQ(load(nestedStream(5000))->SaveToString().bytes(), nestedStream(5000));
    } catch (const host::StackOverflowException&) {
    }
}

}  // namespace
