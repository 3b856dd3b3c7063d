// A long run of the sweep on a network that never settles: hosts come and go and answer at
// random, the unit list is replaced and units are deleted, and the clock runs hours ahead. Over
// it nothing may pile up, and the controller must always have last heard what each device holds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "../driver/ScanFixture.h"
#include "ProcessStats.h"
#include "UnitList.h"

namespace {

using testsupport::multiPacket;

constexpr int kSweeps = 500;
constexpr int kWarmUpSweeps = 100;
constexpr int kArpHosts = 10;
constexpr int kUnitHosts = 40;
constexpr int kListEvery = 20;
constexpr double kFirstUnitId = 100;
// Code pages of paths that run seldom come in late, in one step of about 270 KB here, while the
// heap stays flat; a ping's output kept per ping goes far past this.
constexpr long kResidentSlackKb = 1024;

struct FakeHost {
    std::string ip;
    std::string mac;  // empty for a ping unit
    bool online = false;
    bool inTable = false;
};

class SoakTest : public ScanFixture {
protected:
    void SetUp() override {
        ScanFixture::SetUp();
        for (int i = 0; i < kArpHosts + kUnitHosts; ++i) {
            const bool arp = i < kArpHosts;
            const std::string last = std::to_string(i + 1);
            const bool online = chance(arp ? 0.5 : 0.8);
            world_.push_back({(arp ? "10.9.0." : "10.9.1.") + last,
                              arp ? "02:00:00:09:00:" + last : "", online, online});
        }
    }

    bool chance(double p) { return static_cast<double>(rng_()) < p * rng_.max(); }
    std::size_t pick(std::size_t n) { return rng_() % n; }
    double unitId(std::size_t host) const {
        return kFirstUnitId + static_cast<double>(host) - kArpHosts;
    }

    // Hosts go off and on in spells, long enough for the grace time and the forgetting to come
    // into play; offline hosts leave the neighbour table sooner or later. Most unit hosts are
    // up, so that most of them wait out the time before their next ping.
    void changeTheNetwork() {
        static const char* const kOnline[] = {"up", "up", "up", "half", "garbage"};
        static const char* const kOffline[] = {"lost", "lost", "unknown", "killed"};
        std::string table = "Address HWtype HWaddress Flags Mask Iface\n";
        for (FakeHost& fake : world_) {
            const bool arp = !fake.mac.empty();
            if (chance(fake.online ? (arp ? 0.03 : 0.02) : (arp ? 0.015 : 0.1))) {
                fake.online = !fake.online;
            }
            network.answer(fake.ip, fake.online ? std::string(kOnline[pick(5)]) + " 0.0" +
                                                      std::to_string(10 + pick(90))
                                                : kOffline[pick(4)]);
            if (!arp) {
                continue;
            }
            fake.inTable = fake.online || (fake.inTable && !chance(0.1));
            if (fake.inTable) {
                table += "? (" + fake.ip + ") at " + fake.mac + " [ether] on eth0\n";
            } else if (chance(0.2)) {
                table += "? (" + fake.ip + ") at <incomplete> on eth0\n";
            }
        }
        network.setArpTable(table);
    }

    // Through the link, so that the dispatcher hands it on inside whatever pump comes next.
    void sendUnitList() {
        std::vector<testsupport::Unit> units;
        for (std::size_t i = 0; i < world_.size(); ++i) {
            const FakeHost& fake = world_[i];
            if (chance(fake.mac.empty() ? 0.8 : 0.3)) {
                units.push_back({unitId(i), fake.mac.empty() ? fake.ip : fake.mac,
                                 "unit " + std::to_string(i)});
            }
        }
        server.send(multiPacket({{"mcmd", "setUnits"}, {"DATA", testsupport::unitList(units)}}));
    }

    void deleteAUnit() {
        const std::size_t i = kArpHosts + pick(kUnitHosts);
        std::ostringstream id;
        id << unitId(i);
        server.send(
            multiPacket({{"mcmd", "UnitDeleted"}, {"UnID", id.str()}, {"addr", world_[i].ip}}));
    }

    // Time passes between sweeps without being waited for.
    void moveClock(double seconds) {
        for (const auto& key : hosts().Keys()) {
            const host::Ref<cDevice> device = hosts().Value(key);
            for (host::Ref<host::Date>* date : {&device->LastGoodPing, &device->lastPing}) {
                if (*date) {
                    *date = host::New<host::Date>((*date)->TotalSeconds() - seconds);
                }
            }
        }
    }

    struct Seen {
        bool arp;
        bool available;
        double lastPing;
    };

