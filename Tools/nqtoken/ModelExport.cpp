#include "Tools/nqtoken/ModelExport.h"

#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/Formats.h"
#include "Tools/nqtoken/SceneNames.h"

#include "NqCore/PublicAPI/NqFileTypeUtils.h"

#include <assimp/Exporter.hpp>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/scene.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

namespace nqtoken
{
namespace
{

// --- formats

struct Format
{
    FourCharT fType; // in the registry
    const char* fExporter;
    bool fHoldsMaterials;
    bool fHoldsNodes;
    bool fHoldsImages;
    bool fIsInMetres; // and has the Y axis upward
    bool fJoinsParts; // makes the meshes of a node one
};

constexpr Format kFormats[] = {
    {Name("OBJ "), "obj", true, false, false, false, false},
    {Name("PLY "), "plyb", false, false, false, false, false},
    {Name("STL "), "stlb", false, false, false, false, false},
    {Name("GLTF"), "gltf2", true, true, true, true, true},
    {Name("GLB "), "glb2", true, true, true, true, true},
};

const Format* FindWritten(const TNqFileType& inType)
{
    const auto* const found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                           [&](const Format& format) { return format.fType == inType.GetID(); });
    return found != std::end(kFormats) ? found : nullptr;
}

// Those that are written, as a sentence names them.
std::string WrittenText()
{
    std::vector<const TNqFileType*> types;
    for (const Format& format : kFormats)
    {
        const TNqFileType* const type = TNqFileTypeUtils::GetAllTypes().FindNqFileTypeByID(format.fType);
        if (type != nullptr)
            types.push_back(type);
    }
    return JoinExtensions(types);
}

// --- files that the exporter writes, kept in memory until all of them are there

using Files = std::map<std::string, std::string>;

class MemoryFile : public Assimp::IOStream
{
public:
    explicit MemoryFile(std::string& ioBytes) : fBytes(ioBytes) {}

    size_t Read(void*, size_t, size_t) override { return 0; }
    size_t Write(const void* inBytes, size_t inSize, size_t inCount) override
    {
        const size_t size = inSize * inCount;
        if (fPosition + size > fBytes.size())
            fBytes.resize(fPosition + size);
        if (size > 0)
            memcpy(&fBytes[fPosition], inBytes, size);
        fPosition += size;
        return inCount;
    }
    aiReturn Seek(size_t inOffset, aiOrigin inOrigin) override
    {
        const size_t base = inOrigin == aiOrigin_SET ? 0 : inOrigin == aiOrigin_CUR ? fPosition : fBytes.size();
        fPosition = base + inOffset;
        return aiReturn_SUCCESS;
    }
    size_t Tell() const override { return fPosition; }
    size_t FileSize() const override { return fBytes.size(); }
    void Flush() override {}

private:
    std::string& fBytes;
    size_t fPosition = 0;
};

class MemoryFiles : public Assimp::IOSystem
{
public:
    explicit MemoryFiles(Files& ioFiles) : fFiles(ioFiles) {}

