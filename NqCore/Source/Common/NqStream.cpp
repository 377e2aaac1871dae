#include "NqCore/PublicAPI/NqStream.h"

#include "NqCore/Include/NqStreamText.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqMath.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <algorithm>
#include <limits>

const int8 kStringQuote[2] = "\"";
const int8 kStringEscape = '\\';

const real64 gPowersTen[16] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

int8 TNqiostream::fStandardSeparators[5] = " \n\r\t";

TNqiostreamContext::~TNqiostreamContext() = default;

// ---- Construction --------------------------------------------------------------------------------------------------

TNqiostream::TNqiostream()
    : fFlags(0),
      fState(0),
      fMode(static_cast<EFilePermission>(0)),
      fPrecision(8),
      fWidth(12),
      fgcount(0),
      fSeparators(fStandardSeparators),
      fInfos(nullptr),
      fInfosCount(0),
      fIDOffset(0),
      fNumberEnd(kNqNumberUnknown),
      fSequential(false),
      fFileOpen(false)
{
}

TNqiostream::~TNqiostream()
{
    for (uint32 i = 0; i < fInfosCount; ++i)
        Nqfree(fInfos[i].fData);
    Nqfree(fInfos);
}

// ---- Primitives ----------------------------------------------------------------------------------------------------

void TNqiostream::get(int8& c)
{
    read(&c, 1);
}

void TNqiostream::streamfail(int32 inCode)
{
    static_cast<void>(inCode);
    changestate(failbit);
    NqNotify("Stream throw TNqException");
}

boolean TNqiostream::isWhite(int8 c) const
{
    if (fSeparators == nullptr)
        return false;
    const int8* separator = fSeparators;
    while (*separator != 0 && *separator != c)
        ++separator;
    return *separator != 0;
}

// ---- Extraction ----------------------------------------------------------------------------------------------------

namespace
{

template <class T>
TNqiostream& Extract(TNqiostream& ioStream, T& outValue)
{
    NqWithSource(ioStream, [&](auto& source) { NqScanValue(source, outValue); });
    return ioStream;
}

template <class T>
TNqiostream& Insert(TNqiostream& ioStream, T inValue)
{
    NqWithSink(ioStream, [&](auto& sink) { NqPutValue(sink, inValue); });
    return ioStream;
}

} // namespace

TNqiostream& TNqiostream::operator>>(int8* outWord)
{
    readstring(outWord);
    return *this;
}

TNqiostream& TNqiostream::operator>>(uint8* outWord)
{
    readstring(reinterpret_cast<int8*>(outWord));
    return *this;
}

TNqiostream& TNqiostream::operator>>(int8& c)
{
    return Extract(*this, c);
}

TNqiostream& TNqiostream::operator>>(uint8& c)
{
    return Extract(*this, c);
}

TNqiostream& TNqiostream::operator>>(int32& outValue)
{
    return Extract(*this, outValue);
}

TNqiostream& TNqiostream::operator>>(uint32& outValue)
{
    return Extract(*this, outValue);
}

TNqiostream& TNqiostream::operator>>(int16& outValue)
{
    return Extract(*this, outValue);
}

TNqiostream& TNqiostream::operator>>(uint16& outValue)
{
    return Extract(*this, outValue);
}

TNqiostream& TNqiostream::operator>>(real32& outValue)
{
    return Extract(*this, outValue);
}

TNqiostream& TNqiostream::operator>>(real64& outValue)
{
    return Extract(*this, outValue);
}

TNqiostream& TNqiostream::operator>>(TNqString& outText)
{
    readQuotedString(outText);
    return *this;
}

TNqiostream& TNqiostream::operator>>(TNqiostream& (*inManipulator)(TNqiostream&))
{
    return inManipulator(*this);
}

int8 TNqiostream::myipfx()
{
    return NqWithSource(*this, [](auto& source) { return NqSkipSeparators(source); });
}

void TNqiostream::readlong(int32& outValue)
{
    Extract(*this, outValue);
}

