#include "Tools/nqtoken/Connection.h"

#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/Transfer.h"

#include "NqHost/PublicAPI/NqHostSockets.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace nqtoken
{
namespace
{

constexpr int32 kShortTime = 1000; // milliseconds that a peer gets to take in or say why

int32 Milliseconds(real64 inSeconds)
{
    return inSeconds == 0 ? -1 : static_cast<int32>(std::ceil(inSeconds * 1000));
}

int32 ShortTime(int32 inTimeout)
{
    return inTimeout < 0 ? kShortTime : std::min(inTimeout, kShortTime);
}

// With what the system says, if that is how it came.
Outcome Explained(const Outcome& inOutcome, const TNqHostSocket& inSocket)
{
    if (inOutcome.Status() != kAtFault || inSocket.Error().empty())
        return inOutcome;
    return AtFault(fmt::format("{} ({})", inOutcome.Text(), inSocket.Error()));
}

// What a peer still sends when it has been answered: left unread, it would take the answer with it.
void Drain(TNqHostSocket& ioSocket, int32 inTime)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(inTime);
    int8 bytes[4096];
    ioSocket.FinishSending();
    ioSocket.SetTimeout(inTime);
    while (std::chrono::steady_clock::now() < end && ioSocket.Receive(bytes, sizeof(bytes)) > 0)
    {
    }
}

// A Unix socket that is removed also when a signal ends the program.
class SocketFile
{
public:
    explicit SocketFile(const std::string& inAddress)
    {
        constexpr std::string_view prefix = "unix:";
        if (inAddress.compare(0, prefix.size(), prefix) == 0)
            fPath = inAddress.substr(prefix.size());
        if (!fPath.empty())
            RemoveOnSignal(fPath);
    }
    ~SocketFile()
    {
        if (!fPath.empty())
            KeepOnSignal(fPath);
    }
    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

private:
    std::string fPath;
};

using Socket = TNqCountedPtr<TNqHostSocket>;

Outcome WaitForSender(const ConnectionOptions& inOptions, Output& ioOutput, Socket& outSocket)
{
    std::string error;
    if (inOptions.fAny && inOptions.fAddress.find(':') != std::string::npos)
        return Trouble("--any goes with a port, not with an address");
    TNqHostListener listener;
    if (!listener.Listen((inOptions.fAny ? "*:" : "") + inOptions.fAddress, error))
        return Trouble(error);
    const SocketFile file(listener.Address());
    ioOutput.Put(fmt::format("listening on {}\n", listener.Address()));
    static_cast<void>(ioOutput.Flush()); // Finish tells when this cannot be written
    if (!listener.Accept(Milliseconds(inOptions.fTimeout), outSocket, error))
        return Trouble(error);
    listener.Close();
    return {};
}

} // namespace

Outcome SendScene(const std::string& inPath, const ConnectionOptions& inOptions)
{
    FileSender sender;
    Outcome outcome = sender.Open(inPath);
    if (!outcome.Ok())
        return outcome;
    std::string error;
    Socket socket;
    const int32 timeout = Milliseconds(inOptions.fTimeout);
    if (!TNqHostSocket::Connect(inOptions.fAddress, timeout, socket, error))
        return Trouble(error);
    outcome = sender.Send(*socket);
    if (outcome.Status() == kTrouble)
        return outcome;
    if (!outcome.Ok())
        socket->SetTimeout(ShortTime(timeout)); // it may have said why
    bool replied = false;
    const Outcome reply = GetReply(*socket, replied);
    if (replied && (outcome.Ok() || !reply.Ok())) // nobody has everything before it was sent
        return reply;
    return Explained(outcome.Ok() ? reply : outcome, *socket);
}

Outcome ReceiveScene(const std::string& inTarget, const ConnectionOptions& inOptions, Output& ioOutput)
{
    AtomicFile file;
    Outcome outcome = file.Create(inTarget);
    if (!outcome.Ok())
        return outcome;
    Socket socket;
    outcome = WaitForSender(inOptions, ioOutput, socket);
    if (!outcome.Ok())
        return outcome;
    outcome = ReceiveFile(*socket, inOptions.fMaxSize, [&file](std::string_view bytes) { return file.Write(bytes); });
    if (outcome.Ok())
        outcome = file.Sync();
    if (outcome.Ok())
        outcome = file.Replace();
    PutReply(*socket, outcome);
    const Outcome told = Explained(outcome, *socket);
    Drain(*socket, ShortTime(Milliseconds(inOptions.fTimeout)));
    return told;
}

} // namespace nqtoken
