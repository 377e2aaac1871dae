#include "Tools/nqtoken/Placing.h"

#include <algorithm>
#include <cmath>

namespace nqtoken
{
namespace
{

using Transform = std::array<real64, 16>;

Transform Wide(const std::array<real32, 16>& inTransform)
{
    Transform wide;
    std::copy(inTransform.begin(), inTransform.end(), wide.begin());
    return wide;
}

Transform Times(const Transform& inA, const Transform& inB)
{
    Transform product = {};
    for (size_t row = 0; row < 4; ++row)
    {
        for (size_t column = 0; column < 4; ++column)
        {
            for (size_t i = 0; i < 4; ++i)
                product[row * 4 + column] += inA[row * 4 + i] * inB[i * 4 + column];
        }
    }
    return product;
}

// The factors by which a transform turns normals: those of the transposed inverse times the determinant, which is left
// in outDeterminant.
std::array<real64, 9> Cofactors(const Transform& inTransform, real64& outDeterminant)
{
    const auto at = [&](size_t row, size_t column) { return inTransform[(row % 3) * 4 + column % 3]; };
    std::array<real64, 9> factors;
    for (size_t row = 0; row < 3; ++row)
    {
        for (size_t column = 0; column < 3; ++column)
            factors[row * 3 + column] =
                at(row + 1, column + 1) * at(row + 2, column + 2) - at(row + 1, column + 2) * at(row + 2, column + 1);
    }
    outDeterminant = at(0, 0) * factors[0] + at(0, 1) * factors[1] + at(0, 2) * factors[2];
    return factors;
}

Vector3 VectorAt(const Reals& inValues, int32 inVertex)
{
    const size_t first = static_cast<size_t>(inVertex) * 3;
    return {static_cast<real64>(inValues[first]), static_cast<real64>(inValues[first + 1]),
            static_cast<real64>(inValues[first + 2])};
}

FaceKind KindOf(size_t inSize)
{
    return inSize == 1   ? FaceKind::kPoint
           : inSize == 2 ? FaceKind::kLine
           : inSize == 3 ? FaceKind::kTriangle
                         : FaceKind::kPolygon;
}

} // namespace

// ---- Meshes ---------------------------------------------------------------------------------------------------------

PlacingWalk::PlacingWalk(const Scene& inScene, bool inOnce) : fScene(&inScene), fOnce(inOnce)
{
    if (inOnce)
        fIsMet.resize(inScene.fMeshes.size());
    if (!inScene.fNodes.empty())
        EnterNode();
}

void PlacingWalk::EnterNode()
{
    const Node& node = fScene->fNodes[fNode];
    while (!fOpen.empty() && fOpen.back().fNode != node.fParent)
        fOpen.pop_back();
    const Transform own = Wide(node.fTransform);
    const bool isRoot = fOpen.empty();
    fOpen.push_back({static_cast<int32>(fNode), isRoot ? own : Times(fOpen.back().fToWorld, own)});
    const Transform& world = fOpen.back().fToWorld;
    fIsMoved = world != Wide(kIdentity);
    real64 determinant = 1;
    fNormals = Cofactors(world, determinant);
    fIsMirrored = determinant < 0;
    fNext = 0;
}

bool PlacingWalk::Next()
{
    while (NextUse())
    {
        if (!fOnce)
            return true;
        if (!fIsMet[static_cast<size_t>(fMesh)])
        {
            fIsMet[static_cast<size_t>(fMesh)] = true;
            return true;
        }
    }
    return false;
}

bool PlacingWalk::NextUse()
{
    if (fScene->fNodes.empty())
        return ++fMesh < static_cast<int32>(fScene->fMeshes.size());
    while (fNode < fScene->fNodes.size())
    {
        const std::vector<int32>& meshes = fScene->fNodes[fNode].fMeshes;
        if (fNext < meshes.size())
        {
            fMesh = meshes[fNext++];
            return true;
        }
        if (++fNode < fScene->fNodes.size())
            EnterNode();
    }
    return false;
}

Vector3 PlacingWalk::Position(int32 inVertex) const
{
    const Vector3 own = VectorAt(MeshOf().fPositions, inVertex);
    if (!fIsMoved)
        return own;
    const Transform& t = fOpen.back().fToWorld;
    Vector3 world;
    for (size_t row = 0; row < 3; ++row)
        world[row] = t[row * 4] * own[0] + t[row * 4 + 1] * own[1] + t[row * 4 + 2] * own[2] + t[row * 4 + 3];
    return world;
}

Vector3 PlacingWalk::Normal(int32 inVertex) const
{
    const Vector3 own = VectorAt(MeshOf().fNormals, inVertex);
    if (!fIsMoved)
        return own;
    const real64 sign = fIsMirrored ? -1 : 1;
    Vector3 turned;
    for (size_t row = 0; row < 3; ++row)
        turned[row] =
            sign * (fNormals[row * 3] * own[0] + fNormals[row * 3 + 1] * own[1] + fNormals[row * 3 + 2] * own[2]) +
            0.0; // never -0
    const real64 length = std::sqrt(turned[0] * turned[0] + turned[1] * turned[1] + turned[2] * turned[2]);
    if (length > 0)
    {
        for (real64& part : turned)
            part /= length;
    }
    return turned;
}

// ---- Faces ----------------------------------------------------------------------------------------------------------

FaceWalk::FaceWalk(const Scene& inScene, FaceKind inKind, const FaceRules& inRules)
    : fPlacing(inScene, inRules.fOnce),
      fKind(inKind),
      fRules(inRules)
{
}

// False when there is no other mesh.
bool FaceWalk::EnterMesh()
{
    if (!fPlacing.Next())
        return false;
    const Mesh& mesh = fPlacing.MeshOf();
    fFace = fCorner = 0;
    fLoose.clear();
    const bool arePoints = mesh.fFaceSizes.empty() && fRules.fLoosePoints;
    if (fKind != (arePoints ? FaceKind::kPoint : FaceKind::kLooseVertex))
        return true;
    std::vector<bool> used(static_cast<size_t>(mesh.fVertexCount));
    for (const int32 vertex : mesh.fCorners)
        used[static_cast<size_t>(vertex)] = true;
    for (int32 vertex = mesh.fVertexCount; vertex > 0; --vertex)
    {
        if (!used[static_cast<size_t>(vertex) - 1])
            fLoose.push_back(vertex - 1);
    }
    return true;
}

void FaceWalk::TakeFace(size_t inSize)
{
    const int32* const corners = fPlacing.MeshOf().fCorners.data() + fCorner;
    fCorners.assign(corners, corners + inSize);
    if (fPlacing.IsMirrored())
        std::reverse(fCorners.begin(), fCorners.end());
    if (inSize <= 3 || fKind != FaceKind::kTriangle)
        return;
    fTriangles.clear();
    fNextTriangle = 3;
    Triangulate(fPlacing.MeshOf().fPositions, corners, inSize, fTriangles);
    if (fPlacing.IsMirrored())
    {
        for (size_t i = 0; i < fTriangles.size(); i += 3)
            std::swap(fTriangles[i], fTriangles[i + 2]);
    }
    fCorners.assign(fTriangles.begin(), fTriangles.begin() + 3);
}

bool FaceWalk::Next()
{
    if (fNextTriangle < fTriangles.size())
    {
        const auto first = fTriangles.begin() + static_cast<ptrdiff_t>(fNextTriangle);
        fCorners.assign(first, first + 3);
        fNextTriangle += 3;
        return true;
    }
    for (; fIsInMesh || EnterMesh(); fIsInMesh = false)
    {
        fIsInMesh = true;
        if (!fLoose.empty())
        {
            fCorners.assign(1, fLoose.back());
            fLoose.pop_back();
            return true;
        }
        const Mesh& mesh = fPlacing.MeshOf();
        while (fKind != FaceKind::kLooseVertex && fFace < mesh.fFaceSizes.size())
        {
            const auto size = static_cast<size_t>(mesh.fFaceSizes[fFace++]);
            const FaceKind kind = fRules.fTriangles && size > 3 ? FaceKind::kTriangle : KindOf(size);
            const bool isWanted = kind == fKind && size > 0;
            if (isWanted)
                TakeFace(size);
            fCorner += size;
            if (isWanted)
                return true;
        }
    }
    return false;
}

// ---- Polygons -------------------------------------------------------------------------------------------------------

namespace
{

struct Point2
{
    real64 x;
    real64 y;
    bool operator==(const Point2& inOther) const { return x == inOther.x && y == inOther.y; }
};

// Twice the area of a triangle, positive when its corners run counter-clockwise.
real64 Area(const Point2& inA, const Point2& inB, const Point2& inC)
{
    return (inB.x - inA.x) * (inC.y - inA.y) - (inB.y - inA.y) * (inC.x - inA.x);
}

// A polygon in the plane in which it is largest, so that it runs counter-clockwise there.
class Outline
{
public:
    Outline(const Reals& inPositions, const int32* inCorners, size_t inCount);

