#pragma once

#include <string>
#include <vector>

namespace testsupport {

// A network made of the fake `ping` and `fping` of tests/fakes, put first on PATH for as
// long as the object lives. The fakes read their answers from a folder of their own.
class FakeNetwork {
public:
    FakeNetwork();
    ~FakeNetwork();
    FakeNetwork(const FakeNetwork&) = delete;
    FakeNetwork& operator=(const FakeNetwork&) = delete;

    const std::string& folder() const { return folder_; }
    // How pings of `address` end: "up 0.050", "half 0.2", "slow 0.1", "lost", "unknown",
    // "garbage", "killed", or "hang 10" (runs ten seconds, then as "lost").
    void answer(const std::string& address, const std::string& behaviour) const;
    // Every run of the fake ping so far, its arguments as "[a][b]...".
    std::vector<std::string> pingCalls() const;
    // Every run of the fake fping so far, in the same form.
    std::vector<std::string> fillCalls() const;
    void forgetCalls() const;

    // How the driver's probe of `address`, and its broadcast, show among pingCalls().
    static std::string probeCall(const std::string& address);
    static constexpr const char* kBroadcastCall = "[-b][-c][2][-w][2][255.255.255.255]";

private:
    std::vector<std::string> lines(const std::string& file) const;

    std::string folder_;
    std::string savedPath_;
};

}  // namespace testsupport
