#include "BridgedNetwork.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace {

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

// The first three groups of the addresses of LAN n.
std::string lanPrefix(int lan) {
    return "10." + std::to_string(99 - lan) + ".0";
}

std::string bridgeOf(int lan) {
    return "br" + std::to_string(lan);
}

}  // namespace

std::vector<BridgedNetwork::Host> BridgedNetwork::home() {
    return {{"host1", 0, lanPrefix(0) + ".1", "02:00:00:00:00:01", true},
            {"host2", 0, lanPrefix(0) + ".2", "02:00:00:00:00:02", true},
            {"host3", 0, lanPrefix(0) + ".3", "02:00:00:00:00:03", false},
            {"host4", 1, lanPrefix(1) + ".4", "02:00:00:00:00:04", true},
            {"gateway", 2, lanPrefix(2) + ".1", "02:00:00:00:00:09", true}};
}

std::vector<BridgedNetwork::Host> BridgedNetwork::oneLan(int hosts) {
    std::vector<Host> plan;
    for (int i = 1; i <= hosts; ++i) {
        const std::string number = std::to_string(i);
        plan.push_back({i == 1 ? "gateway" : "host" + number, 0, lanPrefix(0) + "." + number,
                        "02:00:00:00:01:" + std::string(i < 10 ? "0" : "") + number, true});
    }
    return plan;
}

BridgedNetwork::BridgedNetwork(std::vector<Host> plan) {
    const std::pair<const char*, const char*> tools[] = {
        {"ip", "iproute2"}, {"ping", "iputils-ping"}, {"arp", "net-tools"}, {"fping", "fping"}};
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
    if (!build(plan)) {
        whyNot_ = lastFailure_;
        removeAll();
    }
}

BridgedNetwork::~BridgedNetwork() {
    removeAll();
}

const BridgedNetwork::Host& BridgedNetwork::host(const std::string& role) const {
    for (const Host& host : hosts_) {
        if (host.role == role) {
            return host;
        }
    }
    throw std::out_of_range("no host " + role);
}

std::string BridgedNetwork::name(const std::string& role) const {
    return "arptest" + std::to_string(::getpid()) + "-" + role;
}

std::string BridgedNetwork::ip(const std::string& role) const {
    return "ip -n " + name(role) + " ";
}

std::string BridgedNetwork::namespacePath(const std::string& role) const {
    return "/run/netns/" + name(role);
}

bool BridgedNetwork::run(const std::string& command) {
    const Outcome outcome = runCapturing(command);
    if (outcome.status != 0) {
        lastFailure_ = "`" + command + "` failed: " +
                       outcome.output.substr(0, outcome.output.find_last_not_of('\n') + 1);
    }
    return outcome.status == 0;
}

bool BridgedNetwork::build(const std::vector<Host>& plan) {
    for (const char* role : {"bridge", "driver"}) {
        if (!run("ip netns add " + name(role))) {
            return false;
        }
        made_.push_back(name(role));
    }
    if (!run(ip("driver") + "link set lo up")) {
        return false;
    }
    int lans = 0;
    for (const Host& host : plan) {
        lans = std::max(lans, host.lan + 1);
    }
    for (int lan = 0; lan < lans; ++lan) {
        if (!run(ip("bridge") + "link add " + bridgeOf(lan) + " type bridge") ||
            !run(ip("bridge") + "link set " + bridgeOf(lan) + " up") ||
            !join("driver", "eth" + std::to_string(lan), lan, lanPrefix(lan) + ".10", "")) {
            return false;
        }
    }
    for (const Host& host : plan) {
        if (!run("ip netns add " + name(host.role))) {
            return false;
        }
        made_.push_back(name(host.role));
        if (!join(host.role, "eth0", host.lan, host.ip, host.mac) ||
            (!host.answersEcho &&
             !run("ip netns exec " + name(host.role) +
                  " sh -c 'echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all'"))) {
            return false;
        }
        hosts_.push_back(host);
    }
    return run(ip("driver") + "route add default via " + host("gateway").ip);
}

bool BridgedNetwork::join(const std::string& role, const std::string& device, int lan,
                          const std::string& address, const std::string& mac) {
    const std::string port = role + "-" + device;
    return run("ip link add " + device + " netns " + name(role) +
               (mac.empty() ? "" : " address " + mac) + " type veth peer name " + port + " netns " +
               name("bridge")) &&
           run(ip("bridge") + "link set " + port + " master " + bridgeOf(lan) + " up") &&
           run(ip(role) + "addr add " + address + "/24 dev " + device) &&
           run(ip(role) + "link set " + device + " up");
}

void BridgedNetwork::removeAll() {
    while (!made_.empty()) {
        runCapturing("ip netns del " + made_.back());
        made_.pop_back();
    }
    hosts_.clear();
}

bool BridgedNetwork::forgetNeighbours() {
    bool done = run(ip("driver") + "neigh flush all");
    for (const Host& host : hosts_) {
        done = run(ip(host.role) + "neigh flush all") && done;
    }
    return done;
}
