// A socket for tests: it hands out a text in blocks of random sizes and keeps what is sent.

#pragma once

#include "NqCore/PublicAPI/INqSocket.h"
#include "Tests/TestHost.h"

class TScriptedSocket : public INqSocket
{
public:
    TScriptedSocket() : fRandom(0) {}
    // Hands out blocks of at most `largestBlock` bytes.
    template <class Seed>
    TScriptedSocket(std::string text, int32 largestBlock, Seed seed)
        : fText(std::move(text)),
          fLargestBlock(largestBlock),
          fRandom(seed)
    {
    }

    NqErr QueryInterface(const NqIID&, void** out) override { return *out = nullptr, -1; }
    uint32 AddRef() override { return ++fCount; }
    uint32 Release() override { return --fCount; } // the test owns it
    int References() const { return static_cast<int>(fCount); }

    int32 Receive(int8* buffer, int32 size) override
    {
        if (++fReceives == fBadReceive)
            return -1;
        const size_t block =
            static_cast<size_t>(std::min(size, fSmallestBlock + fRandom.Below(fLargestBlock - fSmallestBlock + 1)));
        const size_t count = fText.copy(buffer, block, fAt);
        fAt += count;
        return static_cast<int32>(count);
    }
    int32 Send(const int8* buffer, int32 size) override
    {
        const int32 count = std::min(size, fSendLimit);
        fSent.emplace_back(buffer, static_cast<size_t>(count));
        return count;
    }
    void Close() override { fClosed = true; }

    std::string AllSent() const
    {
        std::string all;
        for (const std::string& block : fSent)
            all += block;
        return all;
    }

    std::string fText;
    size_t fAt = 0;
    int32 fSmallestBlock = 1;
    int32 fLargestBlock = 256;
    int fReceives = 0;
    int fBadReceive = 0; // the number, from 1, of the call that fails
    int32 fSendLimit = 1 << 30;
    TTexts fSent;
    bool fClosed = false;

private:
    uint32 fCount = 1;
    TRandom fRandom;
};