    bool Exists(const char* inPath) const override { return fFiles.count(inPath) > 0; }
    char getOsSeparator() const override { return '/'; }
    Assimp::IOStream* Open(const char* inPath, const char* inMode) override
    {
        if (strchr(inMode, 'w') == nullptr)
            return nullptr;
        std::string& bytes = fFiles[inPath];
        bytes.clear();
        return new MemoryFile(bytes);
    }
    void Close(Assimp::IOStream* inFile) override { delete inFile; }

private:
    Files& fFiles;
};

// --- conversion

// Texts in a model have a limit. What is beyond is cut between two characters.
aiString ModelText(const std::string& inText)
{
    size_t length = std::min(inText.size(), size_t{MAXLEN - 1});
    while (length < inText.size() && length > 0 && (static_cast<unsigned char>(inText[length]) & 0xC0) == 0x80)
        --length;
    aiString text;
    text.Set(inText.substr(0, length));
    return text;
}

aiVector3D* NewVectors(const Reals& inValues, size_t inCount, size_t inSize)
{
    if (inValues.empty())
        return nullptr;
    auto* vectors = new aiVector3D[inCount];
    for (size_t i = 0; i < inCount; ++i)
    {
        for (size_t part = 0; part < inSize; ++part)
            vectors[i][static_cast<unsigned>(part)] = inValues[i * inSize + part];
    }
    return vectors;
}

aiTexture* NewTexture(const Image& inImage)
{
    auto* texture = new aiTexture;
    texture->mFilename = ModelText(inImage.fName);
    strncpy(texture->achFormatHint, inImage.fFormat.c_str(), sizeof(texture->achFormatHint) - 1);
    const size_t size = inImage.fBytes.size();
    texture->mWidth = inImage.fHeight == 0 ? static_cast<uint32>(size) : static_cast<uint32>(inImage.fWidth);
    texture->mHeight = static_cast<uint32>(inImage.fHeight);
    texture->pcData = new aiTexel[(size + sizeof(aiTexel) - 1) / sizeof(aiTexel)];
    memcpy(static_cast<void*>(texture->pcData), inImage.fBytes.data(), size);
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

aiMaterial* NewMaterial(const Scene& inScene, const Material& inMaterial, const Format& inFormat)
{
    auto* material = new aiMaterial;
    const aiString name = ModelText(inMaterial.fName);
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
        if (type == 0 || (texture.fImage >= 0 && !inFormat.fHoldsImages))
            continue;
        const uint32 index = counts[texture.fKind]++;
        const aiString file = ModelText(TextureFile(inScene, texture));
        material->AddProperty(&file, "$tex.file", type, index);
        AddIntegers(texture.fIntegers, kTextureIntegers, type, index, *material);
        AddReals(texture.fReals, kTextureReals, type, index, *material);
    }
    return material;
}

void AddFaces(const Mesh& inMesh, aiMesh& ioMesh)
{
    ioMesh.mNumFaces = static_cast<uint32>(inMesh.fFaceSizes.size());
    ioMesh.mFaces = new aiFace[ioMesh.mNumFaces];
    auto corner = inMesh.fCorners.begin();
    for (uint32 f = 0; f < ioMesh.mNumFaces; ++f)
    {
        const auto size = static_cast<uint32>(inMesh.fFaceSizes[f]);
        ioMesh.mFaces[f].mNumIndices = size;
        ioMesh.mFaces[f].mIndices = new unsigned int[size];
        std::copy_n(corner, size, ioMesh.mFaces[f].mIndices);
        corner += size;
        ioMesh.mPrimitiveTypes |= size == 1   ? aiPrimitiveType_POINT
                                  : size == 2 ? aiPrimitiveType_LINE
                                  : size == 3 ? aiPrimitiveType_TRIANGLE
                                              : aiPrimitiveType_POLYGON;
    }
}

aiMesh* NewMesh(const Mesh& inMesh, uint32 inSpareMaterial)
{
    auto* mesh = new aiMesh;
    const auto count = static_cast<size_t>(inMesh.fVertexCount);
    mesh->mName = ModelText(inMesh.fName);
    mesh->mMaterialIndex = inMesh.fMaterial >= 0 ? static_cast<uint32>(inMesh.fMaterial) : inSpareMaterial;
    mesh->mNumVertices = static_cast<uint32>(count);
    mesh->mVertices = NewVectors(inMesh.fPositions, count, 3);
    mesh->mNormals = NewVectors(inMesh.fNormals, count, 3);
    mesh->mTangents = NewVectors(inMesh.fTangents, count, 3);
    mesh->mBitangents = NewVectors(inMesh.fBitangents, count, 3);
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
            mesh->mColors[set][i] = aiColor4D(rgba[0], rgba[1], rgba[2], rgba[3]);
        }
    }
    AddFaces(inMesh, *mesh);
    return mesh;
}

