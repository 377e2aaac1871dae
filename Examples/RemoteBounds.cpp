// A small service over a connection: it is sent points in the token format and answers with their bounds.
//
// Both ends run here, each on a thread of its own, as two processes would.

#include "NqCore/PublicAPI/NqCompiler.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqNetStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"
#include "NqHost/PublicAPI/NqHostSockets.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace
{

constexpr int32 kTimeout = 10000; // milliseconds
constexpr int32 kPoint = NqFourChar("POIN");
constexpr int32 kBounds = NqFourChar("BNDS");

// Answers one client until it has no more questions. An error of the connection throws.
void Serve(TNqNetStream& ioStream)
{
    int8 token[NqToken::kTokenBufferSize];
    while (NqToken::GetNextToken(ioStream, token, false) == kNqNoErr)
    {
        TNqRect bounds;
        bounds.SetInvalid();
        NqToken::GetBeginToken(ioStream);
        for (;;)
        {
            if (NqToken::GetNextToken(ioStream, token, false) != kNqNoErr)
                NqToken::FailEOFFile();
            if (NqToken::IsEndToken(token))
                break;
            const TNqPoint point = NqToken::GetPointToken(ioStream);
            bounds.left = std::min(bounds.left, point.x);
            bounds.top = std::min(bounds.top, point.y);
            bounds.right = std::max(bounds.right, point.x);
            bounds.bottom = std::max(bounds.bottom, point.y);
        }
        NqToken::PutRectAttribute(ioStream, kBounds, bounds);
        ioStream.Flush(); // the client waits for it
    }
    if (!ioStream.eof() || ioStream.fail())
        NqToken::FailEOFFile(); // not the end of the questions: the connection has failed
}

void RunServer(TNqHostListener& ioListener)
{
    std::string error;
    TNqCountedPtr<TNqHostSocket> socket;
    if (!ioListener.Accept(kTimeout, socket, error))
        return;
    try
    {
        TNqNetStream stream(socket);
        Serve(stream);
    }
    catch (const TNqException&)
    {
        std::printf("the client is gone: %s\n", socket->Error().c_str());
    }
}

void Ask(TNqNetStream& ioStream, std::initializer_list<TNqPoint> inPoints)
{
    NqToken::PutBeginToken(ioStream, NqFourChar("PNTS"), false);
    for (const TNqPoint& point : inPoints)
        NqToken::PutPointAttribute(ioStream, kPoint, point);
    NqToken::PutEndToken(ioStream);
    ioStream.Flush();
    int8 token[NqToken::kTokenBufferSize];
    if (NqToken::GetNextToken(ioStream, token, false) != kNqNoErr)
        return;
    const TNqRect bounds = NqToken::GetRectToken(ioStream);
    std::printf("%s of %zu points: %d,%d to %d,%d\n", token, inPoints.size(), bounds.left, bounds.top, bounds.right,
                bounds.bottom);
}

} // namespace

int main()
{
    const TNqHost host;
    std::string error;
    TNqHostListener listener;
    if (!listener.Listen("0", error))
    {
        std::printf("%s\n", error.c_str());
        return 1;
    }
    std::thread server([&listener] { RunServer(listener); });
    TNqCountedPtr<TNqHostSocket> socket;
    if (TNqHostSocket::Connect(listener.Address(), kTimeout, socket, error))
    {
        TNqNetStream stream(socket);
        Ask(stream, {TNqPoint(3, 4), TNqPoint(-1, 10), TNqPoint(8, 0)});
        Ask(stream, {TNqPoint(640, 480)});
        stream.Close();
    }
    server.join();
}
