#include "NqCore/Include/AnsiTranscoder.h"
#include "NqCore/Include/MacTranscoder.h"
#include "NqCore/Include/NqTextRuns.h"
#include "NqCore/Include/NqTranscoderHelpers.h"
#include "NqCore/Include/UTF8Transcoder.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqCore/PublicAPI/NqString.h"
#include "Tests/TestHost.h"

struct TNqTranscoderLayout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    // Behind the two tables of virtual operations and the reference count.
    static_assert(offsetof(TUTF8Transcoder, fCharIndex) == 24 && offsetof(TUTF8Transcoder, fCharTotal) == 25);
    static_assert(offsetof(TUTF8Transcoder, fCharBuffer) == 26 && offsetof(TUTF8Transcoder, fDecodedChar) == 32);
    static_assert(offsetof(TAnsiTranscoder, fUnicodeToAnsiTable) == 24 &&
                  offsetof(TAnsiTranscoder, fDecodedChar) == 32);
    static_assert(offsetof(TMacTranscoder, fUnicodeToMacTable) == 24 && offsetof(TMacTranscoder, fDecodedChar) == 32);
#pragma GCC diagnostic pop
};

namespace
{

using TBytes = std::vector<uint8>;
using TCharacters = std::vector<uint16>;

// Bytes that often form sequences, whole and broken ones, with now and then a NUL when asked for.
TBytes RandomBytes(std::mt19937& random, size_t size, bool withNul)
{
    TBytes bytes;
    while (bytes.size() < size)
    {
        const uint32 kind = static_cast<uint32>(random() % 8);
        const uint8 lead = static_cast<uint8>(random());
        bytes.push_back(static_cast<uint8>(kind == 0 ? lead : kind < 3 ? 'a' + lead % 26 : lead | 0x80));
        if (!withNul && bytes.back() == 0)
            bytes.back() = 1;
        for (uint32 n = static_cast<uint32>(random() % 4); kind > 4 && n != 0 && bytes.size() < size; --n)
            bytes.push_back(static_cast<uint8>(0x80 + random() % 64));
    }
    return bytes;
}

bool NeverValid(uint8 b)
{
    return b == 0xC0 || b == 0xC1 || b >= 0xF5;
}
bool Continues(uint8 b)
{
    return b / 64 == 2;
}

// What a text decodes to, found sequence by sequence instead of byte by byte.
TCharacters DecodeAll(TBytes bytes)
{
    bytes.erase(std::remove_if(bytes.begin(), bytes.end(), NeverValid), bytes.end());
    TCharacters characters;
    for (size_t i = 0; i < bytes.size();)
    {
        size_t end = i + 1;
        while (end < bytes.size() && Continues(bytes[end]))
            ++end;
        const uint8 lead = bytes[i];
        const size_t need = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (!Continues(lead) && end - i >= need)
        {
            uint32 code = need == 1 ? lead : lead & (0xFFU >> (need + 1));
            for (size_t k = 1; k < need; ++k)
                code = code * 64 + bytes[i + k] % 64;
            characters.push_back(static_cast<uint16>(code));
        }
        i = end;
    }
    return characters;
}

TCharacters EncodeAll(ITranscoder& transcoder, const TBytes& bytes)
{
    TCharacters characters;
    for (const uint8 byte : bytes)
        if (const uint16 ch = transcoder.Encode(byte); ch != kNqNoCharacter)
            characters.push_back(ch);
    return characters;
}

TBytes Decode(ITranscoder& transcoder, uint16 ch)
{
    const TNqArray<uint8>& bytes = transcoder.Decode(ch);
    return TBytes(bytes.BaseAddress(), bytes.BaseAddress() + bytes.GetElemCount());
}

// Text of up to 100 characters, of which one in `rareness` is not ASCII: in UTF-8, now and then with a byte damaged.
TBytes RandomText(std::mt19937& random, uint32 rareness)
{
    TBytes text;
    for (size_t left = random() % 101; left != 0; --left)
    {
        const uint32 width = random() % rareness != 0 ? 1 : 1 + random() % 4;
        const uint8 leads[] = {static_cast<uint8>(1 + random() % 0x7F), static_cast<uint8>(0xC2 + random() % 0x1E),
                               static_cast<uint8>(0xE0 + random() % 0x10), static_cast<uint8>(0xF0 + random() % 5)};
        text.push_back(leads[width - 1]);
        for (uint32 i = 1; i < width; ++i)
            text.push_back(static_cast<uint8>(0x80 + random() % 0x40));
    }
    if (!text.empty() && random() % 4 == 0)
        text[random() % text.size()] = static_cast<uint8>(random() % 3 != 0 ? random() : 0);
    return text;
}

// A copy that ends where its block does, at any alignment, so that a sanitizer sees a read past the end.
template <class T>
class TAtBlockEnd
{
public:
    TAtBlockEnd(const std::vector<T>& elems, size_t offset)
        : fBlock(new T[offset + elems.size()]),
          fFirst(fBlock.get() + offset)
    {
        std::copy(elems.begin(), elems.end(), fFirst);
    }
    const T* First() const { return fFirst; }

private:
    std::unique_ptr<T[]> fBlock;
    T* fFirst;
};

// The upper half of Mac OS Roman, and 0x80 to 0x9F of Windows-1252 with the undefined bytes as themselves.
const std::string kMacText =
    "ÄÅÇÉÑÖÜáàâäãåçéèêëíìîïñóòôöõúùûü†°¢£§•¶ß®©™´¨≠ÆØ∞±≤≥¥µ∂∑∏π∫ªºΩæø¿¡¬√ƒ≈∆«»…\u00A0ÀÃÕŒœ–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ"
    "‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔ\uF8FFÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ";
const std::string kAnsiText = "€\xC2\x81‚ƒ„…†‡\u20C6‰Š‹Œ\xC2\x8DŽ\xC2\x8F\xC2\x90‘’“”•–—˜™š›œ\xC2\x9DžŸ";

} // namespace