aiNode* NewNode(const Node& inNode)
{
    auto* node = new aiNode;
    node->mName = ModelText(inNode.fName);
    const auto& t = inNode.fTransform;
    node->mTransformation = aiMatrix4x4(t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], t[8], t[9], t[10], t[11], t[12],
                                        t[13], t[14], t[15]);
    node->mNumMeshes = static_cast<uint32>(inNode.fMeshes.size());
    node->mMeshes = new unsigned int[node->mNumMeshes];
    std::copy(inNode.fMeshes.begin(), inNode.fMeshes.end(), node->mMeshes);
    return node;
}

// A model has one root. A scene with several gets one above them; a scene without nodes, one that places every mesh.
aiNode* NewNodes(const Scene& inScene)
{
    if (inScene.fNodes.empty())
    {
        Node root;
        for (size_t i = 0; i < inScene.fMeshes.size(); ++i)
            root.fMeshes.push_back(static_cast<int32>(i));
        return NewNode(root);
    }
    std::vector<aiNode*> nodes;
    std::vector<std::vector<aiNode*>> children(inScene.fNodes.size());
    std::vector<aiNode*> roots;
    for (const Node& node : inScene.fNodes)
    {
        nodes.push_back(NewNode(node));
        (node.fParent < 0 ? roots : children[static_cast<size_t>(node.fParent)]).push_back(nodes.back());
    }
    for (size_t i = 0; i < nodes.size(); ++i)
        nodes[i]->addChildren(static_cast<uint32>(children[i].size()), children[i].data());
    if (roots.size() == 1)
        return roots.front();
    aiNode* root = NewNode(Node());
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

void AddMaterials(const Scene& inScene, const Format& inFormat, aiScene& ioModel)
{
    std::vector<aiMaterial*> materials;
    for (const Material& material : inScene.fMaterials)
        materials.push_back(NewMaterial(inScene, material, inFormat));
    // A mesh of a model always has a material.
    const auto hasNone = [](const Mesh& mesh) { return mesh.fMaterial < 0; };
    if (materials.empty() || std::any_of(inScene.fMeshes.begin(), inScene.fMeshes.end(), hasNone))
        materials.push_back(new aiMaterial);
    ioModel.mNumMaterials = static_cast<uint32>(materials.size());
    ioModel.mMaterials = NewList(materials);
}

// Where a format has meshes of several pieces, these come in as meshes named "rod-0", "rod-1"; on the way out, the
// meshes of a node become one again, which takes the name of the first. That must be "rod".
void JoinPartNames(const Scene& inScene, aiScene& ioModel)
{
    for (const Node& node : inScene.fNodes)
    {
        if (node.fMeshes.size() < 2)
            continue;
        const std::string& first = inScene.fMeshes[static_cast<size_t>(node.fMeshes[0])].fName;
        const std::string name = first.substr(0, first.rfind('-'));
        bool parts = true;
        for (size_t i = 0; i < node.fMeshes.size(); ++i)
            parts =
                parts && inScene.fMeshes[static_cast<size_t>(node.fMeshes[i])].fName == fmt::format("{}-{}", name, i);
        if (parts)
            ioModel.mMeshes[node.fMeshes[0]]->mName = ModelText(name);
    }
}

void AddMeshes(const Scene& inScene, const Format& inFormat, aiScene& ioModel)
{
    std::vector<aiMesh*> meshes;
    for (const Mesh& mesh : inScene.fMeshes)
        meshes.push_back(NewMesh(mesh, static_cast<uint32>(inScene.fMaterials.size())));
    ioModel.mNumMeshes = static_cast<uint32>(meshes.size());
    ioModel.mMeshes = NewList(meshes);
    if (meshes.empty())
        ioModel.mFlags |= AI_SCENE_FLAGS_INCOMPLETE;
    if (inFormat.fJoinsParts)
        JoinPartNames(inScene, ioModel);
}

std::unique_ptr<aiScene> Convert(const Scene& inScene, const Format& inFormat)
{
    auto model = std::make_unique<aiScene>();
    model->mRootNode = NewNodes(inScene);
    std::vector<aiTexture*> textures;
    for (const Image& image : inScene.fImages)
        textures.push_back(NewTexture(image));
    model->mNumTextures = static_cast<uint32>(textures.size());
    model->mTextures = NewList(textures);
    AddMaterials(inScene, inFormat, *model);
    AddMeshes(inScene, inFormat, *model);
    return model;
}

// --- what gets lost

// Whether the nodes do more than list the meshes under one root.
bool HasPlacing(const Scene& inScene)
{
    return std::any_of(inScene.fNodes.begin(), inScene.fNodes.end(),
                       [](const Node& node) { return node.fParent > 0 || node.fTransform != kIdentity; });
}

std::vector<std::string> LeftOut(const Scene& inScene, const Format& inFormat, const std::string& inEnding)
{
    std::vector<std::string> notes;
    std::vector<std::string> parts;
    if (!inFormat.fHoldsNodes && HasPlacing(inScene))
        parts.emplace_back("the tree of nodes (meshes are written where the nodes place them)");
    if (!inFormat.fHoldsMaterials && !inScene.fMaterials.empty())
        parts.emplace_back("materials");
    if (!inFormat.fHoldsImages && !inScene.fImages.empty())
        parts.emplace_back("embedded textures");
    if (!parts.empty())
        notes.push_back(fmt::format("left out, as {} does not hold them: {}", inEnding, fmt::join(parts, ", ")));
    const bool otherUnit = inScene.fUnit > 0 && inScene.fUnit != 1;
    const bool otherAxis = inScene.fUpAxis != 0 && inScene.fUpAxis != Name("Y   ");
    if (inFormat.fIsInMetres && (otherUnit || otherAxis))
        notes.push_back(fmt::format(
            "{} is in metres with Y upward, and the scene is not; its numbers are written as they are", inEnding));
    return notes;
}

Outcome WriteFiles(const Files& inFiles, const std::string& inMain)
{
    std::vector<AtomicFile> files;
    files.reserve(inFiles.size());
    const auto write = [&files](const std::string& path, const std::string& bytes)
    {
        files.emplace_back();
        Outcome outcome = files.back().Create(path);
        if (outcome.Ok())
            outcome = files.back().Write(bytes);
        return outcome.Ok() ? files.back().Sync() : outcome;
    };
    for (const auto& [path, bytes] : inFiles)
    {
        Outcome outcome = path == inMain ? Outcome() : write(path, bytes);
        if (!outcome.Ok())
            return outcome;
    }
    // The main file comes last: it is what names the others.
    Outcome outcome = write(inMain, inFiles.at(inMain));
    for (AtomicFile& file : files)
    {
        if (outcome.Ok())
            outcome = file.Replace();
    }
    return outcome;
}

} // namespace

