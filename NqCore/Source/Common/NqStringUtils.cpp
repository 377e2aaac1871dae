#include "NqCore/PublicAPI/NqStringUtils.h"

#include "NqCore/Include/CFMacPtr.h"
#include "NqCore/Include/NqStringWalk.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqPlatform/CFString.h"

#include <QChar>
#include <QLocale>
#include <QString>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <iterator>

// ---- Qt -------------------------------------------------------------------------------------------------------------

namespace
{

// False without memory for the 16-bit copy.
bool FillQString(const TNqString& s, QString& q)
{
    const TNqWideString units(s);
    if (units.StrGet() == nullptr)
        return false;
    q.setUtf16(units.StrGet(), units.Length());
    return true;
}

} // namespace

void NqStringToQString(const TNqString& s, QString& q)
{
    if (!FillQString(s, q))
        q.clear();
}

void QStringToNqString(const QString& q, TNqString& s)
{
    s.FromUnicode(q.utf16());
}

// ---- Case, order, numbers -------------------------------------------------------------------------------------------

namespace
{

// Most names are plain ASCII, where a letter's case is one bit: their bytes are mapped where they stand. False for any
// other text.
bool MapAsciiCase(TNqString& s, char inFirst, char inLast)
{
    int8* const text = s.Length() == s.ByteLength() && s.Length() != 0 ? s.GetString() : nullptr;
    if (text == nullptr || !std::all_of(text, text + s.ByteLength(), [](int8 c) { return c > 0; }))
        return false;
    constexpr int8 kCaseBit = 0x20;
    std::for_each(text, text + s.ByteLength(),
                  [=](int8& c)
                  {
                      if (c >= inFirst && c <= inLast)
                          c = static_cast<int8>(c ^ kCaseBit);
                  });
    return true;
}

// What QString makes of each character by itself, asked once for each 256 of them. Its own walk looks up the properties
// of every character of a text, which takes several times as long. Threads: any, they all write the same.
template <QString (*kMap)(const QString&)>
class TCaseTable
{
public:
    // Maps the characters in place. False, with nothing changed, when one becomes several or may be half of a pair.
    bool MapEach(uint16* inFirst, uint16* inLast)
    {
        if (!std::all_of(inFirst, inLast, [this](uint16 ch) { return Get(ch) != kNotAlone; }))
            return false;
        std::transform(inFirst, inLast, inFirst, [this](uint16 ch) { return Get(ch); });
        return true;
    }

private:
    static constexpr uint16 kNotAlone = 0; // nothing else becomes 0
    static constexpr uint32 kPageLength = 256;

    uint16 Get(uint16 ch)
    {
        if (!fIsPageFilled[ch / kPageLength].load(std::memory_order_acquire))
            FillPage(ch / kPageLength);
        return fCharacters[ch].load(std::memory_order_relaxed);
    }

    void FillPage(uint32 inPage)
    {
        for (uint32 ch = inPage * kPageLength; ch != (inPage + 1) * kPageLength; ++ch)
        {
            const QString mapped = kMap(QString(QChar(ch)));
            const bool isAlone = mapped.size() == 1 && !QChar::isSurrogate(ch);
            fCharacters[ch].store(isAlone ? mapped[0].unicode() : kNotAlone, std::memory_order_relaxed);
        }
        fIsPageFilled[inPage].store(true, std::memory_order_release);
    }

