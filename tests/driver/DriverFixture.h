#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "LoopbackServer.h"
#include "MultiPacketReader.h"
#include "core/App.h"
#include "core/Globals.h"
#include "host/ConsoleApplication.h"
#include "host/EventPump.h"
#include "host/ExceptionWrapper.h"
#include "link/AmbrelisSupport.h"
#include "scan/cScanner.h"

using Lines = std::vector<std::string>;

// A control message from the controller: the full layout of 16 bytes, flag byte as given.
inline std::string control(char command, char flags = 0x40) {
    return std::string("X\x10\x61\x40LX") + flags + "0" + command + std::string("03\0\0\0 \r", 7);
}

// Runs driver code in-process the way the host does, wired as main wires it, against a fake
// controller on loopback and the fake network tools first on PATH. Failures that leave a handler
// go to the application's guard. Tear-down lets every ping end, drops the link and checks that
// the pump holds nothing.
class DriverFixture : public ::testing::Test {
protected:
    void SetUp() override {
        App::wireLayers();
        host::ExceptionWrapper::setHandler([this](const host::RuntimeException& err) {
            return app.Event_UnhandledException(err);
        });
    }

    void TearDown() override {
        settle();
        EXPECT_EQ(Globals::outstandingPings, 0);
        Globals::outstandingPings = 0;
        Globals::gScanner = nullptr;
        AmbrelisSupport::AmbrelisSocket = nullptr;
        host::EventPump::instance().run(0);
        Globals::DoQuit = false;
        Globals::DebugMode = false;
        host::ExceptionWrapper::setHandler(nullptr);
        EXPECT_EQ(host::EventPump::instance().watchCount(), 0u);
        EXPECT_EQ(host::EventPump::instance().postedCount(), 0u);
    }

    // Opens the link; the driver greets with its connection id, then logs that it connects.
    void connect() {
        AmbrelisSupport::OpenAmbrelisConnection("127.0.0.1", server.port(), "conn-42");
        EXPECT_TRUE(AmbrelisSupport::WaitForAmbrelisConnection(2));
        EXPECT_TRUE(server.accept());
        const auto view = testsupport::readControllerStream(pumpAndReceive(50));
        EXPECT_EQ(view.greeting, "ard:conn-42\r");
        EXPECT_EQ(view.inOrder, Lines{"mcmd=WrtL Valu=2 DATA=Tamsvale ISF connecting..."});
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

    // Pumps until every ping has ended, then returns what the controller got since the last
    // call, each message as "key=value ..." in wire order.
    Lines settle() {
        for (int turn = 0; turn < 500 && Globals::outstandingPings > 0; ++turn) {
            host::ConsoleApplication::DoEvents(10);
        }
        for (int turn = 0; turn < 3; ++turn) {
            host::ConsoleApplication::DoEvents(5);
            received_ += server.receive(std::chrono::milliseconds(0));
        }
        auto view = testsupport::readControllerStream(received_);
        received_ = view.rest;
        return view.inOrder;
    }

    host::Dictionary<host::Ref<cDevice>>& hosts() { return *Globals::gScanner->HostDict; }

    // A device made the way the sweep makes one, entered under its hardware address.
    host::Ref<cDevice> arpHost(const std::string& ip, const std::string& mac) {
        auto device = host::New<cDevice>();
        hosts().SetValue(host::String(mac), device);
        device->LoadFromArpLine(host::String("? (" + ip + ") at " + mac + " on eth0"));
        return device;
    }

    App app;
    testsupport::LoopbackServer server;
    testsupport::FakeNetwork network;

private:
    std::string received_;
};
