// Sends a small image as text: measured first, written into a block of exactly that size, and read back.
//
// The same function writes to a stream that only counts and to one that keeps the bytes. Pixels travel as hexadecimal
// digits, or shorter, six bits in a character; neither has bytes that a text connection would change.

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>
#include <cstring>

namespace
{

constexpr int32 kImage = NqFourChar("IMAG");
constexpr int32 kSize = NqFourChar("SIZE");
constexpr int32 kPixels = NqFourChar("PIXL");

const uint8 kPixelBytes[] = {0x00, 0x7F, 0x80, 0xFF, 0x22, 0x7D};

void Write(TNqiostream& outStream)
{
    NqToken::PutBeginToken(outStream, kImage, false);
    NqToken::PutPointAttribute(outStream, kSize, TNqPoint(3, 2));
    NqToken::PutHexaBinaryAttribute(outStream, kPixels, sizeof kPixelBytes, kPixelBytes);
    NqToken::PutEndToken(outStream);
}

} // namespace

int main()
{
    const TNqHost host;
    countstream counter;
    Write(counter);

    TNqArray<int8> block;
    if (!block.SetElemCount(static_cast<uint32>(counter.count())))
        return 1;
    TNqstrstream out(block.BaseAddress(), counter.count(), kUTF8Transcoder, eWrite);
    Write(out);
    std::printf("measured %d bytes, wrote %d\n", counter.count(), out.pcount());

    TNqstrstream in(block.BaseAddress(), counter.count(), kUTF8Transcoder, eRead);
    try
    {
        int8 name[NqToken::kTokenBufferSize];
        NqToken::GetNextToken(in, name, false);
        NqToken::GetBeginToken(in);
        NqToken::GetNextToken(in, name, false);
        const TNqPoint size = NqToken::GetPointToken(in);
        NqToken::GetNextToken(in, name, false);
        uint8 pixels[sizeof kPixelBytes];
        NqToken::GetHexaBinaryToken(in, sizeof pixels, pixels);
        std::printf("%d by %d, pixels %s\n", size.x, size.y,
                    std::memcmp(pixels, kPixelBytes, sizeof pixels) == 0 ? "as they were" : "changed");
    }
    catch (const TNqException& error)
    {
        std::printf("the block cannot be read: %08X\n", static_cast<unsigned>(error.GetError()));
        return 1;
    }

    TNqstrstream packed(kUTF8Transcoder);
    uint32 state;
    NqToken::BeginBufferAsBinHex(state);
    NqToken::PutBufferAsBinHex(packed, reinterpret_cast<const int8*>(kPixelBytes), sizeof kPixelBytes, state);
    NqToken::EndPutBufferAsBinHex(packed, state);
    packed << ends;
    int8* const text = packed.str();
    std::printf("six bits in a character: %s\n", text);
    Nqfree(text);
    return 0;
}
