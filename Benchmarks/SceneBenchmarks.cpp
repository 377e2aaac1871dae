// Scenes of real models: their meshes read, passed over and written, and their arrays by themselves.

#include "Benchmarks/Benchmarks.h"
#include "Benchmarks/Scene.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <fmt/compile.h>
#include <fmt/format.h>
#include <pugixml.hpp>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

using namespace NqBench;

namespace
{

const std::string kFile = "/tmp/nqbench." + std::to_string(getpid()) + ".nq";
constexpr int32 kBuffer = 65536; // bytes that a file is read and written with

// Reads from inText, in memory.
template <class Read>
void WithMemory(const std::string& inText, Read&& inRead)
{
    TNqstrstream stream(const_cast<int8*>(inText.data()), static_cast<int32>(inText.size()), kUTF8Transcoder, eRead);
    inRead(stream);
}

// A file with this text while it lives.
class TTextFile
{
public:
    explicit TTextFile(const std::string& inText)
    {
        std::FILE* const file = std::fopen(kFile.c_str(), "wb");
        fIsWhole = file != nullptr && std::fwrite(inText.data(), 1, inText.size(), file) == inText.size();
        fIsWhole = file != nullptr && std::fclose(file) == 0 && fIsWhole;
    }
    ~TTextFile() { std::remove(kFile.c_str()); }
    bool IsWhole() const { return fIsWhole; }

    template <class Read>
    void With(Read&& inRead) const
    {
        TNqfstream stream(kFile.c_str(), kUTF8Transcoder, eRead, kBuffer, nullptr);
        inRead(stream);
    }

private:
    bool fIsWhole = false;
};

// ---- Reading meshes: NqCore --------------------------------------------------------------------------------------------

void TakeMesh(TNqiostream& ioStream, TMeshCounts& ioCounts, TTaken& ioTaken)
{
    int8 token[NqToken::kTokenBufferSize];
    NqToken::GetBeginToken(ioStream);
    while (NqToken::GetNextToken(ioStream, token, false) == 0 && !NqToken::IsEndToken(token))
    {
        const uint32 key = static_cast<uint32>(NqToken::CompactAttribute(token));
        const EMeshName name = MeshName(key);
        size_t count = 0;
        switch (name)
        {
        case kRealArray:
            count = ioCounts.Reals();
            NqToken::GetReal32ArrayToken(ioStream, static_cast<int32>(count), ioTaken.Room<real32>(count));
            ioTaken.Took<real32>(count);
            break;
        case kIntegerArray:
            count = ioCounts.Integers(key);
            NqToken::GetInt32ArrayToken(ioStream, static_cast<int32>(count), ioTaken.Room<int32>(count));
            ioTaken.Took<int32>(count);
            break;
        case kTextureBlock:
        case kColourBlock:
            ioCounts.fDimensions = name == kTextureBlock ? 2 : 4;
            TakeMesh(ioStream, ioCounts, ioTaken);
            ioCounts.fDimensions = 3;
            break;
        case kOtherName:
        case kMeshes:
            NqToken::SkipTokenData(ioStream);
            break;
        default:
            ioCounts.Set(name, static_cast<size_t>(NqToken::GetInt32Token(ioStream)));
        }
    }
}

void TakeScenes(TNqiostream& ioStream, TTaken& ioTaken)
{
    int8 token[NqToken::kTokenBufferSize];
    while (NqToken::GetNextToken(ioStream, token, false) == 0)
    {
        NqToken::GetBeginToken(ioStream);
        while (NqToken::GetNextToken(ioStream, token, false) == 0 && !NqToken::IsEndToken(token))
            if (MeshName(static_cast<uint32>(NqToken::CompactAttribute(token))) == kMeshes)
            {
                TMeshCounts counts;
                TakeMesh(ioStream, counts, ioTaken);
            }
            else
                NqToken::SkipTokenData(ioStream);
    }
}

void ReadMemory(benchmark::State& state)
{
    MeasureReading(state, Scene().fSums, Scene().fTokens.size(),
                   [](TTaken& ioTaken)
                   { WithMemory(Scene().fTokens, [&](TNqstrstream& ioStream) { TakeScenes(ioStream, ioTaken); }); });
}

void ReadFile(benchmark::State& state)
{
    const TTextFile file(Scene().fTokens);
    if (!file.IsWhole())
        state.SkipWithError("cannot write the file");
    MeasureReading(state, Scene().fSums, Scene().fTokens.size(),
                   [&](TTaken& ioTaken) { file.With([&](TNqfstream& ioStream) { TakeScenes(ioStream, ioTaken); }); });
}

// ---- Reading meshes: RapidJSON, pugixml --------------------------------------------------------------------------------

// Takes the numbers as they pass, without a document in between.
struct TMeshHandler : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, TMeshHandler>
{
    explicit TMeshHandler(TTaken& ioTaken) : fTaken(ioTaken) {}