    std::atomic<bool> fIsPageFilled[0x10000 / kPageLength] = {};
    std::atomic<uint16> fCharacters[0x10000] = {};
};

QString ToCapitals(const QString& inText)
{
    return inText.toUpper();
}

QString ToSmallLetters(const QString& inText)
{
    return inText.toLower();
}

// Without memory the text stays as it is.
template <QString (*kMap)(const QString&)>
void MapCase(TNqString& s)
{
    static TCaseTable<kMap> sTable;
    const TNqWideString characters(s);
    uint16* const first = characters.StrGet();
    if (first == nullptr)
        return;
    uint16* const last = std::find(first, first + characters.Length(), 0);
    if (sTable.MapEach(first, last))
    {
        s.FromUnicode(first);
        return;
    }
    QString text;
    text.setUtf16(first, characters.Length()); // half of a pair is another thing before a NUL than at the end
    QStringToNqString(kMap(text), s);
}

CFStringRef CreateCFString(const TNqWideString& inText)
{
    const uint16* const units = inText.StrGet();
    if (units == nullptr)
        return nullptr;
    const uint16* const end = std::find(units, units + inText.Length(), 0);
    return CFStringCreateWithCharacters(kCFAllocatorDefault, units, end - units);
}

int16 CompareBytes(const TNqString& a, const TNqString& b)
{
    const char* const left = a.GetString();
    const char* const right = b.GetString();
    const int order = std::strcmp(left != nullptr ? left : "", right != nullptr ? right : "");
    return static_cast<int16>((order > 0) - (order < 0));
}

} // namespace

void NqUpperString(TNqString& s)
{
    if (!MapAsciiCase(s, 'a', 'z'))
        MapCase<ToCapitals>(s);
}

void NqLowerString(TNqString& s)
{
    if (!MapAsciiCase(s, 'A', 'Z'))
        MapCase<ToSmallLetters>(s);
}

int16 NqCompareStrings(const TNqString& a, const TNqString& b)
{
    const CFMacPtr<CFStringRef> left(CreateCFString(TNqWideString(a)));
    const CFMacPtr<CFStringRef> right(CreateCFString(TNqWideString(b)));
    if (left == nullptr || right == nullptr)
        return CompareBytes(a, b); // without memory: some order rather than none
    return static_cast<int16>(CFStringCompare(left, right, kCFCompareLocalized));
}

char NqGetDecimalPt()
{
    const QString point = QLocale().decimalPoint();
    const char first = point.isEmpty() ? '\0' : point.at(0).toLatin1();
    return first != 0 ? first : '.';
}

// ---- Messages -------------------------------------------------------------------------------------------------------

namespace
{

constexpr char kParameterMark = '^';

bool HasParameterMark(const TNqString& inText)
{
    return inText.FindSBCharPos(kParameterMark, 0) != kNqNotFound;
}

// Replaces placeholders from left to right into a buffer of its own, in one pass. A parameter without a mark is read
// again like the text around it, since its digits may complete a placeholder with the mark before them.
class TPlaceholderPass
{
public:
    TPlaceholderPass(const TNqString& inPlaceholder, const TNqString& inParameter)
        : fPlaceholder(inPlaceholder),
          fParameter(inParameter),
          fReread(!HasParameterMark(inParameter))
    {
    }

    // False without memory.
    bool Run(const TNqString& inText)
    {
        const int8* const bytes = inText.GetString();
        const uint32 searched = static_cast<uint32>(strnlen(bytes, inText.ByteLength()));
        fRest = inText.ByteLength();
        if (!Read(bytes, searched))
            return false;
        while (fInputs.GetElemCount() != 0)
        {
            TInput& input = fInputs[fInputs.GetElemCount() - 1];
            const int8 byte = *input.fNext++;
            --fRest;
            if (input.fNext == input.fEnd)
                fInputs.SetElemCount(fInputs.GetElemCount() - 1);
            if (!Put(&byte, 1) || (EndsInPlaceholder() && !PutParameter()))
                return false;
        }
        return Put(bytes + searched, inText.ByteLength() - searched);
    }

    const int8* GetBytes() const { return fOut.ArrayData(); }
    uint32 GetByteLength() const { return fOut.GetElemCount(); }
    uint64 GetPeakByteLength() const { return fPeak; } // of the text while its placeholders were replaced one by one

private:
    struct TInput
    {
        const int8* fNext;
        const int8* fEnd;
    };

