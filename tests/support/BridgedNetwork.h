#pragma once

#include <string>
#include <vector>

// A network in network namespaces: each host in a namespace of its own with the kernel's
// defaults (so it ignores broadcast echo), joined to the driver's namespace by one bridge per
// LAN in one more namespace, so that nothing is added to the machine's own network. LAN n is
// 10.(99-n).0.0, a /24 unless told otherwise, on the driver's eth<n> at .10; the driver's
// default route goes through the host named "gateway". The names carry the process id: runs
// side by side do not meet.
class BridgedNetwork {
public:
    struct Host {
        std::string role;
        int lan;
        std::string ip;
        std::string mac;
        // False: the host drops every echo request, as many firewalls make it.
        bool answersEcho;
        // True: made with its link down, so that it is off its LAN until join().
        bool joinsLater = false;
    };

    // A home network as it comes: host1, host2 and host3 (which drops echo) on LAN 0, host4 on
    // LAN 1, and the gateway of the default route alone on LAN 2, as behind a VPN or an uplink.
    static std::vector<Host> home();
    // The address `offset` places after the first of LAN n: addressIn(1, 770) is 10.98.3.2.
    static std::string addressIn(int lan, int offset);

    // Builds the network, LAN n with the prefix prefixes[n] (24 where none is given); when that
    // cannot be done, whyNot() says why and nothing is left.
    explicit BridgedNetwork(const std::vector<Host>& plan, const std::vector<int>& prefixes = {});
    // Deleting a namespace takes its links with it.
    ~BridgedNetwork();
    BridgedNetwork(const BridgedNetwork&) = delete;
    BridgedNetwork& operator=(const BridgedNetwork&) = delete;

    const std::string& whyNot() const { return whyNot_; }
    const std::vector<Host>& hosts() const { return hosts_; }
    const Host& host(const std::string& role) const;
    std::string namespacePath(const std::string& role) const;
    // Empties every neighbour table, so that what the driver finds it found itself. What failed,
    // or nothing.
    std::string forgetNeighbours() const;
    // Brings a host that joins later onto its LAN: its link comes up, as a phone's does when it
    // comes home, and from then on it answers address resolution. What failed, or nothing.
    std::string join(const std::string& role) const;

private:
    std::string name(const std::string& role) const;
    void removeAll();

    std::vector<Host> hosts_;
    std::string whyNot_;
};
