// Streams take many numbers and whole words in one step where their bytes are at hand. Here the same is done byte by
// byte, by streams of a derived class, and everything that can be seen must be the same.

#include "NqCore/Include/NqByteSearch.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "Tests/StreamDoubles.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <sstream>

namespace
{

constexpr int32 kName = 0x504F534E; // POSN

using RunTest = StreamTest;

TEST_F(RunTest, SearchesInStepsFindWhatASearchByBytesFinds)
{
    using TEnds = NqByteSet<' ', '{', '"', '\x81'>;
    TRandom random(1);
    for (int i = 0; i < 20000; ++i)
    {
        std::string text(static_cast<size_t>(random.Below(90)), 'x');
        for (char& c : text)
            if (random.OneIn(30))
                c = static_cast<char>(random());
        const size_t from = text.empty() ? 0 : static_cast<size_t>(random.Below(static_cast<int32>(text.size())));
        const int8* const first = text.data() + from;
        const int8* const last = text.data() + text.size();
        ASSERT_EQ(NqFindByte<TEnds>(first, last), NqFindBytePlain<TEnds>(first, last)) << text;
        ASSERT_EQ(NqCountByte(first, last, 'x'), std::count(first, last, 'x')) << text;
    }
    const std::string many(10000, ','); // more than one byte counts
    EXPECT_EQ(NqCountByte(many.data(), many.data() + many.size(), ','), 10000);
}

// Numbers as files have them, and such as only a person writes.
std::string RandomNumber(TRandom& random, bool plain)
{
    static const char* const kOdd[] = {
        "+1",    ".5",   "-.5e1", "12:", "3/",    "1e3",        "-2E-2",       "12345678",   "1.",        "-",  "abc",
        "1.5.5", "0x10", "1 ",    " 7",  "\r\n2", "1.23456789", "1.123456789", "4294967297", "-0.000000", "7e", "--1"};
    if (!plain && random.OneIn(12))
        return kOdd[random() % std::size(kOdd)];
    std::string text = random.OneIn(2) ? "-" : "";
    for (int32 i = random.Below(7); i >= 0; --i)
        text += static_cast<char>('0' + random.Below(10));
    if (random.OneIn(2))
        return text;
    text += '.';
    for (int32 i = random.OneIn(4) ? random.Below(10) : 6; i > 0; --i)
        text += static_cast<char>('0' + random.Below(10));
    return text;
}

std::string WholeText(TNqiostream& stream)
{
    const int32 here = stream.tell();
    std::string text(static_cast<size_t>(here), 0);
    stream.seek(0, TNqiostream::beg);
    stream.read(text.data(), here);
    stream.seek(here, TNqiostream::beg);
    return text;
}

template <class T, class Read>
std::string ReadArray(TNqiostream& stream, int32 count, Read&& read)
{
    std::vector<T> values(static_cast<size_t>(std::max(count, 1)), T(42));
    std::ostringstream seen;
    try
    {
        read(stream, count, values.data());
    }
    catch (const TNqException& error)
    {
        seen << "error " << error.GetError();
    }
    const bool good = stream.good();
    seen << " good " << good << " count " << stream.gcount() << " at " << stream.tell() << " ";
    seen.write(reinterpret_cast<const char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(T)));
    return seen.str();
}

std::string ReadArrays(TNqiostream& stream, int32 count)
{
    std::string seen = ReadArray<real32>(stream, count, NqToken::GetReal32ArrayToken);
    stream.seek(0, TNqiostream::beg);
    seen += ReadArray<int32>(stream, count, NqToken::GetInt32ArrayToken);
    stream.seek(0, TNqiostream::beg);
    seen += ReadArray<int16>(stream, count, NqToken::GetInt16ArrayToken);
    seen += " reports " + std::to_string(TakeReports().size());
    // What stands behind, name by name: words and strings are taken in runs too.
    for (int32 i = 0; i < 20; ++i)
    {
        int8 token[NqToken::kTokenBufferSize];
        NqToken::TNqTokenInfo info;
        const NqErr error = NqToken::GetNextTokenInfo(stream, token, info, true);
        seen += std::string(token) + " " + std::to_string(error) + " " + std::to_string(info.fKind) + " " +
                std::to_string(info.fOffset) + " " + std::to_string(info.fFullLength) + " " +
                std::to_string(info.fCommaCount);
        if (error != 0)
            break;
    }
    return seen;
}

