// The streams' own classes work in their buffers, classes derived from them through the virtual operations. Here both
// do the same random operations, and everything that can be seen must be the same.

#include "Tests/StreamDoubles.h"

#include <random>
#include <sstream>

namespace
{

class TRandom
{
public:
    explicit TRandom(uint32 seed) : fEngine(seed) {}

    int32 Below(int32 limit) { return static_cast<int32>(fEngine() % static_cast<uint32>(limit)); }
    bool OneIn(int32 n) { return Below(n) == 0; }

    // Bytes that scanners care about, and some that they do not.
    std::string Text(int32 limit)
    {
        static const char kBytes[] = "  \t\r\n00123456789+-.eE:/,,\"\"\\{}#abc\x01\xC3\xA9\xE2\x82\xAC\x8E\xF0";
        std::string text;
        for (int32 i = Below(limit); i > 0; --i)
            text += OneIn(80) ? '\0' : kBytes[Below(sizeof kBytes - 1)];
        return text;
    }

    real64 Real()
    {
        static const real64 kReals[] = {0, 0.5, -0.25, 3.999999999, 1e-7, 2147483646.999, 1e20, 123.456};
        return kReals[Below(8)] * (OneIn(3) ? 1.0 / (1 + Below(1000)) : 1.0);
    }

private:
    std::mt19937 fEngine;
};

template <class T>
void Extract(TNqiostream& stream, std::ostringstream& seen)
{
    T value = 42;
    stream >> value;
    seen.precision(17);
    seen << +value;
}

void ReadSomething(TNqiostream& stream, TRandom& random, std::ostringstream& seen)
{
    int8 bytes[4200] = {};
    TNqDynamicString text("before");
    static const int8 kDelimiters[] = {'\n', ',', '\0', '\r'};
    const int32 size = random.Below(20);
    const int8 delimiter = kDelimiters[random.Below(4)];
    switch (random.Below(18))
    {
    case 0:
        return Extract<int8>(stream, seen);
    case 1:
        return Extract<uint8>(stream, seen);
    case 2:
        return Extract<int16>(stream, seen);
    case 3:
        return Extract<uint16>(stream, seen);
    case 4:
        return Extract<int32>(stream, seen);
    case 5:
        return Extract<uint32>(stream, seen);
    case 6:
        return Extract<real32>(stream, seen);
    case 7:
        return Extract<real64>(stream, seen);
    case 8:
        stream >> bytes;
        break;
    case 9:
        seen << int32(stream.ReadString(bytes, size));
        break;
    case 10:
        stream.readQuotedString(text);
        break;
    case 11:
        seen << int32(stream.ReadSingleLineQuotedString(text, static_cast<uint32>(size)));
        break;
    case 12:
        seen << int32(stream.getline(bytes, size, delimiter));
        break;
    case 13:
        seen << int32(stream.get(bytes, size, delimiter));
        break;
    case 14:
        seen << int32(stream.getLine(text, delimiter));
        break;
    case 15:
        stream.read(bytes, size);
        break;
    case 16:
        stream.get(bytes[0]);
        break;
    case 17:
        seen << int32(stream.myipfx());
        break;
    }
    seen << std::string(bytes, 300) << text.StrGet();
}

void WriteSomething(TNqiostream& stream, TRandom& random)
{
    const std::string text = random.Text(random.OneIn(50) ? 6000 : 12);
    const int32 number = random.Below(0x7FFFFFFF) >> random.Below(31);
    switch (random.Below(10))
    {
    case 0:
        stream << int32(random.OneIn(2) ? -number : number);
        break;
    case 1:
        stream << static_cast<uint32>(number);
        break;
    case 2:
        stream << random.Real();
        break;
    case 3:
        stream << static_cast<real32>(random.Real());
        break;
    case 4:
        stream << static_cast<int16>(number) << ' ' << static_cast<uint16>(number);
        break;
    case 5:
        stream << TNqDynamicString(text.c_str());
        break;
    case 6:
        stream << text.c_str();
        break;
    case 7:
        stream.write(text.data(), static_cast<int32>(text.size()));
        break;
    case 8:
        stream << endl;
        break;
    case 9:
        stream << text.c_str() << TNqDynamicString(text.c_str());
        break;
    }
}

void MoveSomewhere(TNqiostream& stream, TRandom& random, std::ostringstream& seen)
{
    static const int8 kBytes[] = {' ', '7', '"', '\n'};
    switch (random.Below(7))
    {
    case 0:
    case 1:
        stream.seek(random.Below(60) - 2, static_cast<TNqiostream::seek_dir>(random.Below(3)));
        break;
    case 2:
    case 3:
        stream.putback(kBytes[random.Below(4)]);
        break;
    case 4:
        seen << stream.GetStreamSize();
        break;
    case 5:
        stream.precision(random.Below(17));
        break;
    case 6:
        if (random.OneIn(4))
            stream.SetTranscoder(static_cast<TranscoderType>(random.Below(3)));
        break;
    }
}

// One random operation, and all that a caller sees of it.
std::string DoSomething(TNqiostream& stream, TRandom& random)
{
    std::ostringstream seen;
    const int32 kind = random.Below(10);
    if (kind < 5)
        ReadSomething(stream, random, seen);
    else if (kind < 8)
        WriteSomething(stream, random);
    else
        MoveSomewhere(stream, random, seen);
    seen << " good " << int32(stream.good()) << " eof " << int32(stream.eof()) << " count " << stream.gcount() << " at "
         << stream.tell() << " reports " << TakeReports().size();
    return seen.str();
}

// The fields that the buffers add, by pointers to members that only a derived class may form.
struct TMemoryFields : TNqstrstream
{
    static std::string Of(TNqstrstream& stream)
    {
        const auto size = &TMemoryFields::fBufferSize;
        const auto allocated = &TMemoryFields::fBufferAllocatedSize;
        const auto buffer = &TMemoryFields::fBuffer;
        const int32 used = std::max(stream.*size, 0);
        return std::to_string(stream.*size) + " " + std::to_string(stream.*allocated) + " " +
               std::string(stream.*buffer, static_cast<size_t>(used));
    }
};

struct TFileFields : TNqfstream
{
    static std::string Of(TNqfstream& stream)
    {
        const auto size = &TFileFields::fActualBufSize;
        const auto position = &TFileFields::fBufferPos;
        const auto offset = &TFileFields::fBufferOffset;
        const auto fileSize = &TFileFields::fFileSize;
        const auto modified = &TFileFields::fBufferModified;
        const auto loaded = &TFileFields::fFirstBufferLoaded;
        const auto buffer = &TFileFields::fBuffer;
        std::ostringstream seen;
        seen << stream.*size << " " << stream.*position << " " << stream.*offset << " " << stream.*fileSize << " "
             << int32(stream.*modified) << " " << int32(stream.*loaded) << " ";
        if (stream.*buffer != nullptr && stream.*loaded)
            seen << std::string(stream.*buffer, stream.*size);
        return seen.str();
    }
};

// Runs the same operations on both; the text of the first difference, or empty.
template <class Fields, class Stream>
void RunTwins(Stream& exact, TDerived<Stream>& derived, uint32 seed, int32 operations)
{
    TRandom first(seed);
    TRandom second(seed);
    for (int32 i = 0; i < operations; ++i)
    {
        ASSERT_EQ(DoSomething(exact, first), DoSomething(derived, second)) << "seed " << seed << " step " << i;
        ASSERT_EQ(Fields::Of(exact), Fields::Of(derived)) << "seed " << seed << " step " << i;
    }
}

using StreamTwinTest = StreamTest;

TEST_F(StreamTwinTest, MemoryOfTheCaller)
{
    for (uint32 seed = 0; seed < 3000 && !HasFailure(); ++seed)
    {
        std::string text = TRandom(seed).Text(200);
        std::string copy = text;
        const int32 mode = seed % 3 == 0 ? eRead : eReadWrite;
        const int32 size = static_cast<int32>(text.size());
        TNqstrstream exact(text.data(), size, kUTF8Transcoder, mode);
        TDerived<TNqstrstream> derived(copy.data(), size, kUTF8Transcoder, mode);
        TakeReports();
        RunTwins<TMemoryFields>(exact, derived, seed, 30);
    }
}

TEST_F(StreamTwinTest, MemoryOfTheirOwn)
{
    for (uint32 seed = 0; seed < 300 && !HasFailure(); ++seed)
    {
        TNqstrstream exact(kMacTranscoder);
        TDerived<TNqstrstream> derived(kMacTranscoder);
        RunTwins<TMemoryFields>(exact, derived, seed, 60);
        exact.seek(0, TNqiostream::beg);
        derived.seek(0, TNqiostream::beg);
        RunTwins<TMemoryFields>(exact, derived, seed + 1000, 60);
        if (seed % 4 == 0)
        {
            Nqfree(exact.str());
            Nqfree(derived.str());
            TRandom first(seed);
            TRandom second(seed);
            ASSERT_EQ(DoSomething(exact, first), DoSomething(derived, second));
        }
    }
}

TEST_F(StreamTwinTest, Files)
{
    TTestDisk otherDisk;
    for (uint32 seed = 0; seed < 3000 && !HasFailure(); ++seed)
    {
        const TBytes start = BytesOf(TRandom(seed).Text(150));
        fDisk = otherDisk = TTestDisk();
        fDisk.fFiles["/f"] = otherDisk.fFiles["/f"] = start;
        if (seed % 5 == 0) // one host call goes wrong
        {
            fDisk.fBadCall = otherDisk.fBadCall = 8 + static_cast<int32>(seed % 40);
            fDisk.fShort = otherDisk.fShort = seed % 2;
        }
        const int32 size = static_cast<int32>(seed % 9) * (seed % 7 == 0 ? 40 : 1);
        const int32 mode = seed % 11 == 0 ? eWrite : seed % 13 == 0 ? eRead : eReadWrite;
        {
            TNqfstream exact("/f", kUTF8Transcoder, mode, size, nullptr);
            const TTestFileUtilities other(otherDisk);
            TDerived<TNqfstream> derived("/f", kUTF8Transcoder, mode, size, nullptr);
            RunTwins<TFileFields>(exact, derived, seed, 40);
        }
        EXPECT_EQ(fDisk.fLog, otherDisk.fLog) << seed;
        EXPECT_EQ(fDisk.fFiles, otherDisk.fFiles) << seed;
        TakeReports();
    }
}

} // namespace
