// What the library asks of a connection of the host. TNqNetStream carries the text streams over one of these; the
// reference host's are in NqHostSockets.h.
//
// Threads: one at a time per socket. Whether and how long a call blocks is the host's affair; none may throw.

#pragma once

#include "NqCore/PublicAPI/NqCompObj.h"

// A connected socket. Slot order is a contract with hosts built elsewhere.
class INqSocket : public INqUnknown
{
public:
    // Takes up to inSize bytes that have come. Returns their number, 0 when the peer has sent its last byte, a negative
    // value on an error.
    virtual int32 Receive(int8* outBuffer, int32 inSize) = 0;
    // Returns how many bytes were sent; fewer than inSize on an error.
    virtual int32 Send(const int8* inBuffer, int32 inSize) = 0;
    virtual void Close() = 0;

protected:
    ~INqSocket() = default;
};
