// Binary fields, byte for byte and against a model, and localized texts.

#include "NqCore/PublicAPI/NqToken.h"
#include "Tests/ResourceDoubles.h"
#include "Tests/StreamDoubles.h"

using namespace std::string_literals;

struct TNqResourceLayout
{
    static void Check(const TNqResource& r)
    {
        const void* const kFields[] = {&r.fOwningFile, &r.fSize,     &r.fResData, &r.fID,       &r.fType,
                                       &r.fAttributes, &r.fRefCount, &r.fResName, &r.fCanDelete};
        static constexpr ptrdiff_t kOffsets[] = {0, 8, 16, 24, 28, 32, 40, 48, 328};
        for (size_t i = 0; i < std::size(kOffsets); ++i)
            EXPECT_EQ(static_cast<const int8*>(kFields[i]) - reinterpret_cast<const int8*>(&r), kOffsets[i]) << i;
    }
};

namespace
{

TTexts Texts(const TResourceStrings& strings)
{
    TTexts texts;
    for (uint32 i = 0; i < strings.GetElemCount(); ++i)
        texts.push_back(strings[i].StrGet());
    return texts;
}

using TStream = TNqByteSwapStream;

template <class T>
void Put(TStream& stream, uint64 bits)
{
    T value;
    std::memcpy(&value, &bits, sizeof value);
    stream << value;
}

template <class T>
uint64 Take(TStream& stream)
{
    T value = 0;
    stream >> value;
    uint64 bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    return bits;
}

struct TField
{
    size_t fSize;
    void (*fWrite)(TStream& stream, uint64 bits);
    uint64 (*fRead)(TStream& stream);
};

using ResourceStream = NqTest;

} // namespace

TEST_F(ResourceStream, FieldsHaveTheseBytes)
{
    static const std::pair<void (*)(TNqResourceStream&), std::string> kFields[] = {
        {[](TNqResourceStream& s) { s.WriteLong(0x01020304); }, "\1\2\3\4"s},
        {[](TNqResourceStream& s) { s << int32(-2) << uint32(0x80000001); }, "\xFF\xFF\xFF\xFE\x80\0\0\1"s},
        {[](TNqResourceStream& s) { s << int16(-2) << uint16(0x1234); }, "\xFF\xFE\x12\x34"s},
        {[](TNqResourceStream& s) { s << int8(' ') << uint8(200); }, " \xC8"s},
        {[](TNqResourceStream& s) { s.WriteBoolean(7), s.WriteShort(0x0102); }, "\7\1\2"s},
        {[](TNqResourceStream& s) { s.WriteDouble(1.0), s << -2.0f; }, "\x3F\xF0\0\0\0\0\0\0\xC0\0\0\0"s},
        {[](TNqResourceStream& s) { s << TNqString255("ab") << TNqString255(); }, "\2ab\0"s},
        {[](TNqResourceStream& s) { s << TNqDynamicString("ab") << TNqString1023("c"); }, "\0\0\0\2ab\0\0\0\1c"s},
        {[](TNqResourceStream& s) { s.WriteTNqString(5, TNqString31("ab")); }, "\2ab\0\0\0"s},
        {[](TNqResourceStream& s) { s.WriteTNqString(3, TNqString31("abcdef")); }, "\3abc"s},
        {[](TNqResourceStream& s) { s.WriteCString(TNqString31("ab")), s.WriteCString(TNqDynamicString()); },
         "ab\0\0"s},
        {[](TNqResourceStream& s) { s.WriteLocalizedTNqString(TNqString31("ab")); }, "\2ab"s},
        {[](TNqResourceStream& s) { s.WriteLocalizedTNqString(2, TNqString31("ab")); }, "\2ab"s},
        {[](TNqResourceStream& s) { s << int64(4294967297) << "x" << endl; }, "1x\r"s}, // text, as in every stream
    };
    for (const auto& [write, bytes] : kFields)
    {
        TNqResourceStream stream(nullptr);
        write(stream);
        EXPECT_EQ(Written(stream), bytes);
    }
    int8 swapped[] = "abcd";
    ConvertLongPtr(swapped);
    ConvertShortPtr(swapped + 1);
    EXPECT_STREQ(swapped, "dbca");
}

