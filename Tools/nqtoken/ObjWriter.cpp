#include "Tools/nqtoken/ObjWriter.h"

#include "Tools/nqtoken/ModelNames.h"
#include "Tools/nqtoken/Placing.h"
#include "Tools/nqtoken/SceneNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace nqtoken
{
namespace
{

// --- materials

// What a line of a .mtl says, by the name in a scene.
struct MaterialLine
{
    FourCharT fToken;
    const char* fKey;
};

constexpr MaterialLine kRealLines[] = {
    {Name("DIFF"), "Kd"}, {Name("AMBI"), "Ka"}, {Name("SPCL"), "Ks"},  {Name("EMIS"), "Ke"}, {Name("TRNS"), "Tf"},
    {Name("OPAC"), "d"},  {Name("SHIN"), "Ns"}, {Name("REFI"), "Ni"},  {Name("ROUG"), "Pr"}, {Name("METL"), "Pm"},
    {Name("SHEE"), "Ps"}, {Name("CLCO"), "Pc"}, {Name("CLRO"), "Pcr"},
};

constexpr MaterialLine kTextureLines[] = {
    {Name("DIFF"), "map_Kd"}, {Name("AMBI"), "map_Ka"},   {Name("SPCL"), "map_Ks"}, {Name("EMIS"), "map_Ke"},
    {Name("OPAC"), "map_d"},  {Name("HEIG"), "map_bump"}, {Name("NRML"), "norm"},   {Name("SHIN"), "map_Ns"},
    {Name("DISP"), "disp"},   {Name("ROUG"), "map_Pr"},   {Name("METL"), "map_Pm"}, {Name("SHEE"), "map_Ps"},
};

const char* KeyOf(const MaterialLine* inBegin, const MaterialLine* inEnd, FourCharT inToken)
{
    const auto* const line =
        std::find_if(inBegin, inEnd, [inToken](const MaterialLine& one) { return one.fToken == inToken; });
    return line != inEnd ? line->fKey : nullptr;
}

// Not a number and infinity have no text that every reader knows.
real64 Finite(real64 inValue)
{
    return std::isfinite(inValue) ? inValue : 0;
}

template <class Values>
void PutNumbers(const char* inKey, const Values& inValues, size_t inCount, std::string& ioText)
{
    ioText += inKey;
    for (size_t i = 0; i < inCount; ++i)
        fmt::format_to(std::back_inserter(ioText), " {:.9g}", static_cast<real32>(Finite(inValues[i])));
}

// The model of illumination: what the scene says, or the one that has the highlight it says.
int32 Illumination(const Material& inMaterial)
{
    for (const IntegerValue& value : inMaterial.fIntegers)
    {
        if (value.fToken == Name("ILLU"))
            return value.fValue;
    }
    const auto has = [&](FourCharT shading) { return inMaterial.fShading == shading; };
    return has(Name("NONE")) ? 0 : has(Name("PHNG")) || has(Name("BLIN")) ? 2 : 1;
}

void PutTexture(const Texture& inTexture, std::string& ioText)
{
    const char* const key = KeyOf(std::begin(kTextureLines), std::end(kTextureLines), inTexture.fKind);
    const std::string file = LineName(inTexture.fFile);
    if (key == nullptr || inTexture.fImage >= 0 || file.empty())
        return;
    const auto clamps = [](const IntegerValue& value) { return value.fToken == Name("WRPU") && value.fValue == 1; };
    const bool isClamped = std::any_of(inTexture.fIntegers.begin(), inTexture.fIntegers.end(), clamps);
    // A name with a dash in front would be an option.
    ioText += fmt::format("{}{} {}{}\n", key, isClamped ? " -clamp on" : "", file[0] == '-' ? "./" : "", file);
}

void PutMaterial(const Material& inMaterial, const std::string& inName, std::string& ioText)
{
    ioText += fmt::format("\nnewmtl {}\n", inName);
    for (const RealValue& value : inMaterial.fReals)
    {
        const char* const key = KeyOf(std::begin(kRealLines), std::end(kRealLines), value.fToken);
        if (key == nullptr)
            continue;
        PutNumbers(key, value.fValues, std::min(value.fValues.size(), size_t{3}), ioText);
        ioText += '\n';
    }
    ioText += fmt::format("illum {}\n", Illumination(inMaterial));
    std::vector<FourCharT> kinds; // one texture of each
    for (const Texture& texture : inMaterial.fTextures)
    {
        if (std::find(kinds.begin(), kinds.end(), texture.fKind) != kinds.end())
            continue;
        kinds.push_back(texture.fKind);
        PutTexture(texture, ioText);
    }
}

// --- meshes

constexpr real32 kWhite[] = {1, 1, 1};

class ObjWriter
{
public:
    ObjWriter(const Scene& inScene, const std::vector<std::string>& inMaterials, std::string& outText)
        : fScene(inScene),
          fMaterials(inMaterials),
          fText(outText)
    {
    }

    // False when no node places a vertex.
    bool Write();

private:
    void PutPlacing(const PlacingWalk& inPlacing);
    void PutVertices(const PlacingWalk& inPlacing);
    void PutFaces(const Mesh& inMesh, bool inIsMirrored);
    void PutCorner(const Mesh& inMesh, int32 inVertex, size_t inSize);

    const Scene& fScene;
    const std::vector<std::string>& fMaterials; // names, and one for meshes that have none
    std::string& fText;
    UniqueNames fGroups{"mesh"};
    bool fHasColours = false;
    // Vertices, texture coordinates and normals so far; the format counts from 1.
    int64 fVertices = 0;
    int64 fTexCoords = 0;
    int64 fNormals = 0;
};

void ObjWriter::PutVertices(const PlacingWalk& inPlacing)
{
    const Mesh& mesh = inPlacing.MeshOf();
    const auto count = static_cast<size_t>(mesh.fVertexCount);
    for (size_t i = 0; i < count; ++i)
    {
        PutNumbers("v", inPlacing.Position(static_cast<int32>(i)), 3, fText);
        if (fHasColours)
            PutNumbers("", mesh.fColours.empty() ? kWhite : &mesh.fColours[0][i * 4], 3, fText);
        fText += '\n';
    }
    for (size_t i = 0; i < count && !mesh.fTexCoords.empty(); ++i)
    {
        const TexCoords& set = mesh.fTexCoords[0];
        const auto size = static_cast<size_t>(set.fSize);
        PutNumbers("vt", &set.fValues[i * size], size, fText);
        fText += size == 1 ? " 0\n" : "\n";
    }
    for (size_t i = 0; i < count && !mesh.fNormals.empty(); ++i)
    {
        PutNumbers("vn", inPlacing.Normal(static_cast<int32>(i)), 3, fText);
        fText += '\n';
    }
}

// Of a face of so many corners: points have neither texture coordinates nor normals, lines have no normals.
void ObjWriter::PutCorner(const Mesh& inMesh, int32 inVertex, size_t inSize)
{
    const auto put = [&](const char* before, int64 first)
    { fmt::format_to(std::back_inserter(fText), "{}{}", before, first + inVertex + 1); };
    const bool hasTexCoords = inSize > 1 && !inMesh.fTexCoords.empty();
    put(" ", fVertices);
    if (hasTexCoords)
        put("/", fTexCoords);
    if (inSize > 2 && !inMesh.fNormals.empty())
        put(hasTexCoords ? "/" : "//", fNormals);
}

void ObjWriter::PutFaces(const Mesh& inMesh, bool inIsMirrored)
{
    size_t first = 0;
    for (const int32 faceSize : inMesh.fFaceSizes)
    {
        const auto size = static_cast<size_t>(faceSize);
        if (size > 0)
            fText += size == 1 ? "p" : size == 2 ? "l" : "f";
        for (size_t corner = 0; corner < size; ++corner)
            PutCorner(inMesh, inMesh.fCorners[first + (inIsMirrored ? size - 1 - corner : corner)], size);
        if (size > 0)
            fText += '\n';
        first += size;
    }
    for (int32 vertex = 0; inMesh.fFaceSizes.empty() && vertex < inMesh.fVertexCount; ++vertex)
    {
        fText += 'p';
        PutCorner(inMesh, vertex, 1);
        fText += '\n';
    }
}

void ObjWriter::PutPlacing(const PlacingWalk& inPlacing)
{
    const Mesh& mesh = inPlacing.MeshOf();
    if (mesh.fVertexCount == 0)
        return;
    fText += fmt::format("\ng {}\n", fGroups.Take(LineName(mesh.fName)));
    PutVertices(inPlacing);
    if (!fScene.fMaterials.empty())
        fText += fmt::format("usemtl {}\n",
                             mesh.fMaterial >= 0 ? fMaterials[static_cast<size_t>(mesh.fMaterial)] : fMaterials.back());
    PutFaces(mesh, inPlacing.IsMirrored());
    fVertices += mesh.fVertexCount;
    fTexCoords += mesh.fTexCoords.empty() ? 0 : mesh.fVertexCount;
    fNormals += mesh.fNormals.empty() ? 0 : mesh.fVertexCount;
}

bool ObjWriter::Write()
{
    // What the shortest numbers take: a text that memory does not suffice for is refused before it is made.
    size_t least = 0;
    for (PlacingWalk placing(fScene); placing.Next();)
    {
        const Mesh& mesh = placing.MeshOf();
        fHasColours = fHasColours || (!mesh.fColours.empty() && mesh.fVertexCount > 0);
        least += mesh.fPositions.size() * 3 + mesh.fNormals.size() * 3 + mesh.fCorners.size() * 2;
    }
    fText.reserve(fText.size() + least);
    for (PlacingWalk placing(fScene); placing.Next();)
        PutPlacing(placing);
    return fVertices > 0;
}

} // namespace

Outcome WriteObj(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles,
                 std::vector<std::string>& outMaterials)
{
    UniqueNames names("material");
    std::string library;
    for (const Material& material : inScene.fMaterials)
    {
        outMaterials.push_back(names.Take(LineName(material.fName)));
        PutMaterial(material, outMaterials.back(), library);
    }
    const auto hasNone = [](const Mesh& mesh) { return mesh.fMaterial < 0; };
    std::vector<std::string> used = outMaterials;
    used.push_back(names.Take("none"));
    if (std::any_of(inScene.fMeshes.begin(), inScene.fMeshes.end(), hasNone))
        PutMaterial(Material(), used.back(), library);

    std::string& text = outFiles[inPath];
    if (!inScene.fMaterials.empty())
    {
        const size_t nameStart = inPath.rfind('/') + 1;
        const std::string stem = inPath.substr(nameStart, inPath.rfind('.') - nameStart);
        const std::string libraryName = LineName(stem + ".mtl");
        outFiles[inPath.substr(0, nameStart) + libraryName] = std::move(library);
        text += fmt::format("mtllib {}\n", libraryName);
    }
    return ObjWriter(inScene, used, text).Write() ? Outcome() : AtFault("no node places a vertex");
}

} // namespace nqtoken
