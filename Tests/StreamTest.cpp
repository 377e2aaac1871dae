#include "Tests/StreamDoubles.h"

#include <cmath>
#include <limits>

namespace
{

const TTexts kFailed = {"Stream throw TNqException"};

// The bytes that a memory stream makes of a value.
template <class T>
std::string Written(const T& value, int32 precision = 8, TranscoderType type = kUTF8Transcoder)
{
    return WrittenBy([&](TNqiostream& out) { out.precision(precision), out << value; }, type);
}

// A text to read, kept alive beside its stream.
struct TIn
{
    explicit TIn(const std::string& text)
        : fText(text),
          fStream(fText.data(), static_cast<int32>(fText.size()), kUTF8Transcoder, eRead)
    {
    }

    std::string Rest() { return fText.substr(static_cast<size_t>(fStream.pcount())); }

    std::string fText;
    TNqstrstream fStream;
};

// ---- Numbers -------------------------------------------------------------------------------------------------------

TEST_F(StreamTest, NumbersAsWritten)
{
    // clang-format off
    const std::tuple<real64, int32, const char*> reals[] = {
        {0.0, 8, "0"}, {-0.5, 8, "-0.5"}, {1.5, 8, "1.5"}, {2.0, 8, "2"}, {0.000123, 8, "0.000123"}, {-0.25, 8, "-0.25"},
        {1e12, 8, "2147483647"}, {-1e300, 8, "-2147483647"}, {2147483646.5, 8, "2147483646.5"}, {-0.0, 8, "0"},
        {3.999999999, 8, "3."}, {0.999, 2, "0."}, {1.25, 1, "1.3"}, {7.5, 0, "7."}, {7.25, 0, "7"}, {1e-9, 8, "0"},
        {0.1, 15, "0.1"}, {0.123456789012345, 15, "0.123456789012345"}, {1.0000000001, 10, "1.0000000001"}};
    // clang-format on
    for (const auto& [value, precision, text] : reals)
        EXPECT_EQ(Written(value, precision), text) << value;
    EXPECT_EQ(Written(std::nan("")), "0");
    EXPECT_EQ(TakeReports(), TTexts{"decimals >= 0"});
    const std::pair<real32, const char*> narrow[] = {
        {0.1f, "0.1"}, {-1.0000004f, "-1"}, {16777216.f, "16777216"}, {3e38f, "2147483647"}, {1e-7f, "0"}};
    for (const auto& [value, text] : narrow)
        EXPECT_EQ(Written(value), text) << value;
    EXPECT_EQ(Written(std::numeric_limits<int32>::min()), "-2147483648");
    EXPECT_EQ(Written(uint32(0)) + Written(uint32(4294967295)) + Written(int16(-5)) + Written(uint16(65535)),
              "04294967295-565535");
    EXPECT_EQ(Written(int64(4294967297)) + Written(uint64(8589934591)), "14294967295") << "the low 32 bits";
    EXPECT_EQ(Written("a\"b") + Written('c') + Written(uint8('d')) + Written(endl) + Written(ends),
              std::string("a\"bcd\r\0", 7));
}

TEST_F(StreamTest, NumbersAsRead)
{
    // clang-format off
    const std::tuple<const char*, real64, const char*> reals[] = {
        {"1.5e-3x", 1.5 * 1e-3, "x"}, {".5", .5, ""}, {" -2.25 rest", -2.25, "rest"}, {"12:", 12, ""}, {"3/4", 3, "4"},
        {"+7,8", 7, ",8"}, {"5.", 5, ""}, {"1e6", 1e6, ""}, {"2E+20}", 2e20, "}"}, {"4294967296", 0, ""},
        {"1e-5", 1e-5, ""}, {"9.e1;", 90, ";"}, {"-0", -0.0, ""}, {"0.30000000000", 0.3, ""}};
    // clang-format on
    for (const auto& [text, expected, rest] : reals)
    {
        TIn in(text);
        real64 value = 99;
        in.fStream >> value;
        EXPECT_DOUBLE_EQ(value, expected) << text;
        EXPECT_EQ(std::signbit(value), std::signbit(expected)) << text;
        EXPECT_EQ(in.Rest(), rest) << text;
    }
    int32 a = 1;
    uint32 b = 2;
    int16 c = 3;
    uint16 d = 4;
    real32 e = 5;
    real64 f = 6;
    for (const char* text : {"abc", "-", "", "1e", "1e+x", "  ", "--1"})
    {
        TIn in(text);
        in.fStream >> f;
        in.fStream.seek(0, TNqiostream::beg);
        in.fStream >> e;
        EXPECT_FALSE(in.fStream.good());
        EXPECT_EQ(TakeReports().size(), 2u) << text;
    }
    // A number that is none: int32 becomes 0, all others stay.
    TIn none("x");
    none.fStream >> a >> b >> c >> d;
    EXPECT_EQ(TakeReports().size(), 4u);
    EXPECT_EQ(std::make_tuple(a, b, c, d, e, f), std::make_tuple(0, 2u, 3, 4, 5.f, 6.));

    TIn integers("  -42, +7 -1 70000 4294967297 +5");
    int8 comma = 0;
    integers.fStream >> a >> comma;
    EXPECT_EQ(std::make_tuple(a, comma), std::make_tuple(-42, ','));
    integers.fStream >> a >> b >> c;
    EXPECT_EQ(std::make_tuple(a, b, c), std::make_tuple(7, 4294967295u, 4464));
    integers.fStream >> b; // wraps
    integers.fStream >> b; // a plus is no unsigned number
    EXPECT_EQ(b, 1u);
    EXPECT_EQ(integers.Rest(), "5");
    EXPECT_EQ(TakeReports(), kFailed);
}

// ---- Words, strings, lines -----------------------------------------------------------------------------------------

TEST_F(StreamTest, Words)
{
    int8 word[8] = "-------";
    TIn in(" abcdef g");
    // clang-format off
    const std::tuple<int32, bool, const char*, const char*> cases[] = {
        {4, false, "abc", "def g"}, {4, true, "def", " g"}, {1, false, "", "g"}, {4, true, "g", ""}, {4, true, "", ""}};
    // clang-format on
    for (const auto& [size, whole, expected, rest] : cases)
    {
        EXPECT_EQ(in.fStream.ReadString(word, size), whole);
        EXPECT_STREQ(word, expected);
        EXPECT_EQ(in.Rest(), rest);
    }
    EXPECT_EQ(in.fStream.ReadString(word, 0), 0);
    EXPECT_EQ(TakeReports(), TTexts{"bufferSize > 0"});
}

TEST_F(StreamTest, QuotedStringsAsRead)
{
    const std::string full(256, 'x');
    // clang-format off
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"word rest", "word", "rest"}, {"  \"a \\\"b\\\\\" c", "a \"b\\", " c"}, {"\"open", "open", ""}, {"", "", ""},
        {"a\\ b\tc", "a b", "c"}, {" \n", "", ""}, {"\"\"x", "", "x"}, {"\"\xC3\xA9\xE2\x82\xAC\"", "\xC3\xA9\xE2\x82\xAC", ""},
        {"\"" + full + "\"", full, ""}, {"\"" + full + "yz\"", full, "yz\""}, {"\"" + full + "\\z\"", full, "\\z\""},
        {full + "\\ z", full, "\\ z"}};
    // clang-format on
    for (const auto& [input, expected, rest] : cases)
    {
        TIn in(input);
        TNqDynamicString text("before");
        in.fStream >> text;
        EXPECT_EQ(std::string(text.StrGet()), expected);
        EXPECT_EQ(in.Rest(), rest);
    }
}

