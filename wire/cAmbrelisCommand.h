#pragma once

#include <cstdint>

#include "host/Array.h"
#include "host/Date.h"
#include "host/Dictionary.h"
#include "host/Ref.h"
#include "host/String.h"

// The controller's message: either a common message, a short packet of one-byte fields behind a
// type letter, or a multi-packet, a bag of four-byte keys with byte-string values
// (isMultiPacket). All fields are byte strings; comparisons use the host's equality, so the case
// of letters does not matter.
// The fields keep the order in which the message's properties are declared, padding or not.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
class cAmbrelisCommand {
public:
    // Where the reader reports error and log packets and the signal strength byte. The link
    // installs them, so the message class needs nothing above the host.
    struct Hooks {
        void (*errorPacketReceived)(const cAmbrelisCommand&);
        void (*logCommandReceived)(const cAmbrelisCommand&);
        std::int64_t* signalStrength;
    };
    static inline Hooks hooks{};

    virtual ~cAmbrelisCommand() = default;

    // Common form and vocabulary.
    virtual bool InitFromCommonMessage(const host::String& packet);
    virtual host::String DebugString() const;
    virtual host::String GetCommandCodeDescription() const;
    virtual host::String GetHouseCode() const;
    virtual host::String GetUnitCode() const;
    virtual host::String GetCommandCode() const { return Command; }
    virtual void SetHouseCode(const host::String& letter);
    virtual void SetUnitCode(std::int64_t unit);
    virtual void SetFlag(const host::String& number);

private:
    // Only adds: a boolean once set stays set, whatever Flags says later.
    virtual void ParseFlags();

public:
    virtual void SetCommand(const host::String& code) { Command = code; }
    virtual host::String GetRawCommand();
    virtual void Constructor();
    virtual std::int64_t GetTransactionID() const { return TransactionID; }
    virtual void SetTransactionID(std::int64_t id) { TransactionID = id; }
    virtual host::String GetLogLine() const;
    virtual void SetLevel(std::int64_t value) { level = value; }
    virtual void SetRawData(const host::String& data);
    virtual void SetParam1(std::int64_t value) { param1 = value; }
    virtual void SetParam2(std::int64_t value) { param2 = value; }
    virtual host::String GetErrorCodeDescription() const;

    // Multi-packet form.
    virtual host::String GetMulti(const host::String& key) const;
    virtual host::Array<host::String> GetKeys() const;
    virtual host::String GetRawMultipacket();
    virtual bool initFromMultiPacket(const host::String& packet);
    virtual void SetMulti(const host::String& key, const host::String& value);

    virtual host::Ref<cAmbrelisCommand> MakeAck() const;
    virtual host::String GetSendRawData() const;

    // The properties in their declared order. Version, UnitClass, Flags, Code, fAddressOnly,
    // fCommandOnly, fPassThrough and PacketLength are meant for the class's own methods; they
    // stay public so that the order holds and tests can see them.
    host::String Header;
    host::String Version;
    std::int64_t TransactionID = 0;
    host::String UnitClass;
    std::int64_t Flags = 0;
    host::String Code;
    host::String Command;
    host::String Address1;
    host::String Address2;
    std::int64_t level = 0;
    std::int64_t param1 = 0;
    std::int64_t param2 = 0;
    bool fDoTransmit = false;
    bool fCCM = false;
    bool fAddressOnly = false;
    bool fCommandOnly = false;
    bool fWireless = false;
    bool fPassThrough = false;
    host::String RawCommonCommand;
    host::String InterfaceType;
    host::Ref<host::Date> TimeStamp;  // nil until Constructor
    std::int64_t PacketLength = 0;
    bool fStacked = false;
    host::String LogMessage;
    host::String Name;
    bool WaitForAck = false;
    host::String analog3;
    host::String analog2;
    host::String analog1;
    host::String analog0;
    std::int64_t rawAnalog16 = 0;
    bool fSecurity = false;
    double SentAtTicks = 0.0;
    std::int64_t LogData = 0;
    bool LowBattery = false;
    double DoubleMeasurement = 0.0;
    bool isMultiPacket = false;
    host::Ref<host::Dictionary<host::String>> MultiDict;  // nil until first needed
    std::int64_t MultiFlags = 0;
    bool LittleEndian = false;

private:
    // The common packet; GetRawMultipacket falls back to it when there is no dictionary.
    host::String writeCommonForm();
};
