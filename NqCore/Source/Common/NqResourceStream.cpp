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
bool WorksInBuffer(const TNqByteSwapStream& inStream)
{
    return NqIsExactly<TNqByteSwapStream>(inStream) || NqIsExactly<TNqResourceStream>(inStream);
}

template <class Body>
inline decltype(auto) WithSource(TNqByteSwapStream& ioStream, Body&& inBody)
{
    if (WorksInBuffer(ioStream))
    {
        NqStreamAccess::MemorySource source(ioStream);
        return inBody(source);
    }
    NqPlainSource source(ioStream);
    return inBody(source);
}

inline void ReadBytes(TNqByteSwapStream& ioStream, int8* outData, int32 inCount)
{
    WithSource(ioStream, [&](auto& source) { source.Read(outData, inCount); });
}

inline void WriteBytes(TNqByteSwapStream& ioStream, const int8* inData, int32 inCount)
{
    if (WorksInBuffer(ioStream))
        NqStreamAccess::MemorySink(ioStream).Write(inData, inCount);
    else
        ioStream.write(inData, inCount);
}

// ---- Fields: unsigned integers, and what has the same bits ---------------------------------------------------------

// Composed by shifts, so that the bytes are the same on every machine.
template <class Bits>
inline Bits ReadField(TNqByteSwapStream& ioStream)
{
    uint8 bytes[sizeof(Bits)] = {};
    ReadBytes(ioStream, reinterpret_cast<int8*>(bytes), sizeof bytes);
    Bits bits = 0;
    for (const uint8 byte : bytes)
        bits = static_cast<Bits>(bits << 8 | byte);
    return bits;
}

template <class Bits>
inline void WriteField(TNqByteSwapStream& ioStream, Bits inBits)
{
    uint8 bytes[sizeof(Bits)];
    for (size_t i = sizeof bytes; i-- > 0; inBits = static_cast<Bits>(inBits >> 8))
        bytes[i] = static_cast<uint8>(inBits);
    WriteBytes(ioStream, reinterpret_cast<const int8*>(bytes), sizeof bytes);
}

template <class To, class From>
inline To SameBits(From inFrom)
{
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &inFrom, sizeof to);
    return to;
}

// ---- Texts ---------------------------------------------------------------------------------------------------------

constexpr uint32 kLongestText = 4096; // with its NUL, of those behind a length
constexpr uint32 kLongestField = 255; // of a Pascal text

// What a stream takes of a text with one write, a NUL behind it included.
int32 WritableLength(const TNqString& inText)
{
    return static_cast<int32>(std::min<uint32>(inText.ByteLength(), std::numeric_limits<int32>::max() - 1));
}