TEST_F(StreamTest, QuotedStringsOnOneLine)
{
    // clang-format off
    const std::tuple<const char*, uint32, bool, const char*, const char*> cases[] = {
        {" \"a\\nb\\r\\\"\\q\"z", 99, true, "a\nb\r\"q", "z"}, {"word", 99, false, "", "ord"}, {"\"\"", 0, true, "", ""},
        {"\"cut\nz", 99, false, "", "z"}, {"\"cut", 99, false, "", ""}, {"\"12345\"z", 5, true, "12345", "z"},
        {"\"123456\"z", 5, true, "123456", "z"}, {"\"1234567\"z", 5, false, "", "\"z"}};
    // clang-format on
    for (const auto& [input, maxLength, found, expected, rest] : cases)
    {
        TIn in(input);
        TNqString255 text("before");
        EXPECT_EQ(in.fStream.ReadSingleLineQuotedString(text, maxLength), found) << input;
        EXPECT_STREQ(text.StrGet(), expected) << input;
        EXPECT_EQ(in.Rest(), rest) << input;
    }
}

TEST_F(StreamTest, QuotedStringsAsWritten)
{
    const std::tuple<const char*, TranscoderType, const char*> cases[] = {
        {"a\"b", kUTF8Transcoder, "\"a\\\"b\""},
        {"\\\x01\n", kUTF8Transcoder, "\"\\\\\\\x01\n\""},
        {"\xC3\xA9\xE2\x82\xACx", kUTF8Transcoder, "\"\xC3\xA9\xE2\x82\xACx\""},
        {"\xC3\xA9\xE4\xB8\xADx", kMacTranscoder, "\"\x8E\xE4\xB8\xADx\""},
        {"\xE2\x82\xAC\xC3\xA9", kAnsiTranscoder, "\"\x80\xE9\""},
        {"\xF0\x9F\x98\x80", kUTF8Transcoder, "\"\xEF\x98\x80\""}, // characters have 16 bits
        {"\xF0\x90\x80\xA2", kUTF8Transcoder, "\"\\\"\""},         // ... and may then be a quote
        {"a\x80\xFF\xC3", kUTF8Transcoder, "\"a\xC3\x80\""},       // stray and missing bytes
    };
    for (const auto& [text, type, bytes] : cases)
        EXPECT_EQ(Written(TNqDynamicString(text), 8, type), bytes);
    EXPECT_EQ(Written(TNqDynamicString("a\0b", 3)), "\"a\"");
}