// The same random fields through the class itself and through one derived from it, against bytes made by hand; then
// read back from a cut: what is not whole is built from the bytes there are.
TEST_F(ResourceStream, RandomFieldsComeBack)
{
    static const TField kFields[] = {{1, Put<int8>, Take<uint8>},
                                     {2, Put<int16>, Take<uint16>},
                                     {4, Put<uint32>, Take<int32>},
                                     {4, Put<real32>, Take<real32>},
                                     {8, Put<real64>, Take<real64>}};
    TRandom random(45);
    for (int round = 0; round < 300; ++round)
    {
        TStream direct;
        TDerived<TStream> plain;
        std::string model;
        std::vector<const TField*> fields;
        for (int i = random.Below(12); i >= 0; --i)
        {
            const uint64 bits = (uint64(random()) << 32 | random()) & 0x7FEFFFFF7F7FFFFF; // no NaN
            fields.push_back(&kFields[random.Below(5)]);
            fields.back()->fWrite(direct, bits);
            fields.back()->fWrite(plain, bits);
            for (size_t byte = fields.back()->fSize; byte-- > 0;)
                model += static_cast<char>(bits >> 8 * byte);
        }
        ASSERT_EQ(Written(direct), model);
        ASSERT_EQ(Written(plain), model);

        const int32 cut = 1 + random.Below(static_cast<int32>(model.size()));
        TStream in(model.data(), cut, kUTF8Transcoder, eRead);
        TDerived<TStream> other(model.data(), cut, kUTF8Transcoder, eRead);
        model.resize(static_cast<size_t>(cut)); // what is missing reads as zeros
        size_t at = 0;
        for (const TField* field : fields)
        {
            uint64 expected = 0;
            for (size_t i = 0; i < field->fSize; ++i, ++at)
                expected = expected << 8 | static_cast<uint8>(at < model.size() ? model[at] : 0);
            ASSERT_EQ(field->fRead(in), expected);
            ASSERT_EQ(field->fRead(other), expected);
            ASSERT_EQ(in.good(), at <= model.size());
            ASSERT_TRUE(in.tell() == other.tell() && in.good() == other.good() && in.gcount() == other.gcount());
        }
    }
}

TEST_F(ResourceStream, TextsThatDoNotFit)
{
    int8 bytes[] = "\0\0\x10\0\x85long\xFF\3\xC3\xA9@1@Mx";
    TNqByteSwapStream in(bytes, sizeof bytes - 1, kMacTranscoder, eRead);
    TNqDynamicString text("before");
    in >> text;
    EXPECT_EQ(TakeReports(), (TTexts{"length < sizeof(gAllPurposeBuffer)", "Stream throw TNqException"}));
    EXPECT_TRUE(text == TNqString31() && !in.good());
    TNqString255 name;
    in.ReadTNqString(4, name); // says 133, holds 4
    EXPECT_STREQ(name.StrGet(), "long");
    in.ReadTNqString(256, name);
    in.WriteTNqString(256, name);
    in.ReadTNqString(-1, name);
    EXPECT_EQ(TakeReports(), (TTexts{"sizeToRead < 256", "sizeToWrite < 256", "sizeToRead < 256"}));
    EXPECT_STREQ(name.StrGet(), "long");
    EXPECT_EQ(in.ReadBoolean(), 255);
    in.ReadTNqString(40, name); // three bytes of it, cut short by the end, tags or not
    EXPECT_STREQ(name.StrGet(), "\xC3\xA9@");
    EXPECT_TRUE(in.eof());
    int8 tagged[] = "\x0E\x0C@x@Mhello@y??";
    TNqByteSwapStream(tagged, sizeof tagged - 1, kUTF8Transcoder, eRead).ReadTNqString(15, name);
    EXPECT_STREQ(name.StrGet(), "hello") << "tags of old resources are taken off";
    in.seek(10, TNqiostream::beg);
    in.ReadCString(text); // in Mac OS Roman, up to the end
    EXPECT_STREQ(text.StrGet(), "\3\xE2\x88\x9A\xC2\xA9@1@Mx");
    EXPECT_TRUE(in.eof());
    int8 shorter[] = "\0\0\0\6abcdef\0\0\0\2gh\3ijk\1l"; // nothing is left of the text before
    TNqByteSwapStream texts(shorter, sizeof shorter - 1, kUTF8Transcoder, eRead);
    for (const char* whole : {"abcdef", "gh", "ijk", "l"})
    {
        TNqString& read = texts.tell() < 16 ? static_cast<TNqString&>(text) : name;
        texts >> read;
        EXPECT_STREQ(read.StrGet(), whole);
    }
    int8 cut[] = "\0\0\0\5ab";
    TNqByteSwapStream(cut, 6, kUTF8Transcoder, eRead) >> text;
    EXPECT_STREQ(text.StrGet(), "ab");
    int8 c = 'c';
    in >> c >> name;
    EXPECT_TRUE(c == 'c' && name.ByteLength() == 0);
}