using TranscoderTest = NqTest;

TEST_F(TranscoderTest, CountingAndIndexingAgreeWithAPlainWalkAtEveryLengthAndStayInsideTheBytes)
{
    std::mt19937 random(21);
    for (int round = 0; round < 400; ++round)
    {
        const size_t size = round < 300 ? random() % 50 : 2030 + random() % 30; // around the end of a run of words
        TBytes bytes = round % 20 == 0 ? TBytes(size, 'a') : RandomBytes(random, size, round % 2 == 0);
        bytes.shrink_to_fit(); // so that a sanitizer sees a read past the end
        TBytes terminated = bytes;
        terminated.push_back(0);
        std::vector<uint32> starts;
        uint32 end = 0;
        for (; end < size && bytes[end] != 0; ++end)
        {
            if (!Continues(bytes[end]) && !NeverValid(bytes[end]))
                starts.push_back(end);
        }
        const uint32 count = static_cast<uint32>(starts.size());
        ASSERT_EQ(UTF8StrLen(bytes.data(), size), count);
        ASSERT_EQ(UTF8StrLen(terminated.data()), count);
        for (uint32 i = 0; i <= count + 1; i += 1 + count / 60)
        {
            const uint32 wanted = i < count ? starts[i] : end;
            ASSERT_EQ(UTF8CharIndex(bytes.data(), i, size), wanted) << "character " << i;
            ASSERT_EQ(UTF8CharIndex(terminated.data(), i), wanted) << "character " << i;
        }
        ASSERT_EQ(UTF8CharIndex(terminated.data(), 0x80000000), 0U);
        ASSERT_EQ(UTF8CharIndex(bytes.data(), 0x80000000, size), end);
    }
}

TEST_F(TranscoderTest, CutSequencesDecodeAsIfZerosFollowed)
{
    for (const TBytes& whole :
         {TBytes{0xC3, 0xA9}, {0xE2, 0x82, 0xAC}, {0xF0, 0x9F, 0x98, 0x80}, {'a'}, {0xA9}, {0xFF}})
    {
        for (size_t cut = 1; cut <= whole.size(); ++cut)
        {
            const TBytes bytes(whole.begin(), whole.begin() + static_cast<long>(cut));
            TBytes padded = bytes;
            padded.resize(4, 0x80); // bytes without payload
            const TCharacters wanted = DecodeAll(padded);
            EXPECT_EQ(UTF8CharToUnicode(bytes.data(), cut), wanted.empty() ? 0 : wanted[0]);
        }
    }
    EXPECT_EQ(UTF8CharToUnicode(nullptr, 0), 0);
}

