// The streams' own classes work in their buffers, classes derived from them through the virtual operations. Here both
// do the same random operations, and everything that can be seen must be the same.

#include "NqCore/PublicAPI/NqNetStream.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "Tests/NetDoubles.h"
#include "Tests/ResourceDoubles.h"
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
void NoteTokens(TCall& call, Read&& read)
{
    try
    {
        read(call.fStream);
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
    [](TCall& c) { c.fStream.write(c.fData, c.fSize - 10); },
    [](TCall& c) { NqToken::PutReal64Attribute(c.fStream, c.fNumber, RandomReal(c.fRandom)); },
    [](TCall& c) { NqToken::PutNonLocalizedStringAttribute(c.fStream, c.fNumber, c.fString, true); },
};

const TOperation kMoves[] = {
    [](TCall& c) { c.fStream.seek(c.fNumber % 60 - 2, TNqiostream::beg); },
    [](TCall& c) { c.fStream.seek(c.fSize - 10, TNqiostream::cur); },
    [](TCall& c) { c.fStream.seek(c.fSize - 2, TNqiostream::end); },
    [](TCall& c) { c.fStream.putback(c.fByte); },
    [](TCall& c) { c.fSeen << c.fStream.GetStreamSize(); },
    [](TCall& c) { c.fStream.precision(c.fSize); },
    AppendToFile,
    [](TCall& c) { c.fStream.SetTranscoder(static_cast<TranscoderType>(c.fNumber % 4)); },
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

// ---- A failure inside a value --------------------------------------------------------------------------------------

constexpr int32 kName = 0x4E414D45; // NAME
const int32 kNumbers[] = {-1, 20, -300};
const int8 kBytes[] = "\x01\xAF\"";

// What writes a value with more than one call of its stream, or may.
using TPut = void (*)(TNqiostream&);
const TPut kValues[] = {
    [](TNqiostream& s) { s << int32(-12345); },
    [](TNqiostream& s) { s << int16(-5); },
    [](TNqiostream& s) { s << int64(-5); },
    [](TNqiostream& s) { s << real64(-1234567.25); },
    [](TNqiostream& s) { s << real64(-1e300); },
    [](TNqiostream& s) { s << real32(-2.5f); },
    [](TNqiostream& s) { s << TNqString255("a\"b\xC3\xA9"); },
    [](TNqiostream& s) { NqToken::PutToken(s, kName, true); },
    [](TNqiostream& s) { delete NqToken::PutBeginToken(s, kName, true); },
    [](TNqiostream& s) { NqToken::PutBeginToken(s); },
    [](TNqiostream& s) { NqToken::PutEndToken(s); },
    [](TNqiostream& s) { NqToken::PutInt32Token(s, -7); },
    [](TNqiostream& s) { NqToken::PutInt16Attribute(s, kName, -7); },
    [](TNqiostream& s) { NqToken::PutReal32Attribute(s, kName, -7.5f); },
    [](TNqiostream& s) { NqToken::PutFourCharConstAttribute(s, kName, kName); },
    [](TNqiostream& s) { NqToken::PutInt32ArrayAttribute(s, kName, 3, kNumbers); },
    [](TNqiostream& s) { NqToken::PutNonLocalizedStringAttribute(s, kName, TNqString255("a\"b"), true); },
    [](TNqiostream& s) { NqToken::PutLocalizedStringAttribute(s, kName, TNqString255("a\"b"), true); },
    [](TNqiostream& s) { NqToken::PutPathRefAttribute(s, kName, TNqString255("/a/b")); },
    [](TNqiostream& s)
    {
        TNqstrstream content(kUTF8Transcoder);
        content << "A 1";
        NqToken::InitTokenMgr(s);
        NqToken::GetNqTokenData(s)->fTokenIndent = true;
        NqToken::PutStreamAttribute(s, kName, content);
        EXPECT_EQ(NqToken::GetNqTokenData(s)->fTokenIndentLevel, 0);
    },
    [](TNqiostream& s) { NqToken::PutBinaryStartAttribute(s, kName, 3); },
    [](TNqiostream& s) { NqToken::PutBinaryEndAttribute(s); },
    [](TNqiostream& s) { NqToken::PutHexaBinaryAttribute(s, kName, 3, kBytes); },
    [](TNqiostream& s) { NqToken::PutBufferAsHexa(s, kBytes, 3, false); },
    [](TNqiostream& s) { PutLongAsHexa(s, 0x1234); },
    [](TNqiostream& s)
    {
        uint32 state = 0;
        NqToken::PutBufferAsBinHex(s, kBytes, 3, state);
    },
    [](TNqiostream& s)
    {
        int8 text[] = "a { $00000001\rx$ } }";
        TNqstrstream in(text, kUTF8Transcoder);
        if (TNqstrstream* const out = dynamic_cast<TNqstrstream*>(&s))
            try
            {
                ReadStream(in, *out, true);
            }
            catch (const TNqException&) // there was no room
            {
            }
    },
    [](TNqiostream& s)
    {
        TNqResourceStream strings(Strings({"one", "two"}));
        strings.WriteAllStrings(s);
    },
};

// A client's own stream, one of whose writes goes wrong.
class TClient : public TNqiostream
{
public:
    using TNqiostream::read;
    int32 tell() override { return 0; }
    void seek(int32, seek_dir) override {}
    void putback(int8) override {}
    void read(int8*, int32) override {}
    void write(const int8* data, int32 count) override
    {
        if (fClears)
            clear(0);
        if (++fWrites == fBadWrite)
            changestate(failbit);
        else
            fBytes.append(data, static_cast<size_t>(count));
    }

    int32 State() const { return fState; }

    bool fClears = true;
    int fWrites = 0;
    int fBadWrite = 0;
    std::string fBytes;
};

// What a stream has of a value when the n-th thing goes wrong, and whether it came so far.
struct TOutcome
{
    std::string fBytes;
    bool fGood;
    bool fReached;
};
using TTry = std::function<TOutcome(TPut put, int n)>;

template <class Stream>
TOutcome IntoMemory(TPut put, int n)
{
    int8 buffer[300];
    Stream stream(buffer, n == 0 ? 300 : n, kUTF8Transcoder, eWrite);
    put(stream);
    return {std::string(buffer, static_cast<size_t>(stream.pcount())), stream.good() != 0, !stream.good()};
}

template <class Stream, int32 kBufferSize>
TOutcome IntoFile(TPut put, int n)
{
    TTestDisk disk;
    const TTestFileUtilities utilities(disk);
    Stream stream("/f", kUTF8Transcoder, eReadWrite, kBufferSize, nullptr);
    const int bad = disk.fBadCall = n == 0 ? 0 : disk.fCalls + n;
    put(stream);
    const bool good = stream.good();
    disk.fBadCall = 0;
    const bool reached = disk.fCalls >= bad;
    stream.close();
    return {disk.fFiles["/f"], good, reached};
}

TOutcome IntoClient(TPut put, int n)
{
    TClient stream;
    stream.fBadWrite = n;
    stream.changestate(TNqiostream::failbit); // of a value before
    put(stream);
    EXPECT_TRUE(n == 0 || stream.fWrites <= n) << "a write behind the one that failed";
    if (n == 0 && stream.fWrites == 0) // this value is for other streams
        stream.clear(0);
    return {stream.fBytes, stream.good() != 0, stream.fWrites >= n};
}

// Whatever goes wrong, there is nothing behind it, and the stream tells.
TEST_F(StreamTwinTest, AFailureInsideAValueEndsItAndStays)
{
    const TTry tries[] = {IntoMemory<TNqstrstream>,          IntoMemory<TDerived<TNqstrstream>>,
                          IntoFile<TNqfstream, 0>,           IntoFile<TDerived<TNqfstream>, 0>,
                          IntoFile<TNqfstream, 1>,           IntoFile<TNqfstream, 3>,
                          IntoFile<TDerived<TNqfstream>, 3>, IntoClient};
    for (size_t value = 0; value < std::size(kValues); ++value)
        for (size_t stream = 0; stream < std::size(tries); ++stream)
        {
            const TOutcome whole = tries[stream](kValues[value], 0);
            EXPECT_TRUE(whole.fGood);
            EXPECT_TRUE(TakeReports().empty());
            for (int n = 1;; ++n)
            {
                SCOPED_TRACE(std::to_string(value) + " into " + std::to_string(stream) + ", " + std::to_string(n));
                const TOutcome outcome = tries[stream](kValues[value], n);
                const TTexts reports = TakeReports();
                if (!outcome.fReached)
                {
                    EXPECT_TRUE(outcome.fGood || whole.fBytes.empty());
                    break;
                }
                EXPECT_FALSE(outcome.fGood);
                EXPECT_EQ(std::count(reports.begin(), reports.end(), "Stream throw TNqException"),
                          stream == std::size(tries) - 1 ? 0 : 1);
                EXPECT_EQ(outcome.fBytes, whole.fBytes.substr(0, outcome.fBytes.size()));
            }
        }
}

// A failure from before the value is none of it: the write of some streams does not clear the state.
TEST_F(StreamTwinTest, AnOlderFailureStaysBesideAValue)
{
    TClient client;
    client.fClears = false;
    client.changestate(TNqiostream::failbit);
    NqToken::PutReal64Attribute(client, kName, -1.25);
    EXPECT_EQ(client.fBytes, "NAME -1.25\r");
    EXPECT_EQ(client.State(), int32(TNqiostream::failbit));

    TScriptedSocket socket("none", 9, 0);
    {
        TNqNetStream stream(&socket);
        int32 number = 0;
        stream >> number;
        EXPECT_EQ(TakeReports().size(), 1u);
        stream << int32(-12) << TNqString31("x");
        EXPECT_FALSE(stream.good());
        stream.clear(0);
        EXPECT_TRUE(stream.good());
    }
    EXPECT_EQ(socket.AllSent(), "-12\"x\"");
}

// The table gets a text only when its index is in the stream.
TEST_F(StreamTwinTest, ATextIsAddedToItsTableOnlyBehindItsIndex)
{
    const TStringsPtr strings = Strings({});
    TNqLocalizedTextResourceStream stream(*strings);
    const std::string full(4096, 'x');
    stream.write(full.data(), 4096);
    TestHost().FailAllocations(1);
    stream.WriteLocalizedString(TNqString31("one"));
    TestHost().FailAllocations(0);
    EXPECT_FALSE(stream.good());
    EXPECT_TRUE(stream.pcount() == 4096 && strings->GetElemCount() == 0);
    EXPECT_EQ(TakeReports(), TTexts{"Stream throw TNqException"});
    stream.WriteLocalizedString(TNqString31("one"));
    EXPECT_TRUE(stream.good() && stream.pcount() == 4098 && strings->GetElemCount() == 1);
}

} // namespace