    bool Key(const char* inText, rapidjson::SizeType inLength, bool)
    {
        const uint32 key = NameOf(inText, inLength);
        fName = MeshName(key);
        switch (fName)
        {
        case kRealArray:
            fCount = fCounts.Reals();
            fReals = fTaken.Room<real32>(fCount);
            break;
        case kIntegerArray:
            fCount = fCounts.Integers(key);
            fIntegers = fTaken.Room<int32>(fCount);
            break;
        case kTextureBlock:
            fBlockDimensions = 2;
            break;
        case kColourBlock:
            fBlockDimensions = 4;
            break;
        default:
            break;
        }
        return true;
    }
    bool StartObject()
    {
        fCounts.fDimensions = fBlockDimensions;
        return true;
    }
    bool EndArray(rapidjson::SizeType)
    {
        if (fName == kRealArray)
            fTaken.Took<real32>(fCount);
        else if (fName == kIntegerArray)
            fTaken.Took<int32>(fCount);
        else // of blocks
            fCounts.fDimensions = fBlockDimensions = 3;
        fName = kOtherName;
        return true;
    }
    bool Double(double inValue)
    {
        if (fName == kRealArray)
            *fReals++ = static_cast<real32>(inValue);
        return true;
    }
    bool Int(int inValue)
    {
        if (fName == kRealArray)
            *fReals++ = static_cast<real32>(inValue);
        else if (fName == kIntegerArray)
            *fIntegers++ = inValue;
        else
            fCounts.Set(fName, static_cast<size_t>(inValue));
        return true;
    }
    bool Uint(unsigned inValue) { return Int(static_cast<int>(inValue)); }

