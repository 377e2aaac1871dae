#include "NqCore/Include/NqTokenWrite.h"

#include <type_traits>

using namespace NqTokenWrite;

namespace
{

// ---- Numbers -------------------------------------------------------------------------------------------------------

inline int8* StoreNumber(int8* inText, real32 inValue)
{
    return NqStoreReal(inText, inValue);
}

inline int8* StoreNumber(int8* inText, int32 inValue)
{
    return NqStoreInteger(inText, inValue);
}

inline int8* StoreNumber(int8* inText, uint32 inValue)
{
    return NqStoreUnsigned(inText, inValue);
}

inline int8* StoreNumber(int8*, real64)
{
    return nullptr;
}

// Whether StoreNumber writes what the stream's operator does, where it does not return null.
template <class T, class Sink>
bool IsStored(Sink& ioSink)
{
    if constexpr (std::is_same_v<T, real32>)
        return NqHasSixDecimals(ioSink.Precision());
    return sizeof(T) > 1; // one byte is a character
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

// A line with a name, a blank and the value that inPut(sink) writes.
template <class Sink, class Put>
void PutValueLine(Sink& ioSink, const NqTokenData& inData, int32 inToken, Put&& inPut)
{
    PutLineName(ioSink, inData, inToken);
    ioSink.Put(' ');
    inPut(ioSink);
    PutLineEnd(ioSink);
}

template <class Put>
void PutValueLine(TNqiostream& ioStream, int32 inToken, Put&& inPut)
{
    const NqTokenData& data = *NqToken::GetNqTokenData(ioStream);
    NqWithSink(ioStream, [&](auto& sink) { PutValueLine(sink, data, inToken, inPut); });
}

template <class T>
void PutNumberLine(TNqiostream& ioStream, int32 inToken, T inValue)
{
    const NqTokenData& data = *NqToken::GetNqTokenData(ioStream);
    const auto store = [inToken, inValue](int8* at)
    {
        at = StoreName(at, inToken, true);
        return at != nullptr ? StoreNumber(at, +inValue) : nullptr;
    };
    NqWithSink(ioStream,
               [&](auto& sink)
               {
                   if (!IsStored<T>(sink) || !PutLineAtHand(sink, data, store))
                       PutValueLine(sink, data, inToken, [inValue](auto& to) { NqInsert(to, inValue); });
               });
}

// A line whose value is text that inPut() writes to the stream; compact documents have no blank before it.
template <class Sink, class Put>
void PutTextLine(Sink& ioSink, const NqTokenData& inData, int32 inToken, Put&& inPut)
{
    PutLineName(ioSink, inData, inToken);
    if (!inData.fTokenCompact)
        ioSink.Put(' ');
    ioSink.Run(inPut);
    PutLineEnd(ioSink);
}

template <class Put>
void PutTextLine(TNqiostream& ioStream, int32 inToken, Put&& inPut)
{
    const NqTokenData& data = *NqToken::GetNqTokenData(ioStream);
    NqWithSink(ioStream, [&](auto& sink) { PutTextLine(sink, data, inToken, inPut); });
}

// Bytes between quotes that need no escape; null when one does, or when they are too many for a short line.
inline int8* StoreQuotedBytes(int8* inAt, const int8* inBytes, uint32 inCount)
{
    constexpr uint32 kMost = 255;
    if (inCount > kMost)
        return nullptr;
    *inAt++ = '"';
    for (uint32 i = 0; i < inCount; ++i)
    {
        if (NqNeedsEscape(static_cast<uint8>(inBytes[i])))
            return nullptr;
        *inAt++ = inBytes[i];
    }
    *inAt++ = '"';
    return inAt;
}

inline void Deepen(NqTokenData& ioData)
{
    if (ioData.fTokenIndent)
        ++ioData.fTokenIndentLevel;
}

// An opening brace at the end of a line; what follows is one level deeper.
template <class Sink>
void PutBrace(Sink& ioSink, NqTokenData& ioData)
{
    if (!ioData.fTokenCompact)
        ioSink.Put(' ');
    ioSink.Put('{');
    PutLineEnd(ioSink);
    Deepen(ioData);
}

// The brace stands in line with the contents of the block, and only then the level falls. Files are compared byte by
// byte.
template <class Sink>
void PutClosingBrace(Sink& ioSink, NqTokenData& ioData)
{
    const auto store = [](int8* at)
    {
        *at = '}';
        return at + 1;
    };
    if (!PutLineAtHand(ioSink, ioData, store))
    {
        PutIndent(ioSink, ioData);
        ioSink.Put('}');
        PutLineEnd(ioSink);
    }
    if (ioData.fTokenIndent)
        --ioData.fTokenIndentLevel;
}

// ---- Values --------------------------------------------------------------------------------------------------------

// Plain values with a comma behind each, as many as fit the buffer; at most `inMost`. Returns how many. They are made
// in pieces beside the buffer, since making one touches bytes behind it, where a stream may hold others.
template <class Sink, class T>
int32 PutRun(Sink& ioSink, int32 inMost, const T* inValues)
{
    int32 count = 0;
    if constexpr (Sink::kIsDirect)
    {
        if (std::is_same_v<T, real32> && !NqHasSixDecimals(ioSink.Precision()))
            return 0;
        constexpr int64 kPieceBytes = 2048;
        constexpr int64 kLongest = kNqNumberRoom + 1;
        int8 piece[kPieceBytes];
        int8* at;
        do
        {
            at = piece;
            const int8* const last = piece + std::min(kPieceBytes, ioSink.RoomAtHand());
            while (count < inMost && last - at >= kLongest)
            {
                int8* const end = StoreNumber(at, inValues[count]);
                if (end == nullptr)
                    break;
                *end = ',';
                at = end + 1;
                ++count;
            }
            if (at != piece)
                ioSink.Write(piece, static_cast<int32>(at - piece));
        } while (at != piece && count < inMost);
    }
    return count;
}

// Comma-separated, at least one.
template <class Sink, class T>
void PutArray(Sink& ioSink, int32 inCount, const T* inValues)
{
    if (inValues == nullptr)
        return NqInsert(ioSink, T(0));
    const int32 last = std::max(inCount, 1) - 1;
    for (int32 i = PutRun(ioSink, last, inValues); i < last; i += PutRun(ioSink, last - i, inValues + i))
    {
        NqInsert(ioSink, inValues[i]);
        ioSink.Put(',');
        ++i;
    }
    NqInsert(ioSink, inValues[last]);
}

template <class T>
void PutArrayLine(TNqiostream& ioStream, int32 inToken, int32 inCount, const T* inValues)
{
    PutValueLine(ioStream, inToken, [=](auto& sink) { PutArray(sink, inCount, inValues); });
}

// The text that goes into the file, with `inTranslate` as its translation makes it in `outCopy`. Without memory the
// text itself is better than nothing.
const TNqString& TextToWrite(const TNqString& inText, boolean inTranslate, TNqDynamicString& outCopy)
{
    if (inTranslate)
        inText.TranslateBeforeWrite(outCopy);
    return outCopy.ByteLength() != 0 ? outCopy : inText;
}

// Bytes between quotes, as they are, but for those that need an escape.
template <class Sink>
void PutQuotedBytes(Sink& ioSink, const int8* inBytes, uint32 inCount)
{
    ioSink.Put('"');
    for (uint32 i = 0; i < inCount; ++i)
    {
        const uint32 run = i;
        while (i < inCount && !NqNeedsEscape(static_cast<uint8>(inBytes[i])))
            ++i;
        ioSink.PutEach(inBytes + run, i - run);
        if (i == inCount)
            break;
        ioSink.Put(kStringEscape);
        ioSink.Put(inBytes[i]);
    }
    ioSink.Put('"');
}

} // namespace

namespace NqToken
{

// ---- Names and blocks ----------------------------------------------------------------------------------------------

void PutToken(TNqiostream& ioStream, uint32 inToken, boolean inCompact)
{
    NqWithSink(ioStream, [&](auto& sink) { PutName(sink, inToken, inCompact != 0); });
}

void IndentToken(TNqiostream& ioStream)
{
    NqWithSink(ioStream, [&](auto& sink) { PutIndent(sink, *GetNqTokenData(ioStream)); });
}

TNqiostreamContext* PutBeginToken(TNqiostream& ioStream, int32 inToken, boolean inWantContext)
{
    NqTokenData& data = *GetNqTokenData(ioStream);
    const auto store = [inToken, &data](int8* at)
    {
        at = StoreName(at, inToken, !data.fTokenCompact);
        if (at != nullptr)
            *at++ = '{';
        return at;
    };
    return NqWithSink(ioStream,
                      [&](auto& sink) -> TNqiostreamContext*
                      {
                          if (!inWantContext && PutLineAtHand(sink, data, store))
                          {
                              Deepen(data);
                              return nullptr;
                          }
                          PutLineName(sink, data, inToken);
                          TNqiostreamContext* context = nullptr;
                          if (inWantContext)
                              sink.Run([&] { context = ioStream.GetContext(); });
                          PutBrace(sink, data);
                          return context;
                      });
}

void PutBeginToken(TNqiostream& ioStream)
{
    NqWithSink(ioStream, [&](auto& sink) { PutBrace(sink, *GetNqTokenData(ioStream)); });
}

void PutEndToken(TNqiostream& ioStream)
{
    NqWithSink(ioStream, [&](auto& sink) { PutClosingBrace(sink, *GetNqTokenData(ioStream)); });
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

void PutInt8Attribute(TNqiostream& ioStream, int32 inToken, int8 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutUInt8Attribute(TNqiostream& ioStream, int32 inToken, uint8 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutInt16Attribute(TNqiostream& ioStream, int32 inToken, int16 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutUInt16Attribute(TNqiostream& ioStream, int32 inToken, uint16 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutInt32Attribute(TNqiostream& ioStream, int32 inToken, int32 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutUInt32Attribute(TNqiostream& ioStream, int32 inToken, uint32 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutEnumAttribute(TNqiostream& ioStream, int32 inToken, uint32 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutBooleanAttribute(TNqiostream& ioStream, int32 inToken, boolean inValue)
{
    PutInt32Attribute(ioStream, inToken, inValue ? 1 : 0);
}

void PutReal32Attribute(TNqiostream& ioStream, int32 inToken, real32 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutReal64Attribute(TNqiostream& ioStream, int32 inToken, real64 inValue)
{
    PutNumberLine(ioStream, inToken, inValue);
}

void PutFourCharConstAttribute(TNqiostream& ioStream, int32 inToken, int32 inValue)
{
    PutValueLine(ioStream, inToken, [inValue](auto& sink) { PutName(sink, static_cast<uint32>(inValue)); });
}

void PutInt32Token(TNqiostream& ioStream, int32 inValue)
{
    NqWithSink(ioStream,
               [&](auto& sink)
               {
                   sink.Put(' ');
                   NqInsert(sink, inValue);
                   PutLineEnd(sink);
               });
}

// ---- Points, rectangles, arrays ------------------------------------------------------------------------------------

void PutPointAttribute(TNqiostream& ioStream, int32 inToken, const TNqPoint& inPoint)
{
    const int32 values[] = {inPoint.x, inPoint.y};
    PutArrayLine(ioStream, inToken, 2, values);
}

void PutRectAttribute(TNqiostream& ioStream, int32 inToken, const TNqRect& inRect)
{
    const int32 values[] = {inRect.top, inRect.left, inRect.bottom, inRect.right};
    PutArrayLine(ioStream, inToken, 4, values);
}

void PutInt16ArrayAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const int16* inValues)
{
    PutArrayLine(ioStream, inToken, inCount, inValues);
}

void PutInt32ArrayAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const int32* inValues)
{
    PutArrayLine(ioStream, inToken, inCount, inValues);
}

void PutReal32ArrayAttribute(TNqiostream& ioStream, int32 inToken, int32 inCount, const real32* inValues)
{
    if (inToken != 0)
        return PutArrayLine(ioStream, inToken, inCount, inValues);
    NqWithSink(ioStream,
               [&](auto& sink)
               {
                   sink.Put(' ');
                   PutArray(sink, inCount, inValues);
               });
}

// ---- Text ----------------------------------------------------------------------------------------------------------

void PutNonLocalizedString(TNqiostream& ioStream, const TNqString& inText, boolean inTranslate)
{
    TNqDynamicString copy;
    const TNqString& written = TextToWrite(inText, inTranslate, copy);
    const int8* const bytes = NqBytesOf(written);
    NqWithSink(ioStream, [&](auto& sink) { PutQuotedBytes(sink, bytes, written.ByteLength()); });
}

void PutLocalizedString(TNqiostream& ioStream, const TNqString& inText, boolean inTranslate)
{
    TNqDynamicString copy;
    ioStream.WriteLocalizedString(TextToWrite(inText, inTranslate, copy));
}

void PutNonLocalizedStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText, boolean inTranslate)
{
    const NqTokenData& data = *GetNqTokenData(ioStream);
    const auto store = [&](int8* at)
    {
        at = StoreName(at, inToken, !data.fTokenCompact);
        const int8* const bytes = inText.StrGet();
        return at != nullptr && bytes != nullptr ? StoreQuotedBytes(at, bytes, inText.ByteLength()) : nullptr;
    };
    NqWithSink(ioStream,
               [&](auto& sink)
               {
                   // An empty string may be one that has lost its memory, which is reported once.
                   if (inTranslate || inText.ByteLength() == 0 || !PutLineAtHand(sink, data, store))
                       PutTextLine(sink, data, inToken, [&] { PutNonLocalizedString(ioStream, inText, inTranslate); });
               });
}

void PutNonLocalizedLongStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText,
                                        boolean inTranslate)
{
    PutNonLocalizedStringAttribute(ioStream, inToken, inText, inTranslate);
}

void PutLocalizedStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText, boolean inTranslate)
{
    PutTextLine(ioStream, inToken, [&] { PutLocalizedString(ioStream, inText, inTranslate); });
}

void PutLocalizedLongStringAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inText, boolean inTranslate)
{
    PutLocalizedStringAttribute(ioStream, inToken, inText, inTranslate);
}

// The path is written as it is, though reading it translates: existing files hold it so.
void PutPathRefAttribute(TNqiostream& ioStream, int32 inToken, const TNqString& inPath)
{
    const int8* const bytes = NqBytesOf(inPath);
    PutTextLine(ioStream, inToken, [&] { ioStream.writeFileRef(bytes); });
}

// ---- Blocks made beforehand ----------------------------------------------------------------------------------------

void PutStreamAttribute(TNqiostream& stream, int32 inToken, TNqstrstream& content)
{
    if (!NqCheck(&stream != &content))
        return;
    const int32 bytes = NqStreamAccess::MemorySize(content);
    const int32 size = NqStreamAccess::IsReadable(content) ? bytes : std::min(bytes, content.pcount());
    NqTokenData& data = *GetNqTokenData(stream);
    NqWithSink(stream,
               [&](auto& sink)
               {
                   PutLineName(sink, data, inToken);
                   PutBrace(sink, data);
                   if (size > 0)
                       sink.Write(NqStreamAccess::MemoryBytes(content), size);
                   PutClosingBrace(sink, data);
               });
}

} // namespace NqToken
