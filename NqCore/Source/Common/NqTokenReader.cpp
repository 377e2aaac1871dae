#include "NqCore/Include/NqByteBuffer.h"
#include "NqCore/Include/NqStreamText.h"
#include "NqCore/Include/NqTokenScan.h"

#include <exception>
#include <new>
#include <type_traits>

using namespace NqTokenScan;

NqTokenData gDefaultTokenData;

static_assert(std::is_standard_layout_v<NqTokenData> && sizeof(NqTokenData) == 16 &&
                  offsetof(NqTokenData, fTokenIndent) == 2 && offsetof(NqTokenData, fTokenIndentLevel) == 4 &&
                  offsetof(NqTokenData, fTokenBinaryCount) == 8 && offsetof(NqTokenData, fTokenAsciiFormat) == 12,
              "modules built elsewhere look into the settings of a stream");

// ---- Positions -----------------------------------------------------------------------------------------------------

namespace
{

constexpr int64 kUnknownEnd = -1;

// What is known about a stream at a position without a call of its operations.
struct TExtent
{
    int64 fEnd;    // as tell() counts
    int64 fAtHand; // bytes that its buffer holds behind the position
};

// The fields of a file and of memory tell it, but not where a class derived from them counts positions of its own.
TExtent ExtentOf(TNqiostream& stream, int64 position)
{
    if (TNqfstream* const file = dynamic_cast<TNqfstream*>(&stream))
        if (file->TNqfstream::tell() == position)
            return {file->GetFileSize(), NqStreamAccess::FileSource(*file).AtHand().Count()};
    if (TNqstrstream* const memory = dynamic_cast<TNqstrstream*>(&stream))
        if (memory->TNqstrstream::tell() == position)
            return {NqStreamAccess::MemorySize(*memory), 0};
    return {kUnknownEnd, 0};
}

bool IsAt(TNqiostream& stream, int64 position)
{
    return stream.tell() == position && stream.good();
}

// Takes the bytes one by one: a connection must not be asked for more than there is. Zero bytes are data here, so `get`
// would not do.
bool ReadAhead(TNqiostream& stream, uint64 count)
{
    for (int8 c = 0; count > 0; --count)
    {
        stream.read(&c, 1);
        if (!stream.good())
            return false;
    }
    return true;
}

// The same from the position `here`, when that is where the stream still is after an attempt to move it. Otherwise it
// may be anywhere, and reading on could be endless.
bool ReadAheadFrom(TNqiostream& stream, int64 here, uint64 count)
{
    if (IsAt(stream, here))
        return ReadAhead(stream, count);
    stream.changestate(TNqiostream::failbit);
    return false;
}

// From the position `here`, which can be believed.
bool MoveAhead(TNqiostream& stream, int64 here, uint64 count)
{
    const int64 target = here + static_cast<int64>(count);
    const TExtent extent = ExtentOf(stream, here);
    if (target - here <= extent.fAtHand) // a seek would load the buffer again for each of many small payloads
    {
        NqPlainSource source(stream);
        return ReadInPieces(source, count, [](const int8*, int32) {});
    }
    if (extent.fEnd == kUnknownEnd)
    {
        const int64 end = stream.GetStreamSize();
        stream.clear(0);
        if (target > end || !IsAt(stream, here)) // such an end need not be exact: it only says what a seek may try
            return ReadAheadFrom(stream, here, count);
    }
    else if (target > extent.fEnd)
    {
        stream.seek(static_cast<int32>(extent.fEnd), TNqiostream::beg);
        stream.changestate(TNqiostream::eofbit); // as if the bytes had been read
        return false;
    }
    stream.seek(static_cast<int32>(target), TNqiostream::beg);
    stream.clear(0);
    return IsAt(stream, target) || ReadAheadFrom(stream, here, count);
}

} // namespace