// A stream that has lost its transcoder, and one that only counts.
TEST_F(StreamTest, WithoutATranscoderTextIsUTF8)
{
    TRandom random(8);
    for (int round = 0; round < 1000; ++round)
    {
        static const char kBytes[] = "a\"\\ \x01\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBF\xC0\xFE";
        std::string text;
        for (int i = random.Below(300); i > 0; --i)
            text += kBytes[random.Below(sizeof kBytes - 1)];
        const TNqDynamicString string(text.c_str());
        const auto write = [&](TNqiostream& out)
        {
            out.SetTranscoder(kJpnTranscoder);
            EXPECT_EQ(TakeReports(), TTexts{"No transcoder of this type"});
            out << string;
        };
        const std::string expected = Written(string);
        EXPECT_EQ(WrittenBy(write), expected);
        EXPECT_EQ(WrittenBy<TDerived<TNqstrstream>>(write), expected);
        countstream count;
        count << string;
        EXPECT_EQ(static_cast<size_t>(count.count()), expected.size());

        TIn in("\"" + text), without("\"" + text);
        TNqString63 known, found;
        without.fStream.SetTranscoder(kJpnTranscoder);
        TakeReports();
        in.fStream >> known;
        without.fStream >> found;
        EXPECT_TRUE(found == known) << text;
        EXPECT_EQ(without.fStream.tell(), in.fStream.tell());
    }
    TakeReports();
}

TEST_F(StreamTest, TheMarkIsThreeBytes)
{
    const std::pair<const char*, bool> cases[] = {{"\xEF\xBB\xBFz", true}, {"\xEF\xBB\xBF", true},
                                                  {"\xEF\xBB\xBE", false}, {"\xEF\xBA\xBF", false},
                                                  {"\xEE\xBB\xBF", false}, {"\xEF\xBB", false}};
    for (const auto& [text, marked] : cases)
    {
        TIn in(text);
        in.fStream.SetTranscoder(kMacTranscoder);
        in.fStream.CheckIdentifier();
        EXPECT_EQ(in.fStream.GetTranscoder()->GetType(), marked ? kUTF8Transcoder : kMacTranscoder) << text;
        EXPECT_EQ(in.fStream.tell(), 0);
    }
}

// Both readers take tags off, as everything that a token holds.
TEST_F(StreamTest, LocalizedTextsOfTheBaseReadAlike)
{
    for (const char* text : {"\"plain\" ", "\"\x0C@x@Mhello@y\" "})
    {
        TIn first(text), second(text);
        TNqString255 fixed;
        TNqDynamicString dynamic;
        EXPECT_TRUE(first.fStream.ReadLocalizedString(fixed));
        second.fStream.ReadLocalizedDynamicString(dynamic);
        EXPECT_TRUE(fixed == dynamic) << text;
        EXPECT_EQ(first.Rest(), second.Rest());
    }
}

