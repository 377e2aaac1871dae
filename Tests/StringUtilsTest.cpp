#include "NqCore/Include/CFMacPtr.h"
#include "NqCore/PublicAPI/NqAsciiTranslationTable.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqPlatform/CFString.h"
#include "Tests/StringFixture.h"

#include <QLocale>
#include <QString>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <optional>

#include <unicode/uloc.h>

struct TNqAsciiTranslationTableLayout
{
    static_assert(sizeof(TNqAsciiTranslationTable) == 528);
    static_assert(offsetof(TNqAsciiTranslationTable, fITable) == 256);
    static_assert(offsetof(TNqAsciiTranslationTable, fEscapes) == 512);
    static_assert(offsetof(TNqAsciiTranslationTable, fIEscapes) == 520);
};

namespace
{

const char* const kStub = "Still must be implemented.";

class StringUtilsTest : public StringFixture
{
protected:
    void TearDown() override
    {
        TestHost().SetAsciiTranslationTable(nullptr);
        StringFixture::TearDown();
    }
};

// A resource: the tables hold `entryOf` each byte and direction in their order, the lists follow as they stand.
template <class Entry>
std::vector<uint8> MakeResource(Entry&& entryOf, const std::string& lists)
{
    std::vector<uint8> data(512);
    for (size_t i = 0; i < 256; ++i)
        for (const size_t inverse : {0U, 1U})
            data[256 * inverse + 16 * (i % 16) + i / 16] = static_cast<uint8>(entryOf(i, inverse));
    data.insert(data.end(), lists.begin(), lists.end());
    data.resize(data.size() + 256); // a second list may start at the last byte of the first
    return data;
}

// What TranslateAscii does, moving the rest of the text at every step.
struct TTranslateModel
{
    std::string fBytes;
    uint32 fLength;
    size_t fMax;
    bool fGrows;
    TTexts fReports;

