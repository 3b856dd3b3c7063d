#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "../driver/DriverFixture.h"
#include "ProcessStats.h"
#include "store/UnitListRecord.h"

namespace {

using SoakTest = DriverFixture;

// Hundreds of sweeps over 50 hosts on a network that never settles: they go off and on in spells
// and answer at random, offline arp hosts leave the neighbour table sooner or later, the unit
// list is replaced, and between sweeps the clock runs 30 to 60 s ahead, far enough for the grace
// time and the forgetting to come into play. Nothing may pile up.
TEST_F(SoakTest, FiveHundredSweepsLeaveNothingBehind) {
    // Five ways for a ping of a host online to end, and five for one offline.
    static const char* const kAnswers[] = {"up",   "up",   "up",      "half",   "garbage",
                                           "lost", "lost", "unknown", "killed", "lost"};
    connect();
    Globals::gScanner = host::New<cScanner>();
    Globals::gScanner->Constructor();
    std::mt19937 random(20251123);
    const auto chance = [&](double p) { return static_cast<double>(random()) < p * random.max(); };
    std::vector<bool> online(50, true), inTable(10, false);
    long descriptors = 0;
    [[maybe_unused]] long residentKb = 0;  // not judged under the sanitizer
    std::vector<host::String> table;
    Globals::gScanner->readNeighbours = [&table] { return NeighbourTable::Reading{table, {}}; };
    for (int sweep = 0; sweep < 500; ++sweep) {
        table.clear();
        std::vector<UnitListRecord::Unit> units;
        for (int i = 0; i < 50; ++i) {  // ten arp hosts, then hosts of ping units
            const bool arp = i < 10;
            const std::string ip = "10.9." + std::to_string(i / 10) + "." + std::to_string(i + 1);
            const std::string mac = "02:00:00:09:00:" + std::to_string(i + 1);
            online[i] = online[i] != chance(online[i] ? 0.02 + 0.01 * arp : arp ? 0.015 : 0.1);
            network.answer(ip, kAnswers[random() % 5 + 5 * !online[i]] +
                                   (" 0.0" + std::to_string(10 + random() % 90)));
            if (arp && (inTable[i] = online[i] || (inTable[i] && !chance(0.1)))) {
                table.emplace_back("? (" + ip + ") at " + mac + " on eth0");
            }
            if (chance(arp ? 0.3 : 0.8)) {
                units.push_back({100 + i, arp ? mac : ip, "unit " + std::to_string(i)});
            }
        }
        if (sweep % 20 == 0) {  // through the link, handed on inside whatever pump comes next
            server.send(testsupport::multiPacket(
                {{"mcmd", "setUnits"}, {"DATA", UnitListRecord::bytes(units)}}));
        }
        // Time passes between sweeps without being waited for.
        const double seconds = 30.0 + static_cast<double>(random() % 31);
        for (const auto& key : hosts().Keys()) {
            for (auto* date : {&hosts().Value(key)->LastGoodPing, &hosts().Value(key)->lastPing}) {
                *date = *date ? host::New<host::Date>((*date)->TotalSeconds() - seconds) : *date;
            }
        }
        Globals::gScanner->DoScan();
        for (const std::string& message : settle()) {
            EXPECT_EQ(message.find("globally"), std::string::npos) << message;  // the guard's line
        }
        if (sweep == 100) {  // past the warm-up
            descriptors = testsupport::openDescriptors();
            residentKb = testsupport::residentKilobytes(getpid());
        }
    }
    EXPECT_EQ(testsupport::openDescriptors(), descriptors);
    EXPECT_FALSE(testsupport::hasChildren());
#ifndef __SANITIZE_ADDRESS__
    // Code pages of paths that run seldom come in late, in one step of about 270 KB here, while
    // the heap stays flat; a ping's output kept per ping goes far past a megabyte. (The
    // sanitizer's quarantine holds freed memory back; its leak check stands in there.)
    EXPECT_LE(testsupport::residentKilobytes(getpid()) - residentKb, 1024);
#endif
}

}  // namespace
