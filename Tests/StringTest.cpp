#include "NqCore/Include/NqNumberText.h"
#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/UTF8Transcoder.h"
#include "NqCore/PublicAPI/NqException.h"
#include "Tests/StringFixture.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <memory>
#include <optional>

// Strings cross into modules built elsewhere: their sizes and fields are fixed.
struct TNqStringLayout
{
    static_assert(sizeof(TNqString) == 24 && sizeof(TNqDynamicString) == 32 && sizeof(TNqWideString) == 24);
    static_assert(sizeof(TNqString15) == 40 && sizeof(TNqString31) == 56 && sizeof(TNqString63) == 88);
    static_assert(sizeof(TNqString255) == 280 && sizeof(TNqString1023) == 1048);

    template <class T>
    static void CheckFields(T& s)
    {
        const auto offset = [&s](const void* field)
        { return static_cast<const char*>(field) - reinterpret_cast<char*>(&s); };
        EXPECT_EQ(offset(&s.fLength), 8);
        EXPECT_EQ(offset(&s.fByteLength), 12);
        EXPECT_EQ(offset(&s.fMaxLength), 16);
        EXPECT_EQ(offset(&s.fStringBuffer), (std::is_same_v<T, TNqDynamicString> ? 24 : 20));
    }
};

namespace
{

const uint8* AsBytes(const std::string& bytes)
{
    return reinterpret_cast<const uint8*>(bytes.data());
}

bool Starts(char c)
{
    return UTF8IsCharStart(static_cast<uint8>(c));
}

std::string Encode(uint16 c)
{
    uint8 bytes[3];
    return std::string(bytes, bytes + UnicodeToUTF8Char(c, bytes));
}

// What a string should hold and report, step by step on a plain std::string.
struct TModel
{
    std::string fBytes;
    uint32 fLength = 0;
    size_t fMax = 0;
    bool fGrows = false;
    bool fDynamic = false; // of the library's own growing class
    TTexts fReports;

    void Report(const char* text) { fReports.push_back(text); }

    size_t Width(size_t at) const // of the character at a byte, as far as it is there
    {
        if (fBytes[at] == 0)
            return 0;
        const size_t end = std::min(at + UTF8NumBytes(static_cast<uint8>(fBytes[at])), fBytes.size());
        return std::min(end, fBytes.find('\0', std::min(at + 1, fBytes.size()))) - at;
    }
    size_t At(uint32 charIndex) const { return UTF8CharIndex(AsBytes(fBytes), charIndex, fBytes.size()); }
    uint16 Decode(size_t at) const { return UTF8CharToUnicode(AsBytes(fBytes) + at, fBytes.size() - at); }
    size_t End() const { return std::min(fBytes.find('\0'), fBytes.size()); }

