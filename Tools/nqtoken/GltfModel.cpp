#include "Tools/nqtoken/GltfModel.h"

#include "Tools/nqtoken/ModelNames.h"
#include "Tools/nqtoken/Placing.h"
#include "Tools/nqtoken/PngFile.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"

#include <assimp/scene.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <set>

namespace nqtoken
{
namespace
{

aiString ModelText(const std::string& inText)
{
    aiString text;
    text.Set(QuotedName(inText));
    return text;
}

ai_real Finite(real32 inValue)
{
    return std::isfinite(inValue) ? inValue : 0;
}

aiVector3D* NewVectors(const Reals& inValues, size_t inCount, size_t inSize)
{
    if (inValues.empty())
        return nullptr;
    auto* vectors = new aiVector3D[inCount];
    for (size_t i = 0; i < inCount; ++i)
    {
        for (size_t part = 0; part < inSize; ++part)
            vectors[i][static_cast<unsigned>(part)] = Finite(inValues[i * inSize + part]);
    }
    return vectors;
}

// By the first bytes, and where those say nothing by what the scene says.
std::string ImageFormat(const Image& inImage)
{
    const auto starts = [&](std::string_view bytes) { return inImage.fBytes.compare(0, bytes.size(), bytes) == 0; };
    if (inImage.fHeight != 0 || starts("\x89PNG"))
        return "png"; // which texels become
    return starts("\xFF\xD8\xFF") ? "jpg" : inImage.fFormat.empty() ? "unknown" : inImage.fFormat;
}

aiTexture* NewTexture(const Image& inImage)
{
    auto* texture = new aiTexture;
    texture->mFilename = ModelText(inImage.fName);
    const std::string made =
        inImage.fHeight != 0 ? MakePngFile(inImage.fWidth, inImage.fHeight, inImage.fBytes) : std::string();
    const std::string& bytes = made.empty() ? inImage.fBytes : made;
    strncpy(texture->achFormatHint, ImageFormat(inImage).c_str(), sizeof(texture->achFormatHint) - 1);
    texture->mWidth = static_cast<uint32>(bytes.size());
    texture->pcData = new aiTexel[(bytes.size() + sizeof(aiTexel) - 1) / sizeof(aiTexel)];
    memcpy(static_cast<void*>(texture->pcData), bytes.data(), bytes.size());
    return texture;
}

template <size_t kCount>
void AddReals(const std::vector<RealValue>& inValues, const ValueName (&inNames)[kCount], uint32 inType, uint32 inIndex,
              aiMaterial& ioMaterial)
{
    for (const RealValue& value : inValues)
    {
        if (const ValueName* name = FindValueName(inNames, value.fToken))
            ioMaterial.AddProperty(value.fValues.data(), static_cast<uint32>(value.fValues.size()), name->fModelKey,
                                   inType, inIndex);
    }
}

template <size_t kCount>
void AddIntegers(const std::vector<IntegerValue>& inValues, const ValueName (&inNames)[kCount], uint32 inType,
                 uint32 inIndex, aiMaterial& ioMaterial)
{
    for (const IntegerValue& value : inValues)
    {
        if (const ValueName* name = FindValueName(inNames, value.fToken))
            ioMaterial.AddProperty(&value.fValue, 1, name->fModelKey, inType, inIndex);
    }
}

// A texture that means an embedded image must lead there by its file name.
std::string TextureFile(const Scene& inScene, const Texture& inTexture)
{
    if (inTexture.fImage < 0 || inTexture.fFile == inScene.fImages[static_cast<size_t>(inTexture.fImage)].fName)
        return inTexture.fFile;
    return fmt::format("*{}", inTexture.fImage);
}

aiMaterial* NewMaterial(const Scene& inScene, const Material& inMaterial, const std::string& inName)
{
    auto* material = new aiMaterial;
    const aiString name = ModelText(inName);
    material->AddProperty(&name, AI_MATKEY_NAME);
    if (const auto shading = static_cast<int>(NumberOf(kShadings, inMaterial.fShading)))
        material->AddProperty(&shading, 1, AI_MATKEY_SHADING_MODEL);
    if (!inMaterial.fAlphaMode.empty())
    {
        const aiString mode = ModelText(inMaterial.fAlphaMode);
        material->AddProperty(&mode, "$mat.gltf.alphaMode", 0, 0);
    }
    AddIntegers(inMaterial.fIntegers, kMaterialIntegers, 0, 0, *material);
    AddReals(inMaterial.fReals, kMaterialReals, 0, 0, *material);
    std::map<FourCharT, uint32> counts;
    for (const Texture& texture : inMaterial.fTextures)
    {
        const uint32 type = NumberOf(kTextureKinds, texture.fKind);
        if (type == 0)
            continue;
        const uint32 index = counts[texture.fKind]++;
        const aiString file = ModelText(TextureFile(inScene, texture));
        material->AddProperty(&file, "$tex.file", type, index);
        AddIntegers(texture.fIntegers, kTextureIntegers, type, index, *material);
        AddReals(texture.fReals, kTextureReals, type, index, *material);
    }
    return material;
}

void AddFace(const int32* inCorners, uint32 inSize, aiMesh& ioMesh)
{
    aiFace& face = ioMesh.mFaces[ioMesh.mNumFaces++];
    face.mNumIndices = inSize;
    face.mIndices = new unsigned int[inSize];
    std::copy_n(inCorners, inSize, face.mIndices);
    ioMesh.mPrimitiveTypes |= inSize == 1   ? aiPrimitiveType_POINT
                              : inSize == 2 ? aiPrimitiveType_LINE
                                            : aiPrimitiveType_TRIANGLE;
}

void AddFaces(const Mesh& inMesh, aiMesh& ioMesh)
{
    size_t count = inMesh.fFaceSizes.empty() ? static_cast<size_t>(inMesh.fVertexCount) : 0;
    for (const int32 size : inMesh.fFaceSizes)
        count += size > 3 ? static_cast<size_t>(size) - 2 : size > 0 ? 1 : 0;
    ioMesh.mFaces = new aiFace[count];
    for (int32 vertex = 0; inMesh.fFaceSizes.empty() && vertex < inMesh.fVertexCount; ++vertex)
        AddFace(&vertex, 1, ioMesh);
    const int32* corners = inMesh.fCorners.data();
    std::vector<int32> triangles;
    for (const int32 size : inMesh.fFaceSizes)
    {
        triangles.clear();
        if (size > 3)
            Triangulate(inMesh.fPositions, corners, static_cast<size_t>(size), triangles);
        else if (size > 0)
            AddFace(corners, static_cast<uint32>(size), ioMesh);
        for (size_t i = 0; i < triangles.size(); i += 3)
            AddFace(&triangles[i], 3, ioMesh);
        corners += size;
    }
}

aiMesh* NewMesh(const Mesh& inMesh, uint32 inSpareMaterial)
{
    auto* mesh = new aiMesh;
    const auto count = static_cast<size_t>(inMesh.fVertexCount);
    mesh->mMaterialIndex = inMesh.fMaterial >= 0 ? static_cast<uint32>(inMesh.fMaterial) : inSpareMaterial;
    mesh->mNumVertices = static_cast<uint32>(count);
    mesh->mVertices = NewVectors(inMesh.fPositions, count, 3);
    mesh->mNormals = NewVectors(inMesh.fNormals, count, 3);
    // assimp takes either for a sign of the other.
    if (!inMesh.fTangents.empty() && !inMesh.fBitangents.empty())
    {
        mesh->mTangents = NewVectors(inMesh.fTangents, count, 3);
        mesh->mBitangents = NewVectors(inMesh.fBitangents, count, 3);
    }
    const size_t sets = std::min(inMesh.fTexCoords.size(), size_t{AI_MAX_NUMBER_OF_TEXTURECOORDS});
    for (size_t set = 0; set < sets; ++set)
    {
        const TexCoords& coords = inMesh.fTexCoords[set];
        mesh->mNumUVComponents[set] = static_cast<uint32>(coords.fSize);
        mesh->mTextureCoords[set] = NewVectors(coords.fValues, count, static_cast<size_t>(coords.fSize));
    }
    const size_t colours = std::min(inMesh.fColours.size(), size_t{AI_MAX_NUMBER_OF_COLOR_SETS});
    for (size_t set = 0; set < colours && count > 0; ++set)
    {
        mesh->mColors[set] = new aiColor4D[count];
        for (size_t i = 0; i < count; ++i)
        {
            const real32* rgba = &inMesh.fColours[set][i * 4];
            mesh->mColors[set][i] = aiColor4D(Finite(rgba[0]), Finite(rgba[1]), Finite(rgba[2]), Finite(rgba[3]));
        }
    }
    AddFaces(inMesh, *mesh);
    return mesh;
}

// The numbers of the meshes in the model, -1 for those that have nothing to show.
using MeshNumbers = std::vector<int32>;

aiNode* NewNode(const Node& inNode, const MeshNumbers& inNumbers, UniqueNames& ioNames)
{
    auto* node = new aiNode;
    node->mName = ModelText(ioNames.Take(QuotedName(inNode.fName)));
    for (size_t i = 0; i < inNode.fTransform.size(); ++i)
        node->mTransformation[static_cast<unsigned>(i / 4)][i % 4] = Finite(inNode.fTransform[i]);
    node->mMeshes = new unsigned int[inNode.fMeshes.size()];
    for (const int32 mesh : inNode.fMeshes)
    {
        const int32 number = inNumbers[static_cast<size_t>(mesh)];
        if (number >= 0)
            node->mMeshes[node->mNumMeshes++] = static_cast<uint32>(number);
    }
    return node;
}

// The exporter tells nodes apart by their names, and so meshes. To number equal ones, it would try one number after the
// other for each. A model has one root. A scene with several gets one above them; a scene without nodes, one that
// places every mesh.
aiNode* NewNodes(const Scene& inScene, const MeshNumbers& inNumbers)
{
    UniqueNames names("node");
    if (inScene.fNodes.empty())
    {
        Node root;
        for (size_t i = 0; i < inScene.fMeshes.size(); ++i)
            root.fMeshes.push_back(static_cast<int32>(i));
        return NewNode(root, inNumbers, names);
    }
    std::vector<aiNode*> nodes;
    std::vector<std::vector<aiNode*>> children(inScene.fNodes.size());
    std::vector<aiNode*> roots;
    for (const Node& node : inScene.fNodes)
    {
        nodes.push_back(NewNode(node, inNumbers, names));
        (node.fParent < 0 ? roots : children[static_cast<size_t>(node.fParent)]).push_back(nodes.back());
    }
    for (size_t i = 0; i < nodes.size(); ++i)
        nodes[i]->addChildren(static_cast<uint32>(children[i].size()), children[i].data());
    if (roots.size() == 1)
        return roots.front();
    aiNode* root = NewNode(Node(), inNumbers, names);
    root->addChildren(static_cast<uint32>(roots.size()), roots.data());
    return root;
}

template <class Element>
Element** NewList(const std::vector<Element*>& inElements)
{
    auto** list = new Element*[inElements.size()];
    std::copy(inElements.begin(), inElements.end(), list);
    return list;
}

void AddMaterials(const Scene& inScene, const std::vector<std::string>& inNames, aiScene& ioModel)
{
    std::vector<aiMaterial*> materials;
    for (size_t i = 0; i < inScene.fMaterials.size(); ++i)
        materials.push_back(NewMaterial(inScene, inScene.fMaterials[i], inNames[i]));
    // A mesh of a model always has a material.
    const auto hasNone = [](const Mesh& mesh) { return mesh.fMaterial < 0; };
    if (materials.empty() || std::any_of(inScene.fMeshes.begin(), inScene.fMeshes.end(), hasNone))
        materials.push_back(new aiMaterial);
    ioModel.mNumMaterials = static_cast<uint32>(materials.size());
    ioModel.mMaterials = NewList(materials);
}

// Meshes of several pieces come in as meshes named "rod-0", "rod-1"; on the way out, the meshes of a node become one
// again, which takes the name of the first. That must be "rod".
void JoinPartNames(const Scene& inScene, const MeshNumbers& inNumbers, aiScene& ioModel)
{
    for (const Node& node : inScene.fNodes)
    {
        if (node.fMeshes.size() < 2)
            continue;
        const auto nameOf = [&](size_t i) -> const std::string&
        { return inScene.fMeshes[static_cast<size_t>(node.fMeshes[i])].fName; };
        const std::string name = nameOf(0).substr(0, nameOf(0).rfind('-'));
        bool areParts = true;
        for (size_t i = 0; i < node.fMeshes.size() && areParts; ++i)
            areParts = nameOf(i) == fmt::format("{}-{}", name, i);
        const int32 first = inNumbers[static_cast<size_t>(node.fMeshes[0])];
        if (areParts && first >= 0)
            ioModel.mMeshes[first]->mName = ModelText(name);
    }
}

} // namespace

std::unique_ptr<aiScene> MakeGltfModel(const Scene& inScene, const std::vector<std::string>& inNames)
{
    auto model = std::make_unique<aiScene>();
    MeshNumbers numbers;
    UniqueNames names("mesh");
    std::vector<aiMesh*> meshes;
    for (const Mesh& mesh : inScene.fMeshes)
    {
        const bool isShown = mesh.fVertexCount > 0 && (mesh.fFaceSizes.empty() || !mesh.fCorners.empty());
        numbers.push_back(isShown ? static_cast<int32>(meshes.size()) : -1);
        if (!isShown)
            continue;
        meshes.push_back(NewMesh(mesh, static_cast<uint32>(inScene.fMaterials.size())));
        meshes.back()->mName = ModelText(names.Take(QuotedName(mesh.fName)));
    }
    model->mNumMeshes = static_cast<uint32>(meshes.size());
    model->mMeshes = NewList(meshes);
    model->mRootNode = NewNodes(inScene, numbers);
    std::vector<aiTexture*> textures;
    for (const Image& image : inScene.fImages)
        textures.push_back(NewTexture(image));
    model->mNumTextures = static_cast<uint32>(textures.size());
    model->mTextures = NewList(textures);
    AddMaterials(inScene, inNames, *model);
    JoinPartNames(inScene, numbers, *model);
    return meshes.empty() ? nullptr : std::move(model);
}

std::string DescribeForeignImages(const Scene& inScene)
{
    std::set<std::string> formats;
    size_t count = 0;
    for (const Image& image : inScene.fImages)
    {
        const std::string format = ImageFormat(image);
        if (format == "png" || format == "jpg")
            continue;
        ++count;
        formats.insert(Printable(format, 20));
    }
    if (count == 0)
        return {};
    return fmt::format("kept: {} of a type that glTF does not allow ({}), which not every program shows",
                       count == 1 ? "1 embedded texture" : fmt::format("{} embedded textures", count),
                       fmt::join(formats, ", "));
}

} // namespace nqtoken
