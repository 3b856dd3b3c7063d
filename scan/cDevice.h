#pragma once

#include "host/Date.h"
#include "host/Ref.h"
#include "host/Shell.h"
#include "host/String.h"
#include "store/CXML.h"

// One watched host, and at the same time the child process that pings it, so that the end of
// its ping is an event on the device itself.
class cDevice : public host::Shell {
public:
    host::String MyMacAddress;
    host::String MyIPAddress;
    host::Ref<host::Date> LastGoodPing;
    // What the controller was last told; only a change of it is reported.
    bool available = false;
    bool useArpTiming = false;
    host::Ref<host::Date> lastPing;
    host::Ref<CXML> myUnit;
    bool firstScan = true;
    host::String lastAverageTime;
    host::String lastSendIPADrress;

    void Event_Completed() override;
    virtual void DoPing();
    virtual void SendONCommand(bool asUpdate);
    virtual void SendOFFCommand(bool asUpdate);
    virtual void LoadFromArpLine(const host::String& line);
    virtual void loadFromAmbrelisUnit(const host::Ref<CXML>& unit);

    // The two fields a good ping's output is cut into: the address that ping named, with the
    // blank before "ping statistics", and the average response time.
    static host::String pingedAddressIn(const host::String& output);
    static host::String averageTimeIn(const host::String& output);

private:
    void goodPing(const host::String& output);
    void badPing();
    // The two reports are alike line for line; only their word differs.
    void sendPresence(const char* word, bool asUpdate);
    // Under which address the controller knows this host.
    const host::String& reportAddress() const { return useArpTiming ? MyMacAddress : MyIPAddress; }
};
