// The streams' own classes work in their buffers, classes derived from them through the virtual operations. Here both
// do the same random operations, and everything that can be seen must be the same.

#include "Tests/StreamDoubles.h"

#include "NqCore/PublicAPI/NqToken.h"

namespace
{

// Bytes that scanners care about, and some that they do not.
std::string RandomText(TRandom& random, int32 limit)
{
    static const char kBytes[] = "  \t\r\n00123456789+-.eE:/,,\"\"\\{}#abc\x01\xC3\xA9\xE2\x82\xAC\x8E\xF0";
    std::string text;
    for (int32 i = random.Below(limit); i > 0; --i)
        text += random.OneIn(80) ? '\0' : kBytes[random.Below(sizeof kBytes - 1)];
    if (random.OneIn(3))
        text.insert(random() % (text.size() + 1), "$0000000" + std::string(1, "0139B"[random.Below(5)]) + "\r$$ab$");
    return text;
}

real64 RandomReal(TRandom& random)
{
    static const real64 kReals[] = {0, 0.5, -0.25, 3.999999999, 1e-7, 2147483646.999, 1e20, 123.456};
    return kReals[random.Below(8)] * (random.OneIn(3) ? 1.0 / (1 + random.Below(1000)) : 1.0);
}

// What an operation gets, and where it notes what it saw.
struct TCall
{
    TNqiostream& fStream;
    TRandom& fRandom;
    std::ostringstream& fSeen;

    int32 fSize = fRandom.Below(20);
    int8 fByte = " 7\"\n,\r\0"[fRandom.Below(7)];
    int32 fNumber = fRandom.Below(0x7FFFFFFF) >> fRandom.Below(31);
    std::string fText = RandomText(fRandom, fRandom.OneIn(150) ? 6000 : 12);
    TNqDynamicString fString{fText.c_str()};
    std::vector<int8> fBytes = std::vector<int8>(6000);
    int8* fData = fBytes.data();

