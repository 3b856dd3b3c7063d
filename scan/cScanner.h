#pragma once

#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "host/Dictionary.h"
#include "host/Ref.h"
#include "host/String.h"
#include "scan/NeighbourFill.h"
#include "scan/NeighbourTable.h"
#include "scan/cDevice.h"
#include "store/CXML.h"

class cAmbrelisCommand;

// The sweep and the unit roster. HostDict holds every watched host: an arp host under its
// hardware address (a string), a unit host under its unit's "uniqueid" (a double).
class cScanner {
public:
    virtual ~cScanner() = default;

    host::Ref<host::Dictionary<host::Ref<cDevice>>> HostDict;
    // The last unit list; the sweep never reads it.
    host::Ref<CXML> ambrelisUnitXML;

    virtual void Constructor();
    virtual void DoScan();
    virtual host::String GetMacAddress(const host::String& line);
    virtual void gotUnitsFromAmbrelis(const host::Ref<cAmbrelisCommand>& command);
    virtual void unitDeleted(const host::Ref<cAmbrelisCommand>& command);

    // Where the sweep reads the neighbour table; tests give a table of their own.
    std::function<NeighbourTable::Reading()> readNeighbours = NeighbourTable::read;
    // Fills the neighbour table ahead of the sweep due in that many seconds.
    void prepareScan(double secondsToSweep) { fill_.startAhead(secondsToSweep); }

private:
    // While the first sweep waits for its fill, roster commands wait, in their order, for the
    // next turn of the pump after its table is read: the sweep's hosts are found before the
    // units' are made, as when the first sweep held the link. True when `command` was kept.
    bool heldForTheFirstTable(std::function<void()> command);
    void enterArpLines(const std::vector<host::String>& lines);
    // Each kind of trouble with the table is told once, not every sweep.
    void tell(const std::vector<NeighbourTable::Complaint>& complaints);

    NeighbourFill fill_;
    std::set<NeighbourTable::Problem> told_;
    bool firstSweep_ = true;
    // Set while the first sweep waits for its fill.
    std::optional<std::vector<std::function<void()>>> held_;
};
