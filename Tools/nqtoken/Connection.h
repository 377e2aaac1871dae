// The two ends of a transfer between processes: one sends a token file, the other receives it and keeps it only when it
// is complete.

#pragma once

#include "Tools/nqtoken/Output.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>

namespace nqtoken
{

struct ConnectionOptions
{
    std::string fAddress;        // as NqHostSockets.h describes them
    real64 fTimeout = 30;        // seconds without anything coming or going; 0: no limit
    uint64 fMaxSize = 1u << 30u; // bytes of a file that are received
    bool fAny = false;           // listen on all interfaces
};

Outcome SendScene(const std::string& inPath, const ConnectionOptions& inOptions);

// Prints "listening on ADDRESS" as soon as a sender can connect. The target is replaced as a whole or not at all.
Outcome ReceiveScene(const std::string& inTarget, const ConnectionOptions& inOptions, Output& ioOutput);

} // namespace nqtoken