Outcome ExportModel(const Scene& inScene, const std::string& inPath, std::vector<std::string>& outNotes)
{
    Outcome loaded = LoadFormats();
    if (!loaded.Ok())
        return loaded;
    const TNqFileType* const type = FindFormatByName(inPath);
    const Format* const format = type != nullptr ? FindWritten(*type) : nullptr;
    if (format == nullptr)
        return Trouble(fmt::format("{}: the name must end with {}", inPath, WrittenText()));
    const std::unique_ptr<aiScene> model = Convert(inScene, *format);
    Files files;
    Assimp::Exporter exporter;
    exporter.SetIOHandler(new MemoryFiles(files)); // taken over
    if (exporter.Export(model.get(), format->fExporter, inPath) != aiReturn_SUCCESS || files.count(inPath) == 0)
    {
        const std::string reason = exporter.GetErrorString();
        return AtFault(fmt::format("{}: the scene does not fit this format: {}", inPath,
                                   reason.empty() ? "it needs meshes, and faces in them" : reason));
    }
    Outcome outcome = WriteFiles(files, inPath);
    if (outcome.Ok())
        outNotes = LeftOut(inScene, *format, JoinExtensions({type}));
    return outcome;
}

bool CanExport(const TNqFileType& inFormat)
{
    return FindWritten(inFormat) != nullptr;
}

} // namespace nqtoken
