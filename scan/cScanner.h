#pragma once

// The sweep and the unit roster. Stand-in until presence scanning lands: a sweep does nothing.
class cScanner {
public:
    virtual ~cScanner() = default;
    virtual void DoScan();
};