TEST_F(TranscoderTest, RandomBytesDecodeAsAWholeTextModelSays)
{
    std::mt19937 random(22);
    TNqCountedPtr<ITranscoder> transcoder;
    for (int round = 0; round < 3000; ++round)
    {
        NqCreateTranscoder(transcoder, kPlatformDependent);
        const TBytes bytes = RandomBytes(random, random() % 40, true);
        TCharacters wanted = DecodeAll(bytes);
        wanted.erase(std::remove(wanted.begin(), wanted.end(), kNqNoCharacter), wanted.end());
        ASSERT_EQ(EncodeAll(*transcoder, bytes), wanted);
        // A string takes them up to the first character 0.
        TBytes text = RandomBytes(random, random() % 40, false);
        if (random() % 4 == 0)
            for (uint8& byte : text)
                byte = static_cast<uint8>(byte % 0x80 == 0 ? 'x' : byte % 0x80);
        text.insert(text.begin(), 'a');
        wanted = DecodeAll(text);
        wanted.erase(std::remove(wanted.begin(), wanted.end(), kNqNoCharacter), wanted.end());
        wanted.erase(std::find(wanted.begin(), wanted.end(), 0), wanted.end());
        TNqDynamicString s("before");
        transcoder->Encode(0xE2); // which every text abandons
        transcoder->Encode(0x82);
        const std::basic_string<uint8> encoded(text.begin(), text.end());
        s.FromEncodedPtr(encoded.c_str(), transcoder);
        ASSERT_EQ(s.Length(), wanted.size());
        for (uint32 i = 0; i < s.Length(); ++i)
            ASSERT_EQ(s[i], wanted[i]);
        ASSERT_EQ(transcoder->Encode(0xAC), kNqNoCharacter); // nothing is left of any sequence
        TNqString15 cut, cutWanted;
        cut.FromEncodedPtr(encoded.c_str(), transcoder);
        const TTexts reports = TakeReports();
        wanted.push_back(0);
        cutWanted.FromUnicode(wanted.data());
        ASSERT_TRUE(cut == cutWanted && cut.Length() == cutWanted.Length());
        ASSERT_EQ(TakeReports(), reports);
        ForEachFailingAllocation(
            [&](int64)
            {
                s.FromText("before", 6);
                s.FromEncodedPtr(encoded.c_str(), transcoder);
            },
            [&] { ASSERT_TRUE((s.Length() == 0) == (s.ByteLength() == 0)); });
    }
    EXPECT_EQ(EncodeAll(*transcoder, {0xE2, 0x82, 'A', 0xA9, 0xF0, 0x9F, 0xC0, 0x98, 0x80, 0}),
              (TCharacters{'A', 0xF600, 0}))
        << "abandoned, stray, and a byte that is dropped inside a sequence";
}

TEST_F(TranscoderTest, EveryByteAndEveryCharacterGoesThroughTheTables)
{
    struct TCase
    {
        TranscoderType fType;
        std::string fText;  // the characters from 0x80 on
        uint32 fLatinStart; // from here on a byte is its own character
        bool fMark;
    };
    for (const TCase& c : {TCase{kAnsiTranscoder, kAnsiText, 0xA0, false},
                           TCase{kMacTranscoder, kMacText, 0x100, false}, TCase{kUTF8Transcoder, "", 0x80, true}})
    {
        TNqCountedPtr<ITranscoder> transcoder;
        NqCreateTranscoder(transcoder, c.fType);
        EXPECT_EQ(transcoder->GetType(), c.fType);
        const uint8* const mark = transcoder->GetIdentifier();
        EXPECT_EQ(mark != nullptr, c.fMark);
        EXPECT_TRUE(mark == nullptr || TBytes(mark, mark + 4) == (TBytes{0xEF, 0xBB, 0xBF, 0}));
        const TCharacters upper = DecodeAll(TBytes(c.fText.begin(), c.fText.end()));
        ASSERT_EQ(upper.size(), c.fLatinStart - 0x80);
        std::vector<int> byteOf(0x10000, -1);
        for (uint32 byte = 0; byte < 0x100 && !c.fMark; ++byte)
        {
            const uint16 ch = static_cast<uint16>(byte < 0x80 || byte >= c.fLatinStart ? byte : upper[byte - 0x80]);
            ASSERT_EQ(transcoder->Encode(static_cast<uint8>(byte)), ch);
            byteOf[ch] = static_cast<int>(byte);
        }
        for (uint32 code = 0; code < 0x10000; ++code)
        {
            const uint16 ch = static_cast<uint16>(code);
            const TBytes bytes = Decode(*transcoder, ch);
            const bool inTable = byteOf[ch] >= 0;
            ASSERT_TRUE(inTable ? bytes == TBytes{static_cast<uint8>(byteOf[ch])}
                                : DecodeAll(bytes) == TCharacters{ch} && bytes.size() == UnicodeNumBytes(ch))
                << code;
        }
        EXPECT_EQ(Decode(*transcoder, 0x4E2D), (TBytes{0xE4, 0xB8, 0xAD}));
    }
}

