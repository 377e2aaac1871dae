#include "Fuzz/StreamWalk.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <cstring>

namespace NqFuzz
{

namespace
{

// A token buffer with nothing behind it.
using TTokenBuffer = std::vector<int8>;

size_t CheckedLength(const TTokenBuffer& token)
{
    const void* end = std::memchr(token.data(), 0, token.size());
    Require(end != nullptr, "a token is terminated");
    return static_cast<size_t>(static_cast<const int8*>(end) - token.data());
}

bool StepToken(TNqiostream& stream, TTrace& trace, boolean keepDelimiters)
{
    TTokenBuffer token(NqToken::kTokenBufferSize, 'x');
    const int32 before = stream.tell();
    const NqErr err = NqToken::GetNextToken(stream, token.data(), keepDelimiters);
    trace.Note(err);
    trace.Note(token.data(), CheckedLength(token));
    Require(err != kNqNoErr || stream.tell() > before, "each token advances");
    return err == kNqNoErr;
}

bool StepTokenInfo(TNqiostream& stream, TTrace& trace, boolean keepComments)
{
    TTokenBuffer token(NqToken::kTokenBufferSize, 'x');
    NqToken::TNqTokenInfo info{};
    const int32 before = stream.tell();
    const NqErr err = NqToken::GetNextTokenInfo(stream, token.data(), info, keepComments);
    trace.Note(err);
    trace.Note(info.fKind);
    if (info.fKind == NqToken::kNoToken)
        return false;
    trace.Note(info.fOffset);
    trace.Note(info.fFullLength);
    Require(info.fOffset >= before && info.fOffset <= stream.tell(), "a token lies where it was read");
    Require(info.fStoredLength < token.size() && info.fStoredLength <= info.fFullLength,
            "what is stored fits and exists");
    Require(token[info.fStoredLength] == 0, "a token is terminated behind what is stored");
    trace.Note(token.data(), info.fStoredLength);
    return err == kNqNoErr;
}

template <class T>
void NoteArray(TNqiostream& stream, TTrace& trace, int32 count, void (*get)(TNqiostream&, int32, T*))
{
    std::vector<T> values(static_cast<size_t>(std::max(count, 1)), T(77));
    get(stream, count, values.data());
    trace.Note(values.data(), values.size() * sizeof(T));
}

void NoteText(TTrace& trace, const TNqString& text)
{
    if (text.MaxLength() > 0)
        trace.Note(text.StrGet(), text.ByteLength());
}

// The reader of the kind that `choice` names.
void ReadValue(TNqiostream& stream, TTrace& trace, uint8 choice)
{
    TNqDynamicString text;
    switch (choice % 20)
    {
    case 0:
        return trace.Note(NqToken::GetInt8Token(stream));
    case 1:
        return trace.Note(NqToken::GetUInt16Token(stream));
    case 2:
        return trace.Note(NqToken::GetInt32Token(stream));
    case 3:
        return trace.Note(NqToken::GetUInt32Token(stream));
    case 4:
        return trace.Note(NqToken::GetBooleanToken(stream));
    case 5:
        return trace.Note(NqToken::GetReal32Token(stream));
    case 6:
        return trace.Note(NqToken::GetReal64Token(stream));
    case 7:
        return trace.Note(NqToken::GetReal32InfToken(stream));
    case 8:
        return trace.Note(NqToken::GetFourCharConstToken(stream));
    case 9:
        return trace.Note(NqToken::GetPointToken(stream));
    case 10:
        return trace.Note(NqToken::GetRectToken(stream));
    case 11:
        return NoteArray<int16>(stream, trace, choice / 20, NqToken::GetInt16ArrayToken);
    case 12:
        return NoteArray<int32>(stream, trace, choice / 20, NqToken::GetInt32ArrayToken);
    case 13:
        return NoteArray<real32>(stream, trace, choice / 20, NqToken::GetReal32ArrayToken);
    case 14:
        return NoteText(trace, NqToken::GetNonLocalizedStringToken(stream));
    case 15:
        return NoteText(trace, NqToken::GetLongStringToken(stream, text));
    case 16:
        return NoteText(trace, NqToken::GetNonLocalizedDynamicStringToken(stream, text, choice / 20 % 2));
    case 17:
        return NoteText(trace, NqToken::GetLocalizedDynamicStringToken(stream, text));
    case 18:
        return NoteText(trace, NqToken::GetPathRefToken(stream));
    default:
        return NqToken::SkipTokenData(stream, choice / 20 % 2);
    }
}

} // namespace

void Tokens(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    const uint8 kind = choices.Byte();
    const boolean keep = kind / 4 % 2;
    const std::vector<int8> text = choices.Rest();
    switch (kind % 4)
    {
    case 0:
        return RequireSameWalk(
            text, [&](TNqiostream& stream, TTrace& trace) -> bool { return StepToken(stream, trace, keep); });
    case 1:
        return RequireSameWalk(
            text, [&](TNqiostream& stream, TTrace& trace) -> bool { return StepTokenInfo(stream, trace, keep); });
    case 2:
        return RequireSameWalk(text,
                               [&](TNqiostream& stream, TTrace& trace) -> bool
                               {
                                   NqToken::SkipTokenData(stream, keep);
                                   trace.Note(keep);
                                   return stream.good();
                               });
    default:
        return RequireSameWalk(text,
                               [&](TNqiostream& stream, TTrace& trace) -> bool
                               {
                                   TTokenBuffer token(NqToken::kTokenBufferSize);
                                   if (NqToken::GetNextToken(stream, token.data(), false) != kNqNoErr)
                                       return false;
                                   ReadValue(stream, trace,
                                             static_cast<uint8>(NqToken::CompactAttribute(token.data()) >> 24));
                                   return stream.good();
                               });
    }
}

void Extraction(const uint8* data, size_t size)
{
    TChoices choices(data, size);
    const uint8 kind = choices.Byte();
    const std::vector<int8> text = choices.Rest();
    RequireSameWalk(text,
                    [&](TNqiostream& stream, TTrace& trace) -> bool
                    {
                        if (kind % 3 == 0)
                        {
                            void* block = nullptr;
                            uint32 byteCount = 0;
                            NqToken::ExtractTokenData(stream, block, byteCount);
                            trace.Note(byteCount);
                            if (block != nullptr)
                                trace.Note(block, byteCount);
                            Nqfree(block);
                            return stream.good();
                        }
                        TNqstrstream out(kUTF8Transcoder);
                        int32 position = 0;
                        if (kind % 3 == 1)
                            ReadStream(stream, out, kind / 3 % 2);
                        else
                            NqToken::GetStreamToken(stream, out, position);
                        trace.Note(position);
                        const int32 count = out.pcount();
                        int8* copied = out.str();
                        trace.Note(copied, static_cast<size_t>(count));
                        Nqfree(copied);
                        return stream.good();
                    });
}

} // namespace NqFuzz