    void Run(const TNqAsciiTranslationTable& table, uint8 inverse)
    {
        size_t j = 0;
        for (size_t i = 0; i < fBytes.size(); ++i)
        {
            const uint8 byte = static_cast<uint8>(fBytes[i]);
            const uint8 t = table.Translate(byte, inverse);
            const uint8* const escape = t == 27 ? table.FindEscapeChar(byte, inverse) : &t;
            const std::string text = escape == nullptr ? ""
                                     : t == 27         ? reinterpret_cast<const char*>(escape)
                                                       : std::string(1, static_cast<char>(t));
            const size_t extra = std::max(text.size(), i - j + 1) - (i - j) - 1;
            if (extra != 0 && fBytes.size() + extra > fMax && fGrows)
                fMax = fBytes.size() + extra + static_cast<size_t>(0.01 * static_cast<double>(fMax));
            const bool fits = extra == 0 || fBytes.size() + extra <= fMax;
            if (t == 0 || escape == nullptr || !fits)
            {
                fReports.push_back(t == 0              ? "Untranslatable character"
                                   : escape == nullptr ? "Missing escape string"
                                                       : "Skipping char in TranslateAscii");
                continue;
            }
            fBytes.insert(i, extra, '?');
            i += extra;
            fLength += static_cast<uint32>(extra);
            fBytes.replace(j, text.size(), text);
            j += text.size();
        }
        fBytes.resize(j);
    }
};

TEST_F(StringUtilsTest, TheCaseOfATextIsThatOfTheWholeQString)
{
    // Characters that become several, pairs and halves of them.
    const char16_t odd[] = {0xDF, 0x149, 0x130, 0x1F0, 0xFB03, 0x130, 0xD801, 0xDC28, 0xDC00, 0xD83D};
    std::mt19937 random(31);
    for (int round = 0; round < 3000; ++round)
    {
        const uint32 rareness = 1U << random() % 8;
        std::u16string text;
        for (size_t left = random() % 100; left != 0; --left)
            text += static_cast<char16_t>(random() % rareness != 0 ? 0x20 + random() % 0x60
                                          : random() % 8 == 0      ? odd[random() % 10]
                                                                   : 1 + random() % (random() % 2 ? 0x5FF : 0xFFFF));
        if (round == 0)
        {
            for (uint32 ch = 1; ch < 0x10000; ++ch) // each by itself: a half of a pair has another beside it nowhere
                text += {static_cast<char16_t>(ch), u'.'};
            text.erase(std::remove_if(text.begin(), text.end(), [](char16_t ch) { return QChar::isSurrogate(ch); }),
                       text.end());
        }
        for (const bool isUpper : {false, true})
        {
            TNqDynamicString s, wanted;
            s.FromUnicode(reinterpret_cast<const uint16*>(text.c_str()));
            if (random() % 4 == 0 && s.ByteLength() != 0) // also malformed, and with a NUL inside
                s.SetSBCharAt(static_cast<char>(random() % 3 == 0 ? 0 : random()),
                              static_cast<int32>(random() % s.ByteLength()));
            QString q;
            NqStringToQString(s, q);
            QStringToNqString(isUpper ? q.toUpper() : q.toLower(), wanted);
            TakeReports();
            isUpper ? NqUpperString(s) : NqLowerString(s);
            TakeReports();
            ASSERT_EQ(Bytes(s), Bytes(wanted));
            ASSERT_EQ(s.Length(), wanted.Length());
        }
    }
}

TEST_F(StringUtilsTest, TranslationFollowsAModelThatMovesTheTextAtEachStep)
{
    std::mt19937 random(5);
    const std::string lists("\x0E"
                            "aAE\0b\0c12345\0\x09"
                            "c1234\0a\0b",
                            24); // the last entry of each has no terminator
    for (int round = 0; round < 4000; ++round)
    {
        const auto entryOf = [&random](size_t byte, size_t) -> size_t {
            return byte < 'a' || byte > 'd' ? byte : random() % 5 == 0 ? 0 : random() % 2 ? 27 : 'x';
        };
        std::vector<uint8> data = MakeResource(entryOf, lists);
        TNqAsciiTranslationTable table;
        table.InitFromResourceData(data.data(), static_cast<uint32>(data.size()));
        TestHost().SetAsciiTranslationTable(&table);

        std::string text;
        for (size_t left = random() % (round % 50 == 0 ? 600 : 40); left != 0; --left)
            text += static_cast<char>("abcdef"[random() % 6]);
        const bool grows = random() % 2;
        TNqDynamicString dynamic(text.c_str());
        TNqString31 fixed;
        fixed.FromText(text.data(), static_cast<uint32>(std::min<size_t>(text.size(), 31)));
        TNqString& s = grows ? static_cast<TNqString&>(dynamic) : fixed;
        TTranslateModel model{Bytes(s), s.Length(), s.MaxLength(), grows, {}};
        const uint8 inverse = random() % 2 ? static_cast<uint8>(random()) : 0;
        model.Run(table, inverse);
        s.TranslateAscii(inverse);
        ASSERT_EQ(Bytes(s), model.fBytes);
        ASSERT_EQ(s.Length(), model.fLength);
        ASSERT_EQ(s.MaxLength(), model.fMax);
        ASSERT_EQ(TakeReports(), model.fReports);
        ASSERT_EQ(s.GetString()[s.ByteLength()], 0);
        // A count that is no longer true must not lead past the end.
        s.SetCharAt(0x20AC, s.Length() - 1);
        s.EraseStr(s.Length() / 2, 3);
        s.InsertStr(TNqString15("-"), s.Length());
        s.GetSubStringByteLength(0, s.Length());
        TakeReports();
    }
}

TEST_F(StringUtilsTest, TheListsOfATableOverlapByOneByte)
{
    // Five bytes of the first list; its last byte, 4, counts the second one.
    std::vector<uint8> data = MakeResource([](size_t, size_t) { return 27; }, std::string("\5"
                                                                                          "ax\0b\4"
                                                                                          "cyz\0",
                                                                                          10));
    TNqAsciiTranslationTable table;
    EXPECT_EQ(table.FindEscapeChar('a', 0), nullptr);
    for (int i = 0; i < 2; ++i) // a second time frees the first lists
    {
        table.InitFromResourceData(data.data(), 0);
        EXPECT_STREQ(reinterpret_cast<const char*>(table.FindEscapeChar('a', 0)), "x");
        EXPECT_EQ(table.FindEscapeChar('b', 0), nullptr);
        EXPECT_EQ(table.FindEscapeChar('a', 1), nullptr);
        EXPECT_STREQ(reinterpret_cast<const char*>(table.FindEscapeChar('c', 1)), "yz");
    }
    TestHost().SetAsciiTranslationTable(&table);
    TNqDynamicString s("aq");
    s.TranslateAscii(0);
    EXPECT_STREQ(s.GetString(), "x");
    EXPECT_EQ(TakeReports(), (TTexts{"Missing escape string"}));
}

TEST_F(StringUtilsTest, LongTextsAreTranslatedInLinearTime)
{
    const auto entryOf = [](size_t byte, size_t) -> size_t { return byte == 'a' ? 27 : byte; };
    std::vector<uint8> data = MakeResource(entryOf, std::string("\4"
                                                                "aae\0",
                                                                5));
    TNqAsciiTranslationTable table;
    table.InitFromResourceData(data.data(), 0);
    TestHost().SetAsciiTranslationTable(&table);
    constexpr uint32 kCount = 1000000;
    TNqDynamicString s(std::string(kCount, 'a').c_str());
    s.TranslateAscii(0); // moving the rest at every byte would take minutes
    EXPECT_EQ(s.ByteLength(), 2 * kCount);
    TNqDynamicString text(std::string(kCount, '^').c_str());
    NqParameterText(text, TNqString15("--"), 7);
    text.ReplaceStr(TNqString15("^"), TNqString15("^7"), 0);
    NqParameterText(text, TNqString15("--"), 7);
    EXPECT_EQ(text.ByteLength(), 2 * kCount);
    EXPECT_EQ(text.FindCharPos('^', 0), kNqNotFound);
    TakeReports();
}

TEST_F(StringUtilsTest, TagsOfResourceTextsAreStripped)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"\f@x@Mhello@y", "hello", "\f@x@Mhello@y"}, {"@x@Mhello", "@x@Mhello", "hello"},      {"", "", ""},
        {"\fhello@y", "hello@y", "\fhello@y"},       {"\f@hello@y", "@hello@y", "\f@hello@y"}, {"@M@", "@M@", ""},
    };
    for (const auto& [text, stripped, bytesStripped] : cases)
    {
        TNqDynamicString s(text);
        s.TranslateAfterRead();
        EXPECT_STREQ(s.GetString(), stripped);
        s = TNqString31(text);
        s.TranslateSBAfterRead();
        EXPECT_STREQ(s.GetString(), bytesStripped);
        TNqString31 copy;
        s.TranslateBeforeWrite(copy);
        s.TranslateBeforeWrite(s);
        EXPECT_TRUE(copy == s);
    }
}