TEST_F(StreamTest, Lines)
{
    TIn text("ab\r\ncd\n\ref\rg\n\nlast");
    TTexts lines;
    for (TNqDynamicString line; text.fStream.getLine(line, '\n'), !text.fStream.eof();)
        lines.push_back(line.StrGet());
    EXPECT_EQ(lines, (TTexts{"ab", "cd", "ef", "g", "", "last"}));

    // clang-format off
    const std::tuple<const char*, int32, int8, const char*, int8, int32, const char*, const char*> cases[] = {
        {"ab\ncd", 9, '\n', "ab", '\n', 2, "cd", "\ncd"}, {"ab\r\ncd", 9, '\n', "ab", '\n', 3, "cd", "\ncd"},
        {"ab,cd", 9, ',', "ab", ',', 2, "cd", ",cd"}, {"ab\ncd", 9, ',', "ab\ncd", 0, 5, "", ""}, {"", 9, 0, "", 0, 0, "", ""},
        {"abcd", 2, ',', "ab", 'c', 2, "d", "d"}, {"ab,d", 2, ',', "ab", ',', 2, "d", ",d"},
        {"abcd", 0, ',', "", 0, 0, "abcd", "abcd"}, {"ab\n", 9, '\n', "ab", '\n', 2, "", "\n"},
        {"ab\r", 9, '\n', "ab", '\n', 2, "", "\r"}, {"ab\rcd", 9, '\n', "ab", '\n', 2, "cd", "\rcd"},
        {"ab\n\rcd", 9, '\n', "ab", '\n', 3, "cd", "\rcd"}, {"ab\r\rcd", 9, '\n', "ab", '\n', 2, "\rcd", "\r\rcd"}};
    // clang-format on
    for (const auto& [input, size, delim, expected, ending, count, rest, restOfGet] : cases)
    {
        int8 line[16];
        TIn forLine(input), forGet(input);
        EXPECT_EQ(forLine.fStream.getline(line, size, delim), ending) << input;
        EXPECT_STREQ(line, expected) << input;
        EXPECT_EQ(forLine.fStream.gcount(), count) << input;
        EXPECT_EQ(forLine.Rest(), rest) << input;
        forGet.fStream.get(line, size, delim);
        EXPECT_EQ(forGet.fStream.gcount(), count - (ending == delim && ending != 0)) << input;
        EXPECT_EQ(forGet.Rest(), restOfGet) << input;
        EXPECT_EQ(forGet.fText, input) << "text may be constant";
    }
}

// Millions of bytes in one line, one string, one block: work in the order of the bytes.
TEST_F(StreamTest, LongTextsCostLinearTime)
{
    const std::string big(4000000, 'x');
    TIn in("\"" + big + "\"" + big + "\n");
    TNqDynamicString text;
    EXPECT_EQ(in.fStream.ReadSingleLineQuotedString(text, 5000000), 1);
    EXPECT_EQ(text.ByteLength(), big.size());
    in.fStream.getLine(text, '\n');
    EXPECT_EQ(text.ByteLength(), big.size());
    TDerived<TNqstrstream> out(kUTF8Transcoder);
    out << text;
    EXPECT_EQ(out.pcount(), 4000002);
    TestHost().FailAllocations(0);
    for (int i = 0; i < 4000000; ++i)
        out.put('y');
    EXPECT_LT(TestHost().CountAllocations(), 20);
}

// ---- Which calls a derived stream sees -----------------------------------------------------------------------------

TEST_F(StreamTest, DerivedStreamsSeeEachCall)
{
    int32 number = 0;
    real64 real = 0;
    int8 word[16];
    TNqString255 text;
    CheckCalls({
        {" -42,", [&](TNqiostream& s) { s >> number; }, ">gggggp"},
        {"42 ", [&](TNqiostream& s) { s >> number; }, ">ggg"},
        {"1.5e3:x", [&](TNqiostream& s) { s >> real; }, "gggggggp"},
        {"ab c", [&](TNqiostream& s) { s >> word; }, "gggp"},
        {"abc", [&](TNqiostream& s) { s.ReadString(word, 3); }, "gggp"},
        {"\"a\\\"\"z", [&](TNqiostream& s) { s >> text; }, "ggggg"},
        {"ab\nc", [&](TNqiostream& s) { s.getline(word, 9, '\n'); }, "ggggp"},
        {"ab\nc", [&](TNqiostream& s) { s.get(word, 9, 'b'); }, "ggp"},
        {"", [&](TNqiostream& s) { s << int32(-1234) << 1.25 << -2.0; }, "<141311"},
        {"", [&](TNqiostream& s) { s << TNqString255("a\"\xC3\xA9") << "text" << 'c' << endl; }, "111111141e1"},
        {"abc", [](TNqiostream& s) { s.GetStreamSize(); }, "tsts"},
        {"abc", [](TNqiostream& s) { s.CheckIdentifier(); }, "rs"},
    });
}