    TTaken& fTaken;
    TMeshCounts fCounts;
    EMeshName fName = kOtherName;
    size_t fBlockDimensions = 3; // of a vertex in the blocks that begin now
    size_t fCount = 0;
    real32* fReals = nullptr;
    int32* fIntegers = nullptr;
};

void ReadJson(benchmark::State& state)
{
    MeasureReading(state, Scene().fSums, Scene().fTokens.size(),
                   [](TTaken& ioTaken)
                   {
                       rapidjson::Reader reader;
                       rapidjson::StringStream stream(Scene().fJson.c_str());
                       TMeshHandler handler(ioTaken);
                       reader.Parse(stream, handler);
                   });
}

template <class T>
const char* TakeNumbers(const char* inText, const char* inEnd, size_t inCount, TTaken& ioTaken)
{
    T* const values = ioTaken.Room<T>(inCount);
    for (size_t i = 0; i < inCount; ++i)
        inText = std::from_chars(inText, inEnd, values[i]).ptr + 1;
    ioTaken.Took<T>(inCount);
    return inText;
}

void TakeMesh(pugi::xml_node inMesh, TMeshCounts& ioCounts, TTaken& ioTaken)
{
    for (const pugi::xml_node node : inMesh)
    {
        const char* const text = node.text().get();
        const uint32 key = NameOf(node.name(), std::strlen(node.name()));
        const EMeshName name = MeshName(key);
        switch (name)
        {
        case kRealArray:
            TakeNumbers<real32>(text, text + std::strlen(text), ioCounts.Reals(), ioTaken);
            break;
        case kIntegerArray:
            TakeNumbers<int32>(text, text + std::strlen(text), ioCounts.Integers(key), ioTaken);
            break;
        case kTextureBlock:
        case kColourBlock:
            ioCounts.fDimensions = name == kTextureBlock ? 2 : 4;
            TakeMesh(node, ioCounts, ioTaken);
            ioCounts.fDimensions = 3;
            break;
        case kOtherName:
        case kMeshes:
            break;
        default:
            ioCounts.Set(name, node.text().as_uint());
        }
    }
}

void ReadXml(benchmark::State& state)
{
    MeasureReading(state, Scene().fSums, Scene().fTokens.size(),
                   [](TTaken& ioTaken)
                   {
                       pugi::xml_document document;
                       document.load_buffer(Scene().fXml.data(), Scene().fXml.size());
                       for (const pugi::xml_node scene : document.child("SCENES"))
                           for (const pugi::xml_node mesh : scene.children("MESH"))
                           {
                               TMeshCounts counts;
                               TakeMesh(mesh, counts, ioTaken);
                           }
                   });
}

// ---- Reading arrays alone ------------------------------------------------------------------------------------------------

template <class T>
const std::vector<std::vector<T>>& Arrays()
{
    if constexpr (std::is_same_v<T, real32>)
        return Scene().fReals;
    else
        return Scene().fIntegers;
}
template <class T>
const std::string& ArrayText()
{
    return std::is_same_v<T, real32> ? Scene().fRealText : Scene().fIntegerText;
}
template <class T>
const TSums& ArraySums()
{
    return std::is_same_v<T, real32> ? Scene().fRealSums : Scene().fIntegerSums;
}

template <class T>
void ReadArrays(benchmark::State& state)
{
    MeasureReading(state, ArraySums<T>(), ArrayText<T>().size(),
                   [](TTaken& ioTaken)
                   {
                       WithMemory(ArrayText<T>(),
                                  [&](TNqstrstream& ioStream)
                                  {
                                      int8 token[NqToken::kTokenBufferSize];
                                      for (const std::vector<T>& array : Arrays<T>())
                                      {
                                          const int32 count = static_cast<int32>(array.size());
                                          T* const values = ioTaken.Room<T>(array.size());
                                          NqToken::GetNextToken(ioStream, token, false);
                                          if constexpr (std::is_same_v<T, real32>)
                                              NqToken::GetReal32ArrayToken(ioStream, count, values);
                                          else
                                              NqToken::GetInt32ArrayToken(ioStream, count, values);
                                          ioTaken.Took<T>(array.size());
                                      }
                                  });
                   });
}

template <class T>
void WalkArrays(benchmark::State& state)
{
    MeasureReading(state, ArraySums<T>(), ArrayText<T>().size(),
                   [](TTaken& ioTaken)
                   {
                       const char* text = ArrayText<T>().data();
                       const char* const end = text + ArrayText<T>().size();
                       for (const std::vector<T>& array : Arrays<T>())
                           text = TakeNumbers<T>(text + 5, end, array.size(), ioTaken); // behind the name
                   });
}

// ---- Passing over ----------------------------------------------------------------------------------------------------------

size_t Skip(TNqiostream& ioStream)
{
    size_t scenes = 0;
    int8 token[NqToken::kTokenBufferSize];
    for (; NqToken::GetNextToken(ioStream, token, false) == 0; ++scenes)
        NqToken::SkipTokenData(ioStream);
    return scenes;
}

void SkipMemory(benchmark::State& state)
{
    size_t scenes = 0;
    for (auto _ : state)
        WithMemory(Scene().fTokens, [&](TNqstrstream& ioStream) { scenes = Skip(ioStream); });
    Finish(state, 1, Scene().fTokens.size(), scenes == Scene().fScenes);
}

void SkipFile(benchmark::State& state)
{
    const TTextFile file(Scene().fTokens);
    size_t scenes = 0;
    for (auto _ : state)
        file.With([&](TNqfstream& ioStream) { scenes = Skip(ioStream); });
    Finish(state, 1, Scene().fTokens.size(), file.IsWhole() && scenes == Scene().fScenes);
}

void SkipJson(benchmark::State& state)
{
    bool isWhole = false;
    for (auto _ : state)
    {
        rapidjson::Reader reader;
        rapidjson::StringStream stream(Scene().fJson.c_str());
        rapidjson::BaseReaderHandler<> handler;
        isWhole = !reader.Parse(stream, handler).IsError() && stream.Tell() == Scene().fJson.size();
    }
    Finish(state, 1, Scene().fTokens.size(), isWhole);
}

// ---- Writing arrays: what was written must read as the values that it was made of ------------------------------------------

// Compares the numbers in a text with the values. Between them stand bytes that no number has.
template <class T>
bool HoldsArrays(const std::string& inText, double inTolerance = 1e-7)
{
    TSums sums;
    std::vector<T> values;
    const char* const end = inText.data() + inText.size();
    for (const char* at = inText.data(); at != end;)
    {
        T value{};
        const std::from_chars_result result = std::from_chars(at, end, value);
        if (result.ec == std::errc())
            values.push_back(value);
        at = result.ec == std::errc() ? result.ptr : at + 1;
    }
    sums.Add(values.data(), values.size());
    return sums.AreLike(ArraySums<T>(), inTolerance);
}

template <class T>
void PutArrays(TNqiostream& ioStream)
{
    for (const std::vector<T>& array : Arrays<T>())
    {
        const int32 count = static_cast<int32>(array.size());
        if constexpr (std::is_same_v<T, real32>)
            NqToken::PutReal32ArrayAttribute(ioStream, NqFourChar("POSN"), count, array.data());
        else
            NqToken::PutInt32ArrayAttribute(ioStream, NqFourChar("CRNR"), count, array.data());
    }
}

// The bytes of the library's own text, by which all contenders are measured.
template <class T>
void FinishWriting(benchmark::State& ioState, bool inIsRight)
{
    Finish(ioState, ArraySums<T>().Count(), ArrayText<T>().size(), inIsRight);
}

// Room that is there before the time begins, enough for every contender's text.
template <class T>
std::vector<char>& Room()
{
    static std::vector<char> sRoom(static_cast<size_t>(ArraySums<T>().Count()) * 16 + ArrayText<T>().size());
    return sRoom;
}

// Writes to the room once to see that it is right, and then once an iteration: inWrite() returns how many bytes.
template <class T, class Write>
void MeasureRoom(benchmark::State& ioState, Write&& inWrite)
{
    const size_t size = inWrite();
    const bool isRight = HoldsArrays<T>(std::string(Room<T>().data(), size));
    bool isSame = true;
    for (auto _ : ioState)
    {
        isSame = inWrite() == size && isSame;
        benchmark::ClobberMemory();
    }
    FinishWriting<T>(ioState, isRight && isSame);
}

template <class T>
void WriteArrays(benchmark::State& state)
{
    MeasureRoom<T>(state,
                   []
                   {
                       TNqstrstream stream(Room<T>().data(), static_cast<int32>(Room<T>().size()), kUTF8Transcoder,
                                           eWrite);
                       PutArrays<T>(stream);
                       return static_cast<size_t>(stream.pcount());
                   });
}

// To a block of the stream's own.
template <class T>
void WriteArraysGrowing(benchmark::State& state)
{
    TNqstrstream first(kUTF8Transcoder);
    PutArrays<T>(first);
    const bool isRight = HoldsArrays<T>(TakeText(first));
    for (auto _ : state)
    {
        TNqstrstream stream(kUTF8Transcoder);
        PutArrays<T>(stream);
        benchmark::DoNotOptimize(stream.pcount());
    }
    FinishWriting<T>(state, isRight);
}

std::string TakeFile()
{
    std::string text;
    std::FILE* const file = std::fopen(kFile.c_str(), "rb");
    char bytes[kBuffer];
    for (size_t count; file != nullptr && (count = std::fread(bytes, 1, sizeof bytes, file)) > 0;)
        text.append(bytes, count);
    if (file != nullptr)
        std::fclose(file);
    std::remove(kFile.c_str());
    return text;
}

template <class T>
void WriteArraysFile(benchmark::State& state)
{
    for (auto _ : state)
    {
        TNqfstream stream(kFile.c_str(), kUTF8Transcoder, eWrite, kBuffer, nullptr);
        PutArrays<T>(stream);
    }
    FinishWriting<T>(state, HoldsArrays<T>(TakeFile()));
}

constexpr size_t kLongest = 32; // bytes that a value and what follows it may have

// How the peers write one value.
struct TToChars
{
    template <class T>
    static char* Put(char* outText, T inValue)
    {
        return std::to_chars(outText, outText + kLongest - 1, inValue).ptr;
    }
};
struct TFmt
{
    static char* Put(char* outText, real32 inValue) { return fmt::format_to(outText, FMT_COMPILE("{}"), inValue); }
    static char* Put(char* outText, int32 inValue)
    {
        const fmt::format_int digits(inValue);
        std::memcpy(outText, digits.data(), digits.size());
        return outText + digits.size();
    }
};

template <class T, class Peer>
void WriteArraysWith(benchmark::State& state)
{
    MeasureRoom<T>(state,
                   []
                   {
                       char* out = Room<T>().data();
                       for (const std::vector<T>& array : Arrays<T>())
                       {
                           std::memcpy(out, "NAME ", 5);
                           out += 5;
                           for (const T value : array)
                           {
                               out = Peer::Put(out, value);
                               *out++ = ',';
                           }
                           out[-1] = '\r';
                       }
                       return static_cast<size_t>(out - Room<T>().data());
                   });
}

// Through a buffer that goes to the file when it is full.
template <class T>
void WriteArraysFileWith(benchmark::State& state)
{
    std::vector<char> buffer(kBuffer);
    bool isWhole = true;
    for (auto _ : state)
    {
        const int file = open(kFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        char* out = buffer.data();
        const auto flush = [&]
        {
            const ssize_t size = out - buffer.data();
            isWhole = write(file, buffer.data(), static_cast<size_t>(size)) == size && isWhole;
            out = buffer.data();
        };
        for (const std::vector<T>& array : Arrays<T>())
        {
            std::memcpy(out, "NAME ", 5);
            out += 5;
            for (const T value : array)
            {
                out = TToChars::Put(out, value);
                *out++ = ',';
                if (out + kLongest > buffer.data() + kBuffer)
                    flush();
            }
        }
        flush();
        close(file);
    }
    FinishWriting<T>(state, isWhole && HoldsArrays<T>(TakeFile()));
}

template <class T>
void PutJson(rapidjson::StringBuffer& outText)
{
    rapidjson::Writer<rapidjson::StringBuffer> writer(outText);
    writer.SetMaxDecimalPlaces(6);
    writer.StartArray();
    for (const std::vector<T>& array : Arrays<T>())
    {
        writer.StartArray();
        for (const T value : array)
        {
            if constexpr (std::is_same_v<T, real32>)
                writer.Double(value);
            else
                writer.Int(value);
        }
        writer.EndArray();
    }
    writer.EndArray();
}

template <class T>
void WriteArraysJson(benchmark::State& state)
{
    rapidjson::StringBuffer text; // which keeps its memory
    PutJson<T>(text);
    // Its decimals are cut off and not rounded.
    const bool isRight = HoldsArrays<T>(std::string(text.GetString(), text.GetSize()), 1e-5);
    for (auto _ : state)
    {
        text.Clear();
        PutJson<T>(text);
        benchmark::DoNotOptimize(text.GetString());
    }
    FinishWriting<T>(state, isRight);
}

} // namespace

NQ_SCENE_BENCHMARK(ReadMemory, "read meshes/NqCore");
NQ_SCENE_BENCHMARK(ReadJson, "read meshes/RapidJSON SAX");
NQ_SCENE_BENCHMARK(ReadXml, "read meshes/pugixml, std::from_chars");
NQ_SCENE_BENCHMARK(ReadFile, "read meshes from a file/NqCore");
NQ_SCENE_BENCHMARK(ReadMemory, "read meshes from a file/NqCore, in memory");
NQ_SCENE_BENCHMARK(ReadArrays<real32>, "read real arrays/NqCore");
NQ_SCENE_BENCHMARK(WalkArrays<real32>, "read real arrays/std::from_chars");
NQ_SCENE_BENCHMARK(ReadArrays<int32>, "read integer arrays/NqCore");
NQ_SCENE_BENCHMARK(WalkArrays<int32>, "read integer arrays/std::from_chars");

NQ_SCENE_BENCHMARK(SkipMemory, "skip scenes/NqCore");
NQ_SCENE_BENCHMARK(SkipJson, "skip scenes/RapidJSON SAX");
NQ_SCENE_BENCHMARK(SkipFile, "skip scenes in a file/NqCore");
NQ_SCENE_BENCHMARK(SkipJson, "skip scenes in a file/RapidJSON SAX, in memory");

NQ_SCENE_BENCHMARK(WriteArrays<real32>, "write real arrays/NqCore");
NQ_SCENE_BENCHMARK(WriteArraysGrowing<real32>, "write real arrays/NqCore, a block that grows");
NQ_SCENE_BENCHMARK((WriteArraysWith<real32, TToChars>), "write real arrays/std::to_chars");
NQ_SCENE_BENCHMARK((WriteArraysWith<real32, TFmt>), "write real arrays/fmt");
NQ_SCENE_BENCHMARK(WriteArraysJson<real32>, "write real arrays/RapidJSON Writer");
NQ_SCENE_BENCHMARK(WriteArraysFile<real32>, "write real arrays to a file/NqCore");
NQ_SCENE_BENCHMARK(WriteArraysFileWith<real32>, "write real arrays to a file/std::to_chars");
NQ_SCENE_BENCHMARK(WriteArrays<int32>, "write integer arrays/NqCore");
NQ_SCENE_BENCHMARK(WriteArraysGrowing<int32>, "write integer arrays/NqCore, a block that grows");
NQ_SCENE_BENCHMARK((WriteArraysWith<int32, TToChars>), "write integer arrays/std::to_chars");
NQ_SCENE_BENCHMARK((WriteArraysWith<int32, TFmt>), "write integer arrays/fmt");
NQ_SCENE_BENCHMARK(WriteArraysJson<int32>, "write integer arrays/RapidJSON Writer");