// A dynamic string that had no memory for its text is no empty one.
TEST_F(ResourceStream, TextsWithoutMemoryAreReported)
{
    TNqDynamicString lost("text");
    TestHost().FailAllocations(1);
    lost.SetMaxLength(100);
    TestHost().FailAllocations(0);
    using TWrite = void (*)(TNqByteSwapStream&, const TNqString&);
    const std::pair<TWrite, std::string> cases[] = {
        {[](TNqByteSwapStream& s, const TNqString& text) { s << text; }, "\0\0\0\0"s},
        {[](TNqByteSwapStream& s, const TNqString& text) { s.WriteCString(text); }, "\0"s},
        {[](TNqByteSwapStream& s, const TNqString& text) { s.WriteTNqString(2, text); }, "\0\0\0"s},
        {[](TNqByteSwapStream& s, const TNqString& text)
         { NqToken::PutNonLocalizedString(static_cast<TNqstrstream&>(s), text, false); },
         "\"\""s}};
    for (const auto& [write, bytes] : cases)
    {
        TNqByteSwapStream stream;
        write(stream, lost);
        EXPECT_EQ(Written(stream), bytes);
        EXPECT_EQ(TakeReports(), TTexts{"fStringBuffer != NULL"});
    }
}

TEST_F(ResourceStream, LocalizedFields)
{
    const TStringsPtr strings = Strings({"one", "two", "three"});
    TNqResourceStream out(strings);
    out.WriteLocalizedTNqString(31, TNqString255("four"));
    out.WriteLocalizedCString(TNqString255("five"));
    out.WriteLocalizedTNqString(TNqString255("six"));
    std::string bytes = Written(out);
    EXPECT_EQ(bytes, "\0\0\0\3"s + std::string(28, '\0') + "\0\0\0\4\0\0\0\5"s);
    EXPECT_EQ(Texts(*strings), (TTexts{"one", "two", "three", "four", "five", "six"}));

    const TResourcePtr resource = Resource(NqFourChar("TEST"), 1, "r", {}, strings);
    bytes += "\0\0\0\6\x80\0\0\0\0\0\0\1\0\0\0\0\0\0"s;
    resource->LendData(bytes.data(), static_cast<uint32>(bytes.size()));
    TNqResourceStream in(*resource, eRead);
    TNqString255 a;
    TNqDynamicString b;
    in.ReadLocalizedTNqString(31, a);
    in.ReadLocalizedCString(b);
    EXPECT_TRUE(a == TNqString31("four") && b == TNqString31("five"));
    in.ReadLocalizedTNqString(a);
    EXPECT_FALSE(in.ReadLocalizedString(a, 4) || in.ReadLocalizedString(a, 4)); // 6 and 2^31
    EXPECT_EQ(TakeReports(), TTexts(2, "stringIndex < stringCount"));
    EXPECT_STREQ(a.StrGet(), "six");
    EXPECT_TRUE(in.ReadLocalizedString(a, 9)); // an index and one long
    EXPECT_EQ(TakeReports(), TTexts{"sizeToRead>=0 && (sizeToRead%4)==0"});
    EXPECT_STREQ(a.StrGet(), "two");
    EXPECT_FALSE(in.ReadLocalizedString(a, 4)); // two bytes are no index
    EXPECT_TRUE(in.eof());

    TNqResourceStream none(nullptr);
    EXPECT_FALSE(none.WriteLocalizedString(a, 4) || none.ReadLocalizedString(a, 4));
    EXPECT_EQ(TakeReports(), TTexts{"fLocalizedStrings"});
    EXPECT_EQ(none.tell(), 0);
    EXPECT_EQ((*strings)[9].ByteLength(), 0u);
    EXPECT_EQ(TakeReports(), TTexts{"index < GetElemCount()"});
}