    ~TCall() { fSeen << std::string(fData, 300) << fString.StrGet(); }
};

template <class T>
void Extract(TCall& call)
{
    T value = 42;
    call.fStream >> value;
    call.fSeen.precision(17);
    call.fSeen << +value;
}

void AppendToFile(TCall& call)
{
    if (TNqfstream* const file = dynamic_cast<TNqfstream*>(&call.fStream))
        file->append(call.fSize - 10);
}

using TOperation = void (*)(TCall&);

const TOperation kReads[] = {
    Extract<int8>,
    Extract<uint8>,
    Extract<int16>,
    Extract<uint16>,
    Extract<int32>,
    Extract<uint32>,
    Extract<real32>,
    Extract<real64>,
    Extract<real64>,
    [](TCall& c) { c.fStream >> c.fData; },
    [](TCall& c) { c.fSeen << int32(c.fStream.ReadString(c.fData, c.fSize)); },
    [](TCall& c) { c.fStream.readQuotedString(c.fString); },
    [](TCall& c) { c.fSeen << int32(c.fStream.ReadSingleLineQuotedString(c.fString, uint32(c.fSize))); },
    [](TCall& c) { c.fSeen << int32(c.fStream.getline(c.fData, c.fSize, c.fByte)); },
    [](TCall& c) { c.fSeen << int32(c.fStream.get(c.fData, c.fSize, c.fByte)); },
    [](TCall& c) { c.fSeen << int32(c.fStream.getLine(c.fString, c.fByte)); },
    [](TCall& c) { c.fStream.read(c.fData, c.fSize); },
    [](TCall& c) { c.fStream.get(*c.fData); },
    [](TCall& c) { c.fSeen << int32(c.fStream.myipfx()); },
};

// A reader of tokens; what it throws is its result.
template <class Read>
void NoteTokens(TCall& call, Read&& inRead)
{
    try
    {
        inRead(call.fStream);
    }
    catch (const TNqException& error)
    {
        call.fSeen << "!" << error.GetError();
    }
}

template <class Stream>
void NoteInfo(TCall& call, Stream& stream)
{
    NqToken::TNqTokenInfo info;
    call.fSeen << NqToken::GetNextTokenInfo(stream, call.fData, info, call.fSize % 2 != 0) << " " << info.fKind << " "
               << info.fOffset << " " << info.fFullLength << " " << info.fDataOffset << " " << info.fDataSize;
}

const TOperation kTokens[] = {
    [](TCall& c) { c.fSeen << NqToken::GetNextToken(c.fStream, c.fData, c.fSize % 2 != 0); },
    [](TCall& c) { c.fSeen << NqToken::GetNextToken(c.fStream, c.fData, c.fSize % 2 != 0); },
    [](TCall& c) { NoteInfo(c, c.fStream); },
    [](TCall& c) { NoteTokens(c, [](auto& s) { NqToken::SkipTokenData(s); }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { NqToken::GetNonLocalizedDynamicStringToken(s, c.fString, true); }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { c.fString = NqToken::GetPathRefToken(s); }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { c.fSeen << NqToken::GetReal32InfToken(s); }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { c.fSeen << NqToken::GetFourCharConstToken(s); }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { c.fSeen << NqToken::GetPointToken(s).y; }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { NqToken::GetHexaBinaryToken(s, c.fSize, c.fData); }); },
    [](TCall& c) { NoteTokens(c, [&](auto& s) { NqToken::GetBufferAsHexa(s, c.fData, c.fSize, c.fSize % 2 != 0); }); },
    [](TCall& c)
    {
        uint32 size = 0;
        NoteTokens(c, [&](auto& s) { NqToken::GetBinaryStartToken(s, size); });
        c.fSeen << size;
    },
};

const TOperation kWrites[] = {
    [](TCall& c) { c.fStream << (c.fSize % 2 ? -c.fNumber : c.fNumber); },
    [](TCall& c) { c.fStream << static_cast<uint32>(c.fNumber); },
    [](TCall& c) { c.fStream << RandomReal(c.fRandom); },
    [](TCall& c) { c.fStream << static_cast<real32>(RandomReal(c.fRandom)); },
    [](TCall& c) { c.fStream << static_cast<int16>(c.fNumber) << ' ' << static_cast<uint16>(c.fNumber); },
    [](TCall& c) { c.fStream << c.fString; },
    [](TCall& c) { c.fStream << c.fString << c.fString; },
    [](TCall& c) { c.fStream << c.fText.c_str(); },
    [](TCall& c) { c.fStream.write(c.fText.data(), static_cast<int32>(c.fText.size())); },
    [](TCall& c) { c.fStream << endl; },
};

const TOperation kMoves[] = {
    [](TCall& c) { c.fStream.seek(c.fNumber % 60 - 2, TNqiostream::beg); },
    [](TCall& c) { c.fStream.seek(c.fSize - 10, TNqiostream::cur); },
    [](TCall& c) { c.fStream.seek(c.fSize - 2, TNqiostream::end); },
    [](TCall& c) { c.fStream.putback(c.fByte); },
    [](TCall& c) { c.fSeen << c.fStream.GetStreamSize(); },
    [](TCall& c) { c.fStream.precision(c.fSize); },
    AppendToFile,
    [](TCall& c) { c.fStream.SetTranscoder(static_cast<TranscoderType>(c.fNumber % 3)); },
};

template <size_t kCount>
void DoOneOf(const TOperation (&operations)[kCount], TCall& call)
{
    operations[call.fRandom.Below(kCount)](call);
}

// One random operation, and all that a caller sees of it.
std::string DoSomething(TNqiostream& stream, TRandom& random)
{
    std::ostringstream seen;
    {
        TCall call{stream, random, seen};
        const int32 kind = random.Below(14);
        kind < 5    ? DoOneOf(kReads, call)
        : kind < 8  ? DoOneOf(kWrites, call)
        : kind < 10 ? DoOneOf(kMoves, call)
                    : DoOneOf(kTokens, call);
    }
    seen << " good " << int32(stream.good()) << " eof " << int32(stream.eof()) << " count " << stream.gcount() << " at "
         << stream.tell() << " reports " << TakeReports().size();
    return seen.str();
}

// The fields that the buffers add, by pointers to members that only a derived class may form.
struct TMemoryFields : TNqstrstream
{
    static std::string Of(TNqstrstream& stream)
    {
        const int32 size = stream.*&TMemoryFields::fBufferSize;
        const std::string bytes(stream.*&TMemoryFields::fBuffer, static_cast<size_t>(std::max(size, 0)));
        return std::to_string(size) + " " + std::to_string(stream.*&TMemoryFields::fBufferAllocatedSize) + bytes;
    }
};

struct TFileFields : TNqfstream
{
    static std::string Of(TNqfstream& stream)
    {
        std::ostringstream seen;
        for (const auto field : {&TFileFields::fActualBufSize, &TFileFields::fBufferPos, &TFileFields::fBufferOffset,
                                 &TFileFields::fFileSize})
            seen << stream.*field << " ";
        const bool loaded = stream.*&TFileFields::fFirstBufferLoaded;
        seen << int32(stream.*&TFileFields::fFirstBufferLoaded) << int32(stream.*&TFileFields::fBufferModified);
        if (stream.*&TFileFields::fBuffer != nullptr && loaded)
            seen << std::string(stream.*&TFileFields::fBuffer, stream.*&TFileFields::fActualBufSize);
        return seen.str();
    }
};

// Runs the same operations on both; the text of the first difference, or empty.
template <class Fields, class Stream>
void RunTwins(Stream& exact, TDerived<Stream>& derived, uint32 seed, int32 operations)
{
    TRandom first(seed), second(seed);
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
        TRandom random(seed);
        std::string text = RandomText(random, 200);
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
            TRandom first(seed), second(seed);
            ASSERT_EQ(DoSomething(exact, first), DoSomething(derived, second));
        }
    }
}

TEST_F(StreamTwinTest, Files)
{
    TTestDisk otherDisk;
    for (uint32 seed = 0; seed < 3000 && !HasFailure(); ++seed)
    {
        fDisk = TTestDisk();
        TRandom random(seed);
        fDisk.fFiles["/f"] = RandomText(random, 150);
        fDisk.fBadCall = seed % 5 == 0 ? 8 + static_cast<int32>(seed % 40) : 0; // one host call goes wrong
        fDisk.fShort = seed % 2;
        otherDisk = fDisk;
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
