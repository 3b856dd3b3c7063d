#include "PrivateNetwork.h"

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace testsupport {

PrivateNetwork::PrivateNetwork(const std::string& lan, const std::vector<Neighbour>& neighbours,
                               const std::string& more) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "private-network-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        whyNot_ = "mkdtemp failed";
        return;
    }
    folder_ = pattern;
    // Permanent entries do not count against the kernel's limit of entries it may forget.
    std::ofstream batch(folder_ + "/neighbours");
    for (const Neighbour& neighbour : neighbours) {
        batch << "neigh replace " << neighbour.ip
              << (neighbour.mac.empty() ? "" : " lladdr " + neighbour.mac) << " dev v0 nud "
              << neighbour.state << "\n";
    }
    batch << more;
    batch.close();
    std::ofstream(folder_ + "/up") << "set -e\n"
                                   << "ip link set lo up\n"
                                   << "ip link add v0 type veth peer name v1\n"
                                   << "ip addr add " << lan << " dev v0\n"
                                   << "ip link set v1 up\n"
                                   << "ip link set v0 up\n"
                                   << "ip -batch " << folder_ << "/neighbours\n"
                                   << "exec \"$@\"\n";
    const auto [status, output] = DriverProcess::shell(
        std::string(kLauncher) + " --net --user --map-root-user sh " + folder_ + "/up true");
    if (status != 0) {
        whyNot_ = "no network namespace of our own: " + output;
    }
}

PrivateNetwork::~PrivateNetwork() {
    if (!folder_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
}

std::vector<std::string> PrivateNetwork::arguments(
    const std::string& program, const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {"--net", "--user",        "--map-root-user",
                                    "sh",    folder_ + "/up", program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

std::string PrivateNetwork::hold() {
    holder_ = std::make_unique<DriverProcess>(arguments("sleep", {"100000"}), kLauncher);
    const std::string process = "/proc/" + std::to_string(holder_->pid());
    // The launcher becomes the sleep once the network is up.
    for (int turn = 0; turn < 500; ++turn) {
        std::string name;
        std::ifstream(process + "/comm") >> name;
        if (name == "sleep") {
            return process + "/ns/net";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return "";
}

}  // namespace testsupport