// A stream that cannot be read, and one whose separators end at nothing, do not hang a scanner.
TEST_F(StreamTest, ScannersEndOnStreamsThatFail)
{
    class TSeparated : public TNqstrstream
    {
    public:
        TSeparated(int8* text, int8* separators) : TNqstrstream(text, kUTF8Transcoder) { fSeparators = separators; }
    };
    countstream count;
    int32 value = 5;
    TNqString255 text("x");
    count >> value;
    count >> text;
    EXPECT_EQ(value, 0);
    EXPECT_STREQ(text.StrGet(), "");
    EXPECT_EQ(TakeReports().size(), 3u);
    int8 bytes[] = "1;;2 3";
    int8 semicolon[] = ";";
    TSeparated separated(bytes, semicolon);
    separated >> value;
    separated >> value;
    EXPECT_EQ(value, 2);
    TSeparated none(bytes, nullptr);
    none >> value;
    EXPECT_EQ(none.pcount(), 1);
}

// ---- What belongs to every stream ----------------------------------------------------------------------------------

TEST_F(StreamTest, StateFormatAndInfo)
{
    countstream stream;
    EXPECT_EQ(stream.precision(20), 8);
    EXPECT_EQ(stream.precision(-1), 15);
    EXPECT_EQ(stream.precision(3), 0);
    EXPECT_EQ(stream.width(5), 12);
    stream.setf(0x10);
    EXPECT_EQ(stream.setf(1, 3), 1) << "a mask clears all flags";
    EXPECT_EQ(stream.unsetf(0), 1);
    stream << hex;
    EXPECT_EQ(stream.setf(0), 2);

    int32 data[2] = {1, 2};
    stream.SetInfo(5, data, 4);
    ASSERT_NE(stream.GetInfo(5), nullptr);
    stream.SetInfo(6, data + 1, 4);
    stream.SetInfo(5, stream.GetInfo(6), 4); // from the stream's own block
    EXPECT_EQ(*static_cast<int32*>(stream.GetInfo(5)), 2);
    EXPECT_EQ(stream.GetInfo(7), nullptr);
    const auto add = [&](int64)
    {
        stream.SetInfo(7, data, 4);
        const int32* const info = static_cast<int32*>(stream.GetInfo(7));
        EXPECT_TRUE(info == nullptr || *info == 1);
    };
    ForEachFailingAllocation(add);
    ASSERT_NE(stream.GetInfo(7), nullptr);
    EXPECT_EQ(*static_cast<int32*>(stream.GetInfo(6)), 2);

    std::map<IDType, int32> model;
    TRandom random(3);
    TestHost().FailAllocations(0);
    for (int32 i = 0; i < 60000; ++i)
    {
        const IDType id = static_cast<IDType>(random.Below(100000));
        stream.SetInfo(id, &i, 4);
        model[id] = i;
        for (auto known = model.begin(); known != model.end() && i % 10000 == 0; ++known)
            ASSERT_EQ(*static_cast<int32*>(stream.GetInfo(known->first)), known->second);
    }
    EXPECT_LT(TestHost().CountAllocations(), 60030);
    EXPECT_EQ(stream.GetInfo(100000), nullptr);

    EXPECT_EQ(stream.GetContext(), nullptr);
    TNqString255 folder("x");
    stream.GetPathRelativeFolder(folder);
    EXPECT_EQ(folder.ByteLength(), 0u);
    stream.WriteIdentifier();
    EXPECT_EQ(TakeReports(), TTexts{"fEncoding"});
    stream.SetTranscoder(kMacTranscoder);
    ITranscoder* const mac = stream.GetTranscoder();
    stream.SetTranscoder(kMacTranscoder);
    EXPECT_EQ(stream.GetTranscoder(), mac) << "the same type is kept";
    stream.WriteIdentifier();
    stream.SetTranscoder(kUTF8Transcoder);
    stream.WriteIdentifier();
    EXPECT_EQ(stream.count(), 3);
    stream.writeFileRef("a/b");
    EXPECT_EQ(stream.count(), 8);
}

TEST_F(StreamTest, StreamsLiveWithoutMemory)
{
    int8 source[] = "\"quoted\" line\n 12";
    const auto use = [&](int64)
    {
        TNqstrstream out(kUTF8Transcoder);
        out << int32(12) << TNqString255("\xC3\xA9");
        TNqstrstream in(source, kMacTranscoder);
        TNqDynamicString text;
        in.ReadSingleLineQuotedString(text, 100);
        in.getLine(text, '\n');
        int32 value = 0;
        in.seek(14, TNqiostream::beg);
        in >> value;
        EXPECT_EQ(value, 12);
    };
    ForEachFailingAllocation(use);
}

