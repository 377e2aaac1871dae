// Scenes imported from real models: their token text, and the same content as JSON and XML for those that read these.
//
// All of it is read and made by code of this folder alone, so that it can tell whether the library, or a peer, has read
// everything and read it right.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <string>
#include <vector>

namespace NqBench
{

// What the numbers of all meshes come to. Each real counts as a fraction, or the few large ones would hide the others,
// and for more or less by its place.
struct TSums
{
    int64 fRealCount = 0;
    int64 fIntegerCount = 0;
    double fReals = 0;
    double fMagnitude = 0; // the reals without their signs
    int64 fIntegers = 0;

    int64 Count() const { return fRealCount + fIntegerCount; }

    void Add(const real32* inValues, size_t inCount)
    {
        for (size_t i = 0; i < inCount; ++i)
        {
            const double size = std::fabs(inValues[i]);
            const double fraction = size / (1 + size) * static_cast<double>(1 + fRealCount++ % 97);
            fReals += inValues[i] < 0 ? -fraction : fraction;
            fMagnitude += fraction;
        }
    }
    void Add(const int32* inValues, size_t inCount)
    {
        for (size_t i = 0; i < inCount; ++i)
            fIntegers += inValues[i] * (1 + fIntegerCount++ % 97);
    }
    // Readers may round the last bit of a real differently.
    bool AreLike(const TSums& inOther, double inTolerance = 1e-7) const
    {
        return fRealCount == inOther.fRealCount && fIntegerCount == inOther.fIntegerCount &&
               fIntegers == inOther.fIntegers && std::fabs(fReals - inOther.fReals) <= inTolerance * fMagnitude &&
               std::fabs(fMagnitude - inOther.fMagnitude) <= inTolerance * fMagnitude;
    }
};

struct TScene
{
    std::string fTokens;
    std::string fJson;
    std::string fXml;
    std::vector<std::vector<real32>> fReals; // each array of a mesh
    std::vector<std::vector<int32>> fIntegers;
    std::string fRealText;    // these arrays alone, as lines of token text
    std::string fIntegerText; // likewise
    size_t fScenes = 0;
    size_t fMeshes = 0;
    TSums fSums; // of all meshes
    TSums fRealSums;
    TSums fIntegerSums;
};

// The file that Scene() reads: scenes one after the other, without payloads.
void SetSceneFile(const std::string& inFile);
bool HasScene();
const TScene& Scene();

// Where a reader puts the arrays of a mesh, one after the other. The first pass adds them up, the others only keep the
// compiler from leaving them out.
class TTaken
{
public:
    template <class T>
    T* Room(size_t inCount)
    {
        std::vector<T>& values = Values<T>();
        if (values.size() < inCount)
            values.resize(inCount);
        return values.data();
    }
    template <class T>
    void Took(size_t inCount)
    {
        benchmark::DoNotOptimize(Values<T>().data());
        benchmark::ClobberMemory();
        if (fIsAdding)
            fSums.Add(Values<T>().data(), inCount);
    }

    bool fIsAdding = false;
    TSums fSums;

private:
    template <class T>
    std::vector<T>& Values()
    {
        if constexpr (std::is_same_v<T, real32>)
            return fReals;
        else
            return fIntegers;
    }
    std::vector<real32> fReals;
    std::vector<int32> fIntegers;
};

// Runs inRead(taken) once to see that it comes to these sums, and then once an iteration.
template <class Read>
void MeasureReading(benchmark::State& ioState, const TSums& inExpected, size_t inBytes, Read&& inRead)
{
    TTaken taken;
    taken.fIsAdding = true;
    inRead(taken);
    if (!taken.fSums.AreLike(inExpected))
        ioState.SkipWithError("other numbers were read");
    taken.fIsAdding = false;
    for (auto _ : ioState)
        inRead(taken);
    ioState.SetItemsProcessed(ioState.iterations() * inExpected.Count());
    ioState.SetLabel(std::to_string(inBytes));
}

// A benchmark on the scenes.
template <void (*Run)(benchmark::State&)>
void WithScene(benchmark::State& ioState)
{
    if (!HasScene())
        return ioState.SkipWithError("needs scenes: Benchmarks/run makes some");
    Scene(); // is read before the time begins
    Run(ioState);
}
#define NQ_SCENE_BENCHMARK(function, name) BENCHMARK((WithScene<function>))->Name(name)->UseRealTime()

// A name of four characters as a number, the first one most significant.
constexpr uint32 NameOf(const char* inText, size_t inLength)
{
    uint32 name = 0;
    for (size_t i = 0; i < 4; ++i)
        name = name << 8 | static_cast<uint8>(i < inLength ? inText[i] : ' ');
    return name;
}
constexpr uint32 NameOf(const char (&inText)[5])
{
    return NameOf(inText, 4);
}

// What a name in a mesh introduces.
enum EMeshName
{
    kOtherName,
    kRealArray,
    kIntegerArray,
    kVertexCount,
    kFaceCount,
    kCornerCount,
    kDimensions,
    kMeshes,
    kTextureBlock,
    kColourBlock
};
inline EMeshName MeshName(uint32 inName)
{
    switch (inName)
    {
    case NameOf("POSN"):
    case NameOf("NRML"):
    case NameOf("TANG"):
    case NameOf("BTAN"):
    case NameOf("VALU"):
        return kRealArray;
    case NameOf("FSZS"):
    case NameOf("CRNR"):
        return kIntegerArray;
    case NameOf("NVTX"):
        return kVertexCount;
    case NameOf("NFAC"):
        return kFaceCount;
    case NameOf("NCRN"):
        return kCornerCount;
    case NameOf("DIMS"):
        return kDimensions;
    case NameOf("MESH"):
        return kMeshes;
    case NameOf("TXCO"):
        return kTextureBlock;
    case NameOf("COLR"):
        return kColourBlock;
    default:
        return kOtherName;
    }
}

// The counts that stand before the arrays of a mesh.
struct TMeshCounts
{
    size_t fVertices = 0;
    size_t fFaces = 0;
    size_t fCorners = 0;
    size_t fDimensions = 3; // reals of a vertex in the block that is read

    void Set(EMeshName inName, size_t inValue)
    {
        switch (inName)
        {
        case kVertexCount:
            fVertices = inValue;
            break;
        case kFaceCount:
            fFaces = inValue;
            break;
        case kCornerCount:
            fCorners = inValue;
            break;
        case kDimensions:
            fDimensions = inValue;
            break;
        default:
            break;
        }
    }
    size_t Reals() const { return fVertices * fDimensions; }
    size_t Integers(uint32 inName) const { return inName == NameOf("FSZS") ? fFaces : fCorners; }
};

} // namespace NqBench