    void Take(const std::string& bytes)
    {
        fBytes = bytes;
        fLength = UTF8StrLen(AsBytes(bytes), bytes.size());
    }
    // Resizes without a report when it grows; the string's own rule otherwise.
    size_t Fit(size_t byteLength)
    {
        if (fGrows)
            fMax = std::max(fMax, byteLength);
        else if (byteLength > fMax)
            Report("byteLength <= fMaxLength");
        return std::min(byteLength, fMax);
    }
    void Set(const std::string& bytes) { Take(bytes.substr(0, Fit(bytes.size()))); }
    void Append(const std::string& bytes) { Set(fBytes + bytes); }
    void AppendCode(uint16 c)
    {
        if (fDynamic)
            Report("Still must be implemented.");
        if (Fit(fBytes.size() + 1) == fBytes.size())
            return Report("fByteLength > oldByteLength");
        fBytes += static_cast<char>(c);
        ++fLength;
    }
    void Insert(const std::string& bytes, uint32 length, uint32 index)
    {
        if (bytes.empty() || index > 0x7FFFFFFF || index > fLength)
            return;
        const std::string result = std::string(fBytes).insert(At(index), bytes);
        if (fDynamic)
            return Set(result);
        if (result.size() > fMax)
            Report("newByteLength <= fMaxLength");
        else
            fLength += length;
        fBytes = result.substr(0, fMax);
    }
    bool Erase(uint32 index, uint32 count)
    {
        if (index >= fLength || count == 0 || count > 0x7FFFFFFF)
            return false;
        count = std::min(count, fLength - index);
        const size_t start = At(index);
        size_t end = start, width = 0;
        for (uint32 i = 0; i < count && end < End(); ++i)
        {
            width = Starts(fBytes[end]) ? Width(end) : width;
            end = std::min(end + width, End());
        }
        if (end == start)
            return false;
        fBytes.erase(start, end - start);
        fLength -= count;
        if (fLength > fBytes.size())
        {
            Report("fLength<=fByteLength");
            fLength = static_cast<uint32>(fBytes.size());
        }
        return true;
    }
    bool EraseSB(uint32 index, uint32 count)
    {
        if (index >= fBytes.size() || count == 0 || count > 0x7FFFFFFF)
            return false;
        count = std::min(count, static_cast<uint32>(fBytes.size() - index));
        fBytes.erase(index, count);
        SetLength(fLength > count ? fLength - count : 0);
        return true;
    }
    size_t RunLength(uint32 index, uint32 count)
    {
        if (count == 0)
            return 0;
        if (uint64{index} + count > fLength)
        {
            Report("Substring extends past end of string!");
            if (index >= fLength)
                return 0;
            count = fLength - index;
        }
        const size_t last = At(index + count - 1);
        return last + (last < fBytes.size() ? Width(last) : 0) - At(index);
    }
    void SetLength(uint32 length)
    {
        if (length == fLength)
            return;
        if (length > fLength)
            return Report("length < fLength");
        Take(fBytes.substr(0, RunLength(0, length)));
    }
    void SubString(uint32 index, uint32 count)
    {
        if (index >= fLength)
        {
            Report("nIndex < Length()");
            return Take("");
        }
        Erase(0, index);
        SetLength(std::min(count, fLength));
    }
    void SetChar(uint16 c, uint32 index)
    {
        index = index > 0x7FFFFFFF ? 0 : index;
        const size_t at = At(index);
        if (index >= fLength || at >= End())
            return;
        const std::string encoded = Encode(c);
        std::string result = fBytes;
        result.replace(at, Width(at), encoded);
        const size_t fits = Fit(result.size());
        if (at + encoded.size() > fits)
            return;
        if (fits < result.size())
        {
            size_t end = fits;
            while (end > at + encoded.size() && !Starts(result[end]))
                --end;
            result.resize(end);
        }
        Take(result);
    }
    void SetMax(size_t max)
    {
        fMax = max;
        if (fBytes.size() > max)
            Take(fBytes.substr(0, max));
    }
    void FromUnits(const std::u16string& units)
    {
        std::string all, fitting;
        for (const char16_t unit : units)
            all += Encode(unit);
        const size_t fits = Fit(all.size());
        fLength = 0;
        for (size_t i = 0; i < units.size() && fitting.size() + Encode(units[i]).size() <= fits; ++i, ++fLength)
            fitting += Encode(units[i]);
        fBytes = fitting;
    }
    size_t Search(const std::string& pattern, size_t from) const // at the start of a character, before the first NUL
    {
        const std::string text = fBytes.substr(0, End());
        size_t at = text.find(pattern, from);
        while (at < text.size() && !Starts(text[at]))
            at = text.find(pattern, at + 1);
        return at < text.size() ? at : std::string::npos;
    }
    uint32 SearchStr(const std::string& what, uint32 whatLength, uint32 from) const
    {
        if (from > fLength)
            return kNqNotFound;
        if (whatLength == 0)
            return from;
        const size_t start = At(from);
        const size_t at = Search(what.substr(0, whatLength), start);
        if (at == std::string::npos)
            return kNqNotFound;
        const std::string passed = fBytes.substr(start, at - start);
        const auto counts = [](char c) { return (c & 0xC0) != 0x80; };
        return from + static_cast<uint32>(std::count_if(passed.begin(), passed.end(), counts));
    }
    uint32 Replace(const std::string& what, uint32 whatLength, const std::string& with, uint32 from)
    {
        if (whatLength == 0 || from > fLength)
            return 0;
        std::string result;
        uint32 count = 0;
        size_t at = At(from);
        for (size_t found; (found = Search(what.substr(0, whatLength), at)) != std::string::npos; ++count)
        {
            result += fBytes.substr(at, found - at) + with;
            at = found;
            for (uint32 left = whatLength + 1; at < End() && (left -= Starts(fBytes[at])) != 0;)
                ++at;
        }
        if (count != 0)
            Set(result + fBytes.substr(at));
        return count;
    }
    uint32 Find(uint16 c, uint32 from)
    {
        size_t at = from < fLength ? At(from) : End();
        for (; at < End() && Width(at) != 0 && Decode(at) != c; at += Width(at))
            ++from;
        if (at < End() && Width(at) == 0)
            Report("Invalid UTF8 string");
        return at < End() && Width(at) != 0 ? from : kNqNotFound;
    }
    uint32 FindFromRight(uint16 c, uint32 from) const
    {
        for (uint32 left = from < fLength ? from + 1 : fLength; left != 0; --left)
        {
            if (Decode(At(left - 1)) == c)
                return left - 1;
        }
        return kNqNotFound;
    }
    std::u16string Units(size_t size)
    {
        std::u16string units;
        size_t at = 0;
        for (; at < fBytes.size() && fBytes[at] != 0 && units.size() < size; at += Width(at))
            units += static_cast<char16_t>(Decode(at));
        if (at < fBytes.size() && fBytes[at] != 0)
            Report("index < dataSize");
        if (units.size() == size)
        {
            Report("Bad size in TNqString::ToUnicode");
            units.pop_back();
        }
        return units;
    }
};

std::mt19937 gRandom;

uint32 Below(uint32 n)
{
    return static_cast<uint32>(gRandom() % n);
}

uint16 RandomChar()
{
    const uint16 pool[] = {'a', 'b', 'a', 'b', '-', '\r', '\n', 0xE9, 0x7FF, 0x20AC, 0xD800, 0xFFFD};
    return pool[Below(std::size(pool))];
}

// Mostly well-formed text of few different characters, with stray bytes, four-byte characters and NULs among them.
std::string RandomBytes(uint32 maxChars)
{
    std::string bytes;
    for (uint32 left = Below(maxChars + 1); left != 0; --left)
    {
        const uint32 kind = Below(40);
        bytes += kind == 0   ? std::string(1, '\0')
                 : kind < 3  ? std::string(1, static_cast<char>(Below(256)))
                 : kind == 3 ? std::string("\xF0\x9F\x98\x80")
                             : Encode(RandomChar());
    }
    return bytes;
}

// An index around the interesting places: in the text, at its end, just past it, negative.
uint32 RandomIndex(uint32 count)
{
    const uint32 kind = Below(30);
    return kind == 0 ? 0xFFFFFFFF - Below(3) : kind == 1 ? 0x80000000 : kind < 4 ? count + Below(3) : Below(count + 1);
}

// A client's string: it grows through the hooks alone, each time into another block, and nobody may read the old one.
class TMovingString : public TNqString
{
public:
    TMovingString() { Move(0); }
    using TNqString::operator=;
    int8* GetString() const override { return fBlock.get(); }
    void SetByteLength(uint32 byteLength) override
    {
        if (byteLength > fMaxLength)
            Move(byteLength);
        fByteLength = byteLength;
    }
    void Claim(uint32 length, uint32 byteLength)
    {
        fLength = length;
        fByteLength = byteLength;
    }

private:
    void Move(uint32 maxLength)
    {
        std::unique_ptr<int8[]> block(new int8[maxLength + 1]());
        if (fBlock != nullptr)
        {
            std::copy_n(fBlock.get(), fMaxLength + 1, block.get());
            std::fill_n(fBlock.get(), fMaxLength + 1, '#');
        }
        fBlock = std::move(block);
        fMaxLength = maxLength;
    }

