#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/ByteQueue.h"
#include "host/Ref.h"
#include "host/String.h"
#include "host/TCPSocket.h"

class cAmbrelisCommand;

// The link to the controller: greets it, cuts the incoming stream into messages and hands each
// to the dispatcher, and writes outgoing messages.
class cAmbrelisDeviceSocket : public host::TCPSocket {
public:
    host::String ConnectionID;

    virtual void SendCommand(const host::Ref<cAmbrelisCommand>& cmd);
    // A log line for the controller. Log lines, and nothing else, are given up while more than
    // kLogCeiling bytes wait to be sent: a controller that reads nothing while input turns into
    // log lines (the endless loop of an empty frame, a flood of malformed bytes) would otherwise
    // take the driver's memory without end. They are counted, and one line says how many once
    // the queue has drained.
    void SendLogLine(const host::Ref<cAmbrelisCommand>& line);

    static constexpr std::int64_t kLogCeiling = std::int64_t{16} << 20;

    // Bytes received and not yet cut into messages.
    host::String Buffer() const;
    void appendToBuffer(host::String bytes);
    // The stream cutter. It runs passes until the buffer has nothing more to give, at most
    // maxPasses of them; true when it returned by itself. The socket calls it without a real
    // bound, so a partial common message keeps it turning, as designed.
    bool cutStream(std::uint64_t maxPasses);
    // What the buffer and `received` after it lack to end where a message ends, as the cutter will
    // cut them; 0 also at a length of 0, which it never gets past.
    std::size_t bytesShortOfWholeMessage(std::string_view received) const override;

protected:
    void Event_Connected() override;
    void Event_Error(const host::RuntimeException& err) override;
    void Event_DataAvailable() override;
    void Event_SendComplete() override;

private:
    void reportDroppedLines();

    host::ByteQueue buffer_;
    // Log lines given up since the last count was written.
    std::int64_t droppedLines_ = 0;
};
