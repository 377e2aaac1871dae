#include "Tools/nqtoken/ModelImport.h"

#include "Tools/nqtoken/Formats.h"
#include "Tools/nqtoken/InputFile.h"
#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/ModelFileSystem.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace nqtoken
{
namespace
{

std::string TextOf(const aiString& inText)
{
    return FromForeignText(std::string_view(inText.data, strnlen(inText.data, inText.length)));
}

Reals RealsOf(const aiVector3D* inVectors, uint32 inCount, uint32 inSize)
{
    Reals values;
    if (inVectors == nullptr)
        return values;
    values.reserve(size_t{inCount} * inSize);
    for (uint32 i = 0; i < inCount; ++i)
    {
        const real32 xyz[] = {inVectors[i].x, inVectors[i].y, inVectors[i].z};
        values.insert(values.end(), xyz, xyz + inSize);
    }
    return values;
}

// --- images and materials

Outcome ConvertImage(const aiTexture& inTexture, Image& outImage)
{
    outImage.fName = TextOf(inTexture.mFilename);
    outImage.fFormat = FromForeignText(
        std::string_view(inTexture.achFormatHint, strnlen(inTexture.achFormatHint, sizeof(inTexture.achFormatHint))));
    const uint64 size =
        inTexture.mHeight == 0 ? uint64{inTexture.mWidth} : uint64{inTexture.mWidth} * inTexture.mHeight * 4;
    if (size > kMaxFileSize)
        return AtFault(fmt::format("an embedded texture of {} bytes is larger than a scene may be", size));
    if (inTexture.mHeight != 0)
    {
        outImage.fWidth = static_cast<int32>(inTexture.mWidth);
        outImage.fHeight = static_cast<int32>(inTexture.mHeight);
    }
    if (inTexture.pcData != nullptr)
        outImage.fBytes.assign(reinterpret_cast<const char*>(inTexture.pcData), size);
    return {};
}

template <size_t kCount>
std::vector<RealValue> RealsOf(const aiMaterial& inMaterial, const ValueName (&inNames)[kCount], uint32 inType,
                               uint32 inIndex)
{
    std::vector<RealValue> found;
    for (const ValueName& name : inNames)
    {
        ai_real values[8] = {};
        uint32 count = name.fMaxCount;
        if (inMaterial.Get(name.fModelKey, inType, inIndex, values, &count) != aiReturn_SUCCESS ||
            count < name.fMinCount)
            continue;
        found.push_back({name.fToken, Reals(values, values + count)});
    }
    return found;
}

template <size_t kCount>
std::vector<IntegerValue> IntegersOf(const aiMaterial& inMaterial, const ValueName (&inNames)[kCount], uint32 inType,
                                     uint32 inIndex)
{
    std::vector<IntegerValue> found;
    for (const ValueName& name : inNames)
    {
        int value = 0;
        uint32 count = 1;
        if (inMaterial.Get(name.fModelKey, inType, inIndex, &value, &count) == aiReturn_SUCCESS && count == 1)
            found.push_back({name.fToken, value});
    }
    return found;
}

Texture ConvertTexture(const aiScene& inModel, const aiMaterial& inMaterial, uint32 inType, uint32 inIndex,
                       const aiString& inFile)
{
    Texture texture;
    texture.fKind = kTextureKinds[inType - 1];
    texture.fFile = TextOf(inFile);
    texture.fImage = inModel.GetEmbeddedTextureAndIndex(inFile.C_Str()).second;
    texture.fIntegers = IntegersOf(inMaterial, kTextureIntegers, inType, inIndex);
    texture.fReals = RealsOf(inMaterial, kTextureReals, inType, inIndex);
    return texture;
}

Material ConvertMaterial(const aiScene& inModel, const aiMaterial& inMaterial)
{
    Material material;
    material.fName = TextOf(const_cast<aiMaterial&>(inMaterial).GetName());
    int shading = 0;
    if (inMaterial.Get(AI_MATKEY_SHADING_MODEL, shading) == aiReturn_SUCCESS && shading >= 1 &&
        static_cast<size_t>(shading) <= std::size(kShadings))
        material.fShading = kShadings[shading - 1];
    aiString alphaMode;
    if (inMaterial.Get("$mat.gltf.alphaMode", 0, 0, alphaMode) == aiReturn_SUCCESS)
        material.fAlphaMode = TextOf(alphaMode);
    material.fIntegers = IntegersOf(inMaterial, kMaterialIntegers, 0, 0);
    material.fReals = RealsOf(inMaterial, kMaterialReals, 0, 0);
    for (uint32 type = 1; type <= std::size(kTextureKinds); ++type)
    {
        const uint32 count = inMaterial.GetTextureCount(static_cast<aiTextureType>(type));
        for (uint32 index = 0; index < count; ++index)
        {
            aiString file;
            if (inMaterial.Get("$tex.file", type, index, file) == aiReturn_SUCCESS)
                material.fTextures.push_back(ConvertTexture(inModel, inMaterial, type, index, file));
        }
    }
    return material;
}

// --- meshes

Outcome ConvertFaces(const aiMesh& inMesh, Mesh& outMesh)
{
    outMesh.fFaceSizes.reserve(inMesh.mNumFaces);
    for (uint32 f = 0; f < inMesh.mNumFaces; ++f)
    {
        const aiFace& face = inMesh.mFaces[f];
        outMesh.fFaceSizes.push_back(static_cast<int32>(face.mNumIndices));
        for (uint32 corner = 0; corner < face.mNumIndices; ++corner)
        {
            if (face.mIndices[corner] >= inMesh.mNumVertices)
                return AtFault(fmt::format("face {} of mesh \"{}\" has a corner at vertex {} of {}", f, outMesh.fName,
                                           face.mIndices[corner], inMesh.mNumVertices));
            outMesh.fCorners.push_back(static_cast<int32>(face.mIndices[corner]));
        }
    }
    return {};
}

Outcome ConvertMesh(const aiScene& inModel, const aiMesh& inMesh, Mesh& outMesh)
{
    outMesh.fName = TextOf(inMesh.mName);
    if (inMesh.mNumVertices > kMaxFileSize / 12 || inMesh.mNumFaces > kMaxFileSize / 4)
        return AtFault(fmt::format("mesh \"{}\" has more vertices or faces than a scene may hold", outMesh.fName));
    if (inMesh.mMaterialIndex < inModel.mNumMaterials)
        outMesh.fMaterial = static_cast<int32>(inMesh.mMaterialIndex);
    const uint32 count = inMesh.mNumVertices;
    outMesh.fVertexCount = inMesh.mVertices == nullptr ? 0 : static_cast<int32>(count);
    outMesh.fPositions = RealsOf(inMesh.mVertices, count, 3);
    outMesh.fNormals = RealsOf(inMesh.mNormals, count, 3);
    outMesh.fTangents = RealsOf(inMesh.mTangents, count, 3);
    outMesh.fBitangents = RealsOf(inMesh.mBitangents, count, 3);
    for (uint32 set = 0; set < inMesh.GetNumUVChannels(); ++set)
    {
        const uint32 size = std::clamp(inMesh.mNumUVComponents[set], 1U, 3U);
        outMesh.fTexCoords.push_back({static_cast<int32>(size), RealsOf(inMesh.mTextureCoords[set], count, size)});
    }
    for (uint32 set = 0; set < inMesh.GetNumColorChannels(); ++set)
    {
        Reals colours;
        colours.reserve(size_t{count} * 4);
        for (uint32 i = 0; i < count; ++i)
        {
            const aiColor4D& colour = inMesh.mColors[set][i];
            colours.insert(colours.end(), {colour.r, colour.g, colour.b, colour.a});
        }
        outMesh.fColours.push_back(std::move(colours));
    }
    return ConvertFaces(inMesh, outMesh);
}

// --- nodes

Outcome ConvertNode(const aiScene& inModel, const aiNode& inNode, int32 inParent, Node& outNode)
{
    outNode.fName = TextOf(inNode.mName);
    outNode.fParent = inParent;
    const aiMatrix4x4& m = inNode.mTransformation;
    outNode.fTransform = {m.a1, m.a2, m.a3, m.a4, m.b1, m.b2, m.b3, m.b4,
                          m.c1, m.c2, m.c3, m.c4, m.d1, m.d2, m.d3, m.d4};
    for (uint32 i = 0; i < inNode.mNumMeshes; ++i)
    {
        if (inNode.mMeshes[i] >= inModel.mNumMeshes)
            return AtFault(
                fmt::format("node \"{}\" places mesh {} of {}", outNode.fName, inNode.mMeshes[i], inModel.mNumMeshes));
        outNode.fMeshes.push_back(static_cast<int32>(inNode.mMeshes[i]));
    }
    return {};
}

Outcome ConvertNodes(const aiScene& inModel, std::vector<Node>& outNodes)
{
    struct Visit
    {
        const aiNode* fNode;
        int32 fParent;
        uint32 fDepth;
    };
    std::vector<Visit> waiting = {{inModel.mRootNode, -1, 1}};
    while (!waiting.empty())
    {
        const Visit visit = waiting.back();
        waiting.pop_back();
        if (visit.fNode == nullptr)
            continue;
        if (visit.fDepth > kMaxNodeDepth)
            return AtFault(fmt::format("nodes are nested more than {} deep", kMaxNodeDepth));
        const auto index = static_cast<int32>(outNodes.size());
        outNodes.emplace_back();
        Outcome outcome = ConvertNode(inModel, *visit.fNode, visit.fParent, outNodes.back());
        if (!outcome.Ok())
            return outcome;
        for (uint32 i = visit.fNode->mNumChildren; i > 0; --i)
            waiting.push_back({visit.fNode->mChildren[i - 1], index, visit.fDepth + 1});
    }
    return {};
}

// --- the whole

// The key holds a number of any of the types that a model may store it as.
bool GetNumber(const aiMetadata& inData, const char* inKey, real64& outNumber)
{
    double asDouble = 0;
    float asFloat = 0;
    int32_t asInteger = 0;
    if (inData.Get(inKey, asDouble))
        outNumber = asDouble;
    else if (inData.Get(inKey, asFloat))
        outNumber = static_cast<real64>(asFloat);
    else if (inData.Get(inKey, asInteger))
        outNumber = asInteger;
    else
        return false;
    return true;
}

// Only what the model says, or what its format fixes, is known.
void ConvertUnits(const aiMetadata& inData, Scene& outScene)
{
    aiString format;
    if (inData.Get("SourceAsset_Format", format) &&
        (strstr(format.C_Str(), "glTF") != nullptr || strstr(format.C_Str(), "Collada") != nullptr))
    {
        outScene.fUnit = 1;
        outScene.fUpAxis = Name("Y   ");
        return;
    }
    real64 centimetres = 0;
    if (GetNumber(inData, "UnitScaleFactor", centimetres) && centimetres > 0)
        outScene.fUnit = static_cast<real32>(centimetres / 100);
    real64 axis = -1;
    if (GetNumber(inData, "UpAxis", axis) && axis >= 0 && axis <= 2)
        outScene.fUpAxis = Name("X   ") + (static_cast<FourCharT>(axis) << 24);
}

void NoteIfAny(size_t inCount, const char* inOne, const char* inMany, std::vector<std::string>& ioParts)
{
    if (inCount > 0)
        ioParts.push_back(fmt::format("{} {}", inCount, inCount == 1 ? inOne : inMany));
}

std::vector<std::string> LeftOut(const aiScene& inModel)
{
    size_t boned = 0;
    size_t morphed = 0;
    for (uint32 i = 0; i < inModel.mNumMeshes; ++i)
    {
        boned += inModel.mMeshes[i]->mNumBones > 0;
        morphed += inModel.mMeshes[i]->mNumAnimMeshes > 0;
    }
    std::vector<std::string> parts;
    NoteIfAny(inModel.mNumLights, "light", "lights", parts);
    NoteIfAny(inModel.mNumCameras, "camera", "cameras", parts);
    NoteIfAny(inModel.mNumAnimations, "animation", "animations", parts);
    NoteIfAny(boned, "skeleton binding", "skeleton bindings", parts);
    NoteIfAny(morphed, "set of morph targets", "sets of morph targets", parts);
    if (parts.empty())
        return {};
    return {fmt::format("left out, as a scene does not hold them: {}", fmt::join(parts, ", "))};
}

Outcome Convert(const aiScene& inModel, Scene& outScene)
{
    if (inModel.mMetaData != nullptr)
        ConvertUnits(*inModel.mMetaData, outScene);
    outScene.fImages.resize(inModel.mNumTextures);
    for (uint32 i = 0; i < inModel.mNumTextures; ++i)
    {
        Outcome outcome = ConvertImage(*inModel.mTextures[i], outScene.fImages[i]);
        if (!outcome.Ok())
            return outcome;
    }
    for (uint32 i = 0; i < inModel.mNumMaterials; ++i)
        outScene.fMaterials.push_back(ConvertMaterial(inModel, *inModel.mMaterials[i]));
    outScene.fMeshes.resize(inModel.mNumMeshes);
    for (uint32 i = 0; i < inModel.mNumMeshes; ++i)
    {
        Outcome outcome = ConvertMesh(inModel, *inModel.mMeshes[i], outScene.fMeshes[i]);
        if (!outcome.Ok())
            return outcome;
    }
    return ConvertNodes(inModel, outScene.fNodes);
}

// --- recognizing

// assimp goes by the extension of a name. Where the file has none that it knows, it is shown the file under a name that
// says what the registry found.
class RenamingFiles : public Assimp::DefaultIOSystem
{
public:
    RenamingFiles(std::string inShown, std::string inPath) : fShown(std::move(inShown)), fPath(std::move(inPath)) {}

    bool Exists(const char* inName) const override { return DefaultIOSystem::Exists(PathOf(inName)); }
    Assimp::IOStream* Open(const char* inName, const char* inMode) override
    {
        return DefaultIOSystem::Open(PathOf(inName), inMode);
    }

private:
    const char* PathOf(const char* inName) const { return fShown == inName ? fPath.c_str() : inName; }

    std::string fShown;
    std::string fPath;
};

// Finds out the format, and the name under which assimp knows it, too.
Outcome Recognize(const std::string& inPath, std::string& outShown)
{
    Outcome loaded = LoadFormats();
    if (!loaded.Ok())
        return loaded;
    const TNqFileType* const format = FindFormat(inPath);
    if (format == nullptr)
        return AtFault(
            fmt::format("{}: not a model that can be read: neither its name nor its first bytes tell a known "
                        "format (\"nqtoken formats\" lists them)",
                        inPath));
    if (format->GetFileTypeFamilyID() != kModelFamily)
        return AtFault(fmt::format("{}: not a model; its format is \"{}\"", inPath, format->GetName().GetString()));
    outShown = inPath;
    if (FindFormatByName(inPath) == nullptr)
        outShown += fmt::format(".{}", format->GetExtension(0).GetString());
    return {};
}

// inShown is the name for assimp, of a file in inFiles or, when null, on the disk. inFiles is taken over.
Outcome Import(const std::string& inPath, const std::string& inShown, Assimp::IOSystem* inFiles, Scene& outScene,
               std::vector<std::string>& outNotes)
{
    Assimp::Importer importer;
    if (inFiles != nullptr)
        importer.SetIOHandler(inFiles);
    const aiScene* model = importer.ReadFile(inShown, 0);
    if (MemoryRefused())
        return Trouble(fmt::format("{}: {}", inPath, OutOfMemoryText()));
    if (model == nullptr)
        return AtFault(fmt::format("{}: not a model that can be read: {}", inPath, importer.GetErrorString()));
    outScene = Scene();
    Outcome outcome = Convert(*model, outScene);
    if (!outcome.Ok())
        return AtFault(fmt::format("{}: {}", inPath, outcome.Text()));
    // Some formats have no name for the root: it is given that of the file.
    if (!outScene.fNodes.empty() && outScene.fNodes.front().fName == inShown.substr(inShown.rfind('/') + 1))
        outScene.fNodes.front().fName.clear();
    outNotes = LeftOut(*model);
    return {};
}

} // namespace

Outcome ImportModel(const std::string& inPath, Scene& outScene, std::vector<std::string>& outNotes)
{
    InputFile file;
    Outcome opened = file.Open(inPath);
    if (!opened.Ok())
        return opened;
    std::string shown;
    Outcome recognized = Recognize(inPath, shown);
    if (!recognized.Ok())
        return recognized;
    return Import(inPath, shown, shown != inPath ? new RenamingFiles(shown, inPath) : nullptr, outScene, outNotes);
}

Outcome ImportModel(ModelFiles& inFiles, const std::string& inPath, Scene& outScene, std::vector<std::string>& outNotes)
{
    return Import(inPath, inPath, new MemoryFiles(inFiles), outScene, outNotes);
}

bool CanImport(const TNqFileType& inFormat)
{
    const Assimp::Importer importer;
    return importer.IsExtensionSupported(inFormat.GetExtension(0).GetString());
}

} // namespace nqtoken
