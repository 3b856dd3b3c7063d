#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "host/ByteQueue.h"
#include "host/EventPump.h"
#include "host/RuntimeException.h"
#include "host/String.h"
#include "host/TextEncoding.h"
#include "host/UniqueFd.h"

namespace host {

// A TCP client of the host. Connect starts a non-blocking connection and returns at once; the
// outcome arrives as Event_Connected or Event_Error inside the pump or Poll. Write queues, and
// sends at once only when a good deal has gathered, so a burst of small messages costs few
// send()s; the rest leaves in order within the following pumps. Event_Error is raised once when
// the connection is refused, lost or closed by the peer (after a last Event_DataAvailable for
// bytes that came before); the socket then counts as not connected and drops later writes
// silently. A failure found inside Connect waits for Poll, or for the pump when the socket is
// owned by a shared_ptr (a Ref): the pump reports it only while the socket is still owned.
//
// A data event hands over all the kernel holds, up to 12 MiB a turn, so a burst that has arrived
// is not cut by the reading. While more than kHighWater bytes wait to be sent the socket reads
// nothing, and the peer's writes wait in TCP, until fewer than kLowWater are left: what the
// process owes and holds stays bounded whatever the peer does.
class TCPSocket : public std::enable_shared_from_this<TCPSocket> {
public:
    TCPSocket() = default;
    virtual ~TCPSocket();
    TCPSocket(const TCPSocket&) = delete;
    TCPSocket& operator=(const TCPSocket&) = delete;

    // A dotted IPv4 address or a host name.
    String Address;
    std::int64_t Port = 0;

    void Connect();
    void Close();
    // Serves this socket's pending events now, on the calling thread.
    void Poll();
    bool IsConnected() const { return state_ == State::Connected; }
    // Never blocks, raises or delivers an event; a send that fails is reported by the pump.
    void Write(const String& data);
    // Sends what the link takes now, under the same rules as Write.
    void Flush();
    // Sends what is queued, waiting up to `milliseconds` for the link to take it, without
    // raising any event: for the last bytes before the process ends.
    void flushWithin(std::int64_t milliseconds);
    // All received bytes not yet read; empties the store.
    String ReadAll(TextEncoding encoding = TextEncoding::None);
    std::int64_t BytesAvailable() const { return static_cast<std::int64_t>(received_.size()); }
    std::int64_t BytesLeftToSend() const { return static_cast<std::int64_t>(outgoing_.size()); }
    // True from the moment more than kHighWater bytes wait to be sent until fewer than kLowWater
    // do; reading stays paused meanwhile.
    bool IsBackedUp() const { return backedUp_; }

    static constexpr std::int64_t kHighWater = std::int64_t{4} << 20;
    static constexpr std::int64_t kLowWater = std::int64_t{1} << 20;

protected:
    virtual void Event_Connected() {}
    virtual void Event_DataAvailable() {}
    virtual void Event_Error(const RuntimeException& err) { (void)err; }
    // Raised by the pump when it has sent the last queued byte.
    virtual void Event_SendComplete() {}
    // How many more bytes `received` needs to end where a message of the peer's ends: 0 when it
    // does, or when no more would help, or when the socket knows no messages, as this one.
    virtual std::size_t bytesShortOfWholeMessage(std::string_view received) const {
        (void)received;
        return 0;
    }

private:
    enum class State { Idle, Connecting, Connected, Failed };

    void onReady(short revents);
    void finishConnect();
    void serveConnection(short revents);
    void fail(const std::string& message, int error);
    // A failure found inside Connect, kept for the next pump or Poll.
    void postFailure(std::string message, int error);
    void deliverPending();
    void readAvailable(int& error, bool& closed);
    bool flushOutgoing(int& error);
    void discardOutgoing();
    void updateInterest();
    void release();

    State state_ = State::Idle;
    UniqueFd fd_;
    EventPump::WatchId watch_ = 0;
    std::string received_;
    ByteQueue outgoing_;
    bool backedUp_ = false;
    // What postFailure keeps: the message and its errno.
    std::optional<std::pair<std::string, int>> pendingFailure_;
};

}  // namespace host
