#include "Tools/nqtoken/PlyWriter.h"

#include "Tools/nqtoken/ModelFiles.h"
#include "Tools/nqtoken/Placing.h"
#include "Tools/nqtoken/SceneNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace nqtoken
{
namespace
{

// How far a colour that went through six decimals is from the byte that it was.
constexpr real64 kTextRounding = 0.51e-6;

class PlyWriter
{
public:
    explicit PlyWriter(const Scene& inScene) : fScene(inScene) {}

    Outcome Write(std::string& outBytes);

private:
    void Measure(const Mesh& inMesh);
    void MeasureColours(const Reals& inColours);
    size_t VertexSize() const
    {
        return 12 + (fHasNormals ? 12U : 0U) + (fHasTexCoords ? 8U : 0U) + (fHasColours ? 16U : 0U);
    }
    void PutHeader();
    void PutVertex(const PlacingWalk& inPlacing, int32 inVertex);
    void PutColour(const Mesh& inMesh, size_t inVertex);
    void PutFaces(const Mesh& inMesh, bool inIsMirrored, uint32 inFirstVertex);
    void PutReal(real64 inValue) { PutLow(*fBytes, static_cast<real32>(inValue)); }
    std::string TextureFile() const;

    const Scene& fScene;
    std::string* fBytes = nullptr;
    uint64 fVertices = 0;
    uint64 fFaces = 0;
    uint64 fCorners = 0;
    int32 fMostCorners = 0;
    bool fHasNormals = false;
    bool fHasTexCoords = false;
    bool fHasColours = false;
    bool fHasAlpha = false;
    bool fAreBytes = true; // the colours
};

void PlyWriter::MeasureColours(const Reals& inColours)
{
    fHasColours = true;
    for (size_t i = 0; i < inColours.size(); ++i)
    {
        const auto part = static_cast<real64>(inColours[i]);
        const real64 byte = std::floor(part * 255 + 0.5);
        fAreBytes = fAreBytes && byte >= 0 && byte <= 255 && std::fabs(part - byte / 255) <= kTextRounding;
        fHasAlpha = fHasAlpha || (i % 4 == 3 && part != 1);
    }
}

void PlyWriter::Measure(const Mesh& inMesh)
{
    fVertices += static_cast<uint64>(inMesh.fVertexCount);
    fCorners += inMesh.fCorners.size();
    fHasNormals = fHasNormals || !inMesh.fNormals.empty();
    fHasTexCoords = fHasTexCoords || (!inMesh.fTexCoords.empty() && inMesh.fVertexCount > 0);
    for (const int32 size : inMesh.fFaceSizes)
    {
        fFaces += size > 0;
        fMostCorners = std::max(fMostCorners, size);
    }
}

// The one image that a reader may expect beside the file.
std::string PlyWriter::TextureFile() const
{
    for (const Material& material : fScene.fMaterials)
    {
        for (const Texture& texture : material.fTextures)
        {
            const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
            if (texture.fKind == Name("DIFF") && texture.fImage < 0 &&
                std::none_of(texture.fFile.begin(), texture.fFile.end(), isControl))
                return texture.fFile;
        }
    }
    return {};
}

void PlyWriter::PutHeader()
{
    const auto put = [this](const std::string& line) { *fBytes += line + "\n"; };
    const auto properties = [&](const char* type, std::initializer_list<const char*> names)
    {
        for (const char* name : names)
            put(fmt::format("property {} {}", type, name));
    };
    put("ply");
    put("format binary_little_endian 1.0");
    const std::string texture = TextureFile();
    if (!texture.empty())
        put("comment TextureFile " + texture);
    put(fmt::format("element vertex {}", fVertices));
    properties("float", {"x", "y", "z"});
    if (fHasNormals)
        properties("float", {"nx", "ny", "nz"});
    if (fHasTexCoords)
        properties("float", {"s", "t"});
    if (fHasColours)
        properties(fAreBytes ? "uchar" : "float", {"red", "green", "blue"});
    if (fHasAlpha)
        properties(fAreBytes ? "uchar" : "float", {"alpha"});
    put(fmt::format("element face {}", fFaces));
    put(fmt::format("property list {} int vertex_indices", fMostCorners < 256 ? "uchar" : "uint"));
    put("end_header");
}

// Vertices of a mesh without colours are white.
void PlyWriter::PutColour(const Mesh& inMesh, size_t inVertex)
{
    for (size_t part = 0; part < (fHasAlpha ? 4U : 3U); ++part)
    {
        const real32 value = inMesh.fColours.empty() ? 1 : inMesh.fColours[0][inVertex * 4 + part];
        if (fAreBytes)
            PutLow(*fBytes, static_cast<uint8>(std::floor(static_cast<real64>(value) * 255 + 0.5)));
        else
            PutLow(*fBytes, value);
    }
}

void PlyWriter::PutVertex(const PlacingWalk& inPlacing, int32 inVertex)
{
    const Mesh& mesh = inPlacing.MeshOf();
    for (const real64 part : inPlacing.Position(inVertex))
        PutReal(part);
    if (fHasNormals)
    {
        for (const real64 part : mesh.fNormals.empty() ? Vector3{} : inPlacing.Normal(inVertex))
            PutReal(part);
    }
    const auto index = static_cast<size_t>(inVertex);
    if (fHasTexCoords)
    {
        const TexCoords none{2, {}};
        const TexCoords& set = mesh.fTexCoords.empty() ? none : mesh.fTexCoords[0];
        const auto size = static_cast<size_t>(set.fSize);
        for (size_t part = 0; part < 2; ++part)
            PutLow(*fBytes, part < size && !set.fValues.empty() ? set.fValues[index * size + part] : 0.0F);
    }
    if (fHasColours)
        PutColour(mesh, index);
}

void PlyWriter::PutFaces(const Mesh& inMesh, bool inIsMirrored, uint32 inFirstVertex)
{
    size_t first = 0;
    for (const int32 faceSize : inMesh.fFaceSizes)
    {
        const auto size = static_cast<size_t>(faceSize);
        if (size > 0 && fMostCorners < 256)
            PutLow(*fBytes, static_cast<uint8>(size));
        else if (size > 0)
            PutLow(*fBytes, static_cast<uint32>(size));
        for (size_t corner = 0; corner < size; ++corner)
        {
            const int32 vertex = inMesh.fCorners[first + (inIsMirrored ? size - 1 - corner : corner)];
            PutLow(*fBytes, inFirstVertex + static_cast<uint32>(vertex));
        }
        first += size;
    }
}

Outcome PlyWriter::Write(std::string& outBytes)
{
    fBytes = &outBytes;
    std::vector<bool> isPlaced(fScene.fMeshes.size());
    for (PlacingWalk placing(fScene); placing.Next();)
    {
        Measure(placing.MeshOf());
        isPlaced[static_cast<size_t>(placing.MeshIndex())] = true;
    }
    if (fVertices == 0)
        return AtFault("no node places a vertex");
    if (fVertices > INT32_MAX || fFaces > INT32_MAX)
        return AtFault("the nodes place more vertices or faces than the format counts");
    for (size_t i = 0; i < isPlaced.size(); ++i)
    {
        if (isPlaced[i] && !fScene.fMeshes[i].fColours.empty() && fScene.fMeshes[i].fVertexCount > 0)
            MeasureColours(fScene.fMeshes[i].fColours[0]);
    }
    PutHeader();
    outBytes.reserve(outBytes.size() + fVertices * VertexSize() + fFaces * 4 + fCorners * 4);
    for (PlacingWalk placing(fScene); placing.Next();)
    {
        for (int32 vertex = 0; vertex < placing.MeshOf().fVertexCount; ++vertex)
            PutVertex(placing, vertex);
    }
    uint32 firstVertex = 0;
    for (PlacingWalk placing(fScene); placing.Next();)
    {
        PutFaces(placing.MeshOf(), placing.IsMirrored(), firstVertex);
        firstVertex += static_cast<uint32>(placing.MeshOf().fVertexCount);
    }
    return {};
}

} // namespace

Outcome WritePly(const Scene& inScene, std::string& outBytes)
{
    return PlyWriter(inScene).Write(outBytes);
}

} // namespace nqtoken
