#include "NqCore/PublicAPI/NqNetStream.h"

#include "NqCore/PublicAPI/NqException.h"

#include <algorithm>
#include <cstring>

TNqNetStream::TNqNetStream(INqSocket* inSocket) : fSocket(inSocket), fBufferCount(0), fCurrentPosition(0)
{
    fSequential = true;
    fBuffer.SetElemCount(kBufferSize);
    fWriteBuffer.SetElemSpace(kBufferSize);
    SetTranscoder(kUTF8Transcoder);
}

TNqNetStream::~TNqNetStream()
{
    Flush();
}

void TNqNetStream::AttachToSocket(INqSocket* inSocket)
{
    NqCheck(!fSocket);
    fSocket = inSocket;
}

void TNqNetStream::Close()
{
    Flush();
    if (INqSocket* const socket = fSocket)
        socket->Close();
}

// ---- No positions --------------------------------------------------------------------------------------------------

int32 TNqNetStream::tell()
{
    NqNotify("Should never be called!!");
    return 0;
}

void TNqNetStream::seek(int32, seek_dir)
{
    NqNotify("Should never be called!!");
}

// ---- Reading -------------------------------------------------------------------------------------------------------

// Asks the socket for the next block. False when there is none, or no memory for it.
boolean TNqNetStream::ReceiveBlock()
{
    NqCheck(fCurrentPosition == fBufferCount);
    fBufferCount = 0; // nothing is at hand when Receive fails
    fCurrentPosition = 0;
    if (!fSocket)
        return false;
    if (fBuffer.GetElemCount() != kBufferSize && !fBuffer.SetElemCount(kBufferSize))
    {
        streamfail(kNqStreamOutOfRange);
        return false;
    }
    const int32 received = fSocket->Receive(fBuffer.ArrayData(), kBufferSize);
    if (received < 0)
        throw TNqException(kNqErrEndOfFile, NqSourcePath(__FILE__), __LINE__);
    NqCheckText(received <= kBufferSize, "fBufferCount <= kBufferSize");
    fBufferCount = std::min(received, kBufferSize);
    return fBufferCount > 0;
}

void TNqNetStream::read(int8* outData, int32 inCount)
{
    int32 n = inCount;
    fgcount = 0;
    while (n >= 1 && (MoreDataAvailable() || ReceiveBlock()))
    {
        const int32 size = std::min(n, fBufferCount - fCurrentPosition);
        std::memcpy(outData, fBuffer.ArrayData() + fCurrentPosition, static_cast<size_t>(size));
        outData += size;
        fCurrentPosition += size;
        fgcount += size;
        n -= size;
    }
    if (n < 1)
        return;
    NqCheckText(n == 1, "n==1");
    *outData = 0;
    changestate(eofbit);
}

// A zero byte ends the text: the protocol carries nothing else.
void TNqNetStream::get(int8& c)
{
    clear(0);
    read(&c, 1);
    if (c == 0)
        changestate(eofbit);
}

void TNqNetStream::putback(int8)
{
    --fCurrentPosition;
    if (!NqCheckText(fCurrentPosition >= 0, "fCurrentPosition>=0"))
        fCurrentPosition = 0;
}

// ---- Writing -------------------------------------------------------------------------------------------------------

void TNqNetStream::write(const int8* inData, int32 inCount)
{
    while (inCount >= 1)
    {
        const int32 oldElemCount = static_cast<int32>(fWriteBuffer.GetElemCount());
        if (!NqCheck(oldElemCount < kBufferSize)) // a class that derives has filled it
        {
            Flush();
            continue;
        }
        const int32 size = std::min(inCount, kBufferSize - oldElemCount);
        if (!fWriteBuffer.SetElemCount(static_cast<NqSize>(oldElemCount) + static_cast<NqSize>(size)))
            return streamfail(kNqStreamOutOfRange);
        std::memcpy(fWriteBuffer.ArrayData() + oldElemCount, inData, static_cast<size_t>(size));
        inData += size;
        inCount -= size;
        if (oldElemCount + size == kBufferSize)
            Flush();
    }
}

void TNqNetStream::Flush()
{
    const int32 bufferSize = static_cast<int32>(fWriteBuffer.GetElemCount());
    if (bufferSize < 1)
        return;
    const int32 byteRead = !fSocket ? 0 : fSocket->Send(fWriteBuffer.ArrayData(), bufferSize);
    NqCheck(byteRead == bufferSize);
    fWriteBuffer.SetElemCount(0);
}
