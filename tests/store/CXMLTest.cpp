#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "host/LogChannel.h"
#include "host/NilObjectException.h"
#include "host/StackCheck.h"
#include "host/StackOverflowException.h"
#include "store/CXML.h"

using namespace std::string_literals;
using host::Ref, host::String;
using Lines = std::vector<std::string>;

namespace {

Lines logged;  // the log lines since watchLog(), each as "level text"
void watchLog() {
    logged.clear();
    host::LogChannel::setSink([](const String& text, std::int64_t level) {
        logged.push_back(std::to_string(level) + " " + text.bytes());
    });
}

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

// What a step returns; -1 when it raises a RuntimeException without a message, -2 with one.
int attempt(const std::function<int()>& step) {
    try {
        return step();
    } catch (const host::RuntimeException& e) {
        return e.Message.empty() ? -1 : -2;
    }
}

TEST(CXMLStreamTest, WritesAndReadsTheWorkedExampleAndShowsItToPeople) {
    const std::string example = kHeader + value("a", "1") + "O" + field("b") + kHeader + "EE";
    auto record = load(kHeader + value("a", "1"), "the outermost name is not stored");
    record->InsertContainer(load(kHeader, "b"));
    EXPECT_EQ(record->SaveToString().bytes(), example);
    // Big-endian lengths read the same and are written back little-endian.
    const std::string big = "Mfrq\x41"s + "B  V" + field("a", false) + field("1", false) + "O";
    EXPECT_EQ(load(big + field("b", false) + kHeader + "EE")->SaveToString().bytes(), example);

    // The forms for people show values as stored; a deep copy shows the same, and has the same
    // buffer of values.
    record = load(kHeader + value("a", "1") + value("z", "\0\n"s));
    record->InsertContainer(load(kHeader + value("k", "v"), "unit"));
    record->ValueBuffer.Resize(2);
    record->ValueBuffer[2] = "b";
    const auto copy = record->Clone();
    EXPECT_EQ(copy->ValueBuffer.Ubound() == 2 ? copy->ValueBuffer[2].bytes() : "", "b");
    EXPECT_EQ(
        copy->getAsDebugData().bytes(),
        "(2) value keys\n    a=1\n    z=\0\n\n    Container: unit (1) value keys\n        k=v\n"s);
    watchLog();
    record->DebugToLog();
    EXPECT_EQ(logged, (Lines{"4 --- begin debug", "4 a : 1", "4 z : \0\n"s, "4 ---end debug"}));
}

TEST(CXMLStreamTest, DamagedStreamsKeepWhatWasReadAndRaiseOnlyForAHeader) {
    const std::string magic = kHeader.substr(0, 4), rest = kHeader.substr(4),
                      kv = value("k", "v\0"s);
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
        watchLog();
        auto record = host::New<CXML>();
        const bool raised = attempt([&] { return record->loadFromString(String(bytes)), 0; }) == -1;
        EXPECT_EQ(
            std::make_tuple(raised, record->GetKeyCount(), record->Containers().Ubound(), logged),
            std::make_tuple(raises, keys, children, log))
            << testing::PrintToString(bytes);
    }
}

TEST(CXMLStreamTest, NestingBeyondTheStackRaisesInsteadOfCrashing) {
    std::string deep;
    auto root = host::New<CXML>();  // built without recursion, too deep for any recursive walk
    for (auto [at, i] = std::pair{root, 0}; i < 100000; ++i, at = at->GetContainer("", 1)) {
        at->InsertContainer(host::New<CXML>());
        deep += kHeader + "O" + field("");
    }
    std::function<void()> walks = [&] {
        EXPECT_THROW(load(deep), host::StackOverflowException);
        EXPECT_THROW(root->SaveToString(), host::StackOverflowException);
        EXPECT_THROW(root->Clone(), host::StackOverflowException);
        EXPECT_THROW(root->getAsDebugData(), host::StackOverflowException);
        root = nullptr;  // and it dies without one
    };
    // On a stack of known size, the safety margin and 512 KiB, so that how deep input must go to
    // exhaust it does not follow 'ulimit -s'.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, host::kStackSafetyMargin + 512 * 1024);
    pthread_t thread;
    pthread_create(
        &thread, &attributes,
        [](void* run) { return (*static_cast<std::function<void()>*>(run))(), run; }, &walks);
    pthread_join(thread, nullptr);
}

