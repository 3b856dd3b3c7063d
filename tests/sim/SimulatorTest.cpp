#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "DriverProcess.h"
#include "FakeNetwork.h"
#include "ProcessStats.h"
#include "Tmux.h"
#include "store/CXML.h"
#include "tools/sim/SimOptions.h"
#include "tools/sim/TableDisplay.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
const double kFirstGap = sim::SweepClock::gapAfter(1), kGap = sim::SweepClock::gapAfter(2);

// Every bad argument and every kind of line a units file may hold (the file is called "units" in
// what is said): parse says all that is wrong, until an unknown option; it wins over --help. The
// gateway's address is a host name that only looks like a hardware address written with dashes; an
// id stays taken by a line whose address is bad. The good lines are kept, trimmed.
TEST(SimOptionsTest, EveryBadArgumentOrUnitsLineIsAnErrorThatSaysWhich) {
    const std::string file = "/tmp/sim-units-" + std::to_string(::getpid());
    std::ofstream(file) << "# uniqueid, name, address\n1, Gateway, 7e-52-52-83-30-8g\n\n"
                        << "  7 ,\tPhone X , 02:FC:3a:11:9E:40 \r\n"
                        << R"(20, a,b, 10.0.0.20
0, a, 10.0.0.256
2.5, a, -c
9007199254740992, a, my_host
1, , 7E-52-52-83-30-8G
22, a, 02:fc:3a:11:9e
22, a, 7e-52-52-83-30-84
24, a, 7E52.5283.3084
25, a, 123456789012
)";
    const std::string e = "ambrelis-sim: ";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--port"}, e + "--port needs a value (see --help)"},
        {{"--for", "0"}, e + "--for 0: not a number of seconds above 0"},
        {{"--for", "nan"}, e + "--for nan: not a number of seconds above 0"},
        {{"--log-lines", "0"}, e + "--log-lines 0: not a count from 1 to 1000"},
        {{"--id", "a\rb"}, e + "--id a\rb: a connection id cannot hold a carriage return"},
        {{"--unit", "1,a,b", "--unit=1,c,d"},
         e + "--unit 1,c,d: uniqueid 1 is already used at --unit \"1,a,b\""},
        {{"--port", "12x", "--help"}, e + "--port 12x: not a port number from 0 to 65535"},
        {{"--port", "70000", "--units", "/nonexistent/units", "--units", file, "--bogus", "--x"},
         R"(ambrelis-sim: --port 70000: not a port number from 0 to 65535
/nonexistent/units: cannot read: No such file or directory
units:5: expected uniqueid, name, address: found 4 fields
units:6: uniqueid "0" is not a whole number from 1 to 9007199254740991; address "10.0.0.256" is not an IPv4 address
units:7: uniqueid "2.5" is not a whole number from 1 to 9007199254740991; address "-c" is not a host name
units:8: uniqueid "9007199254740992" is not a whole number from 1 to 9007199254740991; address "my_host" is not a host name
units:9: name is empty; uniqueid 1 is already used at units:2; address 7E-52-52-83-30-8G is already unit 1 at units:2
units:10: address "02:fc:3a:11:9e" is not a hardware address (six two-digit hex groups joined by colons)
units:11: hardware address "7e-52-52-83-30-84" must be written with colons: 7e:52:52:83:30:84; uniqueid 22 is already used at units:10
units:12: hardware address "7E52.5283.3084" must be written with colons: 7E:52:52:83:30:84
units:13: hardware address "123456789012" must be written with colons: 12:34:56:78:90:12 (a host name of twelve hex digits needs its domain)
ambrelis-sim: unknown option --bogus (see --help))"},
    };
    sim::SimOptions options;
    for (const auto& [arguments, expected] : cases) {
        std::string message;
        options = sim::SimOptions();
        EXPECT_EQ(options.parse(arguments, message), sim::SimOptions::Outcome::Error);
        for (std::size_t at; (at = message.find(file)) != std::string::npos;) {
            message.replace(at, file.size(), "units");
        }
        EXPECT_EQ(message, expected);
    }
    ::unlink(file.c_str());
    // The good lines are what the driver is sent, under the keys it reads.
    auto data = host::New<CXML>();
    data->loadFromString(options.units.toData());
    EXPECT_EQ(data->GetContainerCount("unit"), 2);
    EXPECT_EQ(data->GetContainer("unit", 2)->GetStringValue("Name").bytes(), "Phone X");
}

