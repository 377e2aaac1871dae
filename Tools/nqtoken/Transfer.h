// How a token file travels over a connection, which carries text and no zero bytes: payloads go as six-bit text, and
// come out as the bytes they were. docs/transfer.md describes what is sent.
//
//     FileSender sender;
//     Outcome outcome = sender.Open(path);          // before anybody is asked to receive it
//     outcome = sender.Send(socket);
//     outcome = GetReply(socket);
//
//     Outcome outcome = ReceiveFile(socket, maxSize, [&](std::string_view bytes) { return file.Write(bytes); });
//     PutReply(socket, outcome);
//
// Failure: a peer that sends something else, less or more than it said, or breaks off, is at fault (kAtFault).
// Cost: memory does not depend on the size of the file, but for 8 bytes for each of its payloads.

#pragma once

#include "Tools/nqtoken/TokenFile.h"

#include "NqCore/PublicAPI/INqSocket.h"

#include <functional>
#include <string_view>
#include <vector>

namespace nqtoken
{

class FileSender
{
public:
    // Opens the file and finds its payloads. A zero byte outside of them, or a string or payload without its end, is a
    // fault: such a file cannot be sent.
    Outcome Open(const std::string& inPath);
    Outcome Send(INqSocket& ioSocket);

private:
    struct Payload // from the opening '$' to behind the closing one
    {
        int32 fBegin;
        int32 fEnd;
    };

    Outcome FindPayloads();
    Outcome CheckText(int32 inFrom, int32 inTo);

    TokenFile fFile;
    std::vector<Payload> fPayloads;
};

using ByteSink = std::function<Outcome(std::string_view)>;

// Hands the bytes of the file to inSink, in pieces; they are the file only if the outcome is good. A file of more than
// inMaxSize bytes is refused when it is announced, and nobody can make this read much more than what was announced.
Outcome ReceiveFile(INqSocket& ioSocket, uint64 inMaxSize, const ByteSink& inSink);

// Tells the sender how it went; what the trouble was on this side is not its business.
void PutReply(INqSocket& ioSocket, const Outcome& inOutcome);
// What the receiver said. outReplied: whether it said anything.
Outcome GetReply(INqSocket& ioSocket, bool& outReplied);

} // namespace nqtoken
