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
TTextDecoder GetTextDecoder(const ITranscoder& transcoder)
{
    const std::type_info& type = typeid(transcoder);
    if (type == typeid(TUTF8Transcoder))
        return NqEncodeUTF8;
    if (type == typeid(TAnsiTranscoder))
        return TAnsiTranscoder::DecodeText;
    return type == typeid(TMacTranscoder) ? TMacTranscoder::DecodeText : nullptr;
}

boolean DecodeOneByOne(ITranscoder& transcoder, const uint16* first, const uint16* last, TNqArray<uint8>& outBytes)
{
    for (; first != last; ++first)
    {
        const TNqArray<uint8>& bytes = transcoder.Decode(*first);
        for (uint32 i = 0; i < bytes.GetElemCount(); ++i)
        {
            if (!outBytes.AddElem(bytes[i]))
                return false;
        }
    }
    return true;
}

} // namespace

bool NqHasAsciiAsItIs(const ITranscoder& transcoder)
{
    return GetTextDecoder(transcoder) != nullptr;
}

void NqCreateTranscoder(TNqCountedPtr<ITranscoder>& out, TranscoderType type)
{
    switch (type)
    {
    case kAnsiTranscoder:
        return TAnsiTranscoder::Create(&out);
    case kMacTranscoder:
        return TMacTranscoder::Create(&out);
    case kUTF8Transcoder:
    case kPlatformDependent:
        return TUTF8Transcoder::Create(&out);
    default:
        out = nullptr;
        NqNotify("No transcoder of this type");
    }
}

boolean NqDecodeText(ITranscoder& transcoder, const uint16* characters, uint32 count, TNqArray<uint8>& outBytes)
{
    constexpr uint32 kPieceLength = 512;
    outBytes.SetElemCount(0);
    const TTextDecoder decode = GetTextDecoder(transcoder);
    if (decode == nullptr)
        return DecodeOneByOne(transcoder, characters, characters + count, outBytes);
    for (uint32 done = 0; done != count;)
    {
        const uint32 length = std::min(count - done, kPieceLength);
        const uint32 used = outBytes.GetElemCount();
        if (outBytes.GetElemSpace() - used < 3 * length)
        {
            // The rest is taken to need as much as what was done, and a little more.
            const uint64 rest = done != 0 ? uint64{count - done} * used / done : 0;
            const uint64 space = used + 3 * length + rest + rest / 16;
            if (!outBytes.SetElemSpace(static_cast<uint32>(std::min<uint64>(space, kEndIndex))))
                return false;
        }
        uint8* const out = outBytes.BaseAddress() + used;
        const uint8* const end = decode(characters + done, characters + done + length, out);
        outBytes.SetElemCount(used + static_cast<uint32>(end - out));
        done += length;
    }
    return true;
}