// Every value is text: typed getters parse it on the way out, and the string getters decode the
// marked forms. The two-argument one cuts the bracketed form by bytes and gives what it decodes no
// UTF-8 label.
TEST(CXMLRecordTest, ValuesAreTextParsedOrDecodedOnTheWayOut) {
    // stored -> integer, unsigned, boolean, text, labelled by the two-argument getter
    const std::vector<std::tuple<std::string, std::int64_t, std::uint64_t, bool, std::string, bool>>
        cases = {{"-1", -1, ~0ULL, false, "-1", true},
                 {"TRUE", 0, 0, true, "TRUE", true},
                 {"1", 1, 1, false, "1", true},
                 {"EN\0aGk="s, 0, 0, false, "hi", false},  // numbers see hidden text as it is
                 {"en111aGk=en000", 0, 0, false, "hi", false},
                 {"en111aGk=", 0, 0, false, "en111aGk=", true},
                 {"9223372036854775808", INT64_MIN, 1ULL << 63, false, "9223372036854775808", true},
                 {"18446744073709551615", INT64_MIN, 0, false, "18446744073709551615", true}};
    for (const auto& [stored, integer, unsigned64, boolean, text, labelled] : cases) {
        CXML record;
        record.SetStringValue("k", String(stored));
        const String one = record.GetStringValue("k"), two = record.GetStringValue("K", "x");
        EXPECT_EQ(std::make_tuple(record.GetIntegerValue("K", 7), record.GetUInt64Value("k"),
                                  record.getBooleanValue("k", true), record.GetBooleanValue("k"),
                                  one.bytes() + "|" + two.bytes(), one.encoding(),
                                  two.encoding() == host::TextEncoding::UTF8),
                  std::make_tuple(integer, unsigned64, boolean, boolean, text + "|" + text,
                                  host::TextEncoding::UTF8, labelled))
            << stored;  // 18446744073709551615 rounds up to 2^64
    }
    EXPECT_EQ(CXML().GetDoubleValue("k", 2.5) + CXML().GetBooleanValue("k"), 2.5);
    EXPECT_EQ(CXML().GetStringValue("k", "d").bytes() + CXML().GetStringValue("k").bytes(), "d");
    EXPECT_FALSE(CXML().ObjectExists("k"));
    // A hidden value reads back as it was set; a date is read from its text, field by field.
    CXML dated;
    dated.setEncryptedStringValue("h", "hi");
    dated.SetStringValue("d", "3/15/2026 10:20:30");
    const auto date = dated.getDate("D");
    ASSERT_TRUE(date != nullptr);
    EXPECT_EQ(std::make_tuple(dated.GetStringValue("h").bytes(), date->Year(), date->Month(),
                              date->Day(), date->Hour(), date->Minute(), date->Second()),
              std::make_tuple("hi", 2026, 3, 15, 10, 20, 30));
    EXPECT_TRUE(dated.getDate("none", date) == date);
    // Latin-1 keys and values are kept in UTF-8.
    CXML record;
    const String latin1(std::string("\xE9"), host::TextEncoding::Latin1);
    record.SetStringValue(latin1, latin1);
    EXPECT_EQ(record.GetStringValue("\xC3\xA9").bytes(), "\xC3\xA9");
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
    list->removeContainer("a", 0);  // there is no child 0
    EXPECT_EQ(list->GetContainerCount("a"), 3);
    list->ReplaceContainer("a", 1, load("", "other"));  // keeps its own name
    list->removeContainer("a", 1);
    EXPECT_TRUE(list->GetContainerCount("a") == 1 && list->GetContainer("a", 1) == a2);
    list->ReplaceContainer("A", 1, nullptr);
    EXPECT_TRUE(list->GetContainer("other", 1) == list->Containers()[1]);  // before the nil
    EXPECT_THROW(list->GetContainer("a", 1), host::NilObjectException);    // reaches it
}

// A save writes beside the old file and exchanges the two, so one that fails at any step says so
// and leaves the old file whole: a truncated database never takes the place of a good one. A load
// logs instead of raising.
TEST(CXMLFileTest, ASaveReplacesTheFileWholeOrChangesNothingAndALoadLogs) {
    char pattern[] = "/tmp/cxml-test-XXXXXX";
    const std::string dir = mkdtemp(pattern) + "/"s, longName(254, 'n');
    const auto item = [&](auto name) { return host::New<host::FolderItem>(String(dir + name)); };
    const auto read = [&](const std::string& name) {  // "" for what is no readable file
        return (std::ostringstream() << std::ifstream(dir + name).rdbuf()).str();
    };
    const auto small = load(kHeader + value("k", "2") + value("j", "")), large = load(kHeader);
    large->SetStringValue("k", String(std::string(1 << 20, 'x')));
    const std::string saved = small->SaveToString().bytes();
    const Lines noFile = {"4 unable to create disk file due to error. Database remains unchanged."},
                noSwap = {"4 error swapping files while saving: database remains unchanged 21"};
    for (const auto& name : {"db"s, "full"s, longName}) {
        std::ofstream(dir + name) << "old";
    }
    std::filesystem::create_directory(dir + "folder");
    // target, record -> saved (or what it raised), log, content after
    const std::vector<std::tuple<std::string, Ref<CXML>, int, Lines, std::string>> saves = {
        {"db", small, 1, {}, saved},           {"new", small, 1, {}, saved},
        {"full", large, -2, {}, "old"},        // the disk fills up while the new content is written
        {longName, small, -1, noFile, "old"},  // a legal name, but not with the temporary prefix
        {"missing/db", small, -1, noFile, ""}, {"folder", small, 0, noSwap, ""}};
    rlimit normal{};
    getrlimit(RLIMIT_FSIZE, &normal);
    const rlimit limited{64 * 1024, normal.rlim_max};
    const auto previous = signal(SIGXFSZ, SIG_IGN);  // a short write instead of the signal
    setrlimit(RLIMIT_FSIZE, &limited);
    for (const auto& [target, record, result, log, content] : saves) {
        watchLog();
        const int got = attempt([&] { return int(record->SaveToFile(item(target))); });
        EXPECT_EQ(std::make_tuple(got, logged, read(target)), std::make_tuple(result, log, content))
            << target;
    }
    setrlimit(RLIMIT_FSIZE, &normal);
    signal(SIGXFSZ, previous);
    // Only the two failed writes leave their temporary files behind.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 7);

    // A child in place of the end tag, whose header is refused.
    std::ofstream(dir + "damaged") << kHeader + value("k", "v") + "O" + field("") + "Mfrq\x42";
    std::ofstream(dir + "text") << "hello";
    for (auto [file, keys, log] :
         {std::tuple{"db", 2, Lines{}},
          {"absent", 0, Lines{}},
          {"text", 0, Lines{"4 file at: " + dir + "text is not an Ambrelis binary."}},
          {"damaged", 1, Lines{"4 unable to load MFRQ file: damaged with message: "}}}) {
        watchLog();
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