void TNqiostream::readunsignedlong(uint32& outValue)
{
    Extract(*this, outValue);
}

void TNqiostream::readdouble(real64& outValue)
{
    Extract(*this, outValue);
}

void TNqiostream::readstring(int8* outWord)
{
    NqWithSource(*this, [&](auto& source) { NqScanUnboundedWord(source, outWord); });
}

boolean TNqiostream::ReadString(int8* outBuffer, int32 bufferSize)
{
    if (!NqCheck(bufferSize > 0))
        return false;
    return NqWithSource(*this, [&](auto& source) { return NqScanBoundedWord(source, outBuffer, bufferSize); });
}

void TNqiostream::readQuotedString(TNqString& outText)
{
    int8 bytes[kNqQuotedStringLimit + 1];
    NqWithSource(*this, [&](auto& source) { NqScanQuoted(source, bytes, kNqQuotedStringLimit, false); });
    NqTextFromEncoded(outText, bytes, fEncoding);
}

boolean TNqiostream::ReadSingleLineQuotedString(TNqString& outText, uint32 inMaxLength)
{
    outText.FromText("", 0);
    NqByteBuffer bytes(Nq_Min(inMaxLength, uint32(1023)));
    const NqLineString result =
        NqWithSource(*this, [&](auto& source) { return NqScanLineQuoted(source, inMaxLength, bytes); });
    if (result == NqLineString::kNoMemory)
        streamfail(kNqStreamOutOfRange);
    if (result != NqLineString::kRead)
        return false;
    NqTextFromEncoded(outText, bytes.Data(), fEncoding);
    return true;
}

// ---- Insertion -----------------------------------------------------------------------------------------------------

TNqiostream& TNqiostream::operator<<(const int8* inText)
{
    writestring(inText);
    return *this;
}

TNqiostream& TNqiostream::operator<<(const uint8* inText)
{
    writestring(reinterpret_cast<const int8*>(inText));
    return *this;
}

TNqiostream& TNqiostream::operator<<(int8 c)
{
    return Insert(*this, c);
}

TNqiostream& TNqiostream::operator<<(uint8 c)
{
    return Insert(*this, c);
}

TNqiostream& TNqiostream::operator<<(int32 inValue)
{
    return Insert(*this, inValue);
}

TNqiostream& TNqiostream::operator<<(uint32 inValue)
{
    return Insert(*this, inValue);
}

TNqiostream& TNqiostream::operator<<(int16 inValue)
{
    return Insert(*this, inValue);
}

TNqiostream& TNqiostream::operator<<(uint16 inValue)
{
    return Insert(*this, inValue);
}

TNqiostream& TNqiostream::operator<<(int64 inValue)
{
    return Insert(*this, static_cast<int32>(inValue));
}

TNqiostream& TNqiostream::operator<<(uint64 inValue)
{
    return Insert(*this, static_cast<uint32>(inValue));
}

TNqiostream& TNqiostream::operator<<(real32 inValue)
{
    return Insert(*this, inValue);
}

TNqiostream& TNqiostream::operator<<(real64 inValue)
{
    return Insert(*this, inValue);
}

TNqiostream& TNqiostream::operator<<(const TNqString& inText)
{
    writeQuotedString(inText);
    return *this;
}

TNqiostream& TNqiostream::operator<<(TNqiostream& (*inManipulator)(TNqiostream&))
{
    return inManipulator(*this);
}

void TNqiostream::writelong(int32 inValue)
{
    Insert(*this, inValue);
}

void TNqiostream::writeunsignedlong(uint32 inValue)
{
    Insert(*this, inValue);
}

void TNqiostream::writefloat(real32 inValue)
{
    Insert(*this, inValue);
}

void TNqiostream::writedouble(real64 inValue)
{
    Insert(*this, inValue);
}

void TNqiostream::writestring(const int8* inText)
{
    const size_t length = inText != nullptr ? std::strlen(inText) : 0;
    if (length > static_cast<size_t>(std::numeric_limits<int32>::max()))
        return streamfail(kNqStreamOutOfRange);
    if (inText != nullptr)
        write(inText, static_cast<int32>(length));
}