// A table that the text stream writes into while its own strings are listed: the end was fixed before.
TEST_F(ResourceStream, LocalizedText)
{
    const TStringsPtr strings = Strings({});
    TNqLocalizedTextResourceStream out(*strings);
    out.WriteLocalizedString(TNqString255("eins"));
    NqToken::PutLocalizedStringAttribute(out, NqFourChar("NAME"), TNqString255("zwei"), true);
    out.WriteAllStrings(out);
    std::string text = Written(out);
    EXPECT_EQ(text, "0\rNAME 1\r\rStrg 2\r\rStrg 3\r\r");
    EXPECT_EQ(Texts(*strings), (TTexts{"eins", "zwei", "eins", "zwei"}));

    TNqResourceStream all(strings);
    TNqstrstream listed(kUTF8Transcoder);
    all.WriteAllStrings(listed);
    EXPECT_EQ(Written(listed), "Strg \"eins\"\rStrg \"zwei\"\rStrg \"eins\"\rStrg \"zwei\"\r");

    text = "1 0 -1 4 ";
    TNqLocalizedTextResourceStream in(*strings, text.data(), 0, eRead);
    TNqDynamicString b;
    EXPECT_STREQ(NqToken::GetLocalizedStringToken(in).StrGet(), "zwei");
    EXPECT_STREQ(NqToken::GetLocalizedDynamicStringToken(in, b).StrGet(), "eins");
    EXPECT_FALSE(in.ReadLocalizedString(b) || in.ReadLocalizedString(b));
    EXPECT_EQ(TakeReports(), TTexts(2, "stringIndex < stringCount"));
    EXPECT_STREQ(b.StrGet(), "eins");
}

TEST_F(ResourceStream, SlotsFollowTheBase)
{
    const TStringsPtr strings = Strings({"one"});
    TNqResourceStream stream(strings);
    TNqString31 text("two");
    Slot<void (*)(void*, int32, const TNqString*)>(&stream, 45)(&stream, 3, &text);
    EXPECT_TRUE(Slot<boolean (*)(void*, const TNqString*, int32)>(&stream, 47)(&stream, &text, 4));
    stream.seek(0, TNqiostream::beg);
    text = TNqString31();
    Slot<void (*)(void*, int32, TNqString*)>(&stream, 44)(&stream, 3, &text);
    EXPECT_STREQ(text.StrGet(), "two");
    EXPECT_TRUE(Slot<boolean (*)(void*, TNqString*, int32)>(&stream, 46)(&stream, &text, 4));
    EXPECT_EQ(Slot<int32 (*)(void*)>(&stream, 2)(&stream), 8);
}

TEST_F(ResourceStream, WithoutMemory)
{
    TNqResource empty(NqFourChar("TEST"), 1, TNqString255("empty"));
    TNqResourceLayout::Check(empty);
    TNqResourceStream none(empty, eRead);
    EXPECT_EQ(none.ReadLong(), 0u);
    EXPECT_TRUE(none.eof());
    const std::string big(5000, 'x');
    const TNqDynamicString text(big.c_str());
    ForEachFailingAllocation(
        [&](int64)
        {
            try
            {
                const TResourcePtr resource(new TNqResource(NqFourChar("TEST"), 1, text));
                if (resource == nullptr)
                    return;
                resource->Release();
                EXPECT_TRUE(resource->SetData(big.data(), 5000) || resource->GetSize() == 0);
                const TStringsPtr strings = Strings({});
                TNqResourceStream out(strings);
                const boolean written = out.WriteLocalizedString(text, 4);
                EXPECT_EQ(strings->GetElemCount(), written ? 1u : 0u);
                EXPECT_TRUE(out.good() == (written != 0) && (!written || (*strings)[0] == text));
            }
            catch (const TNqException& error)
            {
                EXPECT_EQ(error.GetError(), kNqErrOutOfMemory);
            }
        });
}
