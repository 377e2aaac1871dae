#include "NqCore/PublicAPI/ITranscoder.h"

#include "NqCore/Include/AnsiTranscoder.h"
#include "NqCore/Include/MacTranscoder.h"
#include "NqCore/Include/UTF8Transcoder.h"

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
