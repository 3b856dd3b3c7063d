#pragma once

#include <string>
#include <vector>

#include "FakeNetwork.h"
#include "LinkFixture.h"
#include "MultiPacketReader.h"
#include "core/Globals.h"
#include "scan/cScanner.h"

// A connected driver with its scanner, on a network of fake tools.
class ScanFixture : public LinkFixture {
protected:
    void SetUp() override {
        LinkFixture::SetUp();
        connect();
        Globals::gScanner = host::New<cScanner>();
        Globals::gScanner->Constructor();
    }

    void TearDown() override {
        settle();
        EXPECT_EQ(Globals::outstandingPings, 0);
        Globals::outstandingPings = 0;
        Globals::gScanner = nullptr;
        LinkFixture::TearDown();
    }

    // Pumps until every ping has ended, then returns what the controller got since the last
    // call, each message as "key=value ..." in wire order.
    std::vector<std::string> settle() {
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

    testsupport::FakeNetwork network;

private:
    std::string received_;
};