TEST_F(RunTest, ArraysOfEveryLengthReadAsByteByByte)
{
    for (int32 seed = 0; seed < 4000 && !HasFailure(); ++seed)
    {
        TRandom random(seed);
        const int32 count = seed % 40;
        std::string text;
        for (int32 i = 0; i < count + random.Below(3) - (random.OneIn(9) ? 1 : 0); ++i)
            text += (i > 0 ? "," : "") + RandomNumber(random, seed % 3 == 0);
        static const char* const kBehind[] = {"\r", "", " ", "\r\n", "{", "}", "\"a, b\\\"c\" ", "# d,e\rNAME 1\r",
                                              ","};
        text += kBehind[random() % std::size(kBehind)];
        if (random.OneIn(2))
            text += "NAME 1,2,3 {SOME \"of this\"}\r" + std::string(40, ' ');
        std::string copy = text;
        {
            const int32 size = static_cast<int32>(text.size());
            TNqstrstream exact(text.data(), size, kUTF8Transcoder, eRead);
            TDerived<TNqstrstream> derived(copy.data(), size, kUTF8Transcoder, eRead);
            ASSERT_EQ(ReadArrays(exact, count), ReadArrays(derived, count)) << "seed " << seed << " " << text;
        }
        fDisk.fFiles["/f"] = text;
        const int32 bufferSize = seed % 97 + (seed % 5 == 0 ? 200 : 1);
        TNqfstream exact("/f", kUTF8Transcoder, eRead, bufferSize, nullptr);
        TDerived<TNqfstream> derived("/f", kUTF8Transcoder, eRead, bufferSize, nullptr);
        ASSERT_EQ(ReadArrays(exact, count), ReadArrays(derived, count)) << "seed " << seed << " " << text;
    }
}

real32 RandomReal32(TRandom& random)
{
    const uint32 bits = static_cast<uint32>(random());
    real32 value;
    std::memcpy(&value, &bits, sizeof(value));
    if (value != value || random.OneIn(2))
        value = static_cast<real32>(random.Below(2000000) - 1000000) / (random.OneIn(2) ? 1000000.0F : 64.0F);
    return value;
}

template <class Stream>
std::string Written(Stream& stream, TRandom random)
{
    for (int32 i = 0; i < 6; ++i)
    {
        const int32 count = random.Below(40);
        std::vector<real32> reals;
        std::vector<int32> integers;
        for (int32 k = 0; k <= count; ++k)
        {
            reals.push_back(RandomReal32(random));
            integers.push_back(static_cast<int32>(random()) >> random.Below(32));
        }
        stream.precision(random.OneIn(2) ? 8 : random.Below(16));
        NqToken::PutReal32ArrayAttribute(stream, kName, count, reals.data());
        NqToken::PutInt32ArrayAttribute(stream, kName, count, integers.data());
        stream << reals[0] << integers[0];
        stream.seek(-random.Below(9), TNqiostream::cur); // what is overwritten stands before what must be left
    }
    return std::to_string(stream.good()) + " " + std::to_string(stream.tell());
}