// ---- Memory --------------------------------------------------------------------------------------------------------

class TMemory : public TNqstrstream
{
public:
    using TNqstrstream::fBufferAllocatedSize;
    using TNqstrstream::fBufferSize;
    using TNqstrstream::TNqstrstream;
};

TEST_F(StreamTest, MemoryStreamsGrowAndAreHandedOver)
{
    TMemory out(kUTF8Transcoder);
    EXPECT_TRUE(out.eof());
    EXPECT_EQ(out.fBufferAllocatedSize, 4096);
    const std::string bytes(5000, 'b');
    out.write(bytes.data(), 5000);
    EXPECT_EQ(out.pcount(), 5000);
    EXPECT_EQ(out.fBufferAllocatedSize, 8192);
    EXPECT_EQ(out.GetSize(), 0) << "a stream without eRead has no size to tell";
    EXPECT_EQ(TakeReports(), kFailed);
    out.seek(4999, TNqiostream::beg);
    out.write("xyz", 3);
    EXPECT_EQ(out.fBufferSize, 5002);
    int8* const block = out.str();
    EXPECT_EQ(std::string(block + 4998, 4), "bxyz");
    int8 c = '-';
    out.get(c);
    EXPECT_TRUE(out.eof());
    EXPECT_EQ(out.gcount(), 0);
    out.write("x", 1);
    out.seek(0, TNqiostream::beg);
    out.putback('x');
    EXPECT_FALSE(out.good());
    EXPECT_EQ(TakeReports(), TTexts(3, kFailed[0]));
    Nqfree(block);
}

TEST_F(StreamTest, MemoryStreamsStayInsideTheirBytes)
{
    int8 bytes[] = "0123456789";
    TNqstrstream stream(bytes, 10, kUTF8Transcoder, eReadWrite);
    // clang-format off
    const std::tuple<int32, TNqiostream::seek_dir, int32, int32> seeks[] = {
        {10, TNqiostream::beg, 10, 1}, {11, TNqiostream::beg, 10, 2}, {-4, TNqiostream::cur, 6, 0}, {-7, TNqiostream::cur, 6, 2},
        {0, TNqiostream::end, 10, 1}, {3, TNqiostream::end, 7, 0}, {-1, TNqiostream::end, 7, 2},
        {0x7FFFFFFF, TNqiostream::cur, 7, 2}, {6, TNqiostream::beg, 6, 0}};
    // clang-format on
    for (const auto& [offset, dir, position, state] : seeks)
    {
        stream.seek(offset, dir);
        EXPECT_EQ(stream.tell(), position);
        EXPECT_EQ(stream.good() ? 0 : stream.eof() ? 1 : 2, state);
    }
    EXPECT_EQ(TakeReports().size(), 4u);
    int8 data[8] = "-------";
    stream.read(data, -3);
    EXPECT_EQ(stream.gcount(), 0);
    stream.write(data, -3);
    EXPECT_TRUE(stream.good());
    stream.read(data, 8);
    EXPECT_EQ(std::string(data, 5), "6789-");
    EXPECT_EQ(stream.gcount(), 4);
    EXPECT_TRUE(stream.eof());
    stream.putback('x');
    EXPECT_STREQ(bytes, "012345678x");
    stream.write("ab", 2); // one byte too many: none is taken
    EXPECT_FALSE(stream.good());
    EXPECT_STREQ(bytes, "012345678x");
    EXPECT_EQ(TakeReports(), kFailed);

    // Constant text can be read and put back.
    TNqstrstream constant(const_cast<int8*>("12,"), kUTF8Transcoder);
    TDerived<TNqstrstream> derived(const_cast<int8*>("12,"), kUTF8Transcoder);
    int32 value = 0;
    constant >> value;
    derived >> value;
    EXPECT_EQ(constant.tell() + derived.tell(), 4);
    EXPECT_TRUE(TNqstrstream(static_cast<int8*>(nullptr), kUTF8Transcoder).eof());
    TNqstrstream nil(nullptr, 5, kUTF8Transcoder, eRead);
    TNqstrstream empty(bytes, 0, kUTF8Transcoder, eWrite);
    TNqstrstream text(bytes, 0, kUTF8Transcoder, eRead);
    EXPECT_EQ(TakeReports().size(), 2u);
    EXPECT_EQ(nil.GetSize() + text.GetSize(), 10);
    empty.write("x", 1);
    EXPECT_FALSE(empty.good());
    TakeReports();
}