void TNqiostream::writeQuotedString(const TNqString& inText)
{
    NqWithSink(*this, [&](auto& sink) { NqPutQuoted(sink, inText); });
}

TNqiostream& endl(TNqiostream& ioStream)
{
    ioStream.put('\r');
    return ioStream;
}

TNqiostream& ends(TNqiostream& ioStream)
{
    ioStream.put(0);
    return ioStream;
}

TNqiostream& dec(TNqiostream& ioStream)
{
    ioStream.setf(1, 3);
    return ioStream;
}

TNqiostream& hex(TNqiostream& ioStream)
{
    ioStream.setf(2, 3);
    return ioStream;
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

namespace
{

NqLineEnd ReadBoundedLine(TNqiostream& ioStream, int8* outBuffer, int32 inSize, int8 inDelim, int32& outCount)
{
    int32 stored = 0;
    NqLineEnd lineEnd = {0, false, 0};
    if (inSize > 0)
        lineEnd = NqWithSource(ioStream,
                               [&](auto& source)
                               {
                                   return NqScanLine(source, inDelim, outCount,
                                                     [&](int8 c)
                                                     {
                                                         if (stored == inSize)
                                                             return false;
                                                         outBuffer[stored++] = c;
                                                         return true;
                                                     });
                               });
    outBuffer[stored] = 0;
    return lineEnd;
}

} // namespace

int8 TNqiostream::getline(int8* outBuffer, int32 inSize, int8 inDelim)
{
    int32 count = 0;
    const NqLineEnd lineEnd = ReadBoundedLine(*this, outBuffer, inSize, inDelim, count);
    fgcount = count;
    return lineEnd.fByte;
}

int8 TNqiostream::get(int8* outBuffer, int32 inSize, int8 inDelim)
{
    int32 count = 0;
    const NqLineEnd lineEnd = ReadBoundedLine(*this, outBuffer, inSize, inDelim, count);
    if (lineEnd.fFound)
        putback(lineEnd.fLast); // a CR as a CR: another byte would change the text, which may be constant
    fgcount = count - (lineEnd.fFound ? 1 : 0);
    return lineEnd.fByte;
}

int8 TNqiostream::getLine(TNqDynamicString& outLine, int8 inDelim)
{
    NqByteBuffer bytes(256);
    int32 count = 0;
    bool memory = true;
    const NqLineEnd lineEnd = NqWithSource(*this,
                                           [&](auto& source)
                                           {
                                               return NqScanLine(source, inDelim, count,
                                                                 [&](int8 c)
                                                                 {
                                                                     memory = bytes.Append(c);
                                                                     return memory;
                                                                 });
                                           });
    outLine.FromText(bytes.Data(), bytes.Count());
    if (lineEnd.fFound || bytes.Count() > 0)
        fState &= ~eofbit;
    if (!memory)
        streamfail(kNqStreamOutOfRange);
    fgcount = count;
    return lineEnd.fByte;
}

// ---- State and format ----------------------------------------------------------------------------------------------

int32 TNqiostream::precision(int32 inDecimals)
{
    const int32 before = fPrecision;
    fPrecision = Nq_Max(0, Nq_Min(inDecimals, 15));
    return before;
}

int32 TNqiostream::width(int32 inColumns)
{
    const int32 before = fWidth;
    fWidth = inColumns;
    return before;
}

int32 TNqiostream::setf(int32 inBits, int32 inMask)
{
    fFlags &= !inMask;
    return fFlags |= inBits;
}

int32 TNqiostream::unsetf(int32 inMask)
{
    return fFlags &= !inMask;
}

// ---- What belongs to the stream ------------------------------------------------------------------------------------

namespace
{

// The records stand in runs, as long as the powers of two that make up their number, the longest first, and each sorted
// by its identifiers. One is found by halving; one more is sorted with the runs that it joins to a longer one. So many
// records cost little more than time in the order of their number, and no memory but their own.
TNqiostreamInfoStruct* FindInfo(TNqiostreamInfoStruct* inInfos, uint32 inCount, IDType inId)
{
    const auto isBefore = [](const TNqiostreamInfoStruct& info, IDType other) { return info.fInfoID < other; };
    for (uint32 run = 0x80000000; inCount != 0; run /= 2)
        if (inCount & run)
        {
            TNqiostreamInfoStruct* const info = std::lower_bound(inInfos, inInfos + run, inId, isBefore);
            if (info != inInfos + run && info->fInfoID == inId)
                return info;
            inInfos += run;
            inCount -= run;
        }
    return nullptr;
}

TNqiostreamInfoStruct* SortIn(TNqiostreamInfoStruct* inInfos, uint32 inCount)
{
    const IDType id = inInfos[inCount - 1].fInfoID;
    const uint32 run = inCount & (0 - inCount); // the last one
    std::sort(inInfos + inCount - run, inInfos + inCount,
              [](const TNqiostreamInfoStruct& a, const TNqiostreamInfoStruct& b) { return a.fInfoID < b.fInfoID; });
    return FindInfo(inInfos, inCount, id);
}

} // namespace

void TNqiostream::SetInfo(IDType inId, const void* inData, uint32 inSize)
{
    void* const copy = Nqmalloc(inSize > 0 ? inSize : 1);
    if (!NqCheckText(copy != nullptr, "No memory for stream info"))
        return;
    if (inSize > 0)
        std::memcpy(copy, inData, inSize);
    TNqiostreamInfoStruct* info = FindInfo(fInfos, fInfosCount, inId);
    if (info == nullptr)
        info = AddInfo(inId);
    if (info == nullptr)
        return Nqfree(copy);
    Nqfree(info->fData);
    info->fData = copy;
}

TNqiostreamInfoStruct* TNqiostream::AddInfo(IDType inId)
{
    if (fInfosCount == 0)
        NqCheckText(fInfos == nullptr, "fInfos == nil");
    else
        NqCheckText(fInfos != nullptr, "fInfos != nil");
    // Space for twice as many whenever it is used up, which is when their number is a power of two.
    if ((fInfosCount & (fInfosCount - 1)) == 0)
    {
        const uint64 size = std::max<uint64>(uint64(fInfosCount) * 2, 1) * sizeof(TNqiostreamInfoStruct);
        const bool fits = size <= std::numeric_limits<uint32>::max();
        void* const grown = !fits              ? nullptr
                            : fInfosCount == 0 ? Nqmalloc(size)
                                               : Nqrealloc(fInfos, static_cast<uint32>(size));
        if (!NqCheckText(grown != nullptr, "No memory for stream info"))
            return nullptr;
        fInfos = static_cast<TNqiostreamInfoStruct*>(grown);
    }
    fInfos[fInfosCount++] = {inId, nullptr};
    return SortIn(fInfos, fInfosCount);
}

void* TNqiostream::GetInfo(IDType inId) const
{
    const TNqiostreamInfoStruct* const info = FindInfo(fInfos, fInfosCount, inId);
    return info != nullptr ? info->fData : nullptr;
}

int32 TNqiostream::GetStreamSize()
{
    const bool failedBefore = fState & failbit;
    const int32 position = tell();
    if ((fState & failbit) && !failedBefore)
        return 0; // nobody knows where to go back to
    seek(0, TNqiostream::end);
    const int32 size = tell();
    const int32 failure = fState & failbit;
    seek(position, TNqiostream::beg);
    changestate(failure);
    return size;
}

void TNqiostream::SetTranscoder(TranscoderType inType)
{
    if (GetTranscoder() != nullptr && fEncoding->GetType() == inType)
        return;
    if (!NqCheck(gFileUtilities))
        return;
    try
    {
        gFileUtilities->CreateTranscoder(fEncoding, inType);
    }
    catch (const TNqException&) // no memory: a failure of the stream, as any other
    {
        fEncoding = nullptr;
        streamfail(kNqStreamOutOfRange);
    }
}

void TNqiostream::WriteIdentifier()
{
    if (!NqCheckText(GetTranscoder() != nullptr, "fEncoding"))
        return;
    const uint8* const identifier = fEncoding->GetIdentifier();
    if (identifier == nullptr)
        return;
    const int8* const bytes = reinterpret_cast<const int8*>(identifier);
    fIDOffset = static_cast<uint8>(std::strlen(bytes));
    write(bytes, fIDOffset);
}

void TNqiostream::CheckIdentifier()
{
    uint8 mark[3] = {};
    read(mark, 3);
    if (mark[0] == 0xEF && mark[1] == 0xBB && mark[2] == 0xBF)
    {
        fIDOffset = 3;
        SetTranscoder(kUTF8Transcoder);
    }
    const int32 failure = fState & failbit;
    seek(0, beg);
    changestate(failure); // a stream that could not be read is not one without a mark
}

IStreamContext* TNqiostream::GetStreamContext()
{
    return fStreamContext;
}

void TNqiostream::SetStreamContext(IStreamContext* inContext)
{
    fStreamContext = inContext;
}

// ---- File references, contexts, localized strings ------------------------------------------------------------------

void NqTextFromUTF8(TNqString& outText, const int8* inBytes)
{
    TNqArray<uint16> characters;
    const size_t most = std::strlen(inBytes) + 1;
    if (!characters.SetElemSpace(static_cast<uint32>(std::min<size_t>(most, std::numeric_limits<uint32>::max()))))
        return;
    uint8 index = 0, total = 0;
    uint8 sequence[4];
    for (; *inBytes != 0; ++inBytes)
    {
        const uint16 character = UTF8TakeByte(static_cast<uint8>(*inBytes), index, total, sequence);
        if (character != kNqNoCharacter)
            characters.AddElem(character);
    }
    characters.AddElem(0);
    outText.FromUnicode(characters.ArrayData());
}

void NqReadPathText(TNqiostream& ioStream, TNqString& outText)
{
    // A reference goes up a folder for each ':' before what it shares with the path: it may be longer than that one.
    constexpr int32 kLongestReference = 2 * kNqLongestPath + 1;
    int8 bytes[kLongestReference + 1];
    const bool whole =
        NqWithSource(ioStream, [&](auto& source) { return NqScanQuoted(source, bytes, kLongestReference, true); });
    if (!NqCheckText(whole, "Path is too long"))
        bytes[0] = 0;
    NqTextFromEncoded(outText, bytes, ioStream.GetTranscoder());
}

void TNqiostream::readFileRef(int8* outPath)
{
    TNqDynamicString text;
    NqReadPathText(*this, text);
    if (!NqCheckText(text.ByteLength() <= kNqLongestPath, "Path is too long"))
        text.FromText("", 0);
    text.ToCPtr(outPath);
}

void TNqiostream::writeFileRef(const int8* inPath)
{
    const TNqDynamicString text(inPath);
    if (text.ByteLength() == 0 && inPath != nullptr && *inPath != 0)
        return streamfail(kNqStreamOutOfRange); // no memory: better nothing than another path
    writeQuotedString(text);
}

void TNqiostream::GetPathRelativeFolder(TNqString& outFolder)
{
    outFolder.FromText("", 0);
}

TNqiostreamContext* TNqiostream::GetContext()
{
    return nullptr;
}

void TNqiostream::WriteLocalizedString(const TNqString& inText)
{
    writeQuotedString(inText);
}

boolean TNqiostream::ReadLocalizedString(TNqString& outText)
{
    outText = NqToken::GetNonLocalizedStringToken(*this);
    return true;
}

void TNqiostream::ReadLocalizedDynamicString(TNqDynamicString& outText)
{
    NqToken::GetNonLocalizedDynamicStringToken(*this, outText, true); // without its tags, as ReadLocalizedString
}