TEST_F(StringUtilsTest, LineBreaksTakeTheWantedForm)
{
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"a\r\nb\rc", "a\nb\nc", "a\rb\rc", "a\r\nb\r\nc"},
        {"\n\r\r\n\n", "\n\n\n\n", "\r\r\r\r", "\r\n\r\n\r\n\r\n"},
        {"\xC3\xA9\r\xFF\xE2\x82\xAC", "\xC3\xA9\n\xFF\xE2\x82\xAC", "\xC3\xA9\r\xFF\xE2\x82\xAC", "\xE9\r\n\xAC"},
    };
    for (const auto& [text, asUnix, asMac, asWin] : cases)
    {
        TNqDynamicString s(text.c_str());
        s.ConvertLineFeed(kUnixLineFeed);
        EXPECT_EQ(Bytes(s), asUnix);
        s.ConvertLineFeed(kMacLineFeed);
        EXPECT_EQ(Bytes(s), asMac);
        s = TNqDynamicString(text.c_str());
        s.ConvertLineFeed(kWinLineFeed);
        EXPECT_EQ(Bytes(s), asWin);
        EXPECT_EQ(TakeReports(), TTexts(asWin.size(), kStub)); // each byte is appended as a code
    }
}

// What NqParameterText does, one placeholder at a time from the start of the text.
void FillOneByOne(TNqString& text, const TNqString& placeholder, const TNqString& parameter)
{
    const bool hasMark = Bytes(parameter).find('^') != std::string::npos;
    uint32 from = 0;
    for (uint32 at; (at = text.SearchStr(placeholder, from)) != kNqNotFound;)
    {
        if (!text.EraseStr(at, placeholder.Length()))
            break;
        text.InsertStr(parameter, at);
        from = hasMark ? at + parameter.Length() : 0;
    }
}