    std::unique_ptr<int8[]> fBlock;
};

template <class TString>
void EditRandomly(TString& s, TModel& m)
{
    const std::string bytes = RandomBytes(Below(8) == 0 ? 30 : 6);
    const TNqDynamicString other(bytes.data(), static_cast<uint32>(bytes.size()));
    const TNqDynamicString what(bytes.data(), std::min(other.ByteLength(), Below(5)));
    const uint32 i = RandomIndex(m.fLength);
    const uint32 n = Below(4) == 0 ? RandomIndex(m.fLength) : Below(4);
    const uint16 c = RandomChar();
    const std::string own = m.fBytes + '\0'; // with the terminator
    const uint32 at = Below(static_cast<uint32>(own.size()));
    const uint32 ownCount =
        Below(3) == 0 ? static_cast<uint32>(own.size()) - at : Below(static_cast<uint32>(own.size()) - at);
    std::u16string units;
    while (Below(8) != 0)
        units += static_cast<char16_t>(RandomChar());
    // clang-format off
    const std::function<void()> edits[] = {
        [&] { s = other; m.Set(bytes); },
        [&] { s.FromText(bytes.data(), other.ByteLength()); m.Set(bytes); },
        [&] { s += other; bytes.empty() ? void() : m.Append(bytes); },
        [&] { s += c; m.AppendCode(c); },
        [&] { s.InsertStr(other, i); m.Insert(bytes, other.Length(), i); },
        [&] { s += s; m.fBytes.empty() ? void() : m.Append(m.fBytes); },
        [&] { s.InsertStr(s, i); m.Insert(std::string(m.fBytes), m.fLength, i); },
        [&] { s.FromText(s.GetString() + at, ownCount); m.Set(own.substr(at, ownCount)); },
        [&] { s.FromCPtr(s.GetString() + at); m.Set(own.c_str() + at); },
        [&] { EXPECT_EQ(s.ReplaceStr(what, s, i), m.Replace(Bytes(what), what.Length(), own.substr(0, own.size() - 1), i)); },
        [&] { EXPECT_EQ(s.ReplaceStr(s, other, i), m.Replace(own.substr(0, own.size() - 1), m.fLength, bytes, i)); },
        [&] { s.SetSBCharAt(0, static_cast<int32>(at)); m.fBytes = (own.substr(0, at) + '\0' + own.substr(at + 1)).substr(0, m.fBytes.size()); },
        [&] { EXPECT_EQ(s.EraseStr(i, n), m.Erase(i, n)); },
        [&] { EXPECT_EQ(s.EraseSBStr(i, n), m.EraseSB(i, n)); },
        [&] { s.SetLength(i); m.SetLength(i); },
        [&] { s.SubString(i, n); m.SubString(i, n); },
        [&] { s.SetCharAt(c, i); m.SetChar(c, i); },
        [&] { EXPECT_EQ(s.ReplaceStr(what, other, i), m.Replace(Bytes(what), what.Length(), bytes, i)); },
        [&] { s.SetMaxLength(Below(60)); m.SetMax(s.MaxLength()); },
        [&] { s.FromUnicode(reinterpret_cast<const uint16*>(units.c_str())); m.FromUnits(units); },
    };
    // clang-format on
    edits[Below(std::size(edits))]();
}

template <class TString>
void ReadRandomly(const TString& s, TModel& m)
{
    const TNqDynamicString what(RandomBytes(2).c_str());
    const uint32 i = RandomIndex(m.fLength);
    const uint32 n = RandomIndex(m.fLength);
    const uint16 c = RandomChar();
    EXPECT_EQ(s.SearchStr(what, i), m.SearchStr(Bytes(what), what.Length(), i));
    EXPECT_EQ(s.SearchSBStr(what, i),
              i > m.fBytes.size() ? kNqNotFound : static_cast<uint32>(m.fBytes.find(Bytes(what), i)));
    EXPECT_EQ(s.FindCharPos(c, i), m.Find(c, i));
    EXPECT_EQ(s.FindCharPosFromRight(c, i), m.FindFromRight(c, i));
    EXPECT_EQ(s.GetSubStringByteLength(i, n), m.RunLength(i, n));
    const uint32 charIndex = i > 0x7FFFFFFF ? 0 : i;
    EXPECT_EQ(s.GetCharAt(i), charIndex < m.fLength ? m.Decode(m.At(charIndex)) : 0);
    if (charIndex != i)
        m.Report("Index Pb in GetChar");
    std::vector<uint16> units(Below(12) + 1);
    const uint16* const end = s.ToUnicode(units.data(), static_cast<int32>(units.size()));
    const std::u16string text(reinterpret_cast<const char16_t*>(units.data()), static_cast<size_t>(end - units.data()));
    EXPECT_EQ(text, m.Units(units.size()));
    EXPECT_EQ(*end, 0);
    // A run as the constructors take it: a count of 0 is all the rest.
    const uint32 left = i < m.fLength ? m.fLength - i : 0;
    const uint32 taken = n == 0 || n > left ? left : n;
    const std::string run = left != 0 ? m.fBytes.substr(m.At(i), m.RunLength(i, taken)) : "";
    EXPECT_EQ(Bytes(TNqDynamicString(s, i, n)), run);
    EXPECT_EQ(Bytes(TNqString1023(s, i, n)), run);
}

template <class TString>
void CheckRandomEdits(uint32 seed)
{
    gRandom.seed(seed);
    TString s;
    TModel m;
    m.fMax = s.MaxLength();
    m.fDynamic = std::is_same_v<TString, TNqDynamicString>;
    m.fGrows = m.fDynamic || std::is_same_v<TString, TMovingString>;
    for (int step = 0; step < 20000 && !::testing::Test::HasFailure(); ++step)
    {
        if (s.ByteLength() > 300)
            s.FromText("", 0), m.Set("");
        EditRandomly(s, m);
        ReadRandomly(s, m);
        EXPECT_EQ(Bytes(s), m.fBytes);
        EXPECT_EQ(s.Length(), m.fLength);
        EXPECT_EQ(s.MaxLength(), m.fMax);
        EXPECT_EQ(s.GetString()[s.ByteLength()], 0);
        EXPECT_LE(s.Length(), s.ByteLength());
        EXPECT_EQ(TakeReports(), m.fReports) << "at step " << step;
        m.fReports.clear();
    }
}

using StringTest = StringFixture;

TEST_F(StringTest, RandomEditsFollowAModelOfBytes)
{
    CheckRandomEdits<TNqString15>(1);
    CheckRandomEdits<TNqString63>(2);
    CheckRandomEdits<TNqDynamicString>(3);
    CheckRandomEdits<TMovingString>(4);
}

TEST_F(StringTest, ErasingByteByByteEmptiesEveryText)
{
    // Cut characters at the end, no character at all, and characters that are no longer there.
    for (const char* const text : {"abcdefghijklmn\xC3\xA9", "abc\xF0\x9F", "\x80\x80\x80", "a\xE2\xE2", "\xFFz\xFF"})
    {
        TNqString15 s(text);
        for (uint32 added = 2; s.ByteLength() < 14 && added != 0; --added)
            s += uint16{0x80}; // counted, but no character
        for (uint32 left = s.ByteLength(); left != 0; left = s.ByteLength())
        {
            ASSERT_TRUE(s.EraseSBStr(0, 1));
            ASSERT_LT(s.ByteLength(), left) << text;
            ASSERT_EQ(s.GetString()[s.ByteLength()], 0);
        }
        EXPECT_FALSE(s.EraseSBStr(0, 1));
        EXPECT_EQ(s.Length(), 0U);
    }
    TakeReports();
}

TEST_F(StringTest, CountsFrom2To31OnAreNotNegative)
{
    TMovingString s;
    s = TNqString15("a\xC3\xA9z");
    s.Claim(0xF0000000, s.ByteLength());
    EXPECT_EQ(s.GetSubStringByteLength(0, 0xE0000000), 4U);
    s.SetLength(0xE0000000);
    EXPECT_EQ(Bytes(s), "a\xC3\xA9z");
    s.Claim(4, 0x80000001);
    s.SetSBCharAt('b', 0);
    EXPECT_EQ(s.GetString()[0], 'b');
    s.Claim(0, 0);
}

TEST_F(StringTest, FieldsAndSlotsStandWhereOtherModulesExpectThem)
{
    TNqString15 fixed;
    TNqDynamicString dynamic("b");
    TNqStringLayout::CheckFields(fixed);
    TNqStringLayout::CheckFields(dynamic);

    TNqString* const s = &dynamic;
    const TNqString15 a("a");
    const TNqString* const other = &a;
    using TCompare = boolean (*)(const TNqString*, const TNqString*);
    using TChange = TNqString* (*)(TNqString*, const TNqString*);
    using TResize = void (*)(TNqString*, uint32);
    const boolean expected[] = {0, 1, 0, 1, 0, 1}; // < > <= >= == !=
    for (size_t i = 0; i < std::size(expected); ++i)
        EXPECT_EQ(Slot<TCompare>(s, 5 + i)(s, other), expected[i]) << i;
    EXPECT_EQ(Slot<TChange>(s, 2)(s, other), s);
    EXPECT_EQ(Slot<TChange>(s, 3)(s, other), s);
    Slot<TNqString* (*)(TNqString*, uint16)>(s, 4)(s, 'z');
    Slot<void (*)(TNqString*, const TNqString*, uint32)>(s, 11)(s, other, 0);
    EXPECT_STREQ(Slot<int8* (*)(const TNqString*)>(s, 14)(s), "aaaz");
    Slot<TResize>(s, 13)(s, 9);
    EXPECT_EQ(s->MaxLength(), 9U);
    Slot<TResize>(s, 12)(s, 3);
    EXPECT_EQ(s->ByteLength(), 3U);
    Slot<TResize>(s, 15)(s, 5);
    EXPECT_EQ(s->MaxLength(), 5U);
    EXPECT_EQ(TakeReports(), (TTexts{"Still must be implemented."}));
}

TEST_F(StringTest, TextsGoInAndOutAsTheyAre)
{
    const uint8 pascal[] = {3, 'a', 'b', 'c', 'd'};
    TNqString15 s;
    s.FromPPtr(pascal);
    s.FromPPtr(nullptr);
    s.FromCPtr(nullptr);
    s.FromUnicode(nullptr);
    EXPECT_STREQ(s.GetString(), "abc");
    s.FromText(nullptr, 5); // the old bytes, then zeros
    EXPECT_EQ(Bytes(s), std::string("abc\0\0", 5));
    s = TNqString15("abc");
    EXPECT_EQ(Bytes(TNqString15(nullptr)), "");
    EXPECT_EQ(Bytes(TNqDynamicString(nullptr, 5)), "");
    uint8 out[8];
    s.ToPPtr(out);
    EXPECT_EQ(std::string(out, out + 4), "\3abc");
    EXPECT_EQ(s.ToUTF8Ptr(out), out + 3);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "abc");
    TNqString15 inPlace("abc");
    inPlace.ToPPtr(reinterpret_cast<uint8*>(inPlace.GetString()));
    EXPECT_EQ(std::string(inPlace.GetString(), 4), "\3abc");
    uint8 cut[301];
    TNqDynamicString(std::string(300, 'x').c_str()).ToPPtr(cut);
    EXPECT_EQ(cut[0], 300 % 256);
    alignas(TNqString63) uint8 memory[sizeof(TNqString63)]; // not zero before
    std::fill(std::begin(memory), std::end(memory), uint8{0xAA});
    const TNqString63* const fresh = ::new (static_cast<void*>(memory)) TNqString63;
    EXPECT_EQ(std::string(fresh->GetString(), 64), std::string(64, '\0'));
    EXPECT_EQ(Bytes(TNqDynamicString("ab\0c", 4) + s), std::string("ab\0cabc", 7));
    uint16 unit = 7;
    EXPECT_EQ(s.ToUnicode(&unit, 0), &unit);
    EXPECT_EQ(unit, 7);
    s.FromEncodedPtr(pascal, nullptr);
    s.SetSBCharAt('x', -1);
    s.SetSBCharAt('x', 3);
    s.SetSBCharAt(0, 3);
    s.SetSBCharAt('x', 4);
    EXPECT_EQ(Bytes(s), "xbc");
    EXPECT_EQ(TakeReports(), (TTexts{"Bad size in TNqString::ToUnicode", "transcoder", "nIndex >= 0", "c==0",
                                     "nIndex <= int32(fByteLength)"}));
}

