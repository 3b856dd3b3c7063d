#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DriverProcess.h"

namespace testsupport {

// A program run in a network of its own, made in a user namespace so that no root is needed:
// loopback, one LAN on a veth whose other end goes nowhere, and the neighbour entries given, so
// that what the driver reads of the kernel's table is the test's. Nothing sent there leaves.
class PrivateNetwork {
public:
    struct Neighbour {
        std::string ip;
        std::string mac;  // none: the entry has no hardware address
        std::string state = "permanent";
    };

    // `lan` is the machine's address with its prefix, as "192.168.5.2/24"; `more` holds further
    // commands of `ip -batch`, a line each.
    PrivateNetwork(const std::string& lan, const std::vector<Neighbour>& neighbours,
                   const std::string& more = "");
    ~PrivateNetwork();
    PrivateNetwork(const PrivateNetwork&) = delete;
    PrivateNetwork& operator=(const PrivateNetwork&) = delete;

    // Empty when such a network can be made here; else why not.
    const std::string& whyNot() const { return whyNot_; }
    // The program to start in place of `program`, and its arguments before `arguments`.
    static constexpr const char* kLauncher = "/usr/bin/unshare";
    std::vector<std::string> arguments(const std::string& program,
                                       const std::vector<std::string>& arguments) const;

    // A process that keeps the network for a thread to enter with InNamespace (which needs
    // root): the path of its namespace, or empty when it did not come up.
    std::string hold();

private:
    std::string folder_;
    std::unique_ptr<DriverProcess> holder_;
    std::string whyNot_;
};

}  // namespace testsupport
