// The box around the vertices of a model, computed on all cores, and a long computation that the user cancels.
//
//     ParallelBoundingBox [model.obj]

#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <thread>

namespace
{

constexpr const char* kModel = "/usr/share/assimp/models/OBJ/WusonOBJ.obj";

struct TVertex
{
    real32 fX, fY, fZ;
};

struct TBox
{
    TVertex fLow, fHigh;
};

// How boxes are put together: each worker has one of its own, and they are united at the end.
struct TUnite
{
    using Type = TBox;

    static void Init(TBox& outBox)
    {
        constexpr real32 far = std::numeric_limits<real32>::infinity();
        outBox = {{far, far, far}, {-far, -far, -far}};
    }
    static void Update(TBox& ioBox, const TBox& inBox)
    {
        ioBox.fLow = {Nq_Min(ioBox.fLow.fX, inBox.fLow.fX), Nq_Min(ioBox.fLow.fY, inBox.fLow.fY),
                      Nq_Min(ioBox.fLow.fZ, inBox.fLow.fZ)};
        ioBox.fHigh = {Nq_Max(ioBox.fHigh.fX, inBox.fHigh.fX), Nq_Max(ioBox.fHigh.fY, inBox.fHigh.fY),
                       Nq_Max(ioBox.fHigh.fZ, inBox.fHigh.fZ)};
    }
};

using TVertices = TNqArray<TVertex>;

bool ReadVertices(const char* inPath, TVertices& outVertices)
{
    TNqfstream stream(inPath, kUTF8Transcoder, eRead, 65536, nullptr);
    int8 line[256];
    while (stream.good())
    {
        stream.getline(line, sizeof line - 1, '\n');
        TVertex vertex;
        if (std::sscanf(line, "v %f %f %f", &vertex.fX, &vertex.fY, &vertex.fZ) == 3 && !outVertices.AddElem(vertex))
            return false;
    }
    return outVertices.GetElemCount() != 0;
}

// Throws kNqErrCancelled when the user wants no result any more.
TBox Measure(const TVertices& inVertices)
{
    const TAutoPartitioner range(0, static_cast<int32>(inVertices.GetElemCount()), 256, 4);
    TBasicEstimator always;
    TBox box;
    SMPParallelReduce<TUnite>(
        range, always,
        [&](const TRange& piece, TSMPJobReduce<TUnite>& reduce)
        {
            TBox part;
            TUnite::Init(part);
            for (int32 i = piece.fStart; i < piece.fEnd; ++i)
            {
                const TVertex& vertex = inVertices[static_cast<NqSize>(i)];
                TUnite::Update(part, {vertex, vertex});
            }
            reduce.Update(part);
        },
        box);
    return box;
}

void Print(const TBox& inBox)
{
    std::printf("from %g %g %g to %g %g %g\n", inBox.fLow.fX, inBox.fLow.fY, inBox.fLow.fZ, inBox.fHigh.fX,
                inBox.fHigh.fY, inBox.fHigh.fZ);
}

// Reports go to the standard error; that a cancel is on its way is nothing to tell.
void Report(void*, const char* inFile, unsigned int inLine, const char* inText)
{
    if (inText == nullptr || std::strstr(inText, "cancel") == nullptr)
        std::fprintf(stderr, "%s:%u: %s\n", inFile, inLine, inText != nullptr ? inText : "check failed");
}

// Measures again and again, until somebody on another thread has had enough.
void MeasureUntilCancelled(TNqHost& ioHost, const TVertices& inVertices)
{
    std::thread user(
        [&ioHost]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ioHost.RequestAbort(true);
        });
    try
    {
        for (;;)
            Measure(inVertices);
    }
    catch (const TNqException& error)
    {
        std::printf("%s\n", error.GetError() == kNqErrCancelled ? "cancelled by the user" : "failed");
    }
    user.join();
    ioHost.RequestAbort(false);
}

} // namespace

int main(int argc, char** argv)
{
    TNqHostOptions options;
    options.fReportHandler = Report;
    TNqHost host(options);

    TVertices vertices;
    const char* const path = argc > 1 ? argv[1] : kModel;
    if (!ReadVertices(path, vertices))
    {
        std::fprintf(stderr, "%s: no vertices\n", path);
        return 1;
    }
    std::printf("%u vertices\n", vertices.GetElemCount());
    Print(Measure(vertices));
    MeasureUntilCancelled(host, vertices);
    Print(Measure(vertices)); // everything works as before
    return 0;
}