// The first sweep starts with the unit request, here at 10 s, and waits for its fill; a "begin arp
// scan" early in a sweep moves its start, a late one starts the next sweep before it was expected.
// Each sweep is told once its pings are over, with the reports that came in it; turns missed are
// caught up in order.
TEST(SweepClockTest, CountsSweepsFromTheUnitRequestAndFollowsTheDriversOwnMark) {
    sim::SweepClock clock;
    clock.unitsAsked(10);
    clock.logLine(14, "begin arp scan");
    EXPECT_EQ(clock.sweepAt(20), 1);
    EXPECT_NEAR(clock.nextIn(20).value_or(-1), 14 + kFirstGap - 20, 1e-9);
    clock.logLine(11 + kFirstGap, "begin arp scan");
    EXPECT_EQ(clock.sweepAt(12 + kFirstGap), 2);
    EXPECT_NEAR(clock.nextIn(12 + kFirstGap).value_or(-1), kGap - 1, 1e-9);
    for (const double at : {12 + kFirstGap, 13 + kFirstGap, 12 + kFirstGap + kGap}) {
        clock.reported(at);
    }
    EXPECT_EQ(clock.takeSummaries(11 + kFirstGap + 2 * kGap + sim::SweepClock::pingsOverAfter(4)),
              (std::vector<std::string>{"sweep 1: nothing found in the neighbour table",
                                        "sweep 2: 2 reports", "sweep 3: 1 report",
                                        "sweep 4: no change reported"}));
}