TEST_F(RunTest, ArraysOfEveryLengthAreWrittenAsByteByByte)
{
    for (int32 seed = 0; seed < 1500 && !HasFailure(); ++seed)
    {
        const TRandom random(seed);
        const int32 size = 100 + seed * 3; // also too small for all of them
        std::string memory(static_cast<size_t>(size), '?'), other = memory;
        TNqstrstream exact(memory.data(), size, kUTF8Transcoder, eReadWrite);
        TDerived<TNqstrstream> derived(other.data(), size, kUTF8Transcoder, eReadWrite);
        ASSERT_EQ(Written(exact, random), Written(derived, random)) << "seed " << seed;
        ASSERT_EQ(memory, other) << "seed " << seed;
        const int32 bufferSize = seed % 97;
        for (const char* name : {"/exact", "/derived"})
            fDisk.fFiles[name] = std::string(300, '?');
        std::string ends[2];
        {
            TNqfstream file("/exact", kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
            ends[0] = Written(file, random);
            TDerived<TNqfstream> twin("/derived", kUTF8Transcoder, eReadWrite, bufferSize, nullptr);
            ends[1] = Written(twin, random);
        }
        ASSERT_EQ(ends[0], ends[1]) << "seed " << seed;
        ASSERT_EQ(fDisk.fFiles["/exact"], fDisk.fFiles["/derived"]) << "seed " << seed;
        TakeReports();
    }
}

// Writes every real32 whose bits are a multiple of step, both ways.
void WriteReals(uint32 step)
{
    std::vector<real32> values;
    for (uint64 bits = 0; bits <= std::numeric_limits<uint32>::max() && !::testing::Test::HasFailure();)
    {
        values.clear();
        for (; values.size() < 10000 && bits <= std::numeric_limits<uint32>::max(); bits += step)
        {
            const uint32 pattern = static_cast<uint32>(bits);
            real32 value;
            std::memcpy(&value, &pattern, sizeof(value));
            if (value == value)
                values.push_back(value);
        }
        const auto put = [&](TNqiostream& stream)
        { NqToken::PutReal32ArrayAttribute(stream, kName, static_cast<int32>(values.size()), values.data()); };
        ASSERT_EQ(WrittenBy(put), WrittenBy<TDerived<TNqstrstream>>(put)) << "before " << bits;
    }
}

TEST_F(RunTest, RealsAreWrittenAsByteByByte)
{
    WriteReals(9973);
}

// Payloads in pieces of any size, and what a reader makes of them when other bytes stand in between.
template <class Stream>
std::string Payloads(Stream& stream, TRandom random, std::string& text)
{
    std::string data(static_cast<size_t>(random.Below(3000) + 1), 0);
    for (char& c : data)
        c = static_cast<char>(random());
    const auto inPieces = [&](auto&& inDo)
    {
        for (int32 at = 0, left = static_cast<int32>(data.size()); left > 0;)
        {
            const int32 count = 1 + random.Below(random.OneIn(2) ? left : std::min(left, 20));
            inDo(data.data() + at, count);
            at += count;
            left -= count;
        }
    };
    uint32 state = 0;
    inPieces([&](int8* bytes, int32 count) { NqToken::PutBufferAsHexa(stream, bytes, count, false); });
    NqToken::BeginBufferAsBinHex(state);
    inPieces([&](int8* bytes, int32 count) { NqToken::PutBufferAsBinHex(stream, bytes, count, state); });
    NqToken::EndPutBufferAsBinHex(stream, state);
    text = WholeText(stream);
    const std::string written = data;
    std::string seen = std::to_string(stream.good());
    try
    {
        if (random.OneIn(3)) // something that does not belong there
        {
            stream.seek(random.Below(static_cast<int32>(text.size())), TNqiostream::beg);
            const int8 byte = "\r \n\xB0g{~"[random.Below(7)];
            stream.write(&byte, 1);
        }
        stream.seek(0, TNqiostream::beg);
        inPieces([&](int8* bytes, int32 count) { NqToken::GetBufferAsHexa(stream, bytes, count, false); });
        seen += data == written;
        NqToken::BeginBufferAsBinHex(state);
        inPieces([&](int8* bytes, int32 count) { NqToken::GetBufferAsBinHex(stream, bytes, count, state); });
        seen += data == written;
    }
    catch (const TNqException& error)
    {
        seen += " error " + std::to_string(error.GetError());
    }
    return seen + " at " + std::to_string(stream.tell()) + " count " + std::to_string(stream.gcount()) + data;
}

TEST_F(RunTest, PayloadsAreTheSameAsByteByByte)
{
    for (int32 seed = 0; seed < 600 && !HasFailure(); ++seed)
    {
        const TRandom random(seed);
        std::string text, other;
        {
            TNqstrstream exact(kUTF8Transcoder);
            TDerived<TNqstrstream> derived(kUTF8Transcoder);
            ASSERT_EQ(Payloads(exact, random, text), Payloads(derived, random, other)) << "seed " << seed;
            ASSERT_EQ(text, other) << "seed " << seed;
        }
        fDisk.fFiles.clear();
        TNqfstream exact("/exact", kUTF8Transcoder, eReadWrite, 1 + seed % 200, nullptr);
        TDerived<TNqfstream> derived("/derived", kUTF8Transcoder, eReadWrite, 1 + seed % 200, nullptr);
        ASSERT_EQ(Payloads(exact, random, text), Payloads(derived, random, other)) << "seed " << seed;
        ASSERT_EQ(text, other) << "seed " << seed;
        TakeReports();
    }
}

// Half an hour: run by hand with --gtest_also_run_disabled_tests when the writing of reals changes.
TEST_F(RunTest, DISABLED_EveryRealIsWrittenAsByteByByte)
{
    WriteReals(1);
}

} // namespace
