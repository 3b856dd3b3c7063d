#pragma once

#include "host/Ref.h"

class cAmbrelisCommand;

// The sweep and the unit roster. Stand-in until presence scanning lands: a sweep does nothing
// and unit lists are dropped.
class cScanner {
public:
    virtual ~cScanner() = default;
    virtual void DoScan();
    virtual void gotUnitsFromAmbrelis(const host::Ref<cAmbrelisCommand>& cmd);
    virtual void unitDeleted(const host::Ref<cAmbrelisCommand>& cmd);
};
