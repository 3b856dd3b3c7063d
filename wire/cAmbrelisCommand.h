#pragma once

#include <cstdint>

#include "host/Dictionary.h"
#include "host/Ref.h"
#include "host/String.h"

// The controller's message. Stand-in until the message class lands: it reads the common
// form's type letter, takes any multi-packet, and writes the multi-packet form.
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

    bool InitFromCommonMessage(const host::String& packet);
    host::String GetRawCommand();
    bool initFromMultiPacket(const host::String& packet);
    void SetMulti(const host::String& key, const host::String& value);

    host::String Header;
    host::String RawCommonCommand;
    bool isMultiPacket = false;
    host::Ref<host::Dictionary<host::String>> MultiDict;
};
