// A scene in memory: what a model and a scene file have in common, free of the formats of both.
// Everything refers to everything else by index. The scene owns all; copying it copies all.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <array>
#include <string>
#include <vector>

namespace nqtoken
{

using Reals = std::vector<real32>;

constexpr std::array<real32, 16> kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// How deep nodes may be nested. Deeper trees are refused on the way in, so that no walk over nodes has to fear for its
// stack.
constexpr uint32 kMaxNodeDepth = 1000;

struct Node
{
    std::string fName;
    int32 fParent = -1;                            // -1 for a root; always less than the node's own index
    std::array<real32, 16> fTransform = kIdentity; // row by row, for column vectors
    std::vector<int32> fMeshes;
};

struct TexCoords
{
    int32 fSize = 2; // coordinates per vertex, 1 to 3
    Reals fValues;
};

// A face of one corner is a point, of two a line, of more a polygon.
struct Mesh
{
    std::string fName;
    int32 fMaterial = -1; // -1 for none
    int32 fVertexCount = 0;
    Reals fPositions; // 3 per vertex
    Reals fNormals;   // 3 per vertex, or empty; so the next two
    Reals fTangents;
    Reals fBitangents;
    std::vector<TexCoords> fTexCoords; // sets, in order
    std::vector<Reals> fColours;       // sets of 4 per vertex: red, green, blue, alpha
    std::vector<int32> fFaceSizes;     // corners of each face
    std::vector<int32> fCorners;       // vertex of each corner, face after face
};

// A named value of a material or a texture; the name says what it is (SceneNames.h).
struct RealValue
{
    FourCharT fToken = 0;
    Reals fValues;
};

struct IntegerValue
{
    FourCharT fToken = 0;
    int32 fValue = 0;
};

// One use of an image by a material.
struct Texture
{
    FourCharT fKind = 0; // what it colours
    std::string fFile;   // as the model has it
    int32 fImage = -1;   // the embedded image, or -1 when the file is a path
    std::vector<IntegerValue> fIntegers;
    std::vector<RealValue> fReals;
};

struct Material
{
    std::string fName;
    FourCharT fShading = 0; // 0 when not known
    std::string fAlphaMode; // empty when not known
    std::vector<IntegerValue> fIntegers;
    std::vector<RealValue> fReals;
    std::vector<Texture> fTextures;
};

// An embedded texture: either a file of a known image format, or texels of four bytes (blue, green, red, alpha).
struct Image
{
    std::string fName;
    std::string fFormat; // ending of the image format, such as "png"
    int32 fWidth = 0;    // both 0 when the bytes are an image file
    int32 fHeight = 0;
    std::string fBytes;
};

struct Scene
{
    real32 fUnit = 0;      // metres per unit, 0 when not known
    FourCharT fUpAxis = 0; // 'Y   ' and so on, 0 when not known
    std::vector<Image> fImages;
    std::vector<Material> fMaterials;
    std::vector<Mesh> fMeshes;
    std::vector<Node> fNodes; // parents before children, depth first
};

} // namespace nqtoken