    bool IsConvex() const;
    // Cuts off one corner after the other, each where its triangle holds no other part of the outline.
    template <class Take>
    void CutEars(Take&& inTake);

private:
    bool IsEar(size_t inCorner) const;

    std::vector<Point2> fPoints;
    std::vector<size_t> fNext; // corners that are left, in a ring
    std::vector<size_t> fPrevious;
};

Outline::Outline(const Reals& inPositions, const int32* inCorners, size_t inCount)
{
    Vector3 normal = {};
    for (size_t i = 0; i < inCount; ++i)
    {
        const Vector3 a = VectorAt(inPositions, inCorners[i]);
        const Vector3 b = VectorAt(inPositions, inCorners[(i + 1) % inCount]);
        for (size_t axis = 0; axis < 3; ++axis)
        {
            const size_t u = (axis + 1) % 3;
            const size_t v = (axis + 2) % 3;
            normal[axis] += (a[u] - b[u]) * (a[v] + b[v]);
        }
    }
    size_t axis = 0;
    for (size_t other = 1; other < 3; ++other)
    {
        if (std::fabs(normal[other]) > std::fabs(normal[axis]))
            axis = other;
    }
    const bool isTurned = normal[axis] < 0;
    for (size_t i = 0; i < inCount; ++i)
    {
        const Vector3 point = VectorAt(inPositions, inCorners[i]);
        const real64 u = point[(axis + 1) % 3];
        const real64 v = point[(axis + 2) % 3];
        fPoints.push_back(isTurned ? Point2{v, u} : Point2{u, v});
        fNext.push_back((i + 1) % inCount);
        fPrevious.push_back((i + inCount - 1) % inCount);
    }
}

// Turns left everywhere, and runs around once: its edges change from leftward to rightward and back one time.
bool Outline::IsConvex() const
{
    size_t changes = 0;
    for (size_t i = 0; i < fPoints.size(); ++i)
    {
        const Point2& a = fPoints[fPrevious[i]];
        const Point2& b = fPoints[i];
        const Point2& c = fPoints[fNext[i]];
        if (!(Area(a, b, c) > 0))
            return false;
        changes += (b.x - a.x < 0) != (c.x - b.x < 0);
    }
    return changes <= 2;
}

// Points in the place of one of the triangle's own are no hindrance: an outline with a hole touches itself.
bool Outline::IsEar(size_t inCorner) const
{
    const Point2& a = fPoints[fPrevious[inCorner]];
    const Point2& b = fPoints[inCorner];
    const Point2& c = fPoints[fNext[inCorner]];
    if (!(Area(a, b, c) > 0))
        return false;
    for (size_t other = fNext[fNext[inCorner]]; other != fPrevious[inCorner]; other = fNext[other])
    {
        const Point2& point = fPoints[other];
        if (!(point == a) && !(point == b) && !(point == c) && Area(a, b, point) >= 0 && Area(b, c, point) >= 0 &&
            Area(c, a, point) >= 0)
            return false;
    }
    return true;
}

template <class Take>
void Outline::CutEars(Take&& inTake)
{
    size_t corner = 0;
    size_t tried = 0;
    for (size_t left = fPoints.size(); left > 2;)
    {
        // An outline that crosses itself, or has no area, may have no ear: then any corner is as good.
        if (left > 3 && tried < left && !IsEar(corner))
        {
            ++tried;
            corner = fNext[corner];
            continue;
        }
        inTake(fPrevious[corner], corner, fNext[corner]);
        fNext[fPrevious[corner]] = fNext[corner];
        fPrevious[fNext[corner]] = fPrevious[corner];
        corner = fNext[fNext[corner]];
        tried = 0;
        --left;
    }
}

} // namespace

void Triangulate(const Reals& inPositions, const int32* inCorners, size_t inCount, std::vector<int32>& ioTriangles)
{
    const auto take = [&](size_t a, size_t b, size_t c) {
        ioTriangles.insert(ioTriangles.end(), {inCorners[a], inCorners[b], inCorners[c]});
    };
    Outline outline(inPositions, inCorners, inCount);
    if (!outline.IsConvex())
        return outline.CutEars(take);
    for (size_t i = 2; i < inCount; ++i)
        take(0, i - 1, i);
}

} // namespace nqtoken
