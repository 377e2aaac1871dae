#include "NqCore/PublicAPI/ITranscoder.h"

#include "NqCore/Include/AnsiTranscoder.h"
#include "NqCore/Include/MacTranscoder.h"
#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/UTF8Transcoder.h"

#include <algorithm>
#include <typeinfo>

namespace
{

// Writes the bytes of characters, at most three each, and returns their end.
using TTextDecoder = uint8* (*)(const uint16* first, const uint16* last, uint8* out);

// Null for a transcoder of another module, even one derived from ours: what its Decode gives is its own business.
TTextDecoder GetTextDecoder(const ITranscoder& inTranscoder)
{
    const std::type_info& type = typeid(inTranscoder);
    if (type == typeid(TUTF8Transcoder))
        return NqEncodeUTF8;
    if (type == typeid(TAnsiTranscoder))
        return TAnsiTranscoder::DecodeText;
    return type == typeid(TMacTranscoder) ? TMacTranscoder::DecodeText : nullptr;
}

boolean DecodeOneByOne(ITranscoder& ioTranscoder, const uint16* inFirst, const uint16* inLast,
                       TNqArray<uint8>& outBytes)
{
    for (; inFirst != inLast; ++inFirst)
    {
        const TNqArray<uint8>& bytes = ioTranscoder.Decode(*inFirst);
        for (uint32 i = 0; i < bytes.GetElemCount(); ++i)
        {
            if (!outBytes.AddElem(bytes[i]))
                return false;
        }
    }
    return true;
}

} // namespace

bool NqHasAsciiAsItIs(const ITranscoder& inTranscoder)
{
    return GetTextDecoder(inTranscoder) != nullptr;
}

void NqCreateTranscoder(TNqCountedPtr<ITranscoder>& outTranscoder, TranscoderType inType)
{
    switch (inType)
    {
    case kAnsiTranscoder:
        return TAnsiTranscoder::Create(&outTranscoder);
    case kMacTranscoder:
        return TMacTranscoder::Create(&outTranscoder);
    case kUTF8Transcoder:
    case kPlatformDependent:
        return TUTF8Transcoder::Create(&outTranscoder);
    default:
        outTranscoder = nullptr;
        NqNotify("No transcoder of this type");
    }
}

boolean NqDecodeText(ITranscoder& ioTranscoder, const uint16* inCharacters, uint32 inCount, TNqArray<uint8>& outBytes)
{
    constexpr uint32 kPieceLength = 512;
    outBytes.SetElemCount(0);
    const TTextDecoder decode = GetTextDecoder(ioTranscoder);
    if (decode == nullptr)
        return DecodeOneByOne(ioTranscoder, inCharacters, inCharacters + inCount, outBytes);
    for (uint32 done = 0; done != inCount;)
    {
        const uint32 length = std::min(inCount - done, kPieceLength);
        const uint32 used = outBytes.GetElemCount();
        if (outBytes.GetElemSpace() - used < 3 * length)
        {
            // The rest is taken to need as much as what was done, and a little more.
            const uint64 rest = done != 0 ? uint64{inCount - done} * used / done : 0;
            const uint64 space = used + 3 * length + rest + rest / 16;
            if (!outBytes.SetElemSpace(static_cast<uint32>(std::min<uint64>(space, kEndIndex))))
                return false;
        }
        uint8* const out = outBytes.BaseAddress() + used;
        const uint8* const end = decode(inCharacters + done, inCharacters + done + length, out);
        outBytes.SetElemCount(used + static_cast<uint32>(end - out));
        done += length;
    }
    return true;
}
