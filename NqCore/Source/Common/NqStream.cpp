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

void TNqiostream::streamfail(int32 code)
{
    static_cast<void>(code);
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
TNqiostream& Extract(TNqiostream& stream, T& value)
{
    NqWithSource(stream, [&](auto& source) { NqScanValue(source, value); });
    return stream;
}

template <class T>
TNqiostream& Insert(TNqiostream& stream, T value)
{
    NqWithSink(stream, [&](auto& sink) { NqPutValue(sink, value); });
    return stream;
}

} // namespace

TNqiostream& TNqiostream::operator>>(int8* word)
{
    readstring(word);
    return *this;
}

TNqiostream& TNqiostream::operator>>(uint8* word)
{
    readstring(reinterpret_cast<int8*>(word));
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

TNqiostream& TNqiostream::operator>>(int32& value)
{
    return Extract(*this, value);
}

TNqiostream& TNqiostream::operator>>(uint32& value)
{
    return Extract(*this, value);
}

TNqiostream& TNqiostream::operator>>(int16& value)
{
    return Extract(*this, value);
}

TNqiostream& TNqiostream::operator>>(uint16& value)
{
    return Extract(*this, value);
}

TNqiostream& TNqiostream::operator>>(real32& value)
{
    return Extract(*this, value);
}

TNqiostream& TNqiostream::operator>>(real64& value)
{
    return Extract(*this, value);
}

TNqiostream& TNqiostream::operator>>(TNqString& text)
{
    readQuotedString(text);
    return *this;
}

TNqiostream& TNqiostream::operator>>(TNqiostream& (*manipulator)(TNqiostream&))
{
    return manipulator(*this);
}

int8 TNqiostream::myipfx()
{
    return NqWithSource(*this, [](auto& source) { return NqSkipSeparators(source); });
}

void TNqiostream::readlong(int32& value)
{
    Extract(*this, value);
}

void TNqiostream::readunsignedlong(uint32& value)
{
    Extract(*this, value);
}

void TNqiostream::readdouble(real64& value)
{
    Extract(*this, value);
}

void TNqiostream::readstring(int8* word)
{
    NqWithSource(*this, [&](auto& source) { NqScanUnboundedWord(source, word); });
}

boolean TNqiostream::ReadString(int8* buffer, int32 bufferSize)
{
    if (!NqCheck(bufferSize > 0))
        return false;
    return NqWithSource(*this, [&](auto& source) { return NqScanBoundedWord(source, buffer, bufferSize); });
}

void TNqiostream::readQuotedString(TNqString& text)
{
    int8 bytes[kNqQuotedStringLimit + 1];
    NqWithSource(*this, [&](auto& source) { NqScanQuoted(source, bytes, kNqQuotedStringLimit, false); });
    NqTextFromEncoded(text, bytes, fEncoding);
}

boolean TNqiostream::ReadSingleLineQuotedString(TNqString& text, uint32 maxLength)
{
    text.FromText("", 0);
    NqByteBuffer bytes(Nq_Min(maxLength, uint32(1023)));
    const NqLineString result =
        NqWithSource(*this, [&](auto& source) { return NqScanLineQuoted(source, maxLength, bytes); });
    if (result == NqLineString::kNoMemory)
        streamfail(kNqStreamOutOfRange);
    if (result != NqLineString::kRead)
        return false;
    NqTextFromEncoded(text, bytes.Data(), fEncoding);
    return true;
}

// ---- Insertion -----------------------------------------------------------------------------------------------------

TNqiostream& TNqiostream::operator<<(const int8* text)
{
    writestring(text);
    return *this;
}

TNqiostream& TNqiostream::operator<<(const uint8* text)
{
    writestring(reinterpret_cast<const int8*>(text));
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

TNqiostream& TNqiostream::operator<<(int32 value)
{
    return Insert(*this, value);
}

TNqiostream& TNqiostream::operator<<(uint32 value)
{
    return Insert(*this, value);
}

TNqiostream& TNqiostream::operator<<(int16 value)
{
    return Insert(*this, value);
}

TNqiostream& TNqiostream::operator<<(uint16 value)
{
    return Insert(*this, value);
}

TNqiostream& TNqiostream::operator<<(int64 value)
{
    return Insert(*this, static_cast<int32>(value));
}

TNqiostream& TNqiostream::operator<<(uint64 value)
{
    return Insert(*this, static_cast<uint32>(value));
}

TNqiostream& TNqiostream::operator<<(real32 value)
{
    return Insert(*this, value);
}

TNqiostream& TNqiostream::operator<<(real64 value)
{
    return Insert(*this, value);
}

TNqiostream& TNqiostream::operator<<(const TNqString& text)
{
    writeQuotedString(text);
    return *this;
}

TNqiostream& TNqiostream::operator<<(TNqiostream& (*manipulator)(TNqiostream&))
{
    return manipulator(*this);
}

void TNqiostream::writelong(int32 value)
{
    Insert(*this, value);
}

void TNqiostream::writeunsignedlong(uint32 value)
{
    Insert(*this, value);
}

void TNqiostream::writefloat(real32 value)
{
    Insert(*this, value);
}

void TNqiostream::writedouble(real64 value)
{
    Insert(*this, value);
}

void TNqiostream::writestring(const int8* text)
{
    const size_t length = text != nullptr ? std::strlen(text) : 0;
    if (length > static_cast<size_t>(std::numeric_limits<int32>::max()))
        return streamfail(kNqStreamOutOfRange);
    if (text != nullptr)
        write(text, static_cast<int32>(length));
}

void TNqiostream::writeQuotedString(const TNqString& text)
{
    NqWithSink(*this, [&](auto& sink) { NqPutQuoted(sink, text); });
}

TNqiostream& endl(TNqiostream& stream)
{
    stream.put('\r');
    return stream;
}

TNqiostream& ends(TNqiostream& stream)
{
    stream.put(0);
    return stream;
}

TNqiostream& dec(TNqiostream& stream)
{
    stream.setf(1, 3);
    return stream;
}

TNqiostream& hex(TNqiostream& stream)
{
    stream.setf(2, 3);
    return stream;
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

namespace
{

NqLineEnd ReadBoundedLine(TNqiostream& stream, int8* buffer, int32 size, int8 delim, int32& outCount)
{
    int32 stored = 0;
    NqLineEnd lineEnd = {0, false, 0};
    if (size > 0)
        lineEnd = NqWithSource(stream,
                               [&](auto& source)
                               {
                                   return NqScanLine(source, delim, outCount,
                                                     [&](int8 c)
                                                     {
                                                         if (stored == size)
                                                             return false;
                                                         buffer[stored++] = c;
                                                         return true;
                                                     });
                               });
    buffer[stored] = 0;
    return lineEnd;
}

} // namespace

int8 TNqiostream::getline(int8* buffer, int32 size, int8 delim)
{
    int32 count = 0;
    const NqLineEnd lineEnd = ReadBoundedLine(*this, buffer, size, delim, count);
    fgcount = count;
    return lineEnd.fByte;
}

int8 TNqiostream::get(int8* buffer, int32 size, int8 delim)
{
    int32 count = 0;
    const NqLineEnd lineEnd = ReadBoundedLine(*this, buffer, size, delim, count);
    if (lineEnd.fFound)
        putback(lineEnd.fLast); // a CR as a CR: another byte would change the text, which may be constant
    fgcount = count - (lineEnd.fFound ? 1 : 0);
    return lineEnd.fByte;
}

int8 TNqiostream::getLine(TNqDynamicString& line, int8 delim)
{
    NqByteBuffer bytes(256);
    int32 count = 0;
    bool memory = true;
    const NqLineEnd lineEnd = NqWithSource(*this,
                                           [&](auto& source)
                                           {
                                               return NqScanLine(source, delim, count,
                                                                 [&](int8 c)
                                                                 {
                                                                     memory = bytes.Append(c);
                                                                     return memory;
                                                                 });
                                           });
    line.FromText(bytes.Data(), bytes.Count());
    if (lineEnd.fFound || bytes.Count() > 0)
        fState &= ~eofbit;
    if (!memory)
        streamfail(kNqStreamOutOfRange);
    fgcount = count;
    return lineEnd.fByte;
}

// ---- State and format ----------------------------------------------------------------------------------------------

int32 TNqiostream::precision(int32 decimals)
{
    const int32 before = fPrecision;
    fPrecision = Nq_Max(0, Nq_Min(decimals, 15));
    return before;
}

int32 TNqiostream::width(int32 columns)
{
    const int32 before = fWidth;
    fWidth = columns;
    return before;
}

int32 TNqiostream::setf(int32 bits, int32 mask)
{
    fFlags &= !mask;
    return fFlags |= bits;
}

int32 TNqiostream::unsetf(int32 mask)
{
    return fFlags &= !mask;
}

// ---- What belongs to the stream ------------------------------------------------------------------------------------

namespace
{

// The records stand in runs, as long as the powers of two that make up their number, the longest first, and each sorted
// by its identifiers. One is found by halving; one more is sorted with the runs that it joins to a longer one. So many
// records cost little more than time in the order of their number, and no memory but their own.
TNqiostreamInfoStruct* FindInfo(TNqiostreamInfoStruct* infos, uint32 count, IDType id)
{
    const auto isBefore = [](const TNqiostreamInfoStruct& info, IDType other) { return info.fInfoID < other; };
    for (uint32 run = 0x80000000; count != 0; run /= 2)
        if (count & run)
        {
            TNqiostreamInfoStruct* const info = std::lower_bound(infos, infos + run, id, isBefore);
            if (info != infos + run && info->fInfoID == id)
                return info;
            infos += run;
            count -= run;
        }
    return nullptr;
}

TNqiostreamInfoStruct* SortIn(TNqiostreamInfoStruct* infos, uint32 count)
{
    const IDType id = infos[count - 1].fInfoID;
    const uint32 run = count & (0 - count); // the last one
    std::sort(infos + count - run, infos + count,
              [](const TNqiostreamInfoStruct& a, const TNqiostreamInfoStruct& b) { return a.fInfoID < b.fInfoID; });
    return FindInfo(infos, count, id);
}

} // namespace

void TNqiostream::SetInfo(IDType id, const void* data, uint32 size)
{
    void* const copy = Nqmalloc(size > 0 ? size : 1);
    if (!NqCheckText(copy != nullptr, "No memory for stream info"))
        return;
    if (size > 0)
        std::memcpy(copy, data, size);
    TNqiostreamInfoStruct* info = FindInfo(fInfos, fInfosCount, id);
    if (info == nullptr)
        info = AddInfo(id);
    if (info == nullptr)
        return Nqfree(copy);
    Nqfree(info->fData);
    info->fData = copy;
}

TNqiostreamInfoStruct* TNqiostream::AddInfo(IDType id)
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
    fInfos[fInfosCount++] = {id, nullptr};
    return SortIn(fInfos, fInfosCount);
}

void* TNqiostream::GetInfo(IDType id) const
{
    const TNqiostreamInfoStruct* const info = FindInfo(fInfos, fInfosCount, id);
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

void TNqiostream::SetTranscoder(TranscoderType type)
{
    if (GetTranscoder() != nullptr && fEncoding->GetType() == type)
        return;
    if (!NqCheck(gFileUtilities))
        return;
    try
    {
        gFileUtilities->CreateTranscoder(fEncoding, type);
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

void TNqiostream::SetStreamContext(IStreamContext* context)
{
    fStreamContext = context;
}

// ---- File references, contexts, localized strings ------------------------------------------------------------------

void NqTextFromUTF8(TNqString& text, const int8* bytes)
{
    TNqArray<uint16> characters;
    const size_t most = std::strlen(bytes) + 1;
    if (!characters.SetElemSpace(static_cast<uint32>(std::min<size_t>(most, std::numeric_limits<uint32>::max()))))
        return;
    uint8 index = 0, total = 0;
    uint8 sequence[4];
    for (; *bytes != 0; ++bytes)
    {
        const uint16 character = UTF8TakeByte(static_cast<uint8>(*bytes), index, total, sequence);
        if (character != kNqNoCharacter)
            characters.AddElem(character);
    }
    characters.AddElem(0);
    text.FromUnicode(characters.ArrayData());
}

void NqReadPathText(TNqiostream& stream, TNqString& text)
{
    // A reference goes up a folder for each ':' before what it shares with the path: it may be longer than that one.
    constexpr int32 kLongestReference = 2 * kNqLongestPath + 1;
    int8 bytes[kLongestReference + 1];
    const bool whole =
        NqWithSource(stream, [&](auto& source) { return NqScanQuoted(source, bytes, kLongestReference, true); });
    if (!NqCheckText(whole, "Path is too long"))
        bytes[0] = 0;
    NqTextFromEncoded(text, bytes, stream.GetTranscoder());
}

void TNqiostream::readFileRef(int8* path)
{
    TNqDynamicString text;
    NqReadPathText(*this, text);
    if (!NqCheckText(text.ByteLength() <= kNqLongestPath, "Path is too long"))
        text.FromText("", 0);
    text.ToCPtr(path);
}

void TNqiostream::writeFileRef(const int8* path)
{
    const TNqDynamicString text(path);
    if (text.ByteLength() == 0 && path != nullptr && *path != 0)
        return streamfail(kNqStreamOutOfRange); // no memory: better nothing than another path
    writeQuotedString(text);
}

void TNqiostream::GetPathRelativeFolder(TNqString& folder)
{
    folder.FromText("", 0);
}

TNqiostreamContext* TNqiostream::GetContext()
{
    return nullptr;
}

void TNqiostream::WriteLocalizedString(const TNqString& text)
{
    writeQuotedString(text);
}

boolean TNqiostream::ReadLocalizedString(TNqString& text)
{
    text = NqToken::GetNonLocalizedStringToken(*this);
    return true;
}

void TNqiostream::ReadLocalizedDynamicString(TNqDynamicString& text)
{
    NqToken::GetNonLocalizedDynamicStringToken(*this, text, true); // without its tags, as ReadLocalizedString
}