    bool Read(const int8* inBytes, uint32 inByteLength)
    {
        return inByteLength == 0 || fInputs.AddElem({inBytes, inBytes + inByteLength});
    }

    bool Put(const int8* inBytes, uint32 inByteLength)
    {
        const uint32 oldCount = fOut.GetElemCount();
        const uint64 newCount = static_cast<uint64>(oldCount) + inByteLength;
        if (newCount >= kEndIndex)
            return false; // more than an array holds
        const uint32 doubled = static_cast<uint32>(std::min<uint64>(2 * newCount, kEndIndex - 1));
        if (newCount > fOut.GetElemSpace() && !fOut.SetElemSpace(doubled))
            return false;
        if (!fOut.SetElemCount(newCount))
            return false;
        if (inByteLength != 0)
            std::memcpy(fOut.ArrayData() + oldCount, inBytes, inByteLength);
        return true;
    }

    bool EndsInPlaceholder() const
    {
        const uint32 length = fPlaceholder.ByteLength();
        const uint32 count = fOut.GetElemCount();
        return count - fDone >= length &&
               std::memcmp(fOut.ArrayData() + count - length, fPlaceholder.GetString(), length) == 0;
    }

    bool PutParameter()
    {
        fOut.SetElemCount(fOut.GetElemCount() - fPlaceholder.ByteLength());
        fPeak = std::max(fPeak, static_cast<uint64>(fOut.GetElemCount()) + fParameter.ByteLength() + fRest);
        if (fReread)
        {
            fRest += fParameter.ByteLength();
            return Read(fParameter.GetString(), fParameter.ByteLength());
        }
        const bool isPut = Put(fParameter.GetString(), fParameter.ByteLength());
        fDone = fOut.GetElemCount();
        return isPut;
    }

    const TNqString& fPlaceholder;
    const TNqString& fParameter;
    const bool fReread;
    TNqArray<TInput> fInputs{0, false}; // what is still to be read, the nearest last
    TNqArray<int8> fOut{0, false};
    uint32 fDone = 0; // bytes of fOut that are not searched again
    uint64 fRest = 0; // bytes still to be read
    uint64 fPeak = 0;
};

// The same step by step: for a string that cuts what does not fit at each of them, and for short texts, which then need
// no memory.
void ReplacePlaceholdersInPlace(TNqString& outText, const TNqString& inPlaceholder, const TNqString& inParameter)
{
    const bool restart = !HasParameterMark(inParameter);
    uint32 from = 0;
    for (uint32 found; (found = outText.SearchSBStr(inPlaceholder, from)) != kNqNotFound;)
    {
        // The index as EraseStr counts it: the one of SearchStr is another in malformed text, which would keep its
        // placeholder for ever.
        const uint32 at = UTF8StrLen(reinterpret_cast<const uint8*>(outText.GetString()), found);
        if (!outText.EraseStr(at, inPlaceholder.Length()))
            return;
        outText.InsertStr(inParameter, at);
        from =
            restart ? 0 : static_cast<uint32>(std::min<uint64>(uint64{found} + inParameter.ByteLength(), kNqNotFound));
    }
}

} // namespace

void NqParameterText(TNqString& inoutString, const TNqString& inSubString, uint32 inIndex)
{
    char name[11] = {kParameterMark};
    const char* const nameEnd = std::to_chars(name + 1, std::end(name), inIndex).ptr;
    const TNqString15 placeholder(name, static_cast<uint32>(nameEnd - name));
    if (inoutString.SearchSBStr(placeholder, 0) == kNqNotFound)
        return;
    constexpr uint32 kShortText = 1023;
    constexpr uint32 kShortParameter = 255;
    if (inoutString.MaxLength() <= kShortText && inSubString.ByteLength() <= kShortParameter)
    {
        ReplacePlaceholdersInPlace(inoutString, placeholder, TNqString255(inSubString));
        return;
    }
    TPlaceholderPass pass(placeholder, inSubString);
    if (!pass.Run(inoutString))
        return;
    if (pass.GetPeakByteLength() > inoutString.MaxLength())
        inoutString.SetMaxLength(static_cast<uint32>(std::min<uint64>(pass.GetPeakByteLength(), kNqNotFound)));
    if (pass.GetPeakByteLength() <= inoutString.MaxLength())
    {
        inoutString.FromText(pass.GetBytes(), pass.GetByteLength());
        return;
    }
    if (inoutString.MaxLength() == 0)
        return; // it could not grow
    if (&inSubString != &inoutString)
    {
        ReplacePlaceholdersInPlace(inoutString, placeholder, inSubString);
        return;
    }
    const TNqDynamicString copy(inSubString);
    if (copy.ByteLength() == inSubString.ByteLength())
        ReplacePlaceholdersInPlace(inoutString, placeholder, copy);
}

