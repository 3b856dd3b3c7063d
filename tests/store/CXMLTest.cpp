#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "host/LogChannel.h"
#include "host/NilObjectException.h"
#include "host/StackOverflowException.h"
#include "store/CXML.h"

using namespace std::string_literals;
using host::Ref, host::String;
using Lines = std::vector<std::string>;

namespace {

Lines logged;  // every log line of the suite as "level text"; cleared before a watched step
void capture(const String& text, std::int64_t level) {
    logged.push_back(std::to_string(level) + " " + text.bytes());
}
const bool kLogCaptured = (host::LogChannel::setSink(capture), true);

// A length of 32 bits and the bytes.
std::string field(const std::string& bytes, bool little = true) {
    std::string length(4, '\0');
    length[little ? 0 : 3] = static_cast<char>(bytes.size());
    return length + bytes;
}
const std::string kHeader = "Mfrq\x41L  ";
std::string value(const std::string& key, const std::string& text) {
    return "V" + field(key) + field(text);
}

Ref<CXML> load(const std::string& bytes, const char* name = "") {
    auto record = host::New<CXML>();
    record->loadFromString(String(bytes));
    record->SetName(name);
    return record;
}

TEST(CXMLStreamTest, WritesAndReadsTheWorkedExampleAndShowsItToPeople) {
    const std::string example = kHeader + value("a", "1") + "O" + field("b") + kHeader + "EE";
    auto record = load(kHeader + value("a", "1"), "the outermost name is not stored");
    record->InsertContainer(load(kHeader, "b"));
    EXPECT_EQ(record->SaveToString().bytes(), example);
    // Big-endian lengths read the same and are written back little-endian.
    const std::string big = "Mfrq\x41"s + "B  V" + field("a", false) + field("1", false) + "O";
    EXPECT_EQ(load(big + field("b", false) + kHeader + "EE")->SaveToString().bytes(), example);

    // The forms for people show values as stored; a deep copy shows the same.
    record = load(kHeader + value("a", "1") + value("z", "\0\n"s));
    record->InsertContainer(load(kHeader + value("k", "v"), "unit"));
    EXPECT_EQ(
        record->Clone()->getAsDebugData().bytes(),
        "(2) value keys\n    a=1\n    z=\0\n\n    Container: unit (1) value keys\n        k=v\n"s);
    logged.clear();
    record->DebugToLog();
    EXPECT_EQ(logged, (Lines{"4 --- begin debug", "4 a : 1", "4 z : \0\n"s, "4 ---end debug"}));
}

TEST(CXMLStreamTest, DamagedStreamsKeepWhatWasReadAndRaiseOnlyForAHeader) {
    const std::string magic = kHeader.substr(0, 4), rest = kHeader.substr(4);
    const std::string kv = value("k", "v\0"s);
    // bytes -> raises, keys, children, log
    const std::vector<std::tuple<std::string, bool, int, int, Lines>> cases = {
        {"xfrq" + rest + kv, false, 0, 0, {}},  // refused without a word
        {"mFRQ" + rest + kv, false, 1, 0, {}},  // the magic ignores case; no end tag is no failure
        {magic + "\x42L  E", true, 0, 0, {}},
        {magic + "\x41?  E", false, 0, 0, {"4 read error unable to get byte order"}},
        {kHeader + "\xFFZ" + kv + "\x01" + kv + "E", false, 1, 0, {}},
        {kHeader + kv + "O" + field("c") + "Xfrq", true, 1, 1, {}},  // bad magic below
        {kHeader + "O" + field("") + kHeader + kv, false, 0, 1, {}},
        {kHeader + "V" + field("k") + "\xFF\xFF\xFF\xFFshort", false, 1, 0, {}}};
    for (const auto& [bytes, raises, keys, children, log] : cases) {
        logged.clear();
        auto record = host::New<CXML>();
        bool raised = false;
        try {
            record->loadFromString(String(bytes));
        } catch (const host::RuntimeException& e) {
            raised = e.Message.empty();
        }
        EXPECT_EQ(
            std::make_tuple(raised, record->GetKeyCount(), record->Containers().Ubound(), logged),
            std::make_tuple(raises, keys, children, log))
            << testing::PrintToString(bytes);
    }
}

TEST(CXMLStreamTest, NestingBeyondTheStackRaisesInsteadOfCrashing) {
    std::string deep;
    for (int i = 0; i < 200000; ++i) {
        deep += kHeader + "O" + field("");
    }
    EXPECT_THROW(load(deep), host::StackOverflowException);
    // Built without recursion, and it dies without one.
    auto root = host::New<CXML>();
    for (auto [at, i] = std::pair{root, 0}; i < 200000; ++i, at = at->GetContainer("", 1)) {
        at->InsertContainer(host::New<CXML>());
    }
}

// Every value is text: typed setters format on the way in, typed getters parse on the way out.
TEST(CXMLRecordTest, ValuesAreTextParsedOnTheWayOut) {
    // stored -> integer, unsigned, boolean
    const std::vector<std::tuple<std::string, std::int64_t, std::uint64_t, bool>> cases = {
        {"-1", -1, ~0ULL, false},
        {"TRUE", 0, 0, true},
        {"1", 1, 1, false},
        {"en\0aGk="s, 0, 0, false},  // hidden text stays hidden
        {"9223372036854775808", INT64_MIN, 1ULL << 63, false},
        {"18446744073709551615", INT64_MIN, 0, false}};  // rounds up to 2^64
    for (const auto& [stored, integer, unsigned64, boolean] : cases) {
        CXML record;
        record.SetStringValue("k", String(stored));
        EXPECT_EQ(std::make_tuple(record.GetIntegerValue("K", 7), record.GetUInt64Value("k"),
                                  record.getBooleanValue("k", true), record.GetBooleanValue("k")),
                  std::make_tuple(integer, unsigned64, boolean, boolean))
            << stored;
    }
    EXPECT_EQ(CXML().GetDoubleValue("k", 2.5) + CXML().GetBooleanValue("k"), 2.5);
    EXPECT_FALSE(CXML().ObjectExists("k"));
}

// The two-argument getter cuts a marked form by bytes and gives what it decodes no UTF-8 label.
TEST(CXMLRecordTest, MarkedStringsAreDecodedOnReading) {
    for (auto [stored, plain, labelled] : {std::tuple{"EN\0aGk="s, "hi", false},
                                           {"en111aGk=en000"s, "hi", false},
                                           {"en111aGk="s, "en111aGk=", true}}) {
        CXML record;
        record.SetStringValue("s", String(stored));
        const String one = record.GetStringValue("s"), two = record.GetStringValue("s", "x");
        EXPECT_EQ(one.bytes() + two.bytes(), plain + std::string(plain));
        EXPECT_EQ(std::make_pair(one.encoding(), two.encoding() == host::TextEncoding::UTF8),
                  std::make_pair(host::TextEncoding::UTF8, labelled));
    }
    EXPECT_EQ(CXML().GetStringValue("k", "d").bytes() + CXML().GetStringValue("k").bytes(), "d");
}

// Lookups answer from an index, which every change to children or to a name must retire.
TEST(CXMLRecordTest, ChildrenByRunningNumberFollowEveryChange) {
    auto list = host::New<CXML>();
    Ref<CXML> a1 = load("", "a"), b = load("", "b"), a2 = load("", "A");
    list->InsertContainer(b);
    EXPECT_TRUE(list->GetContainer("a", 0) == b);  // index 0 meets a first child of another name
    list->removeContainer(b);
    for (const auto& child : {a1, b, a2, Ref<CXML>()}) {
        list->InsertContainer(child);  // nil is ignored
    }
    const std::vector<std::tuple<const char*, std::int64_t, Ref<CXML>>> cases = {
        {"a", 1, a1}, {"a", 2, a2}, {"B", 1, b},   {"zzz", 0, a1},
        {"a", 0, {}}, {"a", 3, {}}, {"a", -1, {}}, {"", 1, {}}};
    for (const auto& [name, index, expected] : cases) {
        EXPECT_TRUE(list->GetContainer(name, index) == expected) << name << index;
    }
    b->SetName("A");
    EXPECT_TRUE(list->GetContainer("a", 2) == b && list->GetContainerCount("a") == 3);
    list->removeContainer("a", 0);                      // there is no child 0
    list->ReplaceContainer("a", 1, load("", "other"));  // keeps its own name
    list->removeContainer("a", 1);
    EXPECT_TRUE(list->GetContainerCount("a") == 1 && list->GetContainer("a", 1) == a2);
    list->ReplaceContainer("A", 1, nullptr);
    EXPECT_TRUE(list->GetContainer("other", 1) == list->Containers()[1]);  // before the nil
    EXPECT_THROW(list->GetContainer("a", 1), host::NilObjectException);    // reaches it
}

// A save over a file exchanges it for a new one; a load logs instead of raising.
TEST(CXMLFileTest, SaveReplacesAndLoadLogs) {
    char pattern[] = "/tmp/cxml-test-XXXXXX";
    const std::string dir = mkdtemp(pattern) + "/"s;
    const auto item = [&](const std::string& name) {
        return host::New<host::FolderItem>(String(dir + name));
    };
    EXPECT_TRUE(load(kHeader + value("k", "1"))->SaveToFile(item("db")));
    EXPECT_TRUE(load(kHeader + value("k", "2") + value("j", ""))->SaveToFile(item("db")));
    // A child in place of the end tag, whose header is refused.
    std::ofstream(dir + "damaged") << kHeader + value("k", "v") + "O" + field("") + "Mfrq\x42";
    std::ofstream(dir + "text") << "hello";
    for (auto [file, keys, log] :
         {std::tuple{"db", 2, Lines{}},
          {"absent", 0, Lines{}},
          {"text", 0, Lines{"4 file at: " + dir + "text is not an Ambrelis binary."}},
          {"damaged", 1, Lines{"4 unable to load MFRQ file: damaged with message: "}}}) {
        logged.clear();
        auto record = host::New<CXML>();
        record->loadFromFile(item(file), nullptr);
        EXPECT_EQ(std::make_tuple(record->GetKeyCount(), logged), std::make_tuple(keys, log))
            << file;
    }
    CXML record;  // a nil file clears the key
    record.SetFile("f", item("db"));
    record.SetFile("F", nullptr);
    EXPECT_TRUE(record.GetFile("f") == nullptr);
    std::filesystem::remove_all(dir);
}

}  // namespace