// The capacity of a dynamic string follows its text and would say nothing about the form: that one is always long.
bool HasLongLength(const TNqString& inText)
{
    return inText.MaxLength() > 255 || dynamic_cast<const TNqDynamicString*>(&inText) != nullptr;
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

TNqByteSwapStream::TNqByteSwapStream(int8* inBuffer, int32 inSize, TranscoderType inType, int32 inMode)
    : TNqstrstream(inBuffer, inSize, inType, inMode)
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

void TNqByteSwapStream::WriteBoolean(uint8 inValue)
{
    WriteField(*this, inValue);
}

void TNqByteSwapStream::WriteShort(uint16 inValue)
{
    WriteField(*this, inValue);
}

void TNqByteSwapStream::WriteLong(uint32 inValue)
{
    WriteField(*this, inValue);
}

void TNqByteSwapStream::WriteFloat(real32 inValue)
{
    WriteField(*this, SameBits<uint32>(inValue));
}

void TNqByteSwapStream::WriteDouble(real64 inValue)
{
    WriteField(*this, SameBits<uint64>(inValue));
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

TNqiostream& TNqByteSwapStream::operator>>(int32& outValue)
{
    outValue = static_cast<int32>(ReadField<uint32>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(uint32& outValue)
{
    outValue = ReadField<uint32>(*this);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(int16& outValue)
{
    outValue = static_cast<int16>(ReadField<uint16>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(uint16& outValue)
{
    outValue = ReadField<uint16>(*this);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(real32& outValue)
{
    outValue = SameBits<real32>(ReadField<uint32>(*this));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(real64& outValue)
{
    outValue = SameBits<real64>(ReadField<uint64>(*this));
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

TNqiostream& TNqByteSwapStream::operator<<(int32 inValue)
{
    WriteField(*this, static_cast<uint32>(inValue));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(uint32 inValue)
{
    WriteField(*this, inValue);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(int16 inValue)
{
    WriteField(*this, static_cast<uint16>(inValue));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(uint16 inValue)
{
    WriteField(*this, inValue);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(real32 inValue)
{
    WriteField(*this, SameBits<uint32>(inValue));
    return *this;
}

TNqiostream& TNqByteSwapStream::operator<<(real64 inValue)
{
    WriteField(*this, SameBits<uint64>(inValue));
    return *this;
}

// ---- TNqByteSwapStream: texts --------------------------------------------------------------------------------------

TNqiostream& TNqByteSwapStream::operator<<(const TNqString& inText)
{
    const int8* const bytes = NqBytesOf(inText);
    const int32 length = WritableLength(inText);
    if (HasLongLength(inText))
        WriteField(*this, static_cast<uint32>(length));
    else
        WriteField(*this, static_cast<uint8>(length));
    if (good() && length != 0)
        WriteBytes(*this, bytes, length);
    return *this;
}

TNqiostream& TNqByteSwapStream::operator>>(TNqString& outText)
{
    const uint32 length = HasLongLength(outText) ? ReadField<uint32>(*this) : ReadField<uint8>(*this);
    const bool isThere = good() && length != 0;
    const bool fits = !isThere || NqCheckText(length < kLongestText, "length < sizeof(gAllPurposeBuffer)");
    if (!fits)
        streamfail(kNqStreamOutOfRange);
    if (!isThere || !fits)
    {
        outText.FromText("", 0);
        return *this;
    }
    int8 bytes[kLongestText];
    std::memset(bytes, 0, length + 1);
    ReadBytes(*this, bytes, static_cast<int32>(length));
    NqTextFromEncoded(outText, bytes, GetTranscoder());
    return *this;
}

void TNqByteSwapStream::WriteTNqString(int32 inSizeToWrite, const TNqString& inText)
{
    if (!NqCheckText(static_cast<uint32>(inSizeToWrite) <= kLongestField, "sizeToWrite < 256"))
        return;
    int8 field[kLongestField + 1] = {};
    const int32 length = std::min(WritableLength(inText), inSizeToWrite);
    field[0] = static_cast<int8>(length);
    std::memcpy(field + 1, NqBytesOf(inText), static_cast<size_t>(length));
    WriteBytes(*this, field, inSizeToWrite + 1);
}

void TNqByteSwapStream::ReadTNqString(int32 inSizeToRead, TNqString& outText)
{
    if (!NqCheckText(static_cast<uint32>(inSizeToRead) <= kLongestField, "sizeToRead < 256"))
        return;
    uint8 field[kLongestField + 1] = {};
    ReadBytes(*this, reinterpret_cast<int8*>(field), inSizeToRead + 1);
    const int32 there = std::clamp(fgcount - 1, 0, inSizeToRead);
    field[0] = static_cast<uint8>(std::min<int32>(field[0], there));
    outText.FromPPtr(field);
    outText.TranslateAfterRead();
}

void TNqByteSwapStream::WriteCString(const TNqString& inText)
{
    WriteBytes(*this, NqBytesOf(inText), WritableLength(inText) + 1);
}

void TNqByteSwapStream::ReadCString(TNqString& outText)
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
    NqTextFromEncoded(outText, bytes.Data(), GetTranscoder());
    if (!memory)
        streamfail(kNqStreamOutOfRange);
}

// ---- Localized texts -----------------------------------------------------------------------------------------------

namespace
{

// Positions of a stream are 32-bit: of longer data only what they reach is seen.
int32 ReachableSize(const TNqResource& inResource)
{
    return static_cast<int32>(std::min<uint32>(inResource.GetSize(), std::numeric_limits<int32>::max()));
}

boolean GetString(const TResourceStrings& inStrings, uint32 stringIndex, TNqString& outText)
{
    const uint32 stringCount = inStrings.GetElemCount();
    if (!NqCheck(stringIndex < stringCount))
        return false;
    outText = inStrings[stringIndex];
    return true;
}

// Counts first: the table grows meanwhile when `ioStream` keeps its texts in it, too.
void PutAllStrings(const TResourceStrings& inStrings, TNqiostream& ioStream)
{
    const uint32 count = inStrings.GetElemCount();
    NqWithSink(
        ioStream,
        [&](auto& sink)
        {
            for (uint32 i = 0; i < count; ++i)
                sink.Run([&]
                         { NqToken::PutLocalizedStringAttribute(ioStream, NqFourChar("Strg"), inStrings[i], false); });
        });
}

// The localized field that takes the place of a Pascal field.
int32 FieldSize(int32 inSize)
{
    return static_cast<int32>(std::min<int64>(int64(inSize) + 1, std::numeric_limits<int32>::max()));
}

} // namespace

TNqResourceStream::TNqResourceStream(TNqResource& ioResource, int32 inMode)
    : TNqByteSwapStream(ioResource.GetSize() != 0 ? ioResource.GetData() : nullptr, ReachableSize(ioResource),
                        kUTF8Transcoder, inMode),
      fResource(&ioResource),
      fLocalizedStrings(ioResource.GetLocalizedStrings())
{
}

TNqResourceStream::TNqResourceStream(TResourceStrings* inStrings) : fResource(nullptr), fLocalizedStrings(inStrings) {}

TNqResourceStream::~TNqResourceStream() = default;

boolean TNqResourceStream::WriteLocalizedString(const TNqString& inText, int32 inSize)
{
    if (!NqCheck(fLocalizedStrings))
        return false;
    WriteLong(fLocalizedStrings->GetElemCount());
    const int64 sizeToWrite = int64(inSize) - 4;
    NqCheckText(sizeToWrite >= 0 && sizeToWrite % 4 == 0, "sizeToWrite>=0 && (sizeToWrite%4)==0");
    for (int64 i = 0; i < sizeToWrite / 4 && good(); ++i)
        WriteLong(0);
    if (!good())
        return false;
    if (fLocalizedStrings->AddElem(inText))
        return true;
    streamfail(kNqStreamOutOfRange);
    return false;
}

boolean TNqResourceStream::ReadLocalizedString(TNqString& outText, int32 inSize)
{
    if (!fLocalizedStrings)
        return false;
    const uint32 stringIndex = ReadLong();
    const bool isWhole = good();
    const int64 sizeToRead = int64(inSize) - 4;
    NqCheckText(sizeToRead >= 0 && sizeToRead % 4 == 0, "sizeToRead>=0 && (sizeToRead%4)==0");
    for (int64 i = 0; i < sizeToRead / 4 && good(); ++i)
        ReadLong();
    return isWhole && GetString(*fLocalizedStrings, stringIndex, outText);
}

void TNqResourceStream::ReadLocalizedTNqString(TNqString& outText)
{
    if (fLocalizedStrings)
        ReadLocalizedString(outText, 4);
    else
        *this >> outText;
}

void TNqResourceStream::WriteLocalizedTNqString(const TNqString& inText)
{
    if (fLocalizedStrings)
        WriteLocalizedString(inText, 4);
    else
        *this << inText;
}

void TNqResourceStream::ReadLocalizedCString(TNqString& outText)
{
    if (fLocalizedStrings)
        ReadLocalizedString(outText, 4);
    else
        ReadCString(outText);
}

void TNqResourceStream::WriteLocalizedCString(const TNqString& inText)
{
    if (fLocalizedStrings)
        WriteLocalizedString(inText, 4);
    else
        WriteCString(inText);
}

void TNqResourceStream::ReadLocalizedTNqString(int32 inSize, TNqString& outText)
{
    if (fLocalizedStrings)
        ReadLocalizedString(outText, FieldSize(inSize));
    else
        ReadTNqString(inSize, outText);
}

void TNqResourceStream::WriteLocalizedTNqString(int32 inSize, const TNqString& inText)
{
    if (fLocalizedStrings)
        WriteLocalizedString(inText, FieldSize(inSize));
    else
        WriteTNqString(inSize, inText);
}

void TNqResourceStream::WriteAllStrings(TNqiostream& ioStream)
{
    if (fLocalizedStrings)
        PutAllStrings(*fLocalizedStrings, ioStream);
}

// ---- TNqLocalizedTextResourceStream --------------------------------------------------------------------------------

TNqLocalizedTextResourceStream::TNqLocalizedTextResourceStream(TResourceStrings& ioStrings, int8* inBuffer,
                                                               int32 inSize, int32)
    : TNqstrstream(inBuffer, inSize, kMacTranscoder, eRead),
      fLocalizedStrings(ioStrings)
{
}

TNqLocalizedTextResourceStream::TNqLocalizedTextResourceStream(TResourceStrings& ioStrings)
    : TNqstrstream(kMacTranscoder),
      fLocalizedStrings(ioStrings)
{
}

TNqLocalizedTextResourceStream::~TNqLocalizedTextResourceStream() = default;

void TNqLocalizedTextResourceStream::WriteLocalizedString(const TNqString& inText)
{
    NqWithSink(*this,
               [&](auto& sink)
               {
                   NqInsert(sink, fLocalizedStrings.GetElemCount());
                   NqTokenWrite::PutLineEnd(sink);
               });
    if (good() && !fLocalizedStrings.AddElem(inText))
        streamfail(kNqStreamOutOfRange);
}

boolean TNqLocalizedTextResourceStream::ReadLocalizedString(TNqString& outText)
{
    return GetString(fLocalizedStrings, static_cast<uint32>(NqToken::GetInt32Token(*this)), outText);
}

void TNqLocalizedTextResourceStream::ReadLocalizedDynamicString(TNqDynamicString& outText)
{
    ReadLocalizedString(outText);
}

void TNqLocalizedTextResourceStream::WriteAllStrings(TNqiostream& ioStream)
{
    PutAllStrings(fLocalizedStrings, ioStream);
}