void NqParameterText(TNqString& inoutString, const TNqString& inSubString)
{
    NqParameterText(inoutString, inSubString, 0);
}

void NqParameterText(TNqString& inoutString, const TNqPtrArray<TNqString>& inTextStrings)
{
    for (uint32 i = 0; i < inTextStrings.GetElemCount(); ++i)
    {
        const TNqString* const arg = inTextStrings[i];
        if (NqCheck(arg))
            NqParameterText(inoutString, *arg, i);
    }
}

// ---- Lookup ---------------------------------------------------------------------------------------------------------

uint8 NqGetHashValue8(const TNqString& s)
{
    const uint32 byteLength = s.ByteLength();
    TNqCharWalk walk(byteLength != 0 ? s.GetString() : "", byteLength);
    uint32 hash = 0;
    uint16 ch = 0;
    for (uint32 i = 0; i < s.Length() && i < byteLength && walk.Next(ch); ++i)
    {
        const int16 v = static_cast<int16>(static_cast<uint32>(ch) << (i % 8));
        hash ^= static_cast<uint32>((v >> 8) | v);
    }
    return static_cast<uint8>(hash);
}

// ---- The system's multi-byte encoding -------------------------------------------------------------------------------

boolean NqIsDoubleByteVersion()
{
    return false;
}

boolean NqIsWesternLanguage()
{
    static bool sReported = false;
    if (!sReported)
    {
        sReported = true;
        NqNotify("Not yet implemented. Is it still needed?");
    }
    return false;
}

int16 FastCharacterByteType(const char*)
{
    NqNotify("Still must be implemented.");
    return 1;
}

int16 NqStrLen(const char* inString)
{
    if (NqIsWesternLanguage())
        return static_cast<int16>(std::strlen(inString));
    uint16 count = 0;
    for (const char* p = inString; *p != 0; p += FastCharacterByteType(p))
        ++count;
    return static_cast<int16>(count);
}

int16 NqStrCharLen(char inFirstByte)
{
    return NqIsWesternLanguage() ? static_cast<int16>(1) : FastCharacterByteType(&inFirstByte);
}

int16 NqPCharToInt16(const char* inCharacter)
{
    if (!NqIsWesternLanguage() && FastCharacterByteType(inCharacter) == 2)
        return static_cast<int16>((static_cast<uint8>(inCharacter[0]) << 8) | static_cast<uint8>(inCharacter[1]));
    return static_cast<signed char>(inCharacter[0]);
}

const char* NqGetCharNext(const char* p, int n)
{
    if (NqIsWesternLanguage())
        return p + n;
    for (int i = 0; i < n && *p != 0; ++i)
        p += FastCharacterByteType(p);
    return p;
}

const char* NqGetCharPrev(const char* inStart, const char* p, int n)
{
    if (NqIsWesternLanguage() || p < inStart ||
        strnlen(inStart, static_cast<size_t>(p - inStart) + 1) <= static_cast<size_t>(p - inStart))
        return p - n;
    for (int i = 0; i < n && p > inStart + 1; ++i)
    {
        NqNotify("Still need to implement");
        --p;
    }
    return p;
}
