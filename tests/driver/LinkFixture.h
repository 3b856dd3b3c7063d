#pragma once

#include <chrono>
#include <string>

#include "DriverFixture.h"
#include "LoopbackServer.h"
#include "host/ConsoleApplication.h"

// A driver fixture whose link can stand against a fake controller on loopback.
class LinkFixture : public DriverFixture {
protected:
    // Opens the link, accepts it and swallows the greeting and the connecting line.
    void connect() {
        AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "x");
        ASSERT_TRUE(AmbrelisSupport::WaitForAmbrelisConnection(2));
        ASSERT_TRUE(server.accept());
        pumpAndReceive(50);
    }

    // Pumps until the server has received at least `count` bytes more, or a second has passed.
    std::string pumpAndReceive(std::size_t count) {
        std::string bytes;
        for (int turn = 0; turn < 100 && bytes.size() < count; ++turn) {
            host::ConsoleApplication::DoEvents(10);
            bytes += server.receive(std::chrono::milliseconds(0));
        }
        return bytes;
    }

    testsupport::LoopbackServer server;
};
