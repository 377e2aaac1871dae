// The paths whose instructions are counted, each run once between two marks for callgrind. Benchmarks/guard runs this
// program and compares the counts with those that are kept.
//
// Every path checks what it made, so that none gets quicker by doing less. The program writes a file in the current
// folder.

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqSMPCriticalSection.h"
#include "NqCore/PublicAPI/NqSMPSafeCriticalSections.h"
#include "NqCore/PublicAPI/NqSMPSharedCriticalSection.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqCore/PublicAPI/NqToken.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <valgrind/callgrind.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace
{

constexpr int32 kReals = NqFourChar("POSN");
constexpr int32 kIntegers = NqFourChar("CRNR");
constexpr int32 kObject = NqFourChar("OBJT");
constexpr int32 kName = NqFourChar("NAME");
constexpr int32 kId = NqFourChar("IDNT");
constexpr int32 kMass = NqFourChar("MASS");
constexpr char kFile[] = "guard.nq";

// ---- Data ------------------------------------------------------------------------------------------------------------

// The same numbers everywhere.
uint32 Random()
{
    static uint32 sValue = 1;
    sValue = sValue * 1664525U + 1013904223U;
    return sValue >> 8;
}

// As positions and normals of models are: six decimals, fewer, and whole.
std::vector<real32> MakeReals()
{
    std::vector<real32> values(20000);
    for (real32& value : values)
    {
        const real32 unit = static_cast<real32>(Random()) / 16777216.0F * 2 - 1;
        const uint32 kind = Random() % 8;
        value = kind == 0   ? std::floor(unit * 10)
                : kind == 1 ? std::floor(unit * 400) / 4
                : kind < 5  ? unit
                            : unit * 100;
    }
    return values;
}

// As the corners of faces are.
std::vector<int32> MakeIntegers()
{
    std::vector<int32> values(20000);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<int32>(i / 6 + Random() % 50);
    return values;
}

const std::vector<real32> gReals = MakeReals();
const std::vector<int32> gIntegers = MakeIntegers();
const int32 gRealCount = static_cast<int32>(gReals.size());
const int32 gIntegerCount = static_cast<int32>(gIntegers.size());
constexpr int32 kByteCount = 60000;
constexpr int32 kObjects = 2000;

std::string gRealText, gIntegerText, gHexaText, gSixBitText, gObjectText;
std::vector<int8> gBytes(kByteCount);

// ---- Tools of the paths ----------------------------------------------------------------------------------------------

void Require(bool inCondition, const char* inWhat)
{
    if (inCondition)
        return;
    std::fprintf(stderr, "nqguard: %s is wrong\n", inWhat);
    std::exit(1);
}

template <class Put>
void Write(std::string& outText, Put&& inPut)
{
    TNqstrstream stream(kUTF8Transcoder);
    inPut(stream);
    const size_t size = static_cast<size_t>(stream.pcount());
    int8* const block = stream.str();
    outText.assign(block, size);
    Nqfree(block);
}

void NextToken(TNqiostream& ioStream)
{
    int8 token[NqToken::kTokenBufferSize];
    Require(NqToken::GetNextToken(ioStream, token, false) == 0, "the next token");
}

// ---- Paths -----------------------------------------------------------------------------------------------------------

void PutReals(TNqiostream& ioStream)
{
    NqToken::PutReal32ArrayAttribute(ioStream, kReals, gRealCount, gReals.data());
}

void WriteReals()
{
    Write(gRealText, PutReals);
    Require(gRealText.size() > 100000, "the text of the reals");
}

void GetReals(TNqiostream& ioStream)
{
    static std::vector<real32> sValues(gReals.size());
    NextToken(ioStream);
    NqToken::GetReal32ArrayToken(ioStream, gRealCount, sValues.data());
    for (size_t i = 0; i < sValues.size(); i += 97)
        Require(std::fabs(sValues[i] - gReals[i]) < 0.00001F, "a real");
}

void ReadReals()
{
    TNqstrstream stream(gRealText.data(), static_cast<int32>(gRealText.size()), kUTF8Transcoder, eRead);
    GetReals(stream);
}

void ReadRealsFile()
{
    TNqfstream stream(kFile, kUTF8Transcoder, eRead, 65536, nullptr);
    GetReals(stream);
}

void Skip(TNqiostream& ioStream)
{
    NextToken(ioStream);
    NqToken::SkipTokenData(ioStream);
    Require(ioStream.tell() + 1 >= static_cast<int32>(gRealText.size()), "the place behind the reals");
}

void SkipMemory()
{
    TNqstrstream stream(gRealText.data(), static_cast<int32>(gRealText.size()), kUTF8Transcoder, eRead);
    Skip(stream);
}

void SkipFile()
{
    TNqfstream stream(kFile, kUTF8Transcoder, eRead, 65536, nullptr);
    Skip(stream);
}

void WriteIntegers()
{
    Write(gIntegerText, [](TNqiostream& ioStream)
          { NqToken::PutInt32ArrayAttribute(ioStream, kIntegers, gIntegerCount, gIntegers.data()); });
    Require(gIntegerText.size() > 50000, "the text of the integers");
}

void ReadIntegers()
{
    static std::vector<int32> sValues(gIntegers.size());
    TNqstrstream stream(gIntegerText.data(), static_cast<int32>(gIntegerText.size()), kUTF8Transcoder, eRead);
    NextToken(stream);
    NqToken::GetInt32ArrayToken(stream, gIntegerCount, sValues.data());
    Require(sValues == gIntegers, "an integer");
}

void WriteHexa()
{
    Write(gHexaText,
          [](TNqiostream& ioStream) { NqToken::PutBufferAsHexa(ioStream, gBytes.data(), kByteCount, false); });
    Require(gHexaText.size() == 2 * size_t{kByteCount}, "the hexadecimal text");
}

void ReadHexa()
{
    static std::vector<int8> sBytes(gBytes.size());
    TNqstrstream stream(gHexaText.data(), static_cast<int32>(gHexaText.size()), kUTF8Transcoder, eRead);
    NqToken::GetBufferAsHexa(stream, sBytes.data(), kByteCount, false);
    Require(sBytes == gBytes, "a byte of the hexadecimal text");
}

void WriteSixBit()
{
    Write(gSixBitText,
          [](TNqiostream& ioStream)
          {
              uint32 state;
              NqToken::BeginBufferAsBinHex(state);
              NqToken::PutBufferAsBinHex(ioStream, gBytes.data(), kByteCount, state);
              NqToken::EndPutBufferAsBinHex(ioStream, state);
          });
    Require(gSixBitText.size() >= size_t{kByteCount} / 3 * 4, "the six-bit text");
}

void ReadSixBit()
{
    static std::vector<int8> sBytes(gBytes.size());
    TNqstrstream stream(gSixBitText.data(), static_cast<int32>(gSixBitText.size()), kUTF8Transcoder, eRead);
    uint32 state;
    NqToken::BeginBufferAsBinHex(state);
    NqToken::GetBufferAsBinHex(stream, sBytes.data(), kByteCount, state);
    Require(sBytes == gBytes, "a byte of the six-bit text");
}

void WriteAttributes()
{
    static const TNqString255 sName("object");
    Write(gObjectText,
          [](TNqiostream& ioStream)
          {
              for (int32 i = 0; i < kObjects; ++i)
              {
                  NqToken::PutBeginToken(ioStream, kObject, false);
                  NqToken::PutNonLocalizedStringAttribute(ioStream, kName, sName, false);
                  NqToken::PutInt32Attribute(ioStream, kId, i);
                  NqToken::PutReal32Attribute(ioStream, kMass, static_cast<real32>(i) / 8);
                  NqToken::PutEndToken(ioStream);
              }
          });
    Require(gObjectText.size() > 50000, "the text of the objects");
}

void ReadAttributes()
{
    TNqstrstream stream(gObjectText.data(), static_cast<int32>(gObjectText.size()), kUTF8Transcoder, eRead);
    int8 token[NqToken::kTokenBufferSize];
    int64 sum = 0;
    while (NqToken::GetNextToken(stream, token, false) == 0)
    {
        NqToken::GetBeginToken(stream);
        while (NqToken::GetNextToken(stream, token, false) == 0 && !NqToken::IsEndToken(token))
            switch (NqToken::CompactAttribute(token))
            {
            case kName:
                sum += NqToken::GetNonLocalizedStringToken(stream).Length();
                break;
            case kId:
                sum += NqToken::GetInt32Token(stream);
                break;
            case kMass:
                sum += static_cast<int64>(NqToken::GetReal32Token(stream) * 8);
                break;
            default:
                NqToken::SkipTokenData(stream);
            }
    }
    Require(sum == int64{6} * kObjects + int64{kObjects} * (kObjects - 1), "the sum of the attributes");
}

void ShortNames()
{
    uint32 length = 0;
    for (int32 i = 0; i < 10000; ++i)
    {
        TNqString31 name("object ");
        TNqString15 number;
        number.FromInt32(i);
        name += number;
        length += name.Length();
    }
    Require(length == 7 * 10000 + 38890, "the length of the names");
}

void Locks()
{
    static TNqSafeSection sSafe;
    static TNqSharedCriticalSection sShared;
    static TNqCriticalSectionArray* const sSlots = []
    {
        static TNqCriticalSectionArray sArray;
        sArray.Initialize(8);
        return &sArray;
    }();
    for (int32 i = 0; i < 5000; ++i)
    {
        const CWhileInSafeCS inside(sSafe);
        sSlots->Enter(3);
        sSlots->Leave(3);
        sShared.EnterExclusive();
        sShared.LeaveExclusive();
        sShared.EnterShared();
        sShared.LeaveShared();
    }
}

void Objects()
{
    for (int32 i = 0; i < 5000; ++i)
    {
        TNqSMPCountedObject* object = nullptr;
        TNqSMPCountedObject::Create(&object);
        Require(object != nullptr && object->AddRef() == 2, "a count");
        object->Release();
        object->Release();
    }
}

struct TPath
{
    const char* fName;
    void (*fRun)();
};

// Writers before the readers of what they wrote.
constexpr TPath kPaths[] = {
    {"write reals", WriteReals},
    {"read reals", ReadReals},
    {"read reals from a file", ReadRealsFile},
    {"skip reals", SkipMemory},
    {"skip reals in a file", SkipFile},
    {"write integers", WriteIntegers},
    {"read integers", ReadIntegers},
    {"write hexadecimal text", WriteHexa},
    {"read hexadecimal text", ReadHexa},
    {"write six-bit text", WriteSixBit},
    {"read six-bit text", ReadSixBit},
    {"write small attributes", WriteAttributes},
    {"read small attributes", ReadAttributes},
    {"build short names", ShortNames},
    {"enter and leave locks", Locks},
    {"make counted objects", Objects},
};

void MakeFile()
{
    TNqfstream stream(kFile, kUTF8Transcoder, eWrite, 65536, nullptr);
    PutReals(stream);
    stream.flush();
    Require(stream.good(), kFile);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--compiler") == 0)
    {
        std::printf("gcc %d %s\n", __GNUC__, sizeof(void*) == 8 ? "64 bits" : "32 bits");
        return 0;
    }
    const TNqHost host;
    for (int8& byte : gBytes)
        byte = static_cast<int8>(Random());
    MakeFile();
    // Once before it counts: what is made at the first use belongs to no path.
    for (const TPath& path : kPaths)
        path.fRun();
    for (const TPath& path : kPaths)
    {
        CALLGRIND_ZERO_STATS;
        path.fRun();
        CALLGRIND_DUMP_STATS_AT(path.fName);
    }
    std::remove(kFile);
}
