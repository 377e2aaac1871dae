// Where the nodes of a scene place its meshes, and the faces that are seen there: what a format without nodes holds,
// and what two models have in common however their nodes and meshes are cut.
//
//     for (PlacingWalk placing(scene); placing.Next();)
//         ... placing.MeshOf(), placing.Position(vertex)

#pragma once

#include "Tools/nqtoken/Scene.h"

namespace nqtoken
{

using Vector3 = std::array<real64, 3>;

// Visits every use of a mesh, or the first one only, node after node. The scene stays as it is meanwhile.
class PlacingWalk
{
public:
    explicit PlacingWalk(const Scene& inScene, bool inOnce = false);

    // False behind the last one.
    bool Next();

    int32 MeshIndex() const { return fMesh; }
    const Mesh& MeshOf() const { return fScene->fMeshes[static_cast<size_t>(fMesh)]; }
    // Whether left becomes right: a face is then seen from its front when its corners are taken backwards.
    bool IsMirrored() const { return fIsMirrored; }
    Vector3 Position(int32 inVertex) const;
    // Of length 1, unless it has none.
    Vector3 Normal(int32 inVertex) const;

private:
    using Transform = std::array<real64, 16>;

    void EnterNode();
    bool NextUse();

    const Scene* fScene;
    const bool fOnce;
    std::vector<bool> fIsMet; // by mesh
    size_t fNode = 0;         // of which fNext is the next mesh
    size_t fNext = 0;
    int32 fMesh = -1;
    struct Open
    {
        int32 fNode;
        Transform fToWorld;
    };
    std::vector<Open> fOpen; // the nodes that lead to fNode, and itself
    bool fIsMoved = false;   // positions are not what the mesh says
    bool fIsMirrored = false;
    std::array<real64, 9> fNormals = {}; // what turns normals
};

// Kinds of faces by their corners. A vertex that no face uses is counted as a face of its own.
enum class FaceKind
{
    kLooseVertex,
    kPoint,
    kLine,
    kTriangle,
    kPolygon
};
constexpr size_t kFaceKinds = 5;

// What a format makes of faces.
struct FaceRules
{
    bool fTriangles = false;   // polygons become triangles
    bool fLoosePoints = false; // the vertices of a mesh without faces become points
    bool fOnce = false;        // a mesh is written once, however often nodes place it
};

// Visits all faces of one kind, as they are placed (with fOnce, the first time): corners run counter-clockwise seen
// from the front.
class FaceWalk
{
public:
    FaceWalk(const Scene& inScene, FaceKind inKind, const FaceRules& inRules);

    bool Next();

    const PlacingWalk& Placing() const { return fPlacing; }
    // Vertices of the face.
    const std::vector<int32>& Corners() const { return fCorners; }

private:
    bool EnterMesh();
    void TakeFace(size_t inSize);

    PlacingWalk fPlacing;
    const FaceKind fKind;
    const FaceRules fRules;
    bool fIsInMesh = false;
    size_t fFace = 0;              // the next one of the mesh
    size_t fCorner = 0;            // its first corner
    std::vector<int32> fLoose;     // vertices, when they are what is wanted
    std::vector<int32> fTriangles; // of a polygon, that come next
    size_t fNextTriangle = 0;
    std::vector<int32> fCorners;
};

// Cuts a polygon of inCount corners, concave ones as well, into inCount - 2 triangles, whose corners are appended.
void Triangulate(const Reals& inPositions, const int32* inCorners, size_t inCount, std::vector<int32>& ioTriangles);

} // namespace nqtoken