TEST_F(StringTest, FourCharacterCodesBecomeTextAndBack)
{
    const std::tuple<uint32, uint8, std::string, uint32> cases[] = {
        {0x54455854, 0, "TEXT", 4},      {42, 0, "42", 2},         {42, 1, std::string("\0\0\0*", 4), 0},
        {0x21212121, 0, "555819297", 9}, {0x41420043, 0, "AB", 2}, {0x21212122, 0, "!!!\"", 4},
    };
    for (const auto& [code, dontCheck, text, length] : cases)
    {
        TNqString15 s;
        s.FromFourCharT(code, dontCheck);
        EXPECT_EQ(Bytes(s), text);
        EXPECT_EQ(s.Length(), length);
    }
    EXPECT_EQ(TNqString15("TEXTure").ToFourCharT(), 0x54455854U);
    EXPECT_EQ(TNqString15("a\xC4\x80\xC3\xA9").ToFourCharT(), 0x6100E900U); // low bytes of U+0100 and U+00E9
}

TEST_F(StringTest, NumbersAreReadAsFarAsTheyGo)
{
    const std::tuple<const char*, int32, real32, real64> cases[] = {
        {"", 0, 0, 0},
        {"-", 0, 0, 0},
        {"+3.25", 3, 3.25f, 3.25},
        {"1,234", 1, 1234, 1},
        {" 8", 8, 0, 8},
        {"2147483648", INT_MIN, 2147483648.0f, 2147483648.0},
        {"4294967297", 1, 1, 4294967297.0},
        {"0.1234567899", 0, 0.123456789f, 0.1234567899},
        {"1e3", 1, 1, 1000},
        {"-.5x", 0, -0.5f, -0.5},
    };
    for (const auto& [text, asInt, asReal32, asReal64] : cases)
    {
        const TNqString31 s(text);
        EXPECT_EQ(s.ToInt32(), asInt) << text;
        EXPECT_EQ(s.ToReal32(), asReal32) << text;
        EXPECT_EQ(s.ToReal64(), asReal64) << text;
    }
    EXPECT_TRUE(std::signbit(TNqString15("-0").ToReal32()));
    EXPECT_EQ(TNqDynamicString(std::string(80, '1').c_str()).ToReal64(), std::stod(std::string(63, '1')));
    EXPECT_EQ(TakeReports(), (TTexts{"ByteLength() < 64"}));
    for (const auto& [text, numeric] : std::initializer_list<std::pair<const char*, bool>>{
             {"", true}, {"1-2", true}, {"+-.", true}, {"1,2", false}, {"1e3", false}, {"1\xC3\xA9", false}})
        EXPECT_EQ(TNqString15(text).IsNumericString(), numeric) << text;
}