// A home LAN as the screen shows it: a unit pinged by address and the hardware row at that
// address, reported in either letter case; hosts that drop pings; units and a host not reported
// on yet; more log lines than are kept, and one that is long and would steer the terminal: C1
// controls, stray, overlong, surrogate and cut sequences. The log's clock shows as hh:mm:ss.
TEST(TableDisplayTest, FitsEveryLineToTheTerminalAndSaysWhatEachRowShows) {
    sim::UnitList units;
    units.addUnit("1, Router, 10.0.0.1");
    units.addUnit("2, Küchentür and garage door, 10.0.0.77");
    units.addUnit("3, Phone, 02:fc:3a:11:9e:40");
    sim::PresenceTable table(units, 1);
    sim::SweepClock clock;
    clock.unitsAsked(1);
    table.setState("10.0.0.1", sim::PresenceTable::State::On, 40);
    table.setResponse("10.0.0.1", "10.0.0.1", "0.364");
    table.setState("02:fc:aa:bb:cc:dd", sim::PresenceTable::State::On, 3);
    table.setState("02:FC:aa:bb:cc:dd", sim::PresenceTable::State::On, 5);
    table.setResponse("02:fc:AA:bb:cc:dd", "10.0.0.1", "0.5");
    table.setResponse("02:fc:aa:bb:cc:dd", "", "0.029");
    table.setState("02:fc:aa:bb:cc:03", sim::PresenceTable::State::Off, 3);
    table.setState("10.0.0.5", sim::PresenceTable::State::Off, 3);
    table.setResponse("02:fc:aa:bb:cc:04", "10.0.0.4", "");
    table.setState("02:fc:aa:bb:cc:05", sim::PresenceTable::State::On, 5);
    table.setState("02:fc:aa:bb:cc:06", sim::PresenceTable::State::On, 5);
    table.addLog("dropped");
    table.addLog("kept ä€\x1b[2J\r\n\t\0\x7f\xc2\x9b\x80\xff\xc0\xaf\xed\xa0\x80.\xe2\x82"s);
    const sim::TableDisplay display(table, clock);
    std::string shown;
    for (const std::string& line : display.screen(12, "title\nsweep 1", 80, 20)) {
        const bool stamped = line.size() > 8 && line[2] == ':' && line[5] == ':' && line[8] == ' ';
        shown += (stamped ? "hh:mm:ss" + line.substr(8) : line) + "\n";
    }
    EXPECT_EQ(shown, R"(title
sweep 1

ADDRESS           NAME              STATE RESPONSE   IP              CHANGED
10.0.0.1          Router            ON    0.364 ms   10.0.0.1        0s ago
10.0.0.77         Küchentür and ga… -     first ping at sweep 2, in 20s
02:fc:3a:11:9e:40 Phone             -     told once the driver has read the un…
02:fc:aa:bb:cc:dd (Router)          ON    0.029 ms   10.0.0.1        9s ago
02:fc:aa:bb:cc:03 -                 OFF*                             9s ago
10.0.0.5          -                 OFF                              9s ago
02:fc:aa:bb:cc:04 -                 -     looked for in the neighbour table at…
... and 2 more rows
OFF* by hardware address: not in the neighbour table when the driver looked, or
no answer to ping (some hosts drop every ping); the driver says ON only once
that changes.

log (local time):
hh:mm:ss kept ä€\x1b[2J\x0d\x0a\x09\x00\x7f\xc2\x9b\x80\xff\xc0\xaf\xed\xa0\x80
         .\xe2\x82
keys: p ping   d debug on/off   D debug (control)   c/q close
)");
    // A wider terminal widens the names.
    EXPECT_EQ(display.screen(2 + kFirstGap, "", 120, 30)[5],
              "10.0.0.77         Küchentür and garage door" + std::string(33, ' ') +
                  "-     first ping under way");
}

// A script to start in the driver's place.
std::string driver(const testsupport::FakeNetwork& network, const std::string& script) {
    const std::string path = network.folder() + "/driver";
    std::ofstream(path) << "#!/bin/bash\n" << script << "\n";
    ::chmod(path.c_str(), 0755);
    return path;
}

// Runs the simulator without a terminal, where it writes a line per event; a bad argument starts
// no driver. With `lan`, in a network of its own (made in a user namespace, so no root is needed)
// whose commands `lan` holds.
void run(int exitStatus, const std::vector<std::string>& arguments,
         const std::vector<std::string>& lines, const std::string& lan = "") {
    std::vector<std::string> all = {
        "--net", "--user",         "--map-root-user", "sh", "-c", lan + " && exec \"$@\"",
        "sh",    AMBRELIS_SIM_PATH};
    all.insert(all.end(), arguments.begin(), arguments.end());
    testsupport::DriverProcess simulator(lan.empty() ? arguments : all,
                                         lan.empty() ? AMBRELIS_SIM_PATH : "/usr/bin/unshare");
    ASSERT_EQ(simulator.waitForExit(25s), exitStatus) << simulator.output();
    for (const std::string& line : lines) {
        EXPECT_NE(simulator.output().find(line), std::string::npos) << line << simulator.output();
    }
    EXPECT_EQ(simulator.output().find("(pid ") == std::string::npos, exitStatus == 2);
}

// The driver reads each unit of the list, under its own id, and finds the router in the
// neighbour table of a network of its own; "close" does not wait for the ping of a host there
// that hangs. However a driver ends before it connects, that is a failure.
TEST(SimulatorRunTest, RunsTheDriverShowsWhatItDoesAndEndsWithIt) {
    const testsupport::FakeNetwork network;
    const auto [status, said] = testsupport::DriverProcess::shell("unshare -nrU true");
    if (status != 0) {
        GTEST_SKIP() << "no network namespace of our own: " << said;
    }
    network.answer("192.168.5.1", "up 0.364");
    network.answer("192.168.5.3", "hang 30");
    // What the drivers leave running (a ping that hangs, a script's sleep) comes to us, and is
    // ended.
    testsupport::adoptOrphans();
    run(0,
        {"--port=0", "--for", "3", "--id=c-9", "--unit", "1, Router, 02:FC:AA:BB:CC:DD", "--unit",
         "2, Phone, 192.168.5.7", "--unit", "3, Tablet, 192.168.5.8"},
        {"s greeting ard:c-9 ok\n", "s getUnits: sent setUnits with 3 units (",
         "s ON  02:fc:aa:bb:cc:dd  Router  (update)\n",
         "s NoOp 02:fc:aa:bb:cc:dd  Router  0.364 ms  IP 192.168.5.1\n",
         "s log: creating a new ping device for unit with Address: 192.168.5.8\n",
         "s sent close (--for 3 s are over)\n", "s log: arp Plugin shutting down...\n",
         "s the driver ended: exit status 0\n"},
        "ip link set lo up && ip link add v0 type veth peer name v1 && ip link set v1 up && "
        "ip addr add 192.168.5.2/24 dev v0 && ip link set v0 up && ip neigh replace 192.168.5.1 "
        "lladdr 02:fc:aa:bb:cc:dd dev v0 nud permanent && ip neigh replace 192.168.5.3 lladdr "
        "02:fc:aa:bb:cc:03 dev v0 nud permanent");
    run(2, {"--unit", "1, Router, 10.0.0"}, {});
    // A driver without a greeting still has its messages read: bytes that begin no message, and a
    // length too short for one, are skipped to the next. The script asks for its units, the last
    // byte late, and once answered sends its simulator SIGTERM.
    const std::string garbling = driver(
        network,
        R"(exec 3<>/dev/tcp/$2/$3; printf '%0256dXYJ\x03\x00\x80J\x12\x00\x80mcmd\x08\x00getUnit' >&3; sleep 0.2; printf s >&3; read -n 1 <&3; kill $PPID; sleep 30)");
    run(1, {"--port=0", "--driver", garbling},
        {"s stream: no greeting line in the first 256 bytes\n",
         "s stream: skipped 258 bytes that begin no message (first 0x30)\n",
         "s stream: skipped a message whose length field is 3\n",
         "s getUnits: sent setUnits with 0 units (", "s sent close (got SIGTERM)\n",
         "s the driver was still running 14 s after close: killed the driver (killed by signal 9"});
    run(1, {"--port=0", "--driver", driver(network, "echo about to die; kill -9 $$")},
        {"s driver output: about to die\n",
         "s the driver ended before it connected (killed by signal 9 (Killed)); exit status 1\n"});
    testsupport::endChildren();
}

// A simulator killed outright has no chance to stop its driver: the driver must die with it.
TEST(SimulatorRunTest, TakesTheDriverAlongWhenItIsKilled) {
    const testsupport::FakeNetwork network;
    const std::string started = network.folder() + "/driver.pid";
    testsupport::DriverProcess simulator(
        {"--port=0", "--driver",
         driver(network, "echo $$ >" + started + ".new; mv " + started + ".new " + started +
                             "; exec sleep 30")},
        AMBRELIS_SIM_PATH);
    std::string pid;
    for (int i = 0; i < 100 && pid.empty(); ++i) {
        std::this_thread::sleep_for(50ms);
        std::ifstream(started) >> pid;
    }
    ASSERT_FALSE(pid.empty()) << simulator.output();
    ::kill(simulator.pid(), SIGKILL);
    simulator.waitForExit(5s);
    const auto running = [&pid] {
        std::string id, name, state;
        std::ifstream("/proc/" + pid + "/stat") >> id >> name >> state;
        return !state.empty() && state != "Z";
    };
    for (int i = 0; i < 40 && running(); ++i) {
        std::this_thread::sleep_for(50ms);
    }
    if (running()) {
        ::kill(std::stoi(pid), SIGKILL);  // so that no test leaves a process behind
        ADD_FAILURE() << "driver " << pid << " outlived its simulator";
    }
}

// In a terminal of 80 by 24, the smallest it is made for. The driver waits for a go before it
// starts, so that a key pressed before the link has nowhere to go. Close comes during the first
// sweep; the driver may finish it first.
TEST(SimulatorRunTest, OnAScreenItShowsTheTableTakesKeysAndWaitsForTheDriverToEnd) {
    if (!testsupport::Tmux::available()) {
        GTEST_SKIP() << "tmux is not installed";
    }
    const testsupport::FakeNetwork network;
    const std::string waiting = driver(
        network, "until [ -e $0.go ]; do sleep 0.1; done; exec " ARP_PRESENCE_PATH " \"$@\"");
    const std::string command = AMBRELIS_SIM_PATH " --port 0 --unit 1,Router,192.168.5.1 --driver ";
    testsupport::Tmux terminal(command + waiting + "; echo sim-exit=$?; sleep 60", 80, 24);
    ASSERT_TRUE(terminal.waitFor("waiting for it to connect", 5s));
    terminal.keys("d");
    ASSERT_TRUE(terminal.waitFor("no link: nothing sent", 5s));
    EXPECT_TRUE(terminal.waitFor(
        "no sweep yet: it starts when the driver asks for its units   debug off", 1s));
    EXPECT_TRUE(terminal.waitFor("Router            -     waiting for the driver to ask for", 1s));
    std::ofstream{waiting + ".go"};
    ASSERT_TRUE(terminal.waitFor("sweep 1, next in ", 10s));
    // Linked, a switch of debug mode reaches the driver, which says so in its log.
    terminal.keys("d");
    EXPECT_TRUE(terminal.waitFor("arp plugin debug mode is now on", 5s));
    terminal.keys("q");
    // The last picture stays on screen, above what is written after it.
    ASSERT_TRUE(terminal.waitFor("sim-exit=0", 20s));
    EXPECT_TRUE(terminal.waitFor("192.168.5.1       Router            -     no report before", 1s));
}

}  // namespace
