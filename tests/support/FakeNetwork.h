#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace testsupport {

// A network made of the fake `ping` and `fping` of tests/fakes, put first on PATH for as
// long as the object lives. The fakes read their answers from a folder of their own.
class FakeNetwork {
public:
    FakeNetwork() {
        std::string pattern = std::filesystem::temp_directory_path() / "fake-network-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        folder_ = pattern;
        std::filesystem::create_directory(folder_ + "/answers");
        const char* path = ::getenv("PATH");
        savedPath_ = path != nullptr ? path : "";
        ::setenv("PATH", (std::string(FAKE_TOOLS_DIR) + ":" + savedPath_).c_str(), 1);
        ::setenv("FAKE_NET", folder_.c_str(), 1);
    }
    ~FakeNetwork() {
        ::setenv("PATH", savedPath_.c_str(), 1);
        ::unsetenv("FAKE_NET");
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    FakeNetwork(const FakeNetwork&) = delete;
    FakeNetwork& operator=(const FakeNetwork&) = delete;

    const std::string& folder() const { return folder_; }
    // How pings of `address` end: "up 0.050", "half 0.2", "slow 0.1", "lost", "unknown",
    // "garbage", "killed", or "hang 10" (runs ten seconds, then as "lost").
    void answer(const std::string& address, const std::string& behaviour) const {
        std::ofstream(folder_ + "/answers/" + address) << behaviour << "\n";
    }
    // Every run of the fake ping so far, its arguments as "[a][b]...".
    std::vector<std::string> pingCalls() const { return lines("calls"); }
    // Every run of the fake fping so far, in the same form.
    std::vector<std::string> fillCalls() const { return lines("fills"); }
    void forgetCalls() const {
        std::filesystem::remove(folder_ + "/calls");
        std::filesystem::remove(folder_ + "/fills");
    }

    // How the driver's probe of `address`, and its broadcast, show among pingCalls().
    static std::string probeCall(const std::string& address) {
        return "[-c][2][-W][2][--][" + address + "]";
    }
    static constexpr const char* kBroadcastCall = "[-b][-c][2][-w][2][255.255.255.255]";

private:
    std::vector<std::string> lines(const std::string& file) const {
        std::vector<std::string> found;
        std::ifstream in(folder_ + "/" + file);
        for (std::string line; std::getline(in, line);) {
            found.push_back(line);
        }
        return found;
    }

    std::string folder_;
    std::string savedPath_;
};

}  // namespace testsupport
