#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "LogCapture.h"
#include "host/NilObjectException.h"
#include "store/CXML.h"

using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

struct CXMLFileTest : testing::Test {
    void SetUp() override {
        char pattern[] = "/tmp/cxml-test-XXXXXX";
        dir = mkdtemp(pattern) + "/"s;
    }
    void TearDown() override { fs::remove_all(dir); }

    host::Ref<host::FolderItem> item(const std::string& name) const {
        return host::New<host::FolderItem>(host::String(dir + name));
    }
    std::string read(const std::string& name) const {
        std::ifstream in(dir + name);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static host::Ref<CXML> holding(const char* value) {
        auto record = host::New<CXML>();
        record->SetStringValue("k", value);
        return record;
    }

    std::string dir;
};

// Each failing step leaves the old content whole under the target's name.
TEST_F(CXMLFileTest, SaveReplacesByExchangeAndAFailedSaveChangesNothing) {
    EXPECT_TRUE(holding("1")->SaveToFile(item("db")) && holding("2")->SaveToFile(item("db")));
    EXPECT_EQ(read("db"), holding("2")->SaveToString().bytes());
    const std::string longName(254, 'n');  // a legal name, but not with the temporary prefix
    std::ofstream(dir + longName) << "old";
    fs::create_directories(dir + "folder/inner");
    const std::string noFile =
        "4 unable to create disk file due to error. Database remains unchanged.";
    for (auto [target, log] : {std::pair{longName, noFile},
                               {"missing/db"s, noFile},
                               {"folder"s,
                                "4 error swapping files while saving: database "
                                "remains unchanged 21"s}}) {
        LogCapture capture;
        try {
            EXPECT_FALSE(holding("new")->SaveToFile(item(target)));
            EXPECT_EQ(target, "folder");  // the exchange failed and left the temporary file
        } catch (const host::RuntimeException& e) {
            EXPECT_TRUE(e.Message.empty());
        }
        EXPECT_EQ(capture.lines, Lines{log});
    }
    auto entries = fs::directory_iterator(dir);
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 4);  // and a "<number>_folder"
    EXPECT_EQ(read(longName), "old");
    EXPECT_TRUE(fs::is_directory(dir + "folder/inner"));
}

// A disk that fills up while the temporary file is written: the failure passes on to the caller.
TEST_F(CXMLFileTest, AWriteThatFailsPassesOnAndLeavesTheTargetWhole) {
    ASSERT_TRUE(holding("old")->SaveToFile(item("db")));
    auto large = host::New<CXML>();
    large->SetStringValue("k", host::String(std::string(1 << 20, 'x')));
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit small = saved;
    small.rlim_cur = 64 * 1024;
    const auto previous = signal(SIGXFSZ, SIG_IGN);  // a short write instead of the signal
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_THROW(large->SaveToFile(item("db")), host::RuntimeException);
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, previous);
    EXPECT_EQ(read("db"), holding("old")->SaveToString().bytes());
}

TEST_F(CXMLFileTest, LoadingLogsInsteadOfRaising) {
    std::string good = holding("v")->SaveToString().bytes(), damaged = good;
    damaged.back() = 'O';  // a child in place of the end tag, whose header is refused
    std::ofstream(dir + "good") << good;
    std::ofstream(dir + "text") << "hello";
    std::ofstream(dir + "damaged") << damaged + "\0\0\0\0Mfrq\x42"s;
    for (auto [file, keys, log] :
         {std::tuple{"absent", 0, Lines{}},
          {"good", 1, Lines{}},
          {"text", 0, Lines{"4 file at: " + dir + "text is not an Ambrelis binary."}},
          {"damaged", 1, Lines{"4 unable to load MFRQ file: damaged with message: "}}}) {
        LogCapture capture;
        auto record = host::New<CXML>();
        record->loadFromFile(item(file), nullptr);
        EXPECT_EQ(record->GetKeyCount(), keys) << file;
        EXPECT_EQ(capture.lines, log);
    }
    EXPECT_THROW(host::New<CXML>()->loadFromFile(nullptr, nullptr), host::NilObjectException);
    CXML record;  // file references are stored by their full path
    record.SetFile("f", item("sub/../db"));
    EXPECT_EQ(record.GetFile("F")->Parent()->Child("db")->ShellPath().bytes(), dir + "db");
    record.SetFile("f", nullptr);
    EXPECT_TRUE(record.GetFile("f") == nullptr && host::FolderItem("/").Parent() == nullptr);
}

}  // namespace
