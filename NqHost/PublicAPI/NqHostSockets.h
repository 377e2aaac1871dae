// Connections of the host to other processes, over TCP or Unix sockets: what TNqNetStream talks over.
//
//     std::string error;
//     TNqHostListener listener;                          // one process
//     TNqCountedPtr<TNqHostSocket> socket;
//     if (!listener.Listen("0", error) || !listener.Accept(30000, socket, error))
//         return Fail(error);
//     TNqNetStream stream(socket);
//
//     TNqCountedPtr<TNqHostSocket> peer;                 // the other, with listener.Address() for the address
//     if (!TNqHostSocket::Connect("127.0.0.1:4711", 30000, peer, error))
//         return Fail(error);
//     TNqNetStream answers(peer);
//
// Addresses:
//   HOST:PORT    a name or an IPv4 address; of several addresses the first that answers
//   [ADDR]:PORT  an IPv6 address
//   unix:PATH    a Unix socket
//   PORT         for listeners: 127.0.0.1, so that no other machine reaches it
//   *:PORT       for listeners: every interface, IPv4 and IPv6
// Port 0 makes the system choose a free one.
//
// Time-outs are in milliseconds, negative for none. Looking up a name is the system's affair and may take longer.
//
// Failure: an operation that fails leaves a sentence with the address and the system's reason. No signal is raised,
// and a peer that is gone is an error or the end of its data, never a wait without end. Descriptors are closed in
// programs that are started.
//
// A socket that is closed while bytes of the peer are unread makes the system tell the peer of an error; what was sent
// last may then be lost. Two that answer each other therefore read to the end before they close.
//
// Threads: one at a time per socket and listener.

#pragma once

#include "NqCore/PublicAPI/INqSocket.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"

#include <string>

class TNqHostSocket final : public TNqSMPCountedObject, public INqSocket
{
public:
    // Connects within the time-out, which then holds for Receive and Send too.
    static bool Connect(const std::string& inAddress, int32 inTimeout, TNqCountedPtr<TNqHostSocket>& outSocket,
                        std::string& outError);

    ~TNqHostSocket() override;

    NqErr QueryInterface(const NqIID& iid, void** outInterface) override;
    uint32 AddRef() override { return TNqSMPCountedObject::AddRef(); }
    uint32 Release() override { return TNqSMPCountedObject::Release(); }

    // Waits for the first byte at most as long as the time-out. -1 on an error, the time-out included.
    int32 Receive(int8* outBuffer, int32 inSize) override;
    // Sends all of it, however often the system takes only a part. Fails when for as long as the time-out the peer
    // takes nothing; then, as on any error, returns what was sent before.
    int32 Send(const int8* inBuffer, int32 inSize) override;
    void Close() override;

    // Tells the peer that no more will come; receiving goes on.
    void FinishSending();

    void SetTimeout(int32 inTimeout) { fTimeout = inTimeout; }
    // What went wrong first since the connection was made; empty when nothing did.
    const std::string& Error() const { return fError; }

private:
    friend class TNqHostListener;

    // Takes the descriptor over.
    TNqHostSocket(int inDescriptor, std::string inName, int32 inTimeout);
    // Null, with the descriptor closed, without memory.
    static bool Make(int inDescriptor, const std::string& inName, int32 inTimeout,
                     TNqCountedPtr<TNqHostSocket>& outSocket, std::string& outError);
    void NoteError(int inSystemError);

    int fDescriptor; // -1 once closed
    int32 fTimeout;
    std::string fName; // of the peer, for messages
    std::string fError;
};

// Waits for connections. A Unix socket is removed with its listener; a stale one, which no process listens on, is
// replaced. Nothing that is not a socket is ever removed.
class TNqHostListener
{
public:
    TNqHostListener() = default;
    ~TNqHostListener() { Close(); }
    TNqHostListener(const TNqHostListener&) = delete;
    TNqHostListener& operator=(const TNqHostListener&) = delete;

    // inBacklog: how many connections may wait to be accepted.
    bool Listen(const std::string& inAddress, std::string& outError, int inBacklog = 16);
    // What to connect to, with the port that the system chose.
    const std::string& Address() const { return fAddress; }
    // The next connection, with the time-out for its Receive and Send as well.
    bool Accept(int32 inTimeout, TNqCountedPtr<TNqHostSocket>& outSocket, std::string& outError);
    void Close();

private:
    bool ListenOnPath(const std::string& inPath, int inBacklog, std::string& outError);
    bool ListenOnPort(const std::string& inAddress, int inBacklog, std::string& outError);

    int fDescriptor = -1;
    std::string fAddress;
    std::string fPath; // the socket's file, empty when there is none; with its identity
    uint64 fDevice = 0;
    uint64 fNode = 0;
};
