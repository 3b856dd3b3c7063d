#include "BridgedNetwork.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "DriverProcess.h"

namespace {

// Runs a shell script that stops at its first failure. Nothing when it succeeds; else its last
// two lines of output, the failing command's trace and its complaint.
std::string failureOf(const std::string& script) {
    auto [status, output] = testsupport::DriverProcess::shell(
        "out=$(set -ex\n{\n" + script + "} 2>&1) || { echo \"$out\" | tail -n 2; exit 1; }");
    return status == 0 ? "" : output.erase(output.size() - 1);
}

}  // namespace

std::vector<BridgedNetwork::Host> BridgedNetwork::home() {
    return {{"host1", 0, addressIn(0, 1), "02:00:00:00:00:01", true},
            {"host2", 0, addressIn(0, 2), "02:00:00:00:00:02", true},
            {"host3", 0, addressIn(0, 3), "02:00:00:00:00:03", false},
            {"host4", 1, addressIn(1, 4), "02:00:00:00:00:04", true},
            {"gateway", 2, addressIn(2, 1), "02:00:00:00:00:09", true}};
}

std::string BridgedNetwork::addressIn(int lan, int offset) {
    return "10." + std::to_string(99 - lan) + "." + std::to_string(offset / 256) + "." +
           std::to_string(offset % 256);
}

BridgedNetwork::BridgedNetwork(const std::vector<Host>& plan, const std::vector<int>& prefixes) {
    // The driver looks in the system folders too when PATH lacks a tool.
    whyNot_ = failureOf(
        "PATH=\"$PATH:/usr/sbin:/sbin\"\n"
        "for tool in ip:iproute2 ping:iputils-ping fping:fping; do\n"
        "  command -v ${tool%:*} >/dev/null || { echo no ${tool%:*}, package ${tool#*:}; false; }\n"
        "done\n");
    if (whyNot_.empty() && ::geteuid() != 0) {
        whyNot_ =
            "making network namespaces needs root; running as uid " + std::to_string(::geteuid());
    }
    if (!whyNot_.empty()) {
        return;
    }
    const auto ip = [this](const std::string& role) { return "ip -n " + name(role) + " "; };
    std::string script = "ip netns add " + name("bridge") + "\nip netns add " + name("driver") +
                         "\n" + ip("driver") + "link set lo up\n";
    const auto prefixOf = [&prefixes](int lan) {
        return std::to_string(lan < static_cast<int>(prefixes.size()) ? prefixes[lan] : 24);
    };
    // A veth from `device` in the namespace of `role` to a port of the bridge of `lan`; a host
    // that joins later has its end left down.
    const auto attach = [&](const std::string& role, const std::string& device, int lan,
                            const std::string& address, const std::string& mac, bool up) {
        const std::string port = role + "-" + device, bridge = "br" + std::to_string(lan);
        script += "ip link add " + device + " netns " + name(role) +
                  (mac.empty() ? "" : " address " + mac) + " type veth peer name " + port +
                  " netns " + name("bridge") + "\n" + ip("bridge") + "link set " + port +
                  " master " + bridge + " up\n" + ip(role) + "addr add " + address + "/" +
                  prefixOf(lan) + " dev " + device + "\n" +
                  (up ? ip(role) + "link set " + device + " up\n" : "");
    };
    int lans = 0;
    for (const Host& host : plan) {
        lans = std::max(lans, host.lan + 1);
    }
    for (int lan = 0; lan < lans; ++lan) {
        const std::string bridge = "br" + std::to_string(lan);
        script += ip("bridge") + "link add " + bridge + " type bridge\n" + ip("bridge") +
                  "link set " + bridge + " up\n";
        attach("driver", "eth" + std::to_string(lan), lan, addressIn(lan, 10), "", true);
    }
    for (const Host& host : plan) {
        script += "ip netns add " + name(host.role) + "\n";
        attach(host.role, "eth0", host.lan, host.ip, host.mac, !host.joinsLater);
        if (!host.answersEcho) {
            script += "ip netns exec " + name(host.role) +
                      " sh -c 'echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all'\n";
        }
    }
    hosts_ = plan;
    whyNot_ =
        failureOf(script + ip("driver") + "route add default via " + host("gateway").ip + "\n");
    if (!whyNot_.empty()) {
        removeAll();
    }
}

BridgedNetwork::~BridgedNetwork() {
    removeAll();
}

void BridgedNetwork::removeAll() {
    failureOf("for n in $(ip netns list | grep -o '^" + name("") +
              "[^ ]*'); do ip netns del $n; done\n");
    hosts_.clear();
}

const BridgedNetwork::Host& BridgedNetwork::host(const std::string& role) const {
    const auto found = std::ranges::find(hosts_, role, &Host::role);
    return found != hosts_.end() ? *found : throw std::out_of_range("no host " + role);
}

std::string BridgedNetwork::name(const std::string& role) const {
    return "arptest" + std::to_string(::getpid()) + "-" + role;
}

std::string BridgedNetwork::namespacePath(const std::string& role) const {
    return "/run/netns/" + name(role);
}

std::string BridgedNetwork::forgetNeighbours() const {
    std::string script = "ip -n " + name("driver") + " neigh flush all\n";
    for (const Host& host : hosts_) {
        script += "ip -n " + name(host.role) + " neigh flush all\n";
    }
    return failureOf(script);
}

std::string BridgedNetwork::join(const std::string& role) const {
    return failureOf("ip -n " + name(host(role).role) + " link set eth0 up\n");
}