    // What the sweep's rules read, per key.
    std::map<std::string, Seen> look() {
        std::map<std::string, Seen> seen;
        for (const auto& key : hosts().Keys()) {
            const host::Ref<cDevice> device = hosts().Value(key);
            seen[key.isString() ? key.stringValue().bytes() : std::to_string(key.doubleValue())] = {
                device->useArpTiming, device->available,
                device->lastPing ? device->lastPing->TotalSeconds() : 0.0};
        }
        return seen;
    }

    // Counts the arp hosts that a sweep forgot and the present unit hosts that it pinged.
    void compare(const std::map<std::string, Seen>& before,
                 const std::map<std::string, Seen>& after) {
        for (const auto& [key, was] : before) {
            const auto now = after.find(key);
            forgotten_ += was.arp && now == after.end();
            presentPinged_ += !was.arp && was.available && now != after.end() &&
                              now->second.lastPing != was.lastPing;
        }
    }

    // An ON or OFF without "UpDt" is sent on a change only, so it must differ from the last
    // word the controller got for that address.
    void follow(const std::vector<std::string>& sent) {
        for (const std::string& message : sent) {
            EXPECT_EQ(message.find("globally"), std::string::npos) << message;
            std::map<std::string, std::string> fields;
            std::istringstream words(message);
            for (std::string word; words >> word;) {
                const auto equals = word.find('=');
                fields[word.substr(0, equals)] =
                    equals == std::string::npos ? "" : word.substr(equals + 1);
            }
            const std::string verb = fields["mcmd"];
            if (verb != "ON" && verb != "OFF") {
                continue;
            }
            const std::string& addr = fields["addr"];
            const bool update = fields.count("UpDt") > 0;
            if (!update) {
                EXPECT_NE(lastWord_[addr], verb) << "repeated " << message;
                graceOffs_ += verb == "OFF" && addr.find(':') != std::string::npos;
            }
            lastWord_[addr] = verb;
        }
    }

    std::vector<FakeHost> world_;
    std::mt19937 rng_{20251123};
    std::map<std::string, std::string> lastWord_;
    int graceOffs_ = 0;
    int forgotten_ = 0;
    int presentPinged_ = 0;
};

TEST_F(SoakTest, FiveHundredSweepsLeaveNothingBehind) {
    const auto started = std::chrono::steady_clock::now();
    int descriptors = 0;
    long residentKb = 0;
    std::size_t pings = 0;
    for (int sweep = 0; sweep < kSweeps; ++sweep) {
        changeTheNetwork();
        if (sweep % kListEvery == 0) {
            sendUnitList();
        } else if (chance(0.25)) {
            deleteAUnit();
        }
        moveClock(30.0 + static_cast<double>(pick(31)));
        const auto before = look();
        Globals::gScanner->DoScan();
        follow(settle());
        compare(before, look());
        pings += network.pingCalls().size();
        network.forgetCalls();
        if (sweep == kWarmUpSweeps) {
            descriptors = testsupport::openDescriptors();
            residentKb = testsupport::residentKilobytes(getpid());
            EXPECT_EQ(testsupport::childProcesses(), 0);
        }
    }

    EXPECT_EQ(Globals::outstandingPings, 0);
    EXPECT_EQ(testsupport::openDescriptors(), descriptors);
    EXPECT_EQ(testsupport::childProcesses(), 0);
    const long growthKb = testsupport::residentKilobytes(getpid()) - residentKb;
#ifndef __SANITIZE_ADDRESS__
    // The sanitizer's quarantine holds freed memory back; its leak check stands in there.
    EXPECT_LE(growthKb, kResidentSlackKb);
#endif
    int checked = 0;
    for (const auto& key : hosts().Keys()) {
        const host::Ref<cDevice> device = hosts().Value(key);
        if (device->firstScan) {
            continue;
        }
        const std::string addr =
            (device->useArpTiming ? device->MyMacAddress : device->MyIPAddress).bytes();
        EXPECT_EQ(lastWord_[addr], device->available ? "ON" : "OFF") << addr;
        ++checked;
    }
    // The run has to have reached the rules it is meant to wear on.
    EXPECT_GT(checked, 20);
    EXPECT_GT(forgotten_, 0) << "no arp host went silent for an hour";
    EXPECT_GT(graceOffs_, 0) << "no arp host outlived its grace time";
    EXPECT_GT(presentPinged_, 0) << "no present unit host was due again";

    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::cout << kSweeps << " sweeps, " << pings << " pings, " << forgotten_
              << " arp hosts forgotten, " << graceOffs_ << " OFF after the grace time, "
              << presentPinged_ << " present unit hosts pinged again, resident " << growthKb
              << " KB more than after the warm-up, in " << seconds << " s\n";
}

}  // namespace
