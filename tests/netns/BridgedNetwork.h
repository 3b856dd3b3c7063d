#pragma once

#include <string>
#include <vector>

// Three hosts and a driver, each in a network namespace of its own, joined by a bridge in a
// fifth, so that nothing is added to the machine's own network. The names carry the process
// id: runs side by side do not meet.
class BridgedNetwork {
public:
    struct Host {
        std::string ip;
        std::string mac;
    };

    // Builds the network; when that cannot be done, whyNot() says why and nothing is left.
    BridgedNetwork();
    // Deleting a namespace takes its links with it.
    ~BridgedNetwork();
    BridgedNetwork(const BridgedNetwork&) = delete;
    BridgedNetwork& operator=(const BridgedNetwork&) = delete;

    const std::string& whyNot() const { return whyNot_; }
    // The command that failed last, and what it printed.
    const std::string& lastFailure() const { return lastFailure_; }
    const std::vector<Host>& hosts() const { return hosts_; }
    std::string driverNamespacePath() const;
    bool setHostLink(std::size_t host, bool up);
    // Empties every neighbour table. The driver's fills when the hosts, asked by a broadcast
    // ping, look up its address to answer; a host that knows it already asks nothing.
    bool forgetNeighbours();

private:
    std::string name(const std::string& role) const;
    // "ip -n <namespace of role> "
    std::string ip(const std::string& role) const;
    // Runs a command line; on failure records it and its output in lastFailure_.
    bool run(const std::string& command);
    bool build();
    bool join(const std::string& role, const std::string& address, const std::string& mac);
    void removeAll();

    std::vector<Host> hosts_;
    std::vector<std::string> made_;
    std::string whyNot_;
    std::string lastFailure_;
};
