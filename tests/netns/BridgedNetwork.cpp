#include "BridgedNetwork.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

namespace {

const char* const kDriverAddress = "10.99.0.10";

struct Outcome {
    int status;
    std::string output;
};

Outcome runCapturing(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return {-1, "popen failed"};
    }
    std::array<char, 512> buffer;
    for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), n);
    }
    return {::pclose(pipe), output};
}

}  // namespace

BridgedNetwork::BridgedNetwork() {
    const std::pair<const char*, const char*> tools[] = {
        {"ip", "iproute2"}, {"ping", "iputils-ping"}, {"arp", "net-tools"}};
    for (const auto& [tool, package] : tools) {
        // The driver looks in the system folders too when PATH lacks a tool.
        if (runCapturing(std::string("PATH=\"$PATH:/usr/sbin:/sbin\"; command -v ") + tool)
                .status != 0) {
            whyNot_ = std::string("no `") + tool + "` on this machine (package " + package + ")";
            return;
        }
    }
    if (::geteuid() != 0) {
        whyNot_ =
            "making network namespaces needs root; running as uid " + std::to_string(::geteuid());
        return;
    }
    if (!build()) {
        whyNot_ = lastFailure_;
        removeAll();
    }
}

BridgedNetwork::~BridgedNetwork() {
    removeAll();
}

std::string BridgedNetwork::name(const std::string& role) const {
    return "arptest" + std::to_string(::getpid()) + "-" + role;
}

std::string BridgedNetwork::ip(const std::string& role) const {
    return "ip -n " + name(role) + " ";
}

bool BridgedNetwork::run(const std::string& command) {
    const Outcome outcome = runCapturing(command);
    if (outcome.status != 0) {
        lastFailure_ = "`" + command + "` failed: " +
                       outcome.output.substr(0, outcome.output.find_last_not_of('\n') + 1);
    }
    return outcome.status == 0;
}

bool BridgedNetwork::build() {
    for (const char* role : {"bridge", "driver", "host1", "host2", "host3"}) {
        if (!run("ip netns add " + name(role))) {
            return false;
        }
        made_.push_back(name(role));
    }
    // The driver's broadcast ping needs a route.
    if (!run(ip("bridge") + "link add br0 type bridge") || !run(ip("bridge") + "link set br0 up") ||
        !join("driver", kDriverAddress, "") || !run(ip("driver") + "link set lo up") ||
        !run(ip("driver") + "route add default dev eth0")) {
        return false;
    }
    for (int i = 1; i <= 3; ++i) {
        const std::string role = "host" + std::to_string(i);
        Host host{"10.99.0." + std::to_string(i), "02:00:00:00:00:0" + std::to_string(i)};
        // A new namespace ignores pings to a broadcast address.
        if (!join(role, host.ip, host.mac) ||
            !run("ip netns exec " + name(role) +
                 " sh -c 'echo 0 > /proc/sys/net/ipv4/icmp_echo_ignore_broadcasts'")) {
            return false;
        }
        hosts_.push_back(host);
    }
    return true;
}

bool BridgedNetwork::join(const std::string& role, const std::string& address,
                          const std::string& mac) {
    return run("ip link add eth0 netns " + name(role) + (mac.empty() ? "" : " address " + mac) +
               " type veth peer name " + role + " netns " + name("bridge")) &&
           run(ip("bridge") + "link set " + role + " master br0 up") &&
           run(ip(role) + "addr add " + address + "/24 dev eth0") &&
           run(ip(role) + "link set eth0 up");
}

void BridgedNetwork::removeAll() {
    while (!made_.empty()) {
        runCapturing("ip netns del " + made_.back());
        made_.pop_back();
    }
    hosts_.clear();
}

std::string BridgedNetwork::driverNamespacePath() const {
    return "/run/netns/" + name("driver");
}

bool BridgedNetwork::setHostLink(std::size_t host, bool up) {
    return run(ip("host" + std::to_string(host + 1)) + "link set eth0 " + (up ? "up" : "down"));
}

bool BridgedNetwork::forgetNeighbours() {
    bool done = true;
    for (const char* role : {"driver", "host1", "host2", "host3"}) {
        done = run(ip(role) + "neigh flush all") && done;
    }
    return done;
}
