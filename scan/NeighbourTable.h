#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/String.h"
#include "scan/NeighbourDump.h"

// The kernel's IPv4 neighbour table, read over rtnetlink (a dump needs no privilege), each entry
// as the BSD `arp -a -n` prints it: "? (IP) at HW on IFACE", "(incomplete)" in the place of an
// unresolved entry's address.
class NeighbourTable {
public:
    enum class Problem {
        NoSocket,       // the netlink socket could not be opened, or the request not sent
        Failed,         // the kernel answered the dump with an error
        CutShort,       // a reply stopped before its end, or came malformed
        Interrupted,    // the table kept changing, or replies were lost, read after read
        OddHardware,    // a resolved entry whose hardware address is not 6 bytes
        InterfaceGone,  // an entry whose interface went away before its name was read
    };

    struct Complaint {
        Problem problem;
        std::string text;  // a whole log line, saying what happened and what the sweep does
    };

    struct Reading {
        std::vector<host::String> lines;
        std::vector<Complaint> complaints;
    };

    // Reads the table now, in the kernel's order. Never throws; what went wrong is in the
    // complaints, at most one of each Problem, and the lines are what could be read. A dump that
    // the table's changes spoil is made anew, up to three in all.
    static Reading read();

    // How one entry reads, or nothing for an entry that is not in the table as the tool shows it
    // (NOARP: loopback, multicast and broadcast mappings), nor for a resolved one whose hardware
    // address is not of 6 bytes, which the sweep could not key. `interface` is its name.
    static std::string lineOf(const NeighbourDump::Entry& entry, std::string_view interface);
};
