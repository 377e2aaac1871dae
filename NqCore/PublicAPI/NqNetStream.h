// A stream over a connection: the readers and writers that handle files talk to another process. For files use
// TNqfstream, for memory TNqstrstream (NqStream.h).
//
//     TNqNetStream stream(socket);                       // an INqSocket of the host
//     stream << int32(42) << endl;
//     stream.Flush();                                    // before waiting for the answer
//     int32 answer = 0;
//     stream >> answer;
//     if (stream.eof())
//         ...                                            // the peer sent no more
//
// It carries text: to `get`, and so to every scanner, a zero byte is the end of the stream. `read` passes zero bytes
// on, but bytes that may be anything belong into hexadecimal or six-bit text (NqToken.h).
//
// A connection has no positions: CanSeek() is false, tell and seek only report "Should never be called!!". So do the
// operations that rest on them: GetStreamSize, CheckIdentifier, NqToken::GetNextTokenInfo.
//
// Only the byte read last can be put back. Every scanner keeps to that but one: `get` of a line, up to '\n', puts back
// a line end of two bytes; when these came in different blocks that is reported and the line end is lost. Use getline.
//
// Ownership: the stream holds a reference to its socket. The destructor sends what waits, and does not close.
//
// Failure: an error of the socket's Receive throws TNqException with kNqErrEndOfFile. A send that falls short is
// reported and its bytes are gone; nothing is tried again. Without a socket there is nothing to read, and nothing is
// sent.
//
// Threads: one at a time. Cost: blocks of 256 bytes each way, and a virtual call for each byte that a scanner takes.

#pragma once

#include "NqCore/PublicAPI/INqSocket.h"
#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqStream.h"

class TNqNetStream : public TNqiostream
{
public:
    static constexpr int32 kBufferSize = 256; // bytes of a block

    // Null: AttachToSocket gives the stream its socket later.
    explicit TNqNetStream(INqSocket* inSocket);
    ~TNqNetStream() override;

    // A stream that has a socket already reports it, and goes on with the new one.
    void AttachToSocket(INqSocket* inSocket);
    // Whether bytes that have come are waiting to be read; does not look at the socket.
    boolean MoreDataAvailable() const { return fCurrentPosition < fBufferCount; }
    // Sends what waits.
    void Flush();
    // Flush, and closes the socket.
    void Close();

    using TNqiostream::get;
    using TNqiostream::read;
    int32 tell() override;
    void seek(int32 inOffset, seek_dir dir) override;
    // Waits until all bytes have come. Where the data ends before, a zero byte is stored, the end bit is set, and it is
    // reported unless exactly one byte was missing. Zero bytes are bytes like any other. Does not clear the state.
    void read(int8* outData, int32 inCount) override;
    void get(int8& c) override;
    // Steps back; the byte itself is not stored.
    void putback(int8 c) override;
    // Sends each block as soon as it is full.
    void write(const int8* inData, int32 inCount) override;

protected:
    TNqCountedPtr<INqSocket> fSocket;
    TNqArray<int8> fBuffer;      // the block received last, of kBufferSize elements
    int32 fBufferCount;          // bytes received into it
    int32 fCurrentPosition;      // the next of them to hand out
    TNqArray<int8> fWriteBuffer; // bytes waiting to be sent, at most kBufferSize

private:
    boolean ReceiveBlock();
};

static_assert(sizeof(TNqNetStream) == 144, "other modules derive from streams");
