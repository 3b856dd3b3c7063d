#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The reading of one RTM_GETNEIGH dump: the kernel's replies, a datagram at a time, into the
// IPv4 entries they hold. Pure: it only reads the bytes it is given, whatever they are.
class NeighbourDump {
public:
    struct Entry {
        std::uint32_t address;  // host byte order
        std::string hardware;   // the raw bytes of NDA_LLADDR; empty when the kernel gave none
        std::uint16_t state;    // ndm_state, NUD_* bits
        int interfaceIndex;
    };

    enum class Status {
        More,         // the dump goes on: read the next datagram
        Done,         // NLMSG_DONE came
        Interrupted,  // NLMSG_DONE came, but the table changed meanwhile (NLM_F_DUMP_INTR)
        Failed,       // the kernel answered with an error: error() says which
    };

    // Only messages of this sequence number are read; others are an earlier dump's.
    explicit NeighbourDump(std::uint32_t sequence) : sequence_(sequence) {}

    Status take(std::string_view datagram);

    const std::vector<Entry>& entries() const { return entries_; }
    // The errno of an NLMSG_ERROR reply (or of an NLMSG_DONE that carries one), once take() has
    // said Failed; EPROTO when the reply carried no errno.
    int error() const { return error_; }
    // Some message was cut off or malformed; the entries before it stand. A length that runs past
    // the datagram ends its walk; a message that is whole but malformed inside is only skipped.
    bool cutShort() const { return cutShort_; }

private:
    void readMessage(std::uint16_t type, std::uint16_t flags, std::string_view payload);
    void readNeighbour(std::string_view payload);
    void fail(int error);

    std::uint32_t sequence_;
    // Once Done, Interrupted or Failed, the dump is over: later bytes are not read.
    Status status_ = Status::More;
    std::vector<Entry> entries_;
    int error_ = 0;
    bool interrupted_ = false;
    bool cutShort_ = false;
};