// A class that writes through a fixed buffer sees it full, empties it and gets the bytes again.
TEST_F(StreamTest, AFullBufferIsFlushedOnce)
{
    class TFlushing : public TNqstrstream
    {
    public:
        TFlushing(int8* buffer, int32 size) : TNqstrstream(buffer, size, kUTF8Transcoder, eWrite) {}
        void FlushBuffer() override
        {
            fAll.append(fBuffer, static_cast<size_t>(pcount()));
            fCur = fBuffer;
            changestate(eofbit); // the write that goes on starts afresh
        }
        std::string fAll;
    };
    int8 buffer[4];
    TFlushing stream(buffer, 4);
    stream << "abc"
           << "de"
           << "fghi";
    EXPECT_TRUE(stream.good());
    stream.write("12345", 5);
    EXPECT_FALSE(stream.good());
    EXPECT_EQ(stream.fAll, "abcdefghi");
    EXPECT_EQ(TakeReports(), kFailed);
}

TEST_F(StreamTest, CountingStreams)
{
    countstream stream;
    stream.writelong(-123);
    EXPECT_EQ(stream.count(), 4);
    stream.seek(10, TNqiostream::beg);
    EXPECT_EQ(stream.count(), 10);
    EXPECT_TRUE(stream.eof());
    stream.seek(4, TNqiostream::end);
    EXPECT_EQ(stream.tell(), 6);
    EXPECT_TRUE(stream.good());
    stream.write(nullptr, -3);
    EXPECT_EQ(stream.tell(), 6);
    stream.write(nullptr, 0x7FFFFFFF);
    EXPECT_EQ(stream.count(), 10);
    stream.putback('x');
    int8 c = 'c';
    stream.get(c);
    EXPECT_EQ(c, 'c');
    EXPECT_EQ(TakeReports().size(), 3u);
    stream.seek(0x7FFFFFFE, TNqiostream::beg);
    stream.write(nullptr, 1);
    EXPECT_EQ(stream.count(), 0x7FFFFFFF);
    stream.write(nullptr, 1);
    stream.seek(1, TNqiostream::cur);
    EXPECT_EQ(stream.tell(), 0x7FFFFFFF);
    EXPECT_EQ(TakeReports().size(), 2u);
}

// ---- The contract with modules built elsewhere ---------------------------------------------------------------------