TEST_F(StringUtilsTest, ParametersAreFilledInAsOneByOne)
{
    std::mt19937 random(9);
    const auto randomText = [&random](size_t limit)
    {
        std::string text;
        for (size_t left = random() % limit; left != 0; --left)
            text += random() % 9 == 0 ? "^4294967295" : std::string(1, "^^01x"[random() % 5]);
        return text;
    };
    for (int round = 0; round < 20000; ++round)
    {
        const std::string text = randomText(16);
        // A long text or parameter takes another way than short ones.
        const std::string longTail(random() % 4 ? 0 : 256, '-');
        const TNqDynamicString parameter((randomText(random() % 2 ? 4 : 9) + longTail).c_str());
        const uint32 indices[] = {0, 1, 0, 1, 10, 0xFFFFFFFF};
        const uint32 index = indices[random() % 6];
        const TNqString15 placeholder(("^" + std::to_string(index)).c_str());
        TNqDynamicString dynamic((text + std::string(random() % 4 ? 1024 : 0, '-')).c_str()), expectedDynamic(dynamic);
        FillOneByOne(expectedDynamic, placeholder, parameter);
        NqParameterText(dynamic, parameter, index);
        ASSERT_EQ(Bytes(dynamic), Bytes(expectedDynamic)) << text << " " << Bytes(parameter);
        ASSERT_EQ(dynamic.MaxLength(), expectedDynamic.MaxLength());
        // What does not fit is cut at each step, which may cut a placeholder.
        const auto fill = [&](auto fixed)
        {
            auto expected = fixed;
            FillOneByOne(expected, placeholder, parameter);
            const TTexts reports = TakeReports();
            NqParameterText(fixed, parameter, index);
            ASSERT_EQ(Bytes(fixed), Bytes(expected)) << text << " " << Bytes(parameter);
            ASSERT_EQ(TakeReports(), reports);
        };
        fill(TNqString15(text.substr(0, 15).c_str()));
        if (!longTail.empty())
            fill(TNqString1023((text + std::string(random() % 1000, '-') + text).substr(0, 1023).c_str()));
    }
    TNqString63 message("Saved ^0 of ^1, ^2");
    TNqString15 three("3"), seven("7");
    TNqPtrArray<TNqString> texts;
    texts.AddElem(&three);
    texts.AddElem(&seven);
    texts.AddElem(nullptr);
    TestHost().FailAllocations(1, 100); // a message about missing memory is filled in too
    NqParameterText(message, texts);
    TestHost().FailAllocations(0);
    EXPECT_STREQ(message.GetString(), "Saved 3 of 7, ^2");
    EXPECT_EQ(TakeReports(), (TTexts{"arg"}));
    // A long parameter, which may be the text itself, is filled in whole or not at all.
    TNqString1023 text;
    for (const size_t size : {300U, 700U}) // it fits, and it does not
    {
        const TNqString1023 before(("<^0>" + std::string(size, '-')).c_str());
        TNqString1023 filled(before);
        FillOneByOne(filled, TNqString15("^0"), before);
        for (const bool isOwn : {false, true})
        {
            const auto fill = [&](int64)
            {
                text = before;
                NqParameterText(text, isOwn ? text : before, 0);
            };
            ForEachFailingAllocation(fill, [&] { EXPECT_TRUE(text == before || text == filled) << size; });
            EXPECT_TRUE(text == filled);
        }
    }
    TakeReports();
    TNqDynamicString own("<^0>");
    NqParameterText(own, own);
    EXPECT_STREQ(own.GetString(), "<<^0>>");
    TNqString15 malformed("a\xFF^0-----------"); // the searches count the stray byte, the edits do not
    NqParameterText(malformed, TNqString15("0xx"), 0);
    EXPECT_STREQ(malformed.GetString(), "a\xFF"
                                        "0xx----------");
    EXPECT_EQ(TakeReports(), (TTexts{"newByteLength <= fMaxLength"}));
}

