#pragma once

#include "host/Dictionary.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "host/String.h"
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

private:
    void enterArpLines(const host::String& table);

    // Runs the tools that make hosts which ignore broadcast echo show in the neighbour table.
    host::Ref<host::Shell> fill_ = host::New<host::Shell>();
};
