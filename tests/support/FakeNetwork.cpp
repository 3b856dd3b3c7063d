#include "FakeNetwork.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace testsupport {

FakeNetwork::FakeNetwork() {
    std::string pattern = (std::filesystem::temp_directory_path() / "fake-network-XXXXXX").string();
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

FakeNetwork::~FakeNetwork() {
    ::setenv("PATH", savedPath_.c_str(), 1);
    ::unsetenv("FAKE_NET");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void FakeNetwork::answer(const std::string& address, const std::string& behaviour) const {
    std::ofstream(folder_ + "/answers/" + address) << behaviour << "\n";
}

std::vector<std::string> FakeNetwork::pingCalls() const {
    return lines("calls");
}

std::vector<std::string> FakeNetwork::fillCalls() const {
    return lines("fills");
}

void FakeNetwork::forgetCalls() const {
    std::filesystem::remove(folder_ + "/calls");
    std::filesystem::remove(folder_ + "/fills");
}

std::string FakeNetwork::probeCall(const std::string& address) {
    return "[-c][2][-W][2][--][" + address + "]";
}

std::vector<std::string> FakeNetwork::lines(const std::string& file) const {
    std::vector<std::string> found;
    std::ifstream in(folder_ + "/" + file);
    for (std::string line; std::getline(in, line);) {
        found.push_back(line);
    }
    return found;
}

}  // namespace testsupport