TEST_F(StringUtilsTest, HashesMixTheLowBitsOfEachCharacter)
{
    // By hand: 'a' is 0x61; 'b' shifted by one is 0xC4; U+20AC shifted by one is 0x4158, 0x41 | 0x58.
    EXPECT_EQ(NqGetHashValue8(TNqString15("")), 0);
    EXPECT_EQ(NqGetHashValue8(TNqString15("ab")), 0x61 ^ 0xC4);
    EXPECT_EQ(NqGetHashValue8(TNqString15("a\xE2\x82\xAC")), 0x61 ^ (0x41 | 0x58));
    EXPECT_EQ(NqGetHashValue8(TNqString15("\x80\xC3\xA9")), 0xE9); // stray bytes are no characters
    // Nine characters: the shift starts again. 'a' << 7 is 0x3080.
    EXPECT_EQ(NqGetHashValue8(TNqString15("      aaa")),
              NqGetHashValue8(TNqString15("      ")) ^ ((0x18 | 0x40) ^ (0x30 | 0x80) ^ 0x61));
}

TEST_F(StringUtilsTest, TheMultiByteFunctionsTakeEveryByteAsACharacter)
{
    const char* const text = "a\xE9z";
    EXPECT_FALSE(NqIsDoubleByteVersion());
    EXPECT_FALSE(NqIsWesternLanguage());
    EXPECT_EQ(NqStrLen(text), 3);
    EXPECT_EQ(NqStrCharLen('\xE9'), 1);
    EXPECT_EQ(static_cast<uint16>(NqPCharToInt16(text + 1)), 0xFFE9);
    EXPECT_EQ(NqGetCharNext(text, 9), text + 3);
    EXPECT_EQ(TakeReports(), TTexts(3 + 1 + 1 + 3, kStub));
    EXPECT_EQ(NqGetCharPrev(text, text + 2, 9), text + 1);
    EXPECT_EQ(NqGetCharPrev(text, text, 1), text);
    EXPECT_EQ(NqGetCharPrev(text, text + 3, 2), text + 1); // at the NUL: not in the text
    EXPECT_EQ(TakeReports(), (TTexts{"Still need to implement"}));
}

TEST_F(StringUtilsTest, QtTextsSurviveTheRoundTrip)
{
    for (const char* text : {"", "plain", "\xC3\xA9\xE2\x82\xAC", "\xEF\xBF\xBD"})
    {
        QString q("before");
        TNqDynamicString s(text), back;
        NqStringToQString(s, q);
        EXPECT_EQ(q.toUtf8().toStdString(), text);
        QStringToNqString(q, back);
        EXPECT_STREQ(back.GetString(), text);
    }
}

