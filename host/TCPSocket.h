#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/EventPump.h"
#include "host/RuntimeException.h"
#include "host/String.h"
#include "host/TextEncoding.h"

namespace host {

// A TCP client of the host. Connect starts a non-blocking connection and returns at once; the
// outcome arrives as Event_Connected or Event_Error inside the pump or Poll. Write only queues:
// the bytes leave in order within the following pumps, so a burst of small messages costs one
// send(). Event_Error is raised once when the connection is refused, lost or closed by the
// peer (after a last Event_DataAvailable for bytes that came before); the socket then counts as
// not connected and drops later writes silently.
class TCPSocket : public std::enable_shared_from_this<TCPSocket> {
public:
    TCPSocket();
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
    void Write(const String& data);
    // All received bytes not yet read; empties the store.
    String ReadAll(TextEncoding encoding = TextEncoding::None);
    std::int64_t BytesAvailable() const { return static_cast<std::int64_t>(received_.size()); }
    std::int64_t BytesLeftToSend() const { return static_cast<std::int64_t>(outgoing_.size()); }

    // Sends what every socket still has queued, for at most `milliseconds`, without raising any
    // event: the host's last act before the process ends.
    static void flushAll(std::int64_t milliseconds);

protected:
    virtual void Event_Connected() {}
    virtual void Event_DataAvailable() {}
    virtual void Event_Error(const RuntimeException& err) { (void)err; }

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
    void updateInterest();
    void release();

    State state_ = State::Idle;
    int fd_ = -1;
    EventPump::WatchId watch_ = 0;
    std::string received_;
    std::string outgoing_;
    bool pendingFailure_ = false;
    std::string pendingMessage_;
    int pendingError_ = 0;
};

}  // namespace host