TEST_F(StringTest, NumbersAreWrittenInFull)
{
    TNqDynamicString s;
    for (const int32 value : {0, 7, -1, 1234567890, INT_MAX, INT_MIN})
        EXPECT_EQ((s.FromInt32(value), Bytes(s)), std::to_string(value));
    const auto real32 = [&s](float value, uint8 decimals) { return s.FromReal32(value, decimals), Bytes(s); };
    const auto real64 = [&s](double value, uint8 digits) { return s.FromReal64(value, digits), Bytes(s); };
    EXPECT_EQ(real32(2.5f, 0) + real32(-0.1f, 3), "2-0.100");
    EXPECT_EQ(real32(FLT_MAX, 255).size(), 39U + 1 + 255);
    EXPECT_EQ(real64(1e20, 3) + real64(0.0001, 6), "1E+200.0001");
    EXPECT_EQ(real64(-DBL_MIN, 255).substr(0, 8), "-2.22507");
    s.FromReal64(-DBL_MAX);
    EXPECT_EQ(s.ByteLength(), 1U + 309 + 3);
    s.FromReal64(1234.5678);
    EXPECT_STREQ(s.GetString(), "1234.57");
}

TEST_F(StringTest, DecimalTextsAreStrippedAndRounded)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"1.500", "1.5", "1.501"},  {"2.00", "2", "2.01"},  {"100", "100", "101"},  {"9.99", "9.99", "10.00"},
        {"1,990", "1,99", "1,991"}, {"-99", "-99", "-100"}, {".9", ".9", "1.0"},    {"-,990", "-,99", "-,991"},
        {"-.99", "-.99", "-1.00"},  {"9.", "9", "10."},     {".,9", ".,9", "1.,0"}, {".", "", "."},
    };
    for (const auto& [text, stripped, rounded] : cases)
    {
        TNqString31 s(text), t(text);
        StripTrailingZeros(s);
        EXPECT_STREQ(s.GetString(), stripped);
        RoundUp(t);
        EXPECT_STREQ(t.GetString(), rounded);
    }
    EXPECT_EQ(TakeReports(), TTexts(2, "Unknown character!!")); // the sign, which a carry has reached
}

