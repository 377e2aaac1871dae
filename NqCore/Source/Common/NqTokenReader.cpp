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
TExtent ExtentOf(TNqiostream& ioStream, int64 inPosition)
{
    if (TNqfstream* const file = dynamic_cast<TNqfstream*>(&ioStream))
        if (file->TNqfstream::tell() == inPosition)
            return {file->GetFileSize(), NqStreamAccess::FileSource(*file).AtHand().Count()};
    if (TNqstrstream* const memory = dynamic_cast<TNqstrstream*>(&ioStream))
        if (memory->TNqstrstream::tell() == inPosition)
            return {NqStreamAccess::MemorySize(*memory), 0};
    return {kUnknownEnd, 0};
}

bool IsAt(TNqiostream& ioStream, int64 inPosition)
{
    return ioStream.tell() == inPosition && ioStream.good();
}

// Takes the bytes one by one: a connection must not be asked for more than there is. Zero bytes are data here, so `get`
// would not do.
bool ReadAhead(TNqiostream& ioStream, uint64 inCount)
{
    for (int8 c = 0; inCount > 0; --inCount)
    {
        ioStream.read(&c, 1);
        if (!ioStream.good())
            return false;
    }
    return true;
}

// The same from the position `inHere`, when that is where the stream still is after an attempt to move it. Otherwise it
// may be anywhere, and reading on could be endless.
bool ReadAheadFrom(TNqiostream& ioStream, int64 inHere, uint64 inCount)
{
    if (IsAt(ioStream, inHere))
        return ReadAhead(ioStream, inCount);
    ioStream.changestate(TNqiostream::failbit);
    return false;
}

// From the position `inHere`, which can be believed.
bool MoveAhead(TNqiostream& ioStream, int64 inHere, uint64 inCount)
{
    const int64 target = inHere + static_cast<int64>(inCount);
    const TExtent extent = ExtentOf(ioStream, inHere);
    if (target - inHere <= extent.fAtHand) // a seek would load the buffer again for each of many small payloads
    {
        NqPlainSource source(ioStream);
        return ReadInPieces(source, inCount, [](const int8*, int32) {});
    }
    if (extent.fEnd == kUnknownEnd)
    {
        const int64 end = ioStream.GetStreamSize();
        ioStream.clear(0);
        if (target > end || !IsAt(ioStream, inHere)) // such an end need not be exact: it only says what a seek may try
            return ReadAheadFrom(ioStream, inHere, inCount);
    }
    else if (target > extent.fEnd)
    {
        ioStream.seek(static_cast<int32>(extent.fEnd), TNqiostream::beg);
        ioStream.changestate(TNqiostream::eofbit); // as if the bytes had been read
        return false;
    }
    ioStream.seek(static_cast<int32>(target), TNqiostream::beg);
    ioStream.clear(0);
    return IsAt(ioStream, target) || ReadAheadFrom(ioStream, inHere, inCount);
}

} // namespace

// Positions are believed when the host gives them and one byte read moves them by one: a class that decodes what it
// reads may leave tell and seek to a base that knows only of the encoded bytes.
bool NqTokenScan::SkipAhead(TNqiostream& ioStream, uint64 inCount)
{
    if (!ioStream.CanSeek())
        return ReadAhead(ioStream, inCount);
    const int64 before = ioStream.tell();
    if (!ReadAhead(ioStream, 1))
        return false;
    if (inCount == 1)
        return true;
    if (IsAt(ioStream, before + 1))
        return MoveAhead(ioStream, before + 1, inCount - 1);
    return ReadAhead(ioStream, inCount - 1);
}

namespace
{

// ---- Helpers -------------------------------------------------------------------------------------------------------

constexpr IDType kTokenDataKey = 0x546F6B6E; // 'Tokn'
constexpr int32 kPathBytes = 1024;           // what readFileRef may fill

// What inScan() returns, or the code of what an operation of the stream throws, which makes it a failed one.
template <class Scan>
NqErr CodeOf(TNqiostream& ioStream, Scan&& inScan)
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
    ioStream.changestate(TNqiostream::failbit);
    return code;
}