TEST_F(StringUtilsTest, WithoutMemoryAQtTextIsEmpty)
{
    QString q;
    const auto convert = [&q](int64)
    {
        q = "before";
        NqStringToQString(TNqString15("after"), q);
    };
    ForEachFailingAllocation(convert, [&q] { EXPECT_TRUE(q.isEmpty() || q == "after") << q.toStdString(); });
    EXPECT_EQ(q, "after");
}

TEST_F(StringUtilsTest, TheOrderIsThatOfTheUsersLanguage)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"en_US_POSIX", "a", "B"}, {"en_US_POSIX", "a", "A"}, {"de_DE", "\xC3\xB6", "z"}, {"sv_SE", "z", "\xC3\xB6"},
        {"en_US", "", "a"},        {"en_US", "co-op", "cop"}, {"da_DK", "zz", "aa"},      {"en_US", "a", "a b"},
    };
    const std::string before = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    for (const auto& [locale, first, second] : cases)
    {
        uloc_setDefault(locale, &status);
        const TNqString15 less(first), greater(second);
        EXPECT_EQ(NqCompareStrings(less, greater), -1) << locale << " " << first;
        EXPECT_EQ(NqCompareStrings(greater, less), 1);
        EXPECT_EQ(NqCompareStrings(greater, greater), 0);
    }
    uloc_setDefault(before.c_str(), &status);
}

TEST_F(StringUtilsTest, TheDecimalPointIsThatOfTheUsersLanguage)
{
    const QLocale before;
    for (const auto& [locale, point] :
         {std::pair{QLocale::English, '.'}, {QLocale::German, ','}, {QLocale::Persian, '.'}})
    {
        QLocale::setDefault(QLocale(locale));
        EXPECT_EQ(NqGetDecimalPt(), point);
        // Numbers keep the point that the first of the run had.
        EXPECT_EQ(TNqString15("2.5").ToReal64(), 2.5);
    }
    QLocale::setDefault(before);
}

// The point is asked for once in a process: this program is started anew.
TEST_F(StringUtilsTest, NumbersHaveTheCommaOfALanguageThatWritesOne)
{
    if (std::getenv("NQTEST_COMMA") == nullptr)
    {
        EXPECT_TRUE(PassesAnew("StringUtilsTest.NumbersHaveTheComma*", "NQTEST_COMMA", "1"));
        return;
    }
    QLocale::setDefault(QLocale(QLocale::German));
    TNqString31 s;
    s.FromReal32(-1234.5F, 2);
    EXPECT_STREQ(s.GetString(), "-1234,50");
    EXPECT_EQ(s.ToReal32(), -1234.5F); // a comma is no group separator here
    EXPECT_EQ(s.ToReal64(), -1234.5);
    EXPECT_TRUE(s.IsNumericString());
    s.FromReal64(0.25, 3);
    EXPECT_STREQ(s.GetString(), "0,25");
    s = TNqString15("1.5");
    EXPECT_EQ(s.ToReal32(), 1);
    EXPECT_FALSE(s.IsNumericString());
}

TEST_F(StringUtilsTest, CFStringsGiveTheirBytesOnlyWhenAllFit)
{
    const UniChar units[] = {'a', 0xE9, 0xD83D, 0xDE00, 0xD800};
    const CFMacPtr<CFStringRef> text(CFStringCreateWithCharacters(kCFAllocatorDefault, units, 4));
    const CFMacPtr<CFStringRef> broken(CFStringCreateWithCharacters(kCFAllocatorDefault, units, 5));
    EXPECT_EQ(CFStringGetLength(text), 4);
    char buffer[8];
    EXPECT_TRUE(CFStringGetCString(text, buffer, 8, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "a\xC3\xA9\xF0\x9F\x98\x80");
    EXPECT_FALSE(CFStringGetCString(text, buffer, 7, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(text, buffer, 8, 0));
    EXPECT_FALSE(CFStringGetCString(broken, buffer, 8, kCFStringEncodingUTF8));
    EXPECT_EQ(CFStringCompare(text, broken, 0), kCFCompareLessThan);
}

} // namespace