TEST_F(StringTest, EqualityIsByBytesAndOrderByLanguage)
{
    const TNqString15 lower("abc"), upper("ABC"), accent("\xC3\xA9"), z("z");
    EXPECT_FALSE(lower == upper);
    EXPECT_TRUE(lower.IsEqualNotCaseSensitive(upper));
    EXPECT_TRUE(TNqString15("\xC3\xA9").IsEqualNotCaseSensitive(TNqString15("\xC3\x89")));
    const std::string longText(1023, 'x');
    const auto equalBut = [&longText](size_t at)
    {
        std::string other = longText + "y";
        other[at] = 'z';
        return TNqDynamicString((longText + "y").c_str()).IsEqualNotCaseSensitive(TNqDynamicString(other.c_str()));
    };
    EXPECT_FALSE(equalBut(1022));
    EXPECT_TRUE(equalBut(1023)); // more are not compared
    EXPECT_EQ(TakeReports(), TTexts(4, "byteLength <= fMaxLength"));
    EXPECT_TRUE(accent < z); // by bytes it is the other way round
    EXPECT_TRUE(lower < upper && lower <= upper && !(lower >= upper) && upper > lower);
    EXPECT_TRUE(TNqDynamicString("ab\0c", 4) == TNqString15("ab"));
    EXPECT_EQ(z.CompareQuick(lower), 25);
    EXPECT_EQ(TNqString15("\xFF").CompareQuick(TNqString15("")), -1); // 255, narrowed
    EXPECT_EQ(lower.CompareQuick(TNqString15("abc")), 0);

    TNqString15 s;
    for (const auto& [text, capitalized] :
         {std::pair{"\xC3\x89TA", "\xC3\xA9ta"}, {"aBCXYZ", "Abcxyz"}, {"zOO", "Zoo"}, {"{A", "{a"}})
    {
        s = TNqString15(text);
        s.Capitalize();
        EXPECT_STREQ(s.GetString(), capitalized);
    }
    s = TNqString15("\xC5\x89three-x-fours"); // U+0149 becomes U+02BC and N: the last letter has no room
    s.ToUpper();
    EXPECT_STREQ(s.GetString(), "\xCA\xBCNTHREE-X-FOUR");
    EXPECT_EQ(TakeReports(), (TTexts{"byteLength <= fMaxLength"}));
}