TEST_F(TranscoderTest, RunsOfATextGiveWhatItsCharactersGiveOneByOneAndTouchNothingElse)
{
    std::mt19937 random(24);
    for (int round = 0; round < 20000; ++round)
    {
        const TBytes text = RandomText(random, 1U << random() % 6);
        const TAtBlockEnd<uint8> bytes(text, random() % 16);
        TCharacters plain(120, 0x7777);
        const size_t space = random() % 4 != 0 ? 110 : random() % 101;
        TNqUTF8Decoding slow = {bytes.First(), bytes.First() + text.size(), plain.data(), plain.data() + space};
        NqDecodeUTF8Plain(slow);
        plain.resize(space);
        std::fill(plain.begin() + (slow.fOut - plain.data()), plain.end(), 0x7777);
        const TAtBlockEnd<uint16> out(TCharacters(space, 0x7777), random() % 8);
        uint16* const first = const_cast<uint16*>(out.First());
        const TNqUTF8Decoding fast = NqDecodeUTF8(bytes.First(), slow.fEnd, first, first + space);
        ASSERT_EQ(TCharacters(first, first + space), plain);
        ASSERT_EQ(fast.fOut - first, slow.fOut - plain.data());
        ASSERT_EQ(fast.fNext, slow.fNext);
        ASSERT_EQ(fast.IsAtEnd(), slow.IsAtEnd());

        const TCharacters wanted(plain.begin(), plain.begin() + (slow.fOut - plain.data()));
        const TAtBlockEnd<uint16> characters(wanted, random() % 8);
        const uint16* const last = characters.First() + wanted.size();
        TBytes encoded(300);
        encoded.resize(
            static_cast<size_t>(NqEncodeUTF8Plain(characters.First(), last, encoded.data()) - encoded.data()));
        ASSERT_EQ(NqCountUTF8Plain(characters.First(), last), encoded.size());
        ASSERT_EQ(NqCountUTF8(characters.First(), last), encoded.size());
        const TAtBlockEnd<uint8> again(TBytes(encoded.size()), random() % 16);
        uint8* const put = const_cast<uint8*>(again.First());
        ASSERT_EQ(NqEncodeUTF8(characters.First(), last, put) - put, encoded.size());
        ASSERT_EQ(TBytes(put, put + encoded.size()), encoded);

        TCharacters terminated = wanted;
        terminated.push_back(0);
        const TAtBlockEnd<uint16> withEnd(terminated, random() % 8);
        ASSERT_EQ(NqFindEnd(withEnd.First()) - withEnd.First(),
                  std::find(terminated.begin(), terminated.end(), 0) - terminated.begin());
    }
    const TCharacters many(0x7FFF * 8 * 2 + 5, 0x8000); // past what a lane of the count holds
    EXPECT_EQ(NqCountUTF8(many.data(), many.data() + many.size()), 3 * many.size());
}

// A transcoder of another module: the type of one of ours, and other bytes.
struct TShiftingTranscoder : TUTF8Transcoder
{
    const TNqArray<uint8>& Decode(uint16 ch) override { return TUTF8Transcoder::Decode(ch ^ 1); }
};

