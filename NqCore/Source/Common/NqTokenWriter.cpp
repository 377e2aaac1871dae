#include "NqCore/Include/NqTokenWrite.h"

#include <type_traits>

using namespace NqTokenWrite;

namespace
{

// ---- Numbers -------------------------------------------------------------------------------------------------------

inline int8* StoreNumber(int8* text, real32 value)
{
    return NqStoreReal(text, value);
}

inline int8* StoreNumber(int8* text, int32 value)
{
    return NqStoreInteger(text, value);
}

inline int8* StoreNumber(int8* text, uint32 value)
{
    return NqStoreUnsigned(text, value);
}

inline int8* StoreNumber(int8*, real64)
{
    return nullptr;
}

// Whether StoreNumber writes what the stream's operator does, where it does not return null.
template <class T, class Sink>
bool IsStored(Sink& sink)
{
    if constexpr (std::is_same_v<T, real32>)
        return NqHasSixDecimals(sink.Precision());
    return sizeof(T) > 1; // one byte is a character
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

// A line with a name, a blank and the value that inPut(sink) writes.
template <class Sink, class Put>
void PutValueLine(Sink& sink, const NqTokenData& data, int32 token, Put&& inPut)
{
    PutLineName(sink, data, token);
    sink.Put(' ');
    inPut(sink);
    PutLineEnd(sink);
}

template <class Put>
void PutValueLine(TNqiostream& stream, int32 token, Put&& inPut)
{
    const NqTokenData& data = *NqToken::GetNqTokenData(stream);
    NqWithSink(stream, [&](auto& sink) { PutValueLine(sink, data, token, inPut); });
}

template <class T>
void PutNumberLine(TNqiostream& stream, int32 token, T value)
{
    const NqTokenData& data = *NqToken::GetNqTokenData(stream);
    const auto store = [token, value](int8* at)
    {
        at = StoreName(at, static_cast<uint32>(token));
        if (at != nullptr)
            *at++ = ' ';
        return at != nullptr ? StoreNumber(at, +value) : nullptr;
    };
    NqWithSink(stream,
               [&](auto& sink)
               {
                   if (!IsStored<T>(sink) || !PutLineAtHand(sink, data, store))
                       PutValueLine(sink, data, token, [value](auto& to) { NqInsert(to, value); });
               });
}

// A line whose value is text that inPut() writes to the stream; compact documents have no blank before it.
template <class Sink, class Put>
void PutTextLine(Sink& sink, const NqTokenData& data, int32 token, Put&& inPut)
{
    PutLineName(sink, data, token);
    if (!data.fTokenCompact)
        sink.Put(' ');
    sink.Run(inPut);
    PutLineEnd(sink);
}

template <class Put>
void PutTextLine(TNqiostream& stream, int32 token, Put&& inPut)
{
    const NqTokenData& data = *NqToken::GetNqTokenData(stream);
    NqWithSink(stream, [&](auto& sink) { PutTextLine(sink, data, token, inPut); });
}

// Bytes between quotes that need no escape; null when one does, or when they are too many for a short line.
inline int8* StoreQuotedBytes(int8* at, const int8* bytes, uint32 count)
{
    constexpr uint32 kMost = 255;
    if (count > kMost)
        return nullptr;
    *at++ = '"';
    for (uint32 i = 0; i < count; ++i)
    {
        if (NqNeedsEscape(static_cast<uint8>(bytes[i])))
            return nullptr;
        *at++ = bytes[i];
    }
    *at++ = '"';
    return at;
}

inline void Deepen(NqTokenData& data)
{
    if (data.fTokenIndent)
        ++data.fTokenIndentLevel;
}

// An opening brace at the end of a line; what follows is one level deeper.
template <class Sink>
void PutBrace(Sink& sink, NqTokenData& data)
{
    if (!data.fTokenCompact)
        sink.Put(' ');
    sink.Put('{');
    PutLineEnd(sink);
    Deepen(data);
}

// The brace stands in line with the contents of the block, and only then the level falls. Files are compared byte by
// byte.
template <class Sink>
void PutClosingBrace(Sink& sink, NqTokenData& data)
{
    const auto store = [](int8* at)
    {
        *at = '}';
        return at + 1;
    };
    if (!PutLineAtHand(sink, data, store))
    {
        PutIndent(sink, data);
        sink.Put('}');
        PutLineEnd(sink);
    }
    if (data.fTokenIndent)
        --data.fTokenIndentLevel;
}

// ---- Values --------------------------------------------------------------------------------------------------------

// Plain values with a comma behind each, as many as fit the buffer; at most `most`. Returns how many. They are made in
// pieces beside the buffer, since making one touches bytes behind it, where a stream may hold others.
template <class Sink, class T>
int32 PutRun(Sink& sink, int32 most, const T* values)
{
    int32 count = 0;
    if constexpr (Sink::kIsDirect)
    {
        if (std::is_same_v<T, real32> && !NqHasSixDecimals(sink.Precision()))
            return 0;
        constexpr int64 kPieceBytes = 2048;
        constexpr int64 kLongest = kNqNumberRoom + 1;
        int8 piece[kPieceBytes];
        int8* at;
        do
        {
            at = piece;
            const int8* const last = piece + std::min(kPieceBytes, sink.RoomAtHand());
            while (count < most && last - at >= kLongest)
            {
                int8* const end = StoreNumber(at, values[count]);
                if (end == nullptr)
                    break;
                *end = ',';
                at = end + 1;
                ++count;
            }
            if (at != piece)
                sink.Write(piece, static_cast<int32>(at - piece));
        } while (at != piece && count < most);
    }
    return count;
}

// Comma-separated, at least one.
template <class Sink, class T>
void PutArray(Sink& sink, int32 count, const T* values)
{
    if (values == nullptr)
        return NqInsert(sink, T(0));
    const int32 last = std::max(count, 1) - 1;
    for (int32 i = PutRun(sink, last, values); i < last; i += PutRun(sink, last - i, values + i))
    {
        NqInsert(sink, values[i]);
        sink.Put(',');
        ++i;
    }
    NqInsert(sink, values[last]);
}

template <class T>
void PutArrayLine(TNqiostream& stream, int32 token, int32 count, const T* values)
{
    PutValueLine(stream, token, [=](auto& sink) { PutArray(sink, count, values); });
}

// The text that goes into the file, with `translate` as its translation makes it in `copy`. Without memory the text
// itself is better than nothing.
const TNqString& TextToWrite(const TNqString& text, boolean translate, TNqDynamicString& copy)
{
    if (translate)
        text.TranslateBeforeWrite(copy);
    return copy.ByteLength() != 0 ? copy : text;
}

// Bytes between quotes, as they are, but for those that need an escape.
template <class Sink>
void PutQuotedBytes(Sink& sink, const int8* bytes, uint32 count)
{
    sink.Put('"');
    for (uint32 i = 0; i < count; ++i)
    {
        const uint32 run = i;
        while (i < count && !NqNeedsEscape(static_cast<uint8>(bytes[i])))
            ++i;
        sink.PutEach(bytes + run, i - run);
        if (i == count)
            break;
        sink.Put(kStringEscape);
        sink.Put(bytes[i]);
    }
    sink.Put('"');
}

} // namespace

namespace NqToken
{

// ---- Names and blocks ----------------------------------------------------------------------------------------------

void PutToken(TNqiostream& stream, uint32 token, boolean compact)
{
    NqWithSink(stream, [&](auto& sink) { PutName(sink, token, compact != 0); });
}

void IndentToken(TNqiostream& stream)
{
    NqWithSink(stream, [&](auto& sink) { PutIndent(sink, *GetNqTokenData(stream)); });
}

TNqiostreamContext* PutBeginToken(TNqiostream& stream, int32 token, boolean wantContext)
{
    NqTokenData& data = *GetNqTokenData(stream);
    const auto store = [token, &data](int8* at)
    {
        at = StoreName(at, static_cast<uint32>(token));
        if (at != nullptr && !data.fTokenCompact)
            *at++ = ' ';
        if (at != nullptr)
            *at++ = '{';
        return at;
    };
    return NqWithSink(stream,
                      [&](auto& sink) -> TNqiostreamContext*
                      {
                          if (!wantContext && PutLineAtHand(sink, data, store))
                          {
                              Deepen(data);
                              return nullptr;
                          }
                          PutLineName(sink, data, token);
                          TNqiostreamContext* context = nullptr;
                          if (wantContext)
                              sink.Run([&] { context = stream.GetContext(); });
                          PutBrace(sink, data);
                          return context;
                      });
}

void PutBeginToken(TNqiostream& stream)
{
    NqWithSink(stream, [&](auto& sink) { PutBrace(sink, *GetNqTokenData(stream)); });
}

void PutEndToken(TNqiostream& stream)
{
    NqWithSink(stream, [&](auto& sink) { PutClosingBrace(sink, *GetNqTokenData(stream)); });
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

void PutInt8Attribute(TNqiostream& stream, int32 token, int8 value)
{
    PutNumberLine(stream, token, value);
}

void PutUInt8Attribute(TNqiostream& stream, int32 token, uint8 value)
{
    PutNumberLine(stream, token, value);
}

void PutInt16Attribute(TNqiostream& stream, int32 token, int16 value)
{
    PutNumberLine(stream, token, value);
}

void PutUInt16Attribute(TNqiostream& stream, int32 token, uint16 value)
{
    PutNumberLine(stream, token, value);
}

void PutInt32Attribute(TNqiostream& stream, int32 token, int32 value)
{
    PutNumberLine(stream, token, value);
}

void PutUInt32Attribute(TNqiostream& stream, int32 token, uint32 value)
{
    PutNumberLine(stream, token, value);
}

void PutEnumAttribute(TNqiostream& stream, int32 token, uint32 value)
{
    PutNumberLine(stream, token, value);
}

void PutBooleanAttribute(TNqiostream& stream, int32 token, boolean value)
{
    PutInt32Attribute(stream, token, value ? 1 : 0);
}

void PutReal32Attribute(TNqiostream& stream, int32 token, real32 value)
{
    PutNumberLine(stream, token, value);
}

void PutReal64Attribute(TNqiostream& stream, int32 token, real64 value)
{
    PutNumberLine(stream, token, value);
}

void PutFourCharConstAttribute(TNqiostream& stream, int32 token, int32 value)
{
    PutValueLine(stream, token, [value](auto& sink) { PutName(sink, static_cast<uint32>(value)); });
}

void PutInt32Token(TNqiostream& stream, int32 value)
{
    NqWithSink(stream,
               [&](auto& sink)
               {
                   sink.Put(' ');
                   NqInsert(sink, value);
                   PutLineEnd(sink);
               });
}

// ---- Points, rectangles, arrays ------------------------------------------------------------------------------------

void PutPointAttribute(TNqiostream& stream, int32 token, const TNqPoint& point)
{
    const int32 values[] = {point.x, point.y};
    PutArrayLine(stream, token, 2, values);
}

void PutRectAttribute(TNqiostream& stream, int32 token, const TNqRect& rect)
{
    const int32 values[] = {rect.top, rect.left, rect.bottom, rect.right};
    PutArrayLine(stream, token, 4, values);
}

void PutInt16ArrayAttribute(TNqiostream& stream, int32 token, int32 count, const int16* values)
{
    PutArrayLine(stream, token, count, values);
}

void PutInt32ArrayAttribute(TNqiostream& stream, int32 token, int32 count, const int32* values)
{
    PutArrayLine(stream, token, count, values);
}

void PutReal32ArrayAttribute(TNqiostream& stream, int32 token, int32 count, const real32* values)
{
    if (token != 0)
        return PutArrayLine(stream, token, count, values);
    NqWithSink(stream,
               [&](auto& sink)
               {
                   sink.Put(' ');
                   PutArray(sink, count, values);
               });
}

// ---- Text ----------------------------------------------------------------------------------------------------------

void PutNonLocalizedString(TNqiostream& stream, const TNqString& text, boolean translate)
{
    TNqDynamicString copy;
    const TNqString& written = TextToWrite(text, translate, copy);
    const int8* const bytes = NqBytesOf(written);
    NqWithSink(stream, [&](auto& sink) { PutQuotedBytes(sink, bytes, written.ByteLength()); });
}

void PutLocalizedString(TNqiostream& stream, const TNqString& text, boolean translate)
{
    TNqDynamicString copy;
    stream.WriteLocalizedString(TextToWrite(text, translate, copy));
}

void PutNonLocalizedStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate)
{
    const NqTokenData& data = *GetNqTokenData(stream);
    const auto store = [&](int8* at)
    {
        at = StoreName(at, static_cast<uint32>(token));
        if (at != nullptr && !data.fTokenCompact)
            *at++ = ' ';
        const int8* const bytes = text.StrGet();
        return at != nullptr && bytes != nullptr ? StoreQuotedBytes(at, bytes, text.ByteLength()) : nullptr;
    };
    NqWithSink(stream,
               [&](auto& sink)
               {
                   // An empty string may be one that has lost its memory, which is reported once.
                   if (translate || text.ByteLength() == 0 || !PutLineAtHand(sink, data, store))
                       PutTextLine(sink, data, token, [&] { PutNonLocalizedString(stream, text, translate); });
               });
}

void PutNonLocalizedLongStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate)
{
    PutNonLocalizedStringAttribute(stream, token, text, translate);
}

void PutLocalizedStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate)
{
    PutTextLine(stream, token, [&] { PutLocalizedString(stream, text, translate); });
}

void PutLocalizedLongStringAttribute(TNqiostream& stream, int32 token, const TNqString& text, boolean translate)
{
    PutLocalizedStringAttribute(stream, token, text, translate);
}

// The path is written as it is, though reading it translates: existing files hold it so.
void PutPathRefAttribute(TNqiostream& stream, int32 token, const TNqString& path)
{
    const int8* const bytes = NqBytesOf(path);
    PutTextLine(stream, token, [&] { stream.writeFileRef(bytes); });
}

// ---- Blocks made beforehand ----------------------------------------------------------------------------------------

void PutStreamAttribute(TNqiostream& stream, int32 token, TNqstrstream& content)
{
    if (!NqCheck(&stream != &content))
        return;
    const int32 bytes = NqStreamAccess::MemorySize(content);
    const int32 size = NqStreamAccess::IsReadable(content) ? bytes : std::min(bytes, content.pcount());
    NqTokenData& data = *GetNqTokenData(stream);
    NqWithSink(stream,
               [&](auto& sink)
               {
                   PutLineName(sink, data, token);
                   PutBrace(sink, data);
                   if (size > 0)
                       sink.Write(NqStreamAccess::MemoryBytes(content), size);
                   PutClosingBrace(sink, data);
               });
}

} // namespace NqToken