TEST_F(StringTest, WideStringsHoldTheUnitsAndATerminator)
{
    EXPECT_EQ(TNqWideString().Length(), 0U);
    TNqWideString wide("\xE2\x82\xACx");
    ASSERT_EQ(wide.Length(), 2U);
    EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(wide.StrGet())), u"\u20ACx");
    wide = TNqString15("");
    EXPECT_EQ(wide.Length(), 0U);
    EXPECT_EQ(wide.StrGet()[0], 0);
    const uint16 units[] = {'a', 0xD800, 0};
    wide.FromUnicode(units);
    EXPECT_EQ(wide.Length(), 2U);
    EXPECT_EQ(wide.StrGet()[1], 0xD800);
    for (uint32 first = 0; first <= 6; ++first) // of its own units
    {
        wide = TNqString15("abcdef");
        wide.FromUnicode(wide.StrGet() + first);
        EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(wide.StrGet())), std::u16string(&u"abcdef"[first]));
        EXPECT_EQ(wide.Length(), 6 - first);
    }
}

TEST_F(StringTest, ShortTextsCountTheirCharactersAsLongOnesDo)
{
    gRandom.seed(34);
    for (int round = 0; round < 50000; ++round)
    {
        const auto randomText = []
        {
            std::string text(Below(20), 'a');
            for (uint32 odd = text.empty() ? 0 : Below(3); odd != 0; --odd)
                text[Below(static_cast<uint32>(text.size()))] = "\0\x01\x7F\x80\xA9\xC1\xC3\xF5\xFF"[Below(9)];
            return text;
        };
        const std::string first = randomText(), second = randomText();
        TNqString31 s(first.data(), static_cast<uint32>(first.size()));
        const auto counted = [&s] { return UTF8StrLen(reinterpret_cast<const uint8*>(s.GetString()), s.ByteLength()); };
        ASSERT_EQ(s.Length(), counted());
        s += TNqString31(second.data(), static_cast<uint32>(second.size()));
        ASSERT_EQ(Bytes(s), (first + second).substr(0, 31));
        ASSERT_EQ(s.Length(), counted());
        s.FromText(second.data(), static_cast<uint32>(second.size()));
        ASSERT_EQ(s.Length(), counted());
        TakeReports(); // of those that were cut
    }
}

TEST_F(StringTest, PatternsAreFoundAndReplacedInLongTextsAsByAPlainWalk)
{
    gRandom.seed(33);
    for (int round = 0; round < 20000; ++round)
    {
        const uint32 kinds = 2 + Below(6); // few kinds of characters, so that patterns often begin
        const auto randomText = [kinds](uint32 most)
        {
            const char* const chars[] = {"a", "b", "\xC3\xA9", "\xE2\x82\xAC", "\xA9", "c", "\xC3"};
            std::string text;
            for (uint32 left = Below(most); left != 0; --left)
                text += chars[Below(kinds)];
            return text;
        };
        std::string text = randomText(round % 10 == 0 ? 400 : 100);
        const std::string pattern = "a" + randomText(round % 4 != 0 ? 3 : 22);
        const uint32 offset = Below(16);
        const std::unique_ptr<char[]> block(new char[offset + text.size()]);
        char* const first = block.get() + offset; // the text ends where its block does
        std::copy(text.begin(), text.end(), first);
        ASSERT_EQ(NqFindPattern(first, first + text.size(), pattern.data(), pattern.size()) - first,
                  std::search(text.begin(), text.end(), pattern.begin(), pattern.end()) - text.begin());

        if (Below(8) == 0 && !text.empty())
            text[Below(static_cast<uint32>(text.size()))] = 0;
        TNqDynamicString s(text.data(), static_cast<uint32>(text.size()));
        TNqDynamicString what((pattern + "xx").c_str());
        if (Below(4) != 0)
            what = TNqDynamicString(pattern.c_str());
        what.SetByteLength(static_cast<uint32>(pattern.size())); // the count of characters may stay too large
        const TNqDynamicString with(randomText(Below(4) == 0 ? 30 : 4).c_str());
        const auto* const bytes = reinterpret_cast<const uint8*>(text.c_str());
        const uint32 end = static_cast<uint32>(std::strlen(text.c_str()));
        const uint32 from = Below(3) == 0 ? Below(s.Length() + 1) : 0;
        const std::string searched = pattern.substr(0, what.Length()); // as many bytes as it has characters
        size_t at = UTF8CharIndex(bytes, from, end);
        std::string wanted;
        uint32 count = 0;
        for (size_t found; (found = text.substr(0, end).find(searched, at)) != std::string::npos; ++count)
        {
            wanted += text.substr(at, found - at) + Bytes(with);
            at = found + UTF8CharIndex(bytes + found, what.Length(), end - found);
        }
        wanted = count != 0 ? wanted + text.substr(at) : text;
        ASSERT_EQ(s.ReplaceStr(what, with, from), count);
        ASSERT_EQ(Bytes(s), wanted);
        ASSERT_EQ(s.MaxLength(), std::max(text.size(), wanted.size()));
    }
}