void ExpectToken(TNqiostream& ioStream, ETokenKind inExpected)
{
    ETokenKind kind = NqToken::kNoToken;
    TNoText text;
    ThrowUnlessNoErr(NqWithSource(ioStream, [&](auto& source) { return ScanToken(source, text, kind); }));
    if (kind != inExpected)
        NqToken::FailReadFile();
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

// What came of a value before the stream failed is none.
void ThrowIfFailed(const TNqiostream& inStream)
{
    if (inStream.fail())
        NqToken::FailEOFFile();
}

// stream >> value, 0 when that is no number. How it ended is in NumberEnd() of the stream.
template <class T, class Source>
T ReadNumber(Source& ioSource)
{
    T value = 0;
    NqStreamAccess::NumberEnd(ioSource.Stream()) = kNqNumberUnknown;
    NqExtract(ioSource, value);
    if (NqStreamAccess::NumberEnd(ioSource.Stream()) == kNqNumberCut)
        NqToken::FailEOFFile();
    return value;
}

// The same where something must come: only blanks before the end of the stream are the end.
template <class T, class Source>
T ReadValue(Source& ioSource)
{
    const T value = ReadNumber<T>(ioSource);
    const uint8 end = NqStreamAccess::NumberEnd(ioSource.Stream());
    if (end == kNqNumberMissing)
        ioSource.Stream().clear(TNqiostream::eofbit); // the number is missing; the stream has not failed
    if (end == kNqNumberMissing || (end == kNqNumberUnknown && !ioSource.Good()))
        NqToken::FailEOFFile();
    return value;
}

template <class T>
T ReadOneValue(TNqiostream& ioStream)
{
    return NqWithSource(ioStream, [](auto& source) { return ReadValue<T>(source); });
}

// A blank before the comma was consumed with the number: it is as wrong as any other byte.
template <class Source>
void ReadComma(Source& ioSource)
{
    int8 c = 0;
    if (NqStreamAccess::NumberEnd(ioSource.Stream()) == kNqNumberAndBlank)
        NqToken::FailReadFile();
    ioSource.Stream().clear(0); // a number that was none: a connection does not forget it by reading
    ioSource.Read(&c, 1);
    ThrowIfFailed(ioSource.Stream());
    if (!ioSource.Good() || c != ',')
        NqToken::FailReadFile();
}

inline bool TakeNumber(const int8*& ioAt, real32& outValue)
{
    real64 number;
    const bool plain = NqTakeReal(ioAt, number);
    outValue = static_cast<real32>(plain ? number : 0);
    return plain;
}

template <class Integer>
bool TakeNumber(const int8*& ioAt, Integer& outValue)
{
    uint32 number = 0;
    const bool plain = NqTakeInteger(ioAt, number);
    outValue = static_cast<Integer>(number);
    return plain;
}

// Plain values with a comma behind each, in one go, as long as they are at hand; at most `inMost`. Returns how many.
template <class T, class Source>
int32 ReadRun(Source& ioSource, int32 inMost, T* outValues)
{
    int32 count = 0;
    if constexpr (Source::kIsDirect)
    {
        const auto [first, last] = ioSource.NumbersAtHand();
        const int8* behind = first; // of the last comma
        for (const int8* at = first; count < inMost; ++count, behind = at)
        {
            T value;
            while (at != last && IsBlank(*at))
                ++at;
            if (last - at < kNqNumberWindow || !TakeNumber(at, value) || *at++ != ',')
                break;
            if (outValues != nullptr)
                outValues[count] = value;
        }
        if (count > 0)
        {
            ioSource.PassRead(behind - first);
            NqStreamAccess::NumberEnd(ioSource.Stream()) = kNqNumberClosed;
        }
    }
    return count;
}

template <class T>
void ReadArray(TNqiostream& ioStream, int32 inCount, T* outValues)
{
    const int32 last = std::max(inCount, 1) - 1;
    NqWithSource(ioStream,
                 [&](auto& source)
                 {
                     for (int32 i = 0; i <= last; ++i)
                     {
                         i += ReadRun(source, last - i, outValues != nullptr ? outValues + i : nullptr);
                         const T value = ReadValue<T>(source);
                         if (outValues != nullptr)
                             outValues[i] = value;
                         if (i < last)
                             ReadComma(source);
                     }
                 });
}

// Files hold infinities as text; no computation has to deal with them.
template <class Source>
real32 ReadRealOrInf(Source& ioSource)
{
    int8 c = 0;
    bool more = NextNonBlank(ioSource, c);
    if (!more)
        NqToken::FailEOFFile();
    const bool negative = c == '-';
    if (negative)
        more = NextByte(ioSource, c);
    real32 value = std::numeric_limits<real32>::max();
    const int8* expected = "inf";
    while (more && c == *expected && *++expected != 0)
        more = NextByte(ioSource, c);
    if (*expected != 0)
    {
        if (more)
            ioSource.Putback(c); // only this one: what was taken of an incomplete "inf" is lost
        ThrowIfFailed(ioSource.Stream());
        value = ReadNumber<real32>(ioSource);
    }
    return negative ? -value : value;
}

// ---- Names and strings ---------------------------------------------------------------------------------------------

// Up to four characters; false when the stream ends before the first.
template <class Source>
bool ReadFourChars(Source& ioSource, int8* outName)
{
    constexpr int8 tCOMMA = ',';
    int8 c = 0;
    if (!NextNonBlank(ioSource, c))
        return false;
    NqCheck(c != tCOMMA);
    *outName++ = c;
    for (int32 i = 1; i < 4 && NextByte(ioSource, c) && !IsBlank(c); ++i)
    {
        if (c == tCOMMA)
        {
            ioSource.Putback(c);
            break;
        }
        *outName++ = c;
    }
    return true;
}

// Without a transcoder they are UTF-8.
bool HoldsCharacters(const int8* inBytes, ITranscoder* inEncoding)
{
    bool found = false;
    uint8 index = 0, total = 0;
    uint8 sequence[4];
    do
    {
        const uint8 byte = static_cast<uint8>(*inBytes);
        const uint16 character =
            inEncoding != nullptr ? inEncoding->Encode(byte) : UTF8TakeByte(byte, index, total, sequence);
        found = found || (character != 0 && character != kNqNoCharacter);
    } while (*inBytes++ != 0);
    return found;
}

// The text of a token. Without memory for it a string is left empty, which is not what stands in the file.
void SetText(TNqString& outText, const int8* inBytes, ITranscoder* inEncoding)
{
    outText.FromText("", 0);
    NqTextFromEncoded(outText, inBytes, inEncoding);
    if (outText.ByteLength() == 0 && HoldsCharacters(inBytes, inEncoding))
        throw TNqException(kNqErrOutOfMemory, NqSourcePath(__FILE__), __LINE__);
}

// Takes its single bytes with read: long strings are read this way.
template <class Source>
class TByteReader
{
public:
    explicit TByteReader(Source& ioSource) : fSource(ioSource) {}

    void Get(int8& c) { fSource.Read(&c, 1); }
    bool Good() const { return fSource.Good(); }

    template <class Set, class TakeRun>
    bool GetUntil(int8& c, TakeRun&& inTake)
    {
        return fSource.template ReadUntil<Set>(c, inTake);
    }

private:
    Source& fSource;
};

// Collects a string of any length.
class TStringText : public TNoText
{
public:
    void Content(const int8* inFirst, const int8* inLast) { fFailed = fFailed || !fBytes.Append(inFirst, inLast); }
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
NqErr ReadLongString(Source& ioSource, TStringText& ioText)
{
    TByteReader<Source> reader(ioSource);
    int8 c = 0;
    if (!reader.template GetUntil<NqByteSet<'"'>>(c, [](const int8*, const int8*) {}))
        return kNqErrEndOfFile;
    return ScanQuoted(reader, ioText);
}

} // namespace

namespace NqToken
{

// ---- Settings of a stream ------------------------------------------------------------------------------------------

void InitTokenMgr(TNqiostream& ioStream)
{
    NqTokenData data;
    ioStream.SetInfo(kTokenDataKey, &data, sizeof(data));
}

NqTokenData* GetNqTokenData(TNqiostream& ioStream)
{
    void* data = ioStream.GetInfo(kTokenDataKey);
    return data != nullptr ? static_cast<NqTokenData*>(data) : &gDefaultTokenData;
}

void SetTokenAsciiFormat(TNqiostream& ioStream, int32 inAsciiFormat)
{
    GetNqTokenData(ioStream)->fTokenAsciiFormat = inAsciiFormat;
}

int32 GetTokenAsciiFormat(TNqiostream& ioStream)
{
    return GetNqTokenData(ioStream)->fTokenAsciiFormat;
}

// ---- Tokens and blocks ---------------------------------------------------------------------------------------------

NqErr GetNextToken(TNqiostream& ioStream, int8* outToken, boolean inKeepDelimiters)
{
    TTokenBuffer text(outToken, inKeepDelimiters != 0);
    ETokenKind kind;
    return CodeOf(ioStream,
                  [&] { return NqWithSource(ioStream, [&](auto& source) { return ScanToken(source, text, kind); }); });
}

NqErr GetNextTokenInfo(TNqiostream& ioStream, int8* outToken, TNqTokenInfo& outInfo, boolean inKeepComments)
{
    outInfo = TNqTokenInfo();
    TInfoText text(outToken, outInfo, inKeepComments != 0);
    const auto scan = [&](auto& source)
    {
        const NqErr err = ScanToken(source, text, outInfo.fKind);
        if (outInfo.fKind == kNoToken)
            outInfo.fOffset = ioStream.tell();
        return err;
    };
    return CodeOf(ioStream, [&] { return NqWithSource(ioStream, scan); });
}

boolean IsBeginToken(const int8* inToken)
{
    return inToken[0] == '{';
}

boolean IsEndToken(const int8* inToken)
{
    return inToken[0] == '}';
}

void GetBeginToken(TNqiostream& ioStream)
{
    ExpectToken(ioStream, kBeginToken);
}

void GetEndToken(TNqiostream& ioStream)
{
    ExpectToken(ioStream, kEndToken);
}

void SkipTokenData(TNqiostream& ioStream)
{
    SkipTokenData(ioStream, false);
}

void SkipTokenData(TNqiostream& ioStream, boolean inInsideBlock)
{
    TNoText text;
    ThrowUnlessNoErr(NqWithSource(ioStream,
                                  [&](auto& source)
                                  {
                                      NqErr err = kNqNoErr;
                                      int64 depth = inInsideBlock != 0 ? 1 : 0;
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

int32 CompactAttribute(const int8* inText)
{
    uint32 token = 0;
    int32 count = 0;
    for (; count < 4 && inText[count] != 0; ++count)
        token = token << 8 | (inText[count] == '\'' ? 0u : static_cast<uint8>(inText[count]));
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

int8 GetInt8Token(TNqiostream& ioStream)
{
    return ReadOneValue<int8>(ioStream);
}

uint8 GetUInt8Token(TNqiostream& ioStream)
{
    return ReadOneValue<uint8>(ioStream);
}

int16 GetInt16Token(TNqiostream& ioStream)
{
    return ReadOneValue<int16>(ioStream);
}

uint16 GetUInt16Token(TNqiostream& ioStream)
{
    return ReadOneValue<uint16>(ioStream);
}

int32 GetInt32Token(TNqiostream& ioStream)
{
    return ReadOneValue<int32>(ioStream);
}

uint32 GetUInt32Token(TNqiostream& ioStream)
{
    return ReadOneValue<uint32>(ioStream);
}

uint32 GetEnumToken(TNqiostream& ioStream)
{
    return ReadOneValue<uint32>(ioStream);
}

boolean GetBooleanToken(TNqiostream& ioStream)
{
    return ReadOneValue<int32>(ioStream) != 0;
}

real32 GetReal32Token(TNqiostream& ioStream)
{
    return ReadOneValue<real32>(ioStream);
}

real64 GetReal64Token(TNqiostream& ioStream)
{
    return ReadOneValue<real64>(ioStream);
}

real32 GetReal32InfToken(TNqiostream& ioStream)
{
    return NqWithSource(ioStream, [](auto& source) { return ReadRealOrInf(source); });
}

int32 GetFourCharConstToken(TNqiostream& ioStream)
{
    int8 name[5] = {};
    if (!NqWithSource(ioStream, [&](auto& source) { return ReadFourChars(source, name); }))
        FailEOFFile();
    ThrowIfFailed(ioStream);
    return CompactAttribute(name);
}

// ---- Points, rectangles, arrays ------------------------------------------------------------------------------------

TNqPoint GetPointToken(TNqiostream& ioStream)
{
    int32 values[2];
    ReadArray(ioStream, 2, values);
    return TNqPoint(values[0], values[1]);
}

TNqRect GetRectToken(TNqiostream& ioStream)
{
    int32 values[4]; // top, left, bottom, right
    ReadArray(ioStream, 4, values);
    return TNqRect(values[1], values[0], values[3], values[2]);
}

void GetInt16ArrayToken(TNqiostream& ioStream, int32 inCount, int16* outValues)
{
    ReadArray(ioStream, inCount, outValues);
}

void GetInt32ArrayToken(TNqiostream& ioStream, int32 inCount, int32* outValues)
{
    ReadArray(ioStream, inCount, outValues);
}

void GetReal32ArrayToken(TNqiostream& ioStream, int32 inCount, real32* outValues)
{
    ReadArray(ioStream, inCount, outValues);
}

// ---- Strings -------------------------------------------------------------------------------------------------------

TNqString255 GetNonLocalizedStringToken(TNqiostream& ioStream)
{
    TNqString255 text;
    GetLongStringToken(ioStream, text);
    return text;
}

TNqString& GetLongStringToken(TNqiostream& ioStream, TNqString& outText)
{
    int8 token[kTokenBufferSize];
    ThrowUnlessNoErr(GetNextToken(ioStream, token, false));
    SetText(outText, token, ioStream.GetTranscoder());
    outText.TranslateAfterRead();
    return outText;
}

TNqDynamicString& GetNonLocalizedDynamicStringToken(TNqiostream& ioStream, TNqDynamicString& outText,
                                                    boolean inTranslate)
{
    TStringText text;
    if (NqWithSource(ioStream, [&](auto& source) { return ReadLongString(source, text); }) != kNqNoErr)
        FailEOFFile();
    SetText(outText, text.GetText(), ioStream.GetTranscoder());
    if (inTranslate)
        outText.TranslateAfterRead();
    return outText;
}

TNqString255 GetLocalizedStringToken(TNqiostream& ioStream)
{
    TNqString255 text;
    ioStream.ReadLocalizedString(text);
    return text;
}

TNqDynamicString& GetLocalizedDynamicStringToken(TNqiostream& ioStream, TNqDynamicString& outText)
{
    ioStream.ReadLocalizedDynamicString(outText);
    return outText;
}

TNqString255 GetPathRefToken(TNqiostream& ioStream)
{
    int8 path[kPathBytes] = {};
    ioStream.readFileRef(path);
    ThrowIfFailed(ioStream);
    TNqString255 text;
    SetText(text, path, ioStream.GetTranscoder());
    text.TranslateAfterRead();
    return text;
}

} // namespace NqToken