// Positions are believed when the host gives them and one byte read moves them by one: a class that decodes what it
// reads may leave tell and seek to a base that knows only of the encoded bytes.
bool NqTokenScan::SkipAhead(TNqiostream& stream, uint64 count)
{
    if (!stream.CanSeek())
        return ReadAhead(stream, count);
    const int64 before = stream.tell();
    if (!ReadAhead(stream, 1))
        return false;
    if (count == 1)
        return true;
    if (IsAt(stream, before + 1))
        return MoveAhead(stream, before + 1, count - 1);
    return ReadAhead(stream, count - 1);
}

namespace
{

// ---- Helpers -------------------------------------------------------------------------------------------------------

constexpr IDType kTokenDataKey = 0x546F6B6E; // 'Tokn'
constexpr int32 kPathBytes = 1024;           // what readFileRef may fill

// What inScan() returns, or the code of what an operation of the stream throws, which makes it a failed one.
template <class Scan>
NqErr CodeOf(TNqiostream& stream, Scan&& inScan)
{
    NqErr code = kNqErrEndOfFile;
    try
    {
        return inScan();
    }
    catch (const TNqException& error)
    {
        if (error.GetError() != kNqNoErr)
            code = error.GetError();
    }
    catch (const std::bad_alloc&)
    {
        code = kNqErrOutOfMemory;
    }
    catch (const std::exception&)
    {
    }
    stream.changestate(TNqiostream::failbit);
    return code;
}

void ExpectToken(TNqiostream& stream, ETokenKind expected)
{
    ETokenKind kind = NqToken::kNoToken;
    TNoText text;
    ThrowUnlessNoErr(NqWithSource(stream, [&](auto& source) { return ScanToken(source, text, kind); }));
    if (kind != expected)
        NqToken::FailReadFile();
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

// What came of a value before the stream failed is none.
void ThrowIfFailed(const TNqiostream& stream)
{
    if (stream.fail())
        NqToken::FailEOFFile();
}

// stream >> value, 0 when that is no number. How it ended is in NumberEnd() of the stream.
template <class T, class Source>
T ReadNumber(Source& source)
{
    T value = 0;
    NqStreamAccess::NumberEnd(source.Stream()) = kNqNumberUnknown;
    NqExtract(source, value);
    if (NqStreamAccess::NumberEnd(source.Stream()) == kNqNumberCut)
        NqToken::FailEOFFile();
    return value;
}

// The same where something must come: only blanks before the end of the stream are the end.
template <class T, class Source>
T ReadValue(Source& source)
{
    const T value = ReadNumber<T>(source);
    const uint8 end = NqStreamAccess::NumberEnd(source.Stream());
    if (end == kNqNumberMissing)
        source.Stream().clear(TNqiostream::eofbit); // the number is missing; the stream has not failed
    if (end == kNqNumberMissing || (end == kNqNumberUnknown && !source.Good()))
        NqToken::FailEOFFile();
    return value;
}

template <class T>
T ReadOneValue(TNqiostream& stream)
{
    return NqWithSource(stream, [](auto& source) { return ReadValue<T>(source); });
}

// A blank before the comma was consumed with the number: it is as wrong as any other byte.
template <class Source>
void ReadComma(Source& source)
{
    int8 c = 0;
    if (NqStreamAccess::NumberEnd(source.Stream()) == kNqNumberAndBlank)
        NqToken::FailReadFile();
    source.Stream().clear(0); // a number that was none: a connection does not forget it by reading
    source.Read(&c, 1);
    ThrowIfFailed(source.Stream());
    if (!source.Good() || c != ',')
        NqToken::FailReadFile();
}

inline bool TakeNumber(const int8*& at, real32& out)
{
    real64 number;
    const bool plain = NqTakeReal(at, number);
    out = static_cast<real32>(plain ? number : 0);
    return plain;
}

template <class Integer>
bool TakeNumber(const int8*& at, Integer& out)
{
    uint32 number = 0;
    const bool plain = NqTakeInteger(at, number);
    out = static_cast<Integer>(number);
    return plain;
}

// Plain values with a comma behind each, in one go, as long as they are at hand; at most `most`. Returns how many.
template <class T, class Source>
int32 ReadRun(Source& source, int32 most, T* out)
{
    int32 count = 0;
    if constexpr (Source::kIsDirect)
    {
        const auto [first, last] = source.NumbersAtHand();
        const int8* behind = first; // of the last comma
        for (const int8* at = first; count < most; ++count, behind = at)
        {
            T value;
            while (at != last && IsBlank(*at))
                ++at;
            if (last - at < kNqNumberWindow || !TakeNumber(at, value) || *at++ != ',')
                break;
            if (out != nullptr)
                out[count] = value;
        }
        if (count > 0)
        {
            source.PassRead(behind - first);
            NqStreamAccess::NumberEnd(source.Stream()) = kNqNumberClosed;
        }
    }
    return count;
}

template <class T>
void ReadArray(TNqiostream& stream, int32 count, T* out)
{
    const int32 last = std::max(count, 1) - 1;
    NqWithSource(stream,
                 [&](auto& source)
                 {
                     for (int32 i = 0; i <= last; ++i)
                     {
                         i += ReadRun(source, last - i, out != nullptr ? out + i : nullptr);
                         const T value = ReadValue<T>(source);
                         if (out != nullptr)
                             out[i] = value;
                         if (i < last)
                             ReadComma(source);
                     }
                 });
}

// Files hold infinities as text; no computation has to deal with them.
template <class Source>
real32 ReadRealOrInf(Source& source)
{
    int8 c = 0;
    bool more = NextNonBlank(source, c);
    if (!more)
        NqToken::FailEOFFile();
    const bool negative = c == '-';
    if (negative)
        more = NextByte(source, c);
    real32 value = std::numeric_limits<real32>::max();
    const int8* expected = "inf";
    while (more && c == *expected && *++expected != 0)
        more = NextByte(source, c);
    if (*expected != 0)
    {
        if (more)
            source.Putback(c); // only this one: what was taken of an incomplete "inf" is lost
        ThrowIfFailed(source.Stream());
        value = ReadNumber<real32>(source);
    }
    return negative ? -value : value;
}

// ---- Names and strings ---------------------------------------------------------------------------------------------

// Up to four characters; false when the stream ends before the first.
template <class Source>
bool ReadFourChars(Source& source, int8* name)
{
    constexpr int8 tCOMMA = ',';
    int8 c = 0;
    if (!NextNonBlank(source, c))
        return false;
    NqCheck(c != tCOMMA);
    *name++ = c;
    for (int32 i = 1; i < 4 && NextByte(source, c) && !IsBlank(c); ++i)
    {
        if (c == tCOMMA)
        {
            source.Putback(c);
            break;
        }
        *name++ = c;
    }
    return true;
}

// Without a transcoder they are UTF-8.
bool HoldsCharacters(const int8* bytes, ITranscoder* encoding)
{
    bool found = false;
    uint8 index = 0, total = 0;
    uint8 sequence[4];
    do
    {
        const uint8 byte = static_cast<uint8>(*bytes);
        const uint16 character =
            encoding != nullptr ? encoding->Encode(byte) : UTF8TakeByte(byte, index, total, sequence);
        found = found || (character != 0 && character != kNqNoCharacter);
    } while (*bytes++ != 0);
    return found;
}

// The text of a token. Without memory for it a string is left empty, which is not what stands in the file.
void SetText(TNqString& out, const int8* bytes, ITranscoder* encoding)
{
    out.FromText("", 0);
    NqTextFromEncoded(out, bytes, encoding);
    if (out.ByteLength() == 0 && HoldsCharacters(bytes, encoding))
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
}

// Takes its single bytes with read: long strings are read this way.
template <class Source>
class TByteReader
{
public:
    explicit TByteReader(Source& source) : fSource(source) {}

    void Get(int8& c) { fSource.Read(&c, 1); }
    bool Good() const { return fSource.Good(); }

    template <class Set, class TakeRun>
    bool GetUntil(int8& c, TakeRun&& take)
    {
        return fSource.template ReadUntil<Set>(c, take);
    }

private:
    Source& fSource;
};

// Collects a string of any length.
class TStringText : public TNoText
{
public:
    void Content(const int8* first, const int8* last) { fFailed = fFailed || !fBytes.Append(first, last); }
    void Escaped(int8, int8 c) { Content(&c, &c + 1); }

    const int8* GetText()
    {
        if (fFailed)
            throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
        return fBytes.Data();
    }

private:
    NqByteBuffer fBytes{1000};
    bool fFailed = false;
};

template <class Source>
NqErr ReadLongString(Source& source, TStringText& text)
{
    TByteReader<Source> reader(source);
    int8 c = 0;
    if (!reader.template GetUntil<NqByteSet<'"'>>(c, [](const int8*, const int8*) {}))
        return kNqErrEndOfFile;
    return ScanQuoted(reader, text);
}

} // namespace

namespace NqToken
{

// ---- Settings of a stream ------------------------------------------------------------------------------------------

void InitTokenMgr(TNqiostream& stream)
{
    NqTokenData data;
    stream.SetInfo(kTokenDataKey, &data, sizeof(data));
}

NqTokenData* GetNqTokenData(TNqiostream& stream)
{
    void* data = stream.GetInfo(kTokenDataKey);
    return data != nullptr ? static_cast<NqTokenData*>(data) : &gDefaultTokenData;
}

void SetTokenAsciiFormat(TNqiostream& stream, int32 asciiFormat)
{
    GetNqTokenData(stream)->fTokenAsciiFormat = asciiFormat;
}

int32 GetTokenAsciiFormat(TNqiostream& stream)
{
    return GetNqTokenData(stream)->fTokenAsciiFormat;
}

// ---- Tokens and blocks ---------------------------------------------------------------------------------------------

NqErr GetNextToken(TNqiostream& stream, int8* token, boolean keepDelimiters)
{
    TTokenBuffer text(token, keepDelimiters != 0);
    ETokenKind kind;
    return CodeOf(stream,
                  [&] { return NqWithSource(stream, [&](auto& source) { return ScanToken(source, text, kind); }); });
}

NqErr GetNextTokenInfo(TNqiostream& stream, int8* token, TNqTokenInfo& info, boolean keepComments)
{
    info = TNqTokenInfo();
    TInfoText text(token, info, keepComments != 0);
    const auto scan = [&](auto& source)
    {
        const NqErr err = ScanToken(source, text, info.fKind);
        if (info.fKind == kNoToken)
            info.fOffset = stream.tell();
        return err;
    };
    return CodeOf(stream, [&] { return NqWithSource(stream, scan); });
}

boolean IsBeginToken(const int8* token)
{
    return token[0] == '{';
}

boolean IsEndToken(const int8* token)
{
    return token[0] == '}';
}

void GetBeginToken(TNqiostream& stream)
{
    ExpectToken(stream, kBeginToken);
}

void GetEndToken(TNqiostream& stream)
{
    ExpectToken(stream, kEndToken);
}

void SkipTokenData(TNqiostream& stream)
{
    SkipTokenData(stream, false);
}

void SkipTokenData(TNqiostream& stream, boolean insideBlock)
{
    TNoText text;
    ThrowUnlessNoErr(NqWithSource(stream,
                                  [&](auto& source)
                                  {
                                      NqErr err = kNqNoErr;
                                      int64 depth = insideBlock != 0 ? 1 : 0;
                                      do
                                      {
                                          ETokenKind kind;
                                          err = ScanToken(source, text, kind);
                                          depth += kind == kBeginToken ? 1 : 0;
                                          depth -= kind == kEndToken ? 1 : 0;
                                      } while (err == kNqNoErr && depth > 0);
                                      return err;
                                  }));
}

int32 CompactAttribute(const int8* text)
{
    uint32 token = 0;
    int32 count = 0;
    for (; count < 4 && text[count] != 0; ++count)
        token = token << 8 | (text[count] == '\'' ? 0u : static_cast<uint8>(text[count]));
    for (; count < 4; ++count)
        token = token << 8 | ' ';
    return static_cast<int32>(token);
}

void FailReadFile()
{
    throw TNqException(kNqErrFormat, nullptr, 0);
}

void FailEOFFile()
{
    throw TNqException(kNqErrEndOfFile, nullptr, 0);
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

int8 GetInt8Token(TNqiostream& stream)
{
    return ReadOneValue<int8>(stream);
}

uint8 GetUInt8Token(TNqiostream& stream)
{
    return ReadOneValue<uint8>(stream);
}

int16 GetInt16Token(TNqiostream& stream)
{
    return ReadOneValue<int16>(stream);
}

uint16 GetUInt16Token(TNqiostream& stream)
{
    return ReadOneValue<uint16>(stream);
}

int32 GetInt32Token(TNqiostream& stream)
{
    return ReadOneValue<int32>(stream);
}

uint32 GetUInt32Token(TNqiostream& stream)
{
    return ReadOneValue<uint32>(stream);
}

uint32 GetEnumToken(TNqiostream& stream)
{
    return ReadOneValue<uint32>(stream);
}

boolean GetBooleanToken(TNqiostream& stream)
{
    return ReadOneValue<int32>(stream) != 0;
}

real32 GetReal32Token(TNqiostream& stream)
{
    return ReadOneValue<real32>(stream);
}

real64 GetReal64Token(TNqiostream& stream)
{
    return ReadOneValue<real64>(stream);
}

real32 GetReal32InfToken(TNqiostream& stream)
{
    return NqWithSource(stream, [](auto& source) { return ReadRealOrInf(source); });
}

int32 GetFourCharConstToken(TNqiostream& stream)
{
    int8 name[5] = {};
    if (!NqWithSource(stream, [&](auto& source) { return ReadFourChars(source, name); }))
        FailEOFFile();
    ThrowIfFailed(stream);
    return CompactAttribute(name);
}

// ---- Points, rectangles, arrays ------------------------------------------------------------------------------------

TNqPoint GetPointToken(TNqiostream& stream)
{
    int32 values[2];
    ReadArray(stream, 2, values);
    return TNqPoint(values[0], values[1]);
}

TNqRect GetRectToken(TNqiostream& stream)
{
    int32 values[4]; // top, left, bottom, right
    ReadArray(stream, 4, values);
    return TNqRect(values[1], values[0], values[3], values[2]);
}

void GetInt16ArrayToken(TNqiostream& stream, int32 count, int16* out)
{
    ReadArray(stream, count, out);
}

void GetInt32ArrayToken(TNqiostream& stream, int32 count, int32* out)
{
    ReadArray(stream, count, out);
}

void GetReal32ArrayToken(TNqiostream& stream, int32 count, real32* out)
{
    ReadArray(stream, count, out);
}

// ---- Strings -------------------------------------------------------------------------------------------------------

TNqString255 GetNonLocalizedStringToken(TNqiostream& stream)
{
    TNqString255 text;
    GetLongStringToken(stream, text);
    return text;
}

TNqString& GetLongStringToken(TNqiostream& stream, TNqString& out)
{
    int8 token[kTokenBufferSize];
    ThrowUnlessNoErr(GetNextToken(stream, token, false));
    SetText(out, token, stream.GetTranscoder());
    out.TranslateAfterRead();
    return out;
}

TNqDynamicString& GetNonLocalizedDynamicStringToken(TNqiostream& stream, TNqDynamicString& out, boolean translate)
{
    TStringText text;
    if (NqWithSource(stream, [&](auto& source) { return ReadLongString(source, text); }) != kNqNoErr)
        FailEOFFile();
    SetText(out, text.GetText(), stream.GetTranscoder());
    if (translate)
        out.TranslateAfterRead();
    return out;
}

TNqString255 GetLocalizedStringToken(TNqiostream& stream)
{
    TNqString255 text;
    stream.ReadLocalizedString(text);
    return text;
}

TNqDynamicString& GetLocalizedDynamicStringToken(TNqiostream& stream, TNqDynamicString& out)
{
    stream.ReadLocalizedDynamicString(out);
    return out;
}

TNqString255 GetPathRefToken(TNqiostream& stream)
{
    int8 path[kPathBytes] = {};
    stream.readFileRef(path);
    ThrowIfFailed(stream);
    TNqString255 text;
    SetText(text, path, stream.GetTranscoder());
    text.TranslateAfterRead();
    return text;
}

} // namespace NqToken