TEST_F(TranscoderTest, AWholeTextHasTheBytesOfItsCharactersOneByOne)
{
    TNqCountedPtr<ITranscoder> shifting, transcoders[3];
    NqCreateTranscoderObject<TShiftingTranscoder>(&shifting);
    std::vector<ITranscoder*> all = {shifting};
    for (const TranscoderType type : {kAnsiTranscoder, kMacTranscoder, kUTF8Transcoder})
    {
        NqCreateTranscoder(transcoders[type], type);
        all.push_back(transcoders[type]);
    }
    const std::string often = kMacText + kAnsiText + "ÀÿĀ中";
    const TCharacters table = DecodeAll(TBytes(often.begin(), often.end()));
    std::mt19937 random(25);
    for (int round = 0; round < 2000; ++round)
    {
        const uint32 rareness = 1U << random() % 6;
        const size_t length = round % 20 != 0 ? random() % 101 : random() % 3000; // more than one piece
        const bool withOthers = random() % 2;
        TCharacters characters(length);
        for (uint16& ch : characters)
            ch = static_cast<uint16>(random() % rareness != 0          ? random() % 0x80
                                     : withOthers && random() % 4 == 0 ? random()
                                                                       : table[random() % table.size()]);
        if (round == 0) // every character, each alone among plain ones
        {
            for (uint32 ch = 0; ch < 0x10000; ++ch)
                characters.insert(characters.end(), {'a', static_cast<uint16>(ch), 'b', 'c', 'd'});
        }
        const TAtBlockEnd<uint16> given(characters, random() % 8);
        for (ITranscoder* const transcoder : all)
        {
            TBytes wanted;
            for (const uint16 ch : characters)
            {
                const TBytes bytes = Decode(*transcoder, ch);
                wanted.insert(wanted.end(), bytes.begin(), bytes.end());
            }
            TNqArray<uint8> bytes(static_cast<uint32>(random() % 300), random() % 2);
            ASSERT_TRUE(NqDecodeText(*transcoder, given.First(), static_cast<uint32>(characters.size()), bytes));
            ASSERT_EQ(TBytes(bytes.BaseAddress(), bytes.BaseAddress() + bytes.GetElemCount()), wanted);
            ASSERT_LE(bytes.GetElemSpace(), 300 + 4 * wanted.size()) << "room for a few pieces, not for the worst text";
        }
    }
    TCharacters late(2000, 'a'); // grows once it has seen the end
    late.resize(3000, 0x20AC);
    for (ITranscoder* const transcoder : all)
    {
        TBytes wanted(2000, Decode(*transcoder, 'a')[0]);
        for (int i = 0; i < 1000; ++i)
        {
            const TBytes euro = Decode(*transcoder, 0x20AC);
            wanted.insert(wanted.end(), euro.begin(), euro.end());
        }
        const auto decode = [&](int64)
        {
            TNqArray<uint8> bytes;
            const boolean isWhole = NqDecodeText(*transcoder, late.data(), 3000, bytes);
            EXPECT_EQ(isWhole != 0, bytes.GetElemCount() == wanted.size());
            EXPECT_TRUE(std::equal(bytes.BaseAddress(), bytes.BaseAddress() + bytes.GetElemCount(), wanted.begin()));
        };
        ForEachFailingAllocation(decode);
    }
}

TEST_F(TranscoderTest, WithoutMemoryForItsMapATableIsSearchedInstead)
{
    const auto create = [](int64)
    {
        for (const auto& [type, bullet] :
             {std::pair<TranscoderType, uint8>{kAnsiTranscoder, 0x95}, {kMacTranscoder, 0xA5}})
        {
            TNqCountedPtr<ITranscoder> transcoder;
            try
            {
                NqCreateTranscoder(transcoder, type);
                EXPECT_EQ(Decode(*transcoder, 0x2022), TBytes{bullet});
            }
            catch (const TNqException& error)
            {
                EXPECT_EQ(error.GetError(), kNqErrOutOfMemory);
            }
        }
    };
    ForEachFailingAllocation(create);
}

TEST_F(TranscoderTest, FacesSlotsAndTypesWithoutATranscoder)
{
    TNqCountedPtr<ITranscoder> transcoder;
    NqCreateTranscoder(transcoder, kMacTranscoder);
    ITranscoder* const object = transcoder;
    EXPECT_EQ((Slot<uint16 (*)(void*, uint8)>(object, 3)(object, 0x8E)), 0xE9);
    EXPECT_EQ((*Slot<const TNqArray<uint8>* (*)(void*, uint16)>(object, 4)(object, 0xE9))[0], 0x8E);
    EXPECT_EQ((Slot<TranscoderType (*)(void*)>(object, 5)(object)), kMacTranscoder);
    EXPECT_EQ((Slot<const uint8* (*)(void*)>(object, 6)(object)), nullptr);
    void* face = nullptr;
    EXPECT_EQ(object->QueryInterface(IID_ITranscoder, &face), 0);
    EXPECT_EQ(face, object);
    EXPECT_EQ(object->QueryInterface(IID_INqFile, &face), kNqNoInterface); // releases the face
    EXPECT_EQ(face, nullptr);
    EXPECT_EQ(object->AddRef(), 2U);
    EXPECT_EQ(object->Release(), 1U);
    NqCreateTranscoder(transcoder, kJpnTranscoder);
    EXPECT_TRUE(!transcoder);
    TUTF8Transcoder::Create(nullptr);
    EXPECT_EQ(TakeReports(), (TTexts{"No transcoder of this type", "out != NULL"}));
}