TEST_F(StringTest, WithoutMemoryADynamicStringIsEmptyAndStillUsable)
{
    const TNqDynamicString longText(std::string(200, 'x').c_str());
    const uint16 units[] = {0x20AC, 0x20AC, 0x20AC, 0x20AC, 0};
    const std::function<void(TNqDynamicString&)> edits[] = {
        [&](auto& s) { s = longText; },
        [&](auto& s) { s += longText; },
        [&](auto& s) { s += uint16{'x'}; },
        [&](auto& s) { s.InsertStr(longText, 1); },
        [&](auto& s) { s.FromUnicode(units); },
        [&](auto& s) { s.SetCharAt(0x20AC, 0); },
        [&](auto& s) { s.SetMaxLength(1); },
        [&](auto& s) { s.ReplaceStr(TNqString15("b"), longText, 0); },
        [&](auto& s) { s.ToUpper(); },
        [&](auto& s) { s.ConvertLineFeed(kWinLineFeed); },
        [&](auto& s) { NqParameterText(s, longText, 0); },
        [&](auto& s) { EXPECT_LE(TNqDynamicString(s, 1, 2).ByteLength(), 2U); },
        [&](auto& s) { EXPECT_NE(NqCompareStrings(s, longText), 0); },
        [&](auto& s) { EXPECT_LE(TNqWideString(s).Length(), s.Length()); },
        [&](auto& s)
        {
            TNqWideString wide(s);
            wide.FromUnicode(units);
            EXPECT_TRUE(wide.StrGet() == nullptr || wide.StrGet()[wide.Length()] == 0);
            EXPECT_TRUE(wide.Length() == 0 || wide.StrGet()[0] == units[0]) << "what was held before is no result";
        },
    };
    for (size_t i = 0; i < std::size(edits); ++i)
    {
        std::optional<TNqDynamicString> text;
        const auto edit = [&](int64) { edits[i](text.emplace("ab\r^0")); };
        const auto check = [&]
        {
            TNqDynamicString& s = *text;
            const bool lost = s.GetString() == nullptr;
            EXPECT_EQ(lost, s.MaxLength() == 0) << i;
            EXPECT_EQ(s.ByteLength(), lost ? 0 : strlen(s.GetString())) << i;
            EXPECT_LE(s.Length(), s.ByteLength()) << i;
            EXPECT_EQ(s.GetCharAt(0) == 0, s.ByteLength() == 0);
            EXPECT_EQ(TNqString15("") < s, s.ByteLength() != 0);
            s = TNqString15("again");
            EXPECT_STREQ(s.GetString(), "again");
        };
        ForEachFailingAllocation(edit, check);
    }
}

TEST_F(StringTest, SizesPastTheLimitAreFailedAllocations)
{
    TNqDynamicString s("abc");
    s.SetByteLength(0xFFFFFFFF);
    EXPECT_EQ(s.MaxLength(), 0U);
    EXPECT_EQ(s.GetString(), nullptr);
    TNqDynamicString huge("abc", 0xFFFFFFFF);
    EXPECT_EQ(huge.ByteLength(), 0U);
    TNqString15 fixed("abc");
    fixed.SetByteLength(0xFFFFFFFF);
    EXPECT_EQ(fixed.ByteLength(), 15U);
    EXPECT_EQ(TakeReports(), (TTexts{"fStringBuffer != NULL", "byteLength <= fMaxLength"}));
}

TEST_F(StringTest, AnExceptionDeletesItsMessageOnce)
{
    struct TMessage : TNqString31
    {
        using TNqString31::operator=;
        explicit TMessage(int& deleted) : TNqString31("out of paint"), fDeleted(deleted) {}
        ~TMessage() override { ++fDeleted; }
        int& fDeleted;
    };
    int deleted = 0;
    {
        const TNqException first(kNqErrSilent, new TMessage(deleted), nullptr, 0);
        TNqException second(kNqErrSilent, nullptr, 0);
        second = first;
        EXPECT_EQ(first.GetErrorString(), nullptr);
        EXPECT_STREQ(second.GetErrorString()->GetString(), "out of paint");
    }
    EXPECT_EQ(deleted, 1);
}

} // namespace