// The slot of a virtual operation, as its member pointer holds it.
template <class Function>
size_t SlotOf(Function function)
{
    size_t offset;
    std::memcpy(&offset, &function, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

template <class Argument>
const auto kInSlot = SlotOf<TNqiostream& (TNqiostream::*)(Argument)>(&TNqiostream::operator>>);
template <class Argument>
const auto kOutSlot = SlotOf<TNqiostream& (TNqiostream::*)(Argument)>(&TNqiostream::operator<<);

template <class Member>
size_t OffsetOf(Member member)
{
    size_t offset;
    std::memcpy(&offset, &member, sizeof offset);
    return offset;
}

// Fields as derived classes of other modules know them.
TEST_F(StreamTest, FieldsStay)
{
    using TOffsets = std::vector<size_t>;
    // clang-format off
    struct TMemoryFields : TNqstrstream
    {
        using F = TMemoryFields;
        using TNqstrstream::TNqstrstream;
        TOffsets fOffsets = {
            OffsetOf(&F::fFlags), OffsetOf(&F::fState), OffsetOf(&F::fMode), OffsetOf(&F::fPrecision), OffsetOf(&F::fWidth),
            OffsetOf(&F::fgcount), OffsetOf(&F::fSeparators), OffsetOf(&F::fInfos), OffsetOf(&F::fInfosCount),
            OffsetOf(&F::fEncoding), OffsetOf(&F::fIDOffset), OffsetOf(&F::fStreamContext), OffsetOf(&F::fBuffer),
            OffsetOf(&F::fBufferSize), OffsetOf(&F::fBufferAllocatedSize), OffsetOf(&F::fCur), OffsetOf(&F::fOwnBuffer)};
    };
    struct TFileFields : TNqfstream
    {
        using F = TFileFields;
        TOffsets fOffsets = {
            OffsetOf(&F::fFile), OffsetOf(&F::fBuffer), OffsetOf(&F::fBufferSize), OffsetOf(&F::fActualBufSize),
            OffsetOf(&F::fBufferPos), OffsetOf(&F::fBufferOffset), OffsetOf(&F::fFileSize), OffsetOf(&F::fBufferModified),
            OffsetOf(&F::fFirstBufferLoaded)};
    };
    // clang-format on
    const TOffsets memory = {8, 12, 16, 20, 24, 28, 32, 40, 48, 56, 64, 72, 80, 88, 92, 96, 104};
    EXPECT_EQ(TMemoryFields(kUTF8Transcoder).fOffsets, memory);
    EXPECT_EQ(TFileFields().fOffsets, (TOffsets{80, 88, 96, 100, 104, 108, 112, 116, 117}));
}

// Called as a plug-in does; and the slots of all operations, in the order that it was built with.
TEST_F(StreamTest, SlotsStay)
{
    int8 bytes[] = "0123456789";
    TNqstrstream stream(bytes, 10, kUTF8Transcoder, eRead);
    Slot<void (*)(void*, int32, TNqiostream::seek_dir)>(&stream, 3)(&stream, 4, TNqiostream::beg);
    EXPECT_EQ(Slot<int32 (*)(void*)>(&stream, 2)(&stream), 4);
    int32 value = 0;
    Slot<void* (*)(void*, int32*)>(&stream, 12)(&stream, &value);
    EXPECT_EQ(value, 456789);

    using S = TNqiostream;
    using F = INqFile;
    using TManipulator = S& (*)(S&);
    // clang-format off
    const std::vector<size_t> base = {
        SlotOf(&S::tell), SlotOf(&S::seek), SlotOf<void (S::*)(int8*, int32)>(&S::read), SlotOf<void (S::*)(int8&)>(&S::get),
        SlotOf(&S::putback), SlotOf(&S::write), kInSlot<int8*>, kInSlot<uint8*>, kInSlot<int8&>, kInSlot<uint8&>,
        kInSlot<int32&>, kInSlot<uint32&>, kInSlot<int16&>, kInSlot<uint16&>, kInSlot<real32&>, kInSlot<real64&>,
        kInSlot<TNqString&>, kInSlot<TManipulator>, kOutSlot<const int8*>, kOutSlot<const uint8*>, kOutSlot<int8>,
        kOutSlot<uint8>, kOutSlot<int32>, kOutSlot<uint32>, kOutSlot<int16>, kOutSlot<uint16>, kOutSlot<int64>,
        kOutSlot<uint64>, kOutSlot<real32>, kOutSlot<real64>, kOutSlot<const TNqString&>, kOutSlot<TManipulator>,
        SlotOf(&S::readFileRef), SlotOf(&S::writeFileRef), SlotOf(&S::GetPathRelativeFolder), SlotOf(&S::GetContext),
        SlotOf(&S::GetStreamContext), SlotOf(&S::SetStreamContext), SlotOf(&S::WriteLocalizedString),
        SlotOf(&S::ReadLocalizedString), SlotOf(&S::ReadLocalizedDynamicString)};
    const std::vector<size_t> file = {
        SlotOf(&F::SetFileName), SlotOf(&F::CopyFrom), SlotOf(&F::SetPermission), SlotOf(&F::Exists), SlotOf(&F::GetSize),
        SlotOf(&F::GetPosition), SlotOf(&F::GetPermission), SlotOf(&F::Create), SlotOf(&F::Open), SlotOf(&F::Close),
        SlotOf(&F::Read), SlotOf(&F::Write), SlotOf(&F::SetPosition), SlotOf(&F::SetSize), SlotOf(&F::GetPathRelativeFolder),
        SlotOf(&F::GetFullPath), SlotOf(&F::SetTypeAndCreator)};
    // clang-format on
    for (size_t i = 0; i < base.size(); ++i)
        EXPECT_EQ(base[i], i + 2); // behind the destructors
    for (size_t i = 0; i < file.size(); ++i)
        EXPECT_EQ(file[i], i + 3); // behind those of INqUnknown
    using TInitPath = NqErr (TNqfstream::*)(const int8*, TranscoderType, int32, int32, boolean*);
    using TInitFile = NqErr (TNqfstream::*)(INqFile&, int32, boolean*, TranscoderType);
    EXPECT_EQ(SlotOf<TInitPath>(&TNqfstream::Init), base.size() + 2);
    EXPECT_EQ(SlotOf<TInitFile>(&TNqfstream::Init), base.size() + 3);
    EXPECT_EQ(SlotOf(&TNqstrstream::FlushBuffer), base.size() + 2);
    EXPECT_EQ(SlotOf(&TNqiostreamContext::CreateStream), 2u);
    EXPECT_EQ(SlotOf(&TNqiostreamContext::Change), 3u);
}

} // namespace
