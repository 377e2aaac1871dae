// What the benchmarks share: the data that every contender works on, and how a result is handed in.
//
// A benchmark is named "task/contender"; all contenders of a task do the same work on the same data and prove it with a
// checksum.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

class TNqstrstream;
namespace pugi
{
class xml_document;
}

// Registers a function as a contender of a task.
#define NQ_BENCHMARK(function, name) BENCHMARK(function)->Name(name)->UseRealTime()

namespace NqBench
{

// A mesh of which the token text has about 10 MB.
struct TMesh
{
    std::vector<real32> fPositions; // x, y, z
    std::vector<real32> fNormals;   // x, y, z
    std::vector<real32> fTexture;   // u, v
    std::vector<int32> fFaces;      // three corners each

    int64 ValueCount() const
    {
        return static_cast<int64>(fPositions.size() + fNormals.size() + fTexture.size() + fFaces.size());
    }
    bool IsLike(const TMesh& inOther) const; // up to the six decimals of text
};
const TMesh& Mesh();

// Many small objects with four attributes each.
struct TObject
{
    std::string fName;
    int32 fId;
    bool fVisible;
    real32 fMass;
};
const std::vector<TObject>& Objects();
bool AreLike(const std::vector<TObject>& inA, const std::vector<TObject>& inB);
std::string ObjectsJson();

// Text in several scripts, in UTF-8.
const std::string& Prose();

// The end of a benchmark: items per iteration, bytes of text or data where there are some, and whether the work was
// right.
inline void Finish(benchmark::State& ioState, int64 inItems, size_t inBytes, bool inCorrect)
{
    if (!inCorrect)
        ioState.SkipWithError("wrong result");
    ioState.SetItemsProcessed(ioState.iterations() * inItems);
    if (inBytes > 0)
        ioState.SetLabel(std::to_string(inBytes));
}

// Adds up inValue(i) for each i below inCount, once an iteration.
template <class Sum, class Value>
Sum AddUp(benchmark::State& ioState, int32 inCount, Value&& inValue)
{
    Sum sum = 0;
    for (auto _ : ioState)
    {
        sum = 0;
        for (int32 i = 0; i < inCount; ++i)
            sum += inValue(i);
        benchmark::DoNotOptimize(sum);
    }
    return sum;
}

// Makes a text or data once an iteration: inMake() returns how many bytes.
template <class Make>
void MeasureWriting(benchmark::State& ioState, int64 inItems, Make&& inMake)
{
    size_t size = 0;
    for (auto _ : ioState)
        size = static_cast<size_t>(inMake());
    Finish(ioState, inItems, size, size > 0);
}

// What has been written to a stream with a block of its own, which is of no further use.
std::string TakeText(TNqstrstream& ioStream);

// A document without indentation.
std::string TextOf(const pugi::xml_document& inDocument);

} // namespace NqBench
