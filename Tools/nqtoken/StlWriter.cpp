#include "Tools/nqtoken/StlWriter.h"

#include "Tools/nqtoken/ModelFiles.h"
#include "Tools/nqtoken/Placing.h"

#include <cmath>

namespace nqtoken
{
namespace
{

constexpr size_t kHeaderSize = 80;
constexpr size_t kTriangleSize = 50;

size_t CountTriangles(const Scene& inScene)
{
    size_t count = 0;
    for (PlacingWalk placing(inScene); placing.Next();)
    {
        for (const int32 size : placing.MeshOf().fFaceSizes)
            count += size > 2 ? static_cast<size_t>(size) - 2 : 0;
    }
    return count;
}

Vector3 Difference(const Vector3& inA, const Vector3& inB)
{
    return {inA[0] - inB[0], inA[1] - inB[1], inA[2] - inB[2]};
}

// That of its corners when they have the same, else the one that its plane has; 0, 0, 0 without either.
Vector3 FaceNormal(const FaceWalk& inFace)
{
    const PlacingWalk& placing = inFace.Placing();
    const std::vector<int32>& corners = inFace.Corners();
    if (!placing.MeshOf().fNormals.empty())
    {
        const Vector3 first = placing.Normal(corners[0]);
        if (first == placing.Normal(corners[1]) && first == placing.Normal(corners[2]))
            return first;
    }
    const Vector3 start = placing.Position(corners[0]);
    const Vector3 a = Difference(placing.Position(corners[1]), start);
    const Vector3 b = Difference(placing.Position(corners[2]), start);
    Vector3 normal = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    const real64 length = std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
    for (real64& part : normal)
        part = length > 0 ? part / length : 0;
    return normal;
}

void PutVector(std::string& ioBytes, const Vector3& inVector)
{
    for (const real64 part : inVector)
        PutLow(ioBytes, static_cast<real32>(part));
}

} // namespace

Outcome WriteStl(const Scene& inScene, std::string& outBytes)
{
    outBytes = "binary";
    outBytes.resize(kHeaderSize, ' ');
    PutLow(outBytes, uint32{0});
    outBytes.reserve(kHeaderSize + sizeof(uint32) + kTriangleSize * CountTriangles(inScene));
    uint64 count = 0;
    for (FaceWalk face(inScene, FaceKind::kTriangle, {true, false, false}); face.Next(); ++count)
    {
        PutVector(outBytes, FaceNormal(face));
        for (const int32 corner : face.Corners())
            PutVector(outBytes, face.Placing().Position(corner));
        PutLow(outBytes, uint16{0});
    }
    if (count == 0)
        return AtFault("no node places a triangle");
    if (count > UINT32_MAX)
        return AtFault("the nodes place more triangles than the format counts");
    std::string countBytes;
    PutLow(countBytes, static_cast<uint32>(count));
    outBytes.replace(kHeaderSize, countBytes.size(), countBytes);
    return {};
}

} // namespace nqtoken
