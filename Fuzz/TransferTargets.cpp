#ifdef NQCORE_HAS_TOOLS

#include "Fuzz/StreamWalk.h"
#include "Tools/nqtoken/Transfer.h"

namespace NqFuzz
{

namespace
{

// A connection to itself: what was sent is received, in blocks of up to `block` bytes.
class TLoop : public INqSocket
{
public:
    TLoop(std::string bytes, size_t block) : fBytes(std::move(bytes)), fBlock(block) {}

    NqErr QueryInterface(const NqIID&, void**) override { return kNqNoInterface; }
    uint32 AddRef() override { return 2; }
    uint32 Release() override { return 1; }
    int32 Receive(int8* buffer, int32 size) override
    {
        const size_t count = fBytes.copy(buffer, std::min(static_cast<size_t>(size), fBlock), fAt);
        fAt += count;
        return static_cast<int32>(count);
    }
    int32 Send(const int8* buffer, int32 size) override
    {
        fBytes.append(buffer, static_cast<size_t>(size));
        return size;
    }
    void Close() override {}

    std::string fBytes;

private:
    size_t fBlock;
    size_t fAt = 0;
};

constexpr uint64 kMaxSize = 4000;

bool Receive(TLoop& socket, std::string& bytes)
{
    const nqtoken::Outcome outcome = nqtoken::ReceiveFile(socket, kMaxSize,
                                                          [&](std::string_view piece)
                                                          {
                                                              bytes += piece;
                                                              return nqtoken::Outcome();
                                                          });
    Require(bytes.size() <= kMaxSize, "no more is taken than is allowed");
    Require(outcome.Ok() || outcome.Status() == nqtoken::kAtFault, "a peer that misbehaves is at fault");
    return outcome.Ok();
}

} // namespace

void Transfers(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    const uint8 kind = choices.Byte();
    const size_t block = 1 + choices.Byte();
    const std::vector<int8> rest = choices.Rest();
    const std::string text(rest.begin(), rest.end());
    std::string bytes;
    if (kind % 2 == 0)
    {
        const std::string header = "XFER {\rVERS 1\rSIZE " + std::to_string(text.size()) + "\rMARK 0\r}\r";
        TLoop peer((kind % 4 == 0 ? header : "") + text, block);
        Receive(peer, bytes);
        return;
    }
    const TMemoryFile file(rest);
    nqtoken::FileSender sender;
    if (!sender.Open(file.Path()).Ok())
        return;
    TLoop loop("", block);
    Require(sender.Send(loop).Ok(), "what can be opened can be sent");
    Require(loop.fBytes.find('\0') == std::string::npos, "what is sent is text");
    Require(Receive(loop, bytes) == (text.size() <= kMaxSize), "what is sent is received");
    Require(text.size() > kMaxSize || bytes == text, "what is received is what was sent");
}

} // namespace NqFuzz

#endif
