#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqCore/Include/NqByteBuffer.h"
#include "NqCore/Include/NqStreamAccess.h"
#include "NqCore/Include/NqStreamText.h"
#include "NqCore/Include/NqTokenWrite.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace
{

// Derived classes may have a `read` or `write` of their own, which must see every field.
bool WorksInBuffer(const TNqByteSwapStream& stream)
{
    return NqIsExactly<TNqByteSwapStream>(stream) || NqIsExactly<TNqResourceStream>(stream);
}

template <class Body>
inline decltype(auto) WithSource(TNqByteSwapStream& stream, Body&& inBody)
{
    if (WorksInBuffer(stream))
    {
        NqStreamAccess::MemorySource source(stream);
        return inBody(source);
    }
    NqPlainSource source(stream);
    return inBody(source);
}

inline void ReadBytes(TNqByteSwapStream& stream, int8* data, int32 count)
{
    WithSource(stream, [&](auto& source) { source.Read(data, count); });
}

inline void WriteBytes(TNqByteSwapStream& stream, const int8* data, int32 count)
{
    if (WorksInBuffer(stream))
        NqStreamAccess::MemorySink(stream).Write(data, count);
    else
        stream.write(data, count);
}

// ---- Fields: unsigned integers, and what has the same bits ---------------------------------------------------------

// Composed by shifts, so that the bytes are the same on every machine.
template <class Bits>
inline Bits ReadField(TNqByteSwapStream& stream)
{
    uint8 bytes[sizeof(Bits)] = {};
    ReadBytes(stream, reinterpret_cast<int8*>(bytes), sizeof bytes);
    Bits bits = 0;
    for (const uint8 byte : bytes)
        bits = static_cast<Bits>(bits << 8 | byte);
    return bits;
}

template <class Bits>
inline void WriteField(TNqByteSwapStream& stream, Bits bits)
{
    uint8 bytes[sizeof(Bits)];
    for (size_t i = sizeof bytes; i-- > 0; bits = static_cast<Bits>(bits >> 8))
        bytes[i] = static_cast<uint8>(bits);
    WriteBytes(stream, reinterpret_cast<const int8*>(bytes), sizeof bytes);
}

template <class To, class From>
inline To SameBits(From from)
{
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

// ---- Texts ---------------------------------------------------------------------------------------------------------

constexpr uint32 kLongestText = 4096; // with its NUL, of those behind a length
constexpr uint32 kLongestField = 255; // of a Pascal text

// What a stream takes of a text with one write, a NUL behind it included.
int32 WritableLength(const TNqString& text)
{
    return static_cast<int32>(std::min<uint32>(text.ByteLength(), std::numeric_limits<int32>::max() - 1));
}

// The capacity of a dynamic string follows its text and would say nothing about the form: that one is always long.
bool HasLongLength(const TNqString& text)
{
    return text.MaxLength() > 255 || dynamic_cast<const TNqDynamicString*>(&text) != nullptr;
}

} // namespace

void ConvertLongPtr(int8* p)
{
    std::swap(p[0], p[3]);
    std::swap(p[1], p[2]);
}

void ConvertShortPtr(int8* p)
{
    std::swap(p[0], p[1]);
}

// ---- TNqByteSwapStream: fields -------------------------------------------------------------------------------------

TNqByteSwapStream::TNqByteSwapStream(int8* buffer, int32 size, TranscoderType type, int32 mode)
    : TNqstrstream(buffer, size, type, mode)
{
}

TNqByteSwapStream::TNqByteSwapStream() : TNqstrstream(kMacTranscoder) {}

TNqByteSwapStream::~TNqByteSwapStream() = default;

boolean TNqByteSwapStream::ReadBoolean()
{
    return ReadField<uint8>(*this);
}

uint16 TNqByteSwapStream::ReadShort()
{
    return ReadField<uint16>(*this);
}

uint32 TNqByteSwapStream::ReadLong()
{
    return ReadField<uint32>(*this);
}

real32 TNqByteSwapStream::ReadFloat()
{
    return SameBits<real32>(ReadField<uint32>(*this));
}

real64 TNqByteSwapStream::ReadDouble()
{
    return SameBits<real64>(ReadField<uint64>(*this));
}

void TNqByteSwapStream::WriteBoolean(uint8 value)
{
    WriteField(*this, value);
}

void TNqByteSwapStream::WriteShort(uint16 value)
{
    WriteField(*this, value);
}

void TNqByteSwapStream::WriteLong(uint32 value)
{
    WriteField(*this, value);
}

void TNqByteSwapStream::WriteFloat(real32 value)
{
    WriteField(*this, SameBits<uint32>(value));
}

void TNqByteSwapStream::WriteDouble(real64 value)
{
    WriteField(*this, SameBits<uint64>(value));
}

TNqiostream& TNqByteSwapStream::operator>>(int8& c)
{
    ReadBytes(*this, &c, 1);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(uint8& c)
{
    ReadBytes(*this, reinterpret_cast<int8*>(&c), 1);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(int32& value)
{
    value = static_cast<int32>(ReadField<uint32>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(uint32& value)
{
    value = ReadField<uint32>(*this);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(int16& value)
{
    value = static_cast<int16>(ReadField<uint16>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(uint16& value)
{
    value = ReadField<uint16>(*this);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(real32& value)
{
    value = SameBits<real32>(ReadField<uint32>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(real64& value)
{
    value = SameBits<real64>(ReadField<uint64>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(int8 c)
{
    WriteBytes(*this, &c, 1);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(uint8 c)
{
    WriteField(*this, c);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(int32 value)
{
    WriteField(*this, static_cast<uint32>(value));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(uint32 value)
{
    WriteField(*this, value);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(int16 value)
{
    WriteField(*this, static_cast<uint16>(value));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(uint16 value)
{
    WriteField(*this, value);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(real32 value)
{
    WriteField(*this, SameBits<uint32>(value));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(real64 value)
{
    WriteField(*this, SameBits<uint64>(value));
    return *this;
}

// ---- TNqByteSwapStream: texts --------------------------------------------------------------------------------------

TNqiostream& TNqByteSwapStream::operator<<(const TNqString& text)
{
    const int8* const bytes = NqBytesOf(text);
    const int32 length = WritableLength(text);
    if (HasLongLength(text))
        WriteField(*this, static_cast<uint32>(length));
    else
        WriteField(*this, static_cast<uint8>(length));
    if (good() && length != 0)
        WriteBytes(*this, bytes, length);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(TNqString& text)
{
    const uint32 length = HasLongLength(text) ? ReadField<uint32>(*this) : ReadField<uint8>(*this);
    const bool isThere = good() && length != 0;
    const bool fits = !isThere || NqCheckText(length < kLongestText, "length < sizeof(gAllPurposeBuffer)");
    if (!fits)
        streamfail(kNqStreamOutOfRange);
    if (!isThere || !fits)
    {
        text.FromText("", 0);
        return *this;
    }
    int8 bytes[kLongestText];
    std::memset(bytes, 0, length + 1);
    ReadBytes(*this, bytes, static_cast<int32>(length));
    NqTextFromEncoded(text, bytes, GetTranscoder());
    return *this;
}

void TNqByteSwapStream::WriteTNqString(int32 sizeToWrite, const TNqString& text)
{
    if (!NqCheckText(static_cast<uint32>(sizeToWrite) <= kLongestField, "sizeToWrite < 256"))
        return;
    int8 field[kLongestField + 1] = {};
    const int32 length = std::min(WritableLength(text), sizeToWrite);
    field[0] = static_cast<int8>(length);
    std::memcpy(field + 1, NqBytesOf(text), static_cast<size_t>(length));
    WriteBytes(*this, field, sizeToWrite + 1);
}

void TNqByteSwapStream::ReadTNqString(int32 sizeToRead, TNqString& text)
{
    if (!NqCheckText(static_cast<uint32>(sizeToRead) <= kLongestField, "sizeToRead < 256"))
        return;
    uint8 field[kLongestField + 1] = {};
    ReadBytes(*this, reinterpret_cast<int8*>(field), sizeToRead + 1);
    const int32 there = std::clamp(fgcount - 1, 0, sizeToRead);
    field[0] = static_cast<uint8>(std::min<int32>(field[0], there));
    text.FromPPtr(field);
    text.TranslateAfterRead();
}

void TNqByteSwapStream::WriteCString(const TNqString& text)
{
    WriteBytes(*this, NqBytesOf(text), WritableLength(text) + 1);
}

void TNqByteSwapStream::ReadCString(TNqString& text)
{
    NqByteBuffer bytes(256);
    bool memory = true;
    int8 c = 0;
    WithSource(*this,
               [&](auto& source)
               {
                   source.GetWhile(c,
                                   [&](int8 byte)
                                   {
                                       memory = byte == 0 || bytes.Append(byte);
                                       return memory && byte != 0;
                                   });
               });
    NqTextFromEncoded(text, bytes.Data(), GetTranscoder());
    if (!memory)
        streamfail(kNqStreamOutOfRange);
}

// ---- Localized texts -----------------------------------------------------------------------------------------------

namespace
{

// Positions of a stream are 32-bit: of longer data only what they reach is seen.
int32 ReachableSize(const TNqResource& resource)
{
    return static_cast<int32>(std::min<uint32>(resource.GetSize(), std::numeric_limits<int32>::max()));
}

boolean GetString(const TResourceStrings& strings, uint32 stringIndex, TNqString& text)
{
    const uint32 stringCount = strings.GetElemCount();
    if (!NqCheck(stringIndex < stringCount))
        return false;
    text = strings[stringIndex];
    return true;
}

// Counts first: the table grows meanwhile when `out` keeps its texts in it, too.
void PutAllStrings(const TResourceStrings& strings, TNqiostream& out)
{
    const uint32 count = strings.GetElemCount();
    NqWithSink(out,
               [&](auto& sink)
               {
                   for (uint32 i = 0; i < count; ++i)
                       sink.Run([&]
                                { NqToken::PutLocalizedStringAttribute(out, NqFourChar("Strg"), strings[i], false); });
               });
}

// The localized field that takes the place of a Pascal field.
int32 FieldSize(int32 size)
{
    return static_cast<int32>(std::min<int64>(int64(size) + 1, std::numeric_limits<int32>::max()));
}

} // namespace

TNqResourceStream::TNqResourceStream(TNqResource& resource, int32 mode)
    : TNqByteSwapStream(resource.GetSize() != 0 ? resource.GetData() : nullptr, ReachableSize(resource),
                        kUTF8Transcoder, mode),
      fResource(&resource),
      fLocalizedStrings(resource.GetLocalizedStrings())
{
}

TNqResourceStream::TNqResourceStream(TResourceStrings* strings) : fResource(nullptr), fLocalizedStrings(strings) {}

TNqResourceStream::~TNqResourceStream() = default;

boolean TNqResourceStream::WriteLocalizedString(const TNqString& text, int32 size)
{
    if (!NqCheck(fLocalizedStrings))
        return false;
    WriteLong(fLocalizedStrings->GetElemCount());
    const int64 sizeToWrite = int64(size) - 4;
    NqCheckText(sizeToWrite >= 0 && sizeToWrite % 4 == 0, "sizeToWrite>=0 && (sizeToWrite%4)==0");
    for (int64 i = 0; i < sizeToWrite / 4 && good(); ++i)
        WriteLong(0);
    if (!good())
        return false;
    if (fLocalizedStrings->AddElem(text))
        return true;
    streamfail(kNqStreamOutOfRange);
    return false;
}

boolean TNqResourceStream::ReadLocalizedString(TNqString& text, int32 size)
{
    if (!fLocalizedStrings)
        return false;
    const uint32 stringIndex = ReadLong();
    const bool isWhole = good();
    const int64 sizeToRead = int64(size) - 4;
    NqCheckText(sizeToRead >= 0 && sizeToRead % 4 == 0, "sizeToRead>=0 && (sizeToRead%4)==0");
    for (int64 i = 0; i < sizeToRead / 4 && good(); ++i)
        ReadLong();
    return isWhole && GetString(*fLocalizedStrings, stringIndex, text);
}

void TNqResourceStream::ReadLocalizedTNqString(TNqString& text)
{
    if (fLocalizedStrings)
        ReadLocalizedString(text, 4);
    else
        *this >> text;
}

void TNqResourceStream::WriteLocalizedTNqString(const TNqString& text)
{
    if (fLocalizedStrings)
        WriteLocalizedString(text, 4);
    else
        *this << text;
}

void TNqResourceStream::ReadLocalizedCString(TNqString& text)
{
    if (fLocalizedStrings)
        ReadLocalizedString(text, 4);
    else
        ReadCString(text);
}

void TNqResourceStream::WriteLocalizedCString(const TNqString& text)
{
    if (fLocalizedStrings)
        WriteLocalizedString(text, 4);
    else
        WriteCString(text);
}

void TNqResourceStream::ReadLocalizedTNqString(int32 size, TNqString& text)
{
    if (fLocalizedStrings)
        ReadLocalizedString(text, FieldSize(size));
    else
        ReadTNqString(size, text);
}

void TNqResourceStream::WriteLocalizedTNqString(int32 size, const TNqString& text)
{
    if (fLocalizedStrings)
        WriteLocalizedString(text, FieldSize(size));
    else
        WriteTNqString(size, text);
}

void TNqResourceStream::WriteAllStrings(TNqiostream& out)
{
    if (fLocalizedStrings)
        PutAllStrings(*fLocalizedStrings, out);
}

// ---- TNqLocalizedTextResourceStream --------------------------------------------------------------------------------

TNqLocalizedTextResourceStream::TNqLocalizedTextResourceStream(TResourceStrings& strings, int8* buffer, int32 size,
                                                               int32)
    : TNqstrstream(buffer, size, kMacTranscoder, eRead),
      fLocalizedStrings(strings)
{
}

TNqLocalizedTextResourceStream::TNqLocalizedTextResourceStream(TResourceStrings& strings)
    : TNqstrstream(kMacTranscoder),
      fLocalizedStrings(strings)
{
}

TNqLocalizedTextResourceStream::~TNqLocalizedTextResourceStream() = default;

void TNqLocalizedTextResourceStream::WriteLocalizedString(const TNqString& text)
{
    NqWithSink(*this,
               [&](auto& sink)
               {
                   NqInsert(sink, fLocalizedStrings.GetElemCount());
                   NqTokenWrite::PutLineEnd(sink);
               });
    if (good() && !fLocalizedStrings.AddElem(text))
        streamfail(kNqStreamOutOfRange);
}

boolean TNqLocalizedTextResourceStream::ReadLocalizedString(TNqString& text)
{
    return GetString(fLocalizedStrings, static_cast<uint32>(NqToken::GetInt32Token(*this)), text);
}

void TNqLocalizedTextResourceStream::ReadLocalizedDynamicString(TNqDynamicString& text)
{
    ReadLocalizedString(text);
}

void TNqLocalizedTextResourceStream::WriteAllStrings(TNqiostream& out)
{
    PutAllStrings(fLocalizedStrings, out);
}
