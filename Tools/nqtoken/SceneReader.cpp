#include "Tools/nqtoken/SceneReader.h"

#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/Reports.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"
#include "Tools/nqtoken/TokenFile.h"
#include "Tools/nqtoken/Walker.h"

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <fmt/format.h>

#include <cstring>

namespace nqtoken
{
namespace
{

class SceneReader
{
public:
    explicit SceneReader(TokenFile& ioFile)
        : fFile(ioFile),
          fStream(ioFile.Stream()),
          fWord(fToken, sizeof(fToken), kUTF8Transcoder, eRead)
    {
    }

    Outcome Read(Scene& outScene);
    bool FindScene();

private:
    // One of the elements of a scene, for messages: mesh 2 "wheel".
    struct Element
    {
        const char* fKind = nullptr; // null for none
        size_t fIndex = 0;
        std::string fName;
    };
    // Where the values stand that are checked against one another when a mesh is complete; -1 for one that is not
    // there.
    struct MeshPlaces
    {
        int32 fVertexCount = -1;
        int32 fFaceCount = -1;
        int32 fFaceSizes = -1;
        int32 fCorners = -1;
    };

    // Gives up. What is wrong is told at inPosition, or where the stream is, with the element that is read.
    [[noreturn]] void Fail(std::string inWhat, int32 inPosition = -1, NqErr inCode = kNqErrFormat);

    NqToken::TNqTokenInfo NextToken();
    FourCharT NextName();
    void SkipValue();
    int8 PeekValue();
    int32 Remaining() { return fFile.Size() - fStream.tell(); }
    NqToken::TNqTokenInfo NextWord();

    int32 GetInteger(int32 inLeast);
    FourCharT GetFourChars();
    std::string GetString();
    std::string GetElementName() { return fElement.fName = GetString(); }
    std::string GetBytes();
    Reals GetReals(size_t inCount);
    Reals GetReals(const ValueName& inName);
    std::vector<int32> GetIntegers(size_t inCount);
    template <class Value>
    std::vector<Value> GetArray(size_t inCount, void (*inReadText)(TNqiostream&, int32, Value*));
    template <class Value>
    std::vector<Value> GetPayload(size_t inCount);

    Image GetImage();
    Texture GetTexture();
    Material GetMaterial();
    TexCoords GetTexCoords(int32 inVertexCount);
    Reals GetColours(int32 inVertexCount);
    Mesh GetMesh();
    void FinishFaces(Mesh& ioMesh, int32 inFaceCount, int32 inFaceSize, const MeshPlaces& inPlaces);
    void GetNodes(std::vector<Node>& ioNodes);
    void CheckReferences(const Scene& inScene);
    template <class Body>
    auto GetElement(const char* inKind, size_t inIndex, Body&& inRead);
    void GoToScene();
    void GetScene(Scene& outScene);
    std::string ElementText() const;

    TokenFile& fFile;
    TNqiostream& fStream;
    int8 fToken[NqToken::kTokenBufferSize] = {};
    TNqstrstream fWord; // over fToken
    std::string fWhat;  // why the reading failed, when it was not the library that found out
    int32 fPosition = -1;
    FourCharT fName = 0;  // the name read last
    int32 fNamePlace = 0; // and where it stands
    Element fElement;     // what is being read
    // Where the indices stand that are checked at the end: of each mesh, node, and texture.
    std::vector<int32> fMaterialPlaces;
    std::vector<int32> fMeshListPlaces;
    std::vector<int32> fImagePlaces;
};

// --- the walk

void SceneReader::Fail(std::string inWhat, int32 inPosition, NqErr inCode)
{
    fWhat = std::move(inWhat);
    fPosition = inPosition;
    throw TNqException(inCode, nullptr, 0);
}

// The next token, with its text in fToken as far as that holds it. One that the file ends in is told where it begins.
NqToken::TNqTokenInfo SceneReader::NextToken()
{
    NqToken::TNqTokenInfo info;
    const NqErr error = NqToken::GetNextTokenInfo(fStream, fToken, info, false);
    if (error != 0 && info.fKind == NqToken::kStringToken)
        Fail("a string without its closing quote", info.fOffset, error);
    if (error != 0 && info.fKind == NqToken::kRawToken)
        Fail("a payload that is not all there", info.fOffset, error);
    if (error != 0)
        throw TNqException(error, nullptr, 0);
    return info;
}

// A value of any kind, or a block.
void SceneReader::SkipValue()
{
    int64 depth = 0;
    do
    {
        const NqToken::ETokenKind kind = NextToken().fKind;
        depth += kind == NqToken::kBeginToken ? 1 : 0;
        depth -= kind == NqToken::kEndToken ? 1 : 0;
    } while (depth > 0);
}

// The name of the next value or block; 0 for the brace that ends the open block.
FourCharT SceneReader::NextName()
{
    for (;;)
    {
        const NqToken::TNqTokenInfo info = NextToken();
        if (info.fKind == NqToken::kEndToken)
            return 0;
        if (info.fKind != NqToken::kWordToken || info.fFullLength > 4 || info.fCommaCount > 0)
            Fail("a name of one to four characters must stand here", info.fOffset);
        fName = static_cast<FourCharT>(NqToken::CompactAttribute(fToken));
        fNamePlace = info.fOffset;
        if (fName != 0)
            return fName;
        SkipValue(); // four zero bytes: nobody's name
    }
}

// The first byte of the value that follows, which stays to be read.
int8 SceneReader::PeekValue()
{
    int8 first = 0;
    fStream >> first;
    if (!fStream.good())
        NqToken::FailEOFFile();
    fStream.putback(first);
    return first;
}

// Reads a word into fToken as far as that holds it.
NqToken::TNqTokenInfo SceneReader::NextWord()
{
    const NqToken::TNqTokenInfo info = NextToken();
    if (info.fKind != NqToken::kWordToken)
        Fail(fmt::format("{} must be followed by numbers", NameText(fName)), info.fOffset);
    fWord.seek(0, TNqiostream::beg);
    return info;
}

// --- values

int32 SceneReader::GetInteger(int32 inLeast)
{
    const FourCharT name = fName;
    const NqToken::TNqTokenInfo info = NextWord();
    const ReportMark mark;
    const int32 value = NqToken::GetInt32Token(fWord);
    if (mark.Reported() || info.fFullLength > 11 || fWord.tell() != static_cast<int32>(info.fStoredLength))
        Fail(fmt::format("{} must be a whole number", NameText(name)), info.fOffset);
    if (value < inLeast)
        Fail(fmt::format("{} must be at least {}", NameText(name), inLeast), info.fOffset);
    return value;
}

FourCharT SceneReader::GetFourChars()
{
    const NqToken::TNqTokenInfo info = NextWord();
    if (info.fFullLength > 4)
        Fail(fmt::format("{} must be one to four characters", NameText(fName)), info.fOffset);
    return static_cast<FourCharT>(NqToken::CompactAttribute(fToken));
}

std::string SceneReader::GetString()
{
    if (PeekValue() != '"')
        Fail(fmt::format("{} must be a text in quotes", NameText(fName)));
    const int32 place = fStream.tell();
    TNqDynamicString text;
    try
    {
        NqToken::GetNonLocalizedDynamicStringToken(fStream, text, false);
    }
    catch (const TNqException& error)
    {
        if (error.GetError() == kNqErrEndOfFile)
            Fail("a string without its closing quote", place, kNqErrEndOfFile);
        throw;
    }
    return FromLibrary(text);
}

std::string SceneReader::GetBytes()
{
    if (PeekValue() != '$')
        Fail(fmt::format("{} must be a payload", NameText(fName)));
    const int32 place = fStream.tell();
    uint32 size = 0;
    NqToken::GetBinaryStartToken(fStream, size);
    if (size > static_cast<uint32>(Remaining()))
        Fail(fmt::format("the payload of {} is longer than the file", NameText(fName)), place);
    std::string bytes(size, '\0');
    if (size > 0)
        fStream.read(bytes.data(), static_cast<int32>(size));
    int8 sign = 0;
    fStream.read(&sign, 1);
    if (sign != '$')
        Fail(fmt::format("the payload of {} does not end where its count says", NameText(fName)), place);
    return bytes;
}

template <class Value>
std::vector<Value> SceneReader::GetPayload(size_t inCount)
{
    static_assert(sizeof(Value) == 4);
    const FourCharT name = fName;
    const int32 place = fStream.tell();
    const std::string bytes = GetBytes();
    if (bytes.size() != inCount * 4)
        Fail(fmt::format("{} holds {} bytes instead of {}", NameText(name), bytes.size(), inCount * 4), place);
    std::vector<Value> values(inCount);
    for (size_t i = 0; i < inCount; ++i)
    {
        uint32 word = 0;
        for (size_t b = 0; b < 4; ++b)
            word |= static_cast<uint32>(static_cast<uint8>(bytes[i * 4 + b])) << (8 * b);
        memcpy(&values[i], &word, 4);
    }
    return values;
}

// An array whose length is known. Memory is taken only for values that are there.
template <class Value>
std::vector<Value> SceneReader::GetArray(size_t inCount, void (*inReadText)(TNqiostream&, int32, Value*))
{
    const FourCharT name = fName;
    if (PeekValue() == '$')
        return GetPayload<Value>(inCount);
    const NqToken::TNqTokenInfo info = NextWord();
    const size_t found = size_t{info.fCommaCount} + 1;
    if (found != inCount)
        Fail(fmt::format("{} holds {} values instead of {}", NameText(name), found, inCount), info.fOffset);
    std::vector<Value> values(inCount);
    const ReportMark mark;
    int32 end;
    if (info.fFullLength == info.fStoredLength)
    {
        inReadText(fWord, static_cast<int32>(inCount), values.data());
        end = info.fOffset + fWord.tell();
    }
    else
    {
        fStream.seek(info.fOffset, TNqiostream::beg);
        inReadText(fStream, static_cast<int32>(inCount), values.data());
        end = fStream.tell();
    }
    // A blank right behind the last number goes with it.
    const int32 expected = info.fOffset + static_cast<int32>(info.fFullLength);
    if (mark.Reported() || end < expected || end > expected + 1)
        Fail(fmt::format("{} must be numbers with commas between them", NameText(name)), info.fOffset);
    return values;
}

Reals SceneReader::GetReals(size_t inCount)
{
    return GetArray<real32>(inCount, &NqToken::GetReal32ArrayToken);
}

std::vector<int32> SceneReader::GetIntegers(size_t inCount)
{
    return GetArray<int32>(inCount, &NqToken::GetInt32ArrayToken);
}

// One of the values that may have more than one length: three or four parts of a colour.
Reals SceneReader::GetReals(const ValueName& inName)
{
    if (inName.fMinCount == inName.fMaxCount)
        return GetReals(inName.fMinCount);
    const int8 first = PeekValue();
    const int32 start = fStream.tell();
    uint32 count;
    if (first == '$')
    {
        uint32 size = 0;
        NqToken::GetBinaryStartToken(fStream, size);
        count = size / 4;
    }
    else
        count = NextWord().fCommaCount + 1;
    if (count < inName.fMinCount || count > inName.fMaxCount)
        Fail(fmt::format("{} holds {} values instead of {} or {}", NameText(inName.fToken), count, inName.fMinCount,
                         inName.fMaxCount),
             start);
    fStream.seek(start, TNqiostream::beg);
    return GetReals(count);
}

// --- images and materials

Image SceneReader::GetImage()
{
    Image image;
    bool hasData = false;
    const int32 place = fNamePlace;
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        switch (name)
        {
        case names::kName:
            image.fName = GetElementName();
            break;
        case names::kFormat:
            image.fFormat = GetString();
            break;
        case names::kWidth:
            image.fWidth = GetInteger(1);
            break;
        case names::kHeight:
            image.fHeight = GetInteger(1);
            break;
        case names::kData:
            image.fBytes = GetBytes();
            hasData = true;
            break;
        default:
            SkipValue();
        }
    }
    if (!hasData)
        Fail("an image without DATA", place);
    const int64 texels = int64{image.fWidth} * image.fHeight;
    if ((image.fWidth > 0 || image.fHeight > 0) && texels * 4 != static_cast<int64>(image.fBytes.size()))
        Fail("an image whose DATA is not four bytes for each of WDTH times HGHT texels", place);
    return image;
}

Texture SceneReader::GetTexture()
{
    Texture texture;
    fImagePlaces.push_back(-1);
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        if (name == names::kKind)
            texture.fKind = GetFourChars();
        else if (name == names::kFile)
            texture.fFile = GetString();
        else if (name == names::kImageIndex)
        {
            fImagePlaces.back() = fNamePlace;
            texture.fImage = GetInteger(0);
        }
        else if (const ValueName* real = FindValueName(kTextureReals, name))
            texture.fReals.push_back({name, GetReals(*real)});
        else if (FindValueName(kTextureIntegers, name) != nullptr)
            texture.fIntegers.push_back({name, GetInteger(INT32_MIN)});
        else
            SkipValue();
    }
    return texture;
}

Material SceneReader::GetMaterial()
{
    Material material;
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        if (name == names::kName)
            material.fName = GetElementName();
        else if (name == names::kShading)
            material.fShading = GetFourChars();
        else if (name == names::kAlphaMode)
            material.fAlphaMode = GetString();
        else if (name == names::kTexture)
            material.fTextures.push_back(GetTexture());
        else if (const ValueName* real = FindValueName(kMaterialReals, name))
            material.fReals.push_back({name, GetReals(*real)});
        else if (FindValueName(kMaterialIntegers, name) != nullptr)
            material.fIntegers.push_back({name, GetInteger(INT32_MIN)});
        else
            SkipValue();
    }
    return material;
}

// --- meshes

TexCoords SceneReader::GetTexCoords(int32 inVertexCount)
{
    TexCoords set;
    const int32 place = fNamePlace;
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        if (name == names::kTexCoordSize)
        {
            const int32 sizePlace = fNamePlace;
            set.fSize = GetInteger(1);
            if (set.fSize > 3)
                Fail("DIMS must be 1, 2 or 3", sizePlace);
        }
        else if (name == names::kValues)
            set.fValues = GetReals(static_cast<size_t>(inVertexCount) * static_cast<size_t>(set.fSize));
        else
            SkipValue();
    }
    if (set.fValues.size() != static_cast<size_t>(inVertexCount) * static_cast<size_t>(set.fSize))
        Fail("a set of texture coordinates without VALU, or with DIMS behind it", place);
    return set;
}

Reals SceneReader::GetColours(int32 inVertexCount)
{
    Reals colours;
    const int32 place = fNamePlace;
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        if (name == names::kValues)
            colours = GetReals(static_cast<size_t>(inVertexCount) * 4);
        else
            SkipValue();
    }
    if (colours.size() != static_cast<size_t>(inVertexCount) * 4)
        Fail("a set of colours without VALU", place);
    return colours;
}

// Faces that are alike have one size; it is spelled out only when their corners have proved that the faces are there.
void SceneReader::FinishFaces(Mesh& ioMesh, int32 inFaceCount, int32 inFaceSize, const MeshPlaces& inPlaces)
{
    const int32 place = inPlaces.fFaceSizes >= 0   ? inPlaces.fFaceSizes
                        : inPlaces.fFaceCount >= 0 ? inPlaces.fFaceCount
                                                   : inPlaces.fCorners;
    if (inFaceSize > 0)
    {
        if (int64{inFaceCount} * inFaceSize != static_cast<int64>(ioMesh.fCorners.size()))
            Fail(fmt::format("{} faces of {} corners do not make {} corners", inFaceCount, inFaceSize,
                             ioMesh.fCorners.size()),
                 place);
        ioMesh.fFaceSizes.assign(static_cast<size_t>(inFaceCount), inFaceSize);
    }
    if (ioMesh.fFaceSizes.size() != static_cast<size_t>(inFaceCount))
        Fail("NFAC, but neither FSIZ nor FSZS", place);
    int64 corners = 0;
    for (const int32 size : ioMesh.fFaceSizes)
    {
        if (size < 0)
            Fail("a face with less than 0 corners", place);
        corners += size;
    }
    if (corners != static_cast<int64>(ioMesh.fCorners.size()))
        Fail(fmt::format("the faces need {} corners, and there are {}", corners, ioMesh.fCorners.size()), place);
    for (const int32 vertex : ioMesh.fCorners)
    {
        if (vertex < 0 || vertex >= ioMesh.fVertexCount)
            Fail(fmt::format("a corner at vertex {} of {}", vertex, ioMesh.fVertexCount), inPlaces.fCorners);
    }
}

// The array of three values for each vertex that has this name.
Reals& VectorsOf(Mesh& ioMesh, FourCharT inName)
{
    return inName == names::kPositions  ? ioMesh.fPositions
           : inName == names::kNormals  ? ioMesh.fNormals
           : inName == names::kTangents ? ioMesh.fTangents
                                        : ioMesh.fBitangents;
}

Mesh SceneReader::GetMesh()
{
    Mesh mesh;
    MeshPlaces places;
    fMaterialPlaces.push_back(-1);
    int32 faceCount = 0;
    int32 faceSize = 0;
    int32 cornerCount = 0;
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        switch (name)
        {
        case names::kName:
            mesh.fName = GetElementName();
            break;
        case names::kMaterialIndex:
            fMaterialPlaces.back() = fNamePlace;
            mesh.fMaterial = GetInteger(0);
            break;
        case names::kVertexCount:
            if (mesh.fVertexCount != 0)
                Fail("a second NVTX in one mesh", fNamePlace);
            places.fVertexCount = fNamePlace;
            mesh.fVertexCount = GetInteger(0);
            break;
        case names::kPositions:
        case names::kNormals:
        case names::kTangents:
        case names::kBitangents:
            VectorsOf(mesh, name) = GetReals(static_cast<size_t>(mesh.fVertexCount) * 3);
            break;
        case names::kTexCoords:
            mesh.fTexCoords.push_back(GetTexCoords(mesh.fVertexCount));
            break;
        case names::kColours:
            mesh.fColours.push_back(GetColours(mesh.fVertexCount));
            break;
        case names::kFaceCount:
            places.fFaceCount = fNamePlace;
            faceCount = GetInteger(0);
            break;
        case names::kFaceSize:
            places.fFaceSizes = fNamePlace;
            faceSize = GetInteger(1);
            break;
        case names::kFaceSizes:
            places.fFaceSizes = fNamePlace;
            mesh.fFaceSizes = GetIntegers(static_cast<size_t>(faceCount));
            break;
        case names::kCornerCount:
            cornerCount = GetInteger(0);
            break;
        case names::kCorners:
            places.fCorners = fNamePlace;
            mesh.fCorners = GetIntegers(static_cast<size_t>(cornerCount));
            break;
        default:
            SkipValue();
        }
    }
    if (mesh.fPositions.size() != static_cast<size_t>(mesh.fVertexCount) * 3)
        Fail("NVTX, but no POSN", places.fVertexCount);
    FinishFaces(mesh, faceCount, faceSize, places);
    return mesh;
}

// --- nodes

// One node and all below it. The name NODE has been read. Does not recurse: a file may be nested as deep as it is long.
void SceneReader::GetNodes(std::vector<Node>& ioNodes)
{
    struct OpenNode
    {
        int32 fIndex;
        int32 fMeshCount;
    };
    std::vector<OpenNode> open;
    const auto openNode = [&]
    {
        if (open.size() >= kMaxNodeDepth)
            Fail(fmt::format("nodes are nested more than {} deep", kMaxNodeDepth));
        NqToken::GetBeginToken(fStream);
        const int32 parent = open.empty() ? -1 : open.back().fIndex;
        open.push_back({static_cast<int32>(ioNodes.size()), 0});
        ioNodes.emplace_back();
        ioNodes.back().fParent = parent;
        fMeshListPlaces.push_back(-1);
    };
    openNode();
    while (!open.empty())
    {
        const FourCharT name = NextName();
        const size_t index = static_cast<size_t>(open.back().fIndex);
        Node& node = ioNodes[index];
        if (fElement.fIndex != index)
            fElement = {"node", index, node.fName};
        if (name == 0)
            open.pop_back();
        else if (name == names::kNode)
            openNode();
        else if (name == names::kName)
            node.fName = GetElementName();
        else if (name == names::kTransform)
        {
            const Reals values = GetReals(16);
            std::copy(values.begin(), values.end(), node.fTransform.begin());
        }
        else if (name == names::kMeshCount)
            open.back().fMeshCount = GetInteger(0);
        else if (name == names::kNodeMeshes)
        {
            fMeshListPlaces[index] = fNamePlace;
            node.fMeshes = GetIntegers(static_cast<size_t>(open.back().fMeshCount));
        }
        else
            SkipValue();
    }
}

// --- the whole

void SceneReader::CheckReferences(const Scene& inScene)
{
    const auto check = [this](int32 inIndex, size_t inCount, const char* inWhat, const char* inKind, size_t inElement,
                              const std::string& inName, int32 inPlace)
    {
        if (inIndex >= 0 && static_cast<size_t>(inIndex) < inCount)
            return;
        fElement = {inKind, inElement, inName};
        Fail(fmt::format("{} {} is referred to, of {}", inWhat, inIndex, inCount), inPlace);
    };
    constexpr int32 kNone = -1;
    size_t texture = 0;
    for (size_t i = 0; i < inScene.fMaterials.size(); ++i)
    {
        const Material& material = inScene.fMaterials[i];
        for (const Texture& one : material.fTextures)
        {
            if (one.fImage != kNone)
                check(one.fImage, inScene.fImages.size(), "image", "material", i, material.fName,
                      fImagePlaces[texture]);
            ++texture;
        }
    }
    for (size_t i = 0; i < inScene.fMeshes.size(); ++i)
    {
        const Mesh& mesh = inScene.fMeshes[i];
        if (mesh.fMaterial != kNone)
            check(mesh.fMaterial, inScene.fMaterials.size(), "material", "mesh", i, mesh.fName, fMaterialPlaces[i]);
    }
    for (size_t i = 0; i < inScene.fNodes.size(); ++i)
    {
        const Node& node = inScene.fNodes[i];
        for (const int32 mesh : node.fMeshes)
            check(mesh, inScene.fMeshes.size(), "mesh", "node", i, node.fName, fMeshListPlaces[i]);
    }
}

// What inRead reads is one of the elements of the scene: faults in it say which.
template <class Body>
auto SceneReader::GetElement(const char* inKind, size_t inIndex, Body&& inRead)
{
    fElement = {inKind, inIndex, {}};
    auto element = inRead();
    fElement = Element();
    return element;
}

// Behind the name of the scene. Other blocks may stand before it.
void SceneReader::GoToScene()
{
    while (NextName() != names::kScene)
    {
        if (LooksLikeNumber(fToken) || NqToken::IsEndToken(fToken))
            Fail("a name must stand here");
        SkipValue();
    }
}

// The stream is at its start again afterwards.
bool SceneReader::FindScene()
{
    bool found = false;
    try
    {
        GoToScene();
        found = true;
    }
    catch (const TNqException&)
    {
    }
    fStream.seek(0, TNqiostream::beg);
    return found;
}

// Everything behind the name of the scene.
void SceneReader::GetScene(Scene& outScene)
{
    int32 counts[4] = {-1, -1, -1, -1};
    int32 places[4] = {};
    const auto getCount = [&](size_t kind)
    {
        places[kind] = fNamePlace;
        counts[kind] = GetInteger(0);
    };
    NqToken::GetBeginToken(fStream);
    while (const FourCharT name = NextName())
    {
        switch (name)
        {
        case names::kVersion:
        {
            const int32 place = fNamePlace;
            if (GetInteger(1) > kLayoutVersion)
                Fail(fmt::format("a scene of a later layout than {}", kLayoutVersion), place);
            break;
        }
        case names::kUnit:
            outScene.fUnit = GetReals(1).front();
            break;
        case names::kUpAxis:
            outScene.fUpAxis = GetFourChars();
            break;
        case names::kImageCount:
            getCount(0);
            break;
        case names::kMaterialCount:
            getCount(1);
            break;
        case names::kMeshCount:
            getCount(2);
            break;
        case names::kNodeCount:
            getCount(3);
            break;
        case names::kImage:
            outScene.fImages.push_back(GetElement("image", outScene.fImages.size(), [this] { return GetImage(); }));
            break;
        case names::kMaterial:
            outScene.fMaterials.push_back(
                GetElement("material", outScene.fMaterials.size(), [this] { return GetMaterial(); }));
            break;
        case names::kMesh:
            outScene.fMeshes.push_back(GetElement("mesh", outScene.fMeshes.size(), [this] { return GetMesh(); }));
            break;
        case names::kNode:
            fElement = {"node", outScene.fNodes.size(), {}};
            GetNodes(outScene.fNodes);
            fElement = Element();
            break;
        default:
            SkipValue();
        }
    }
    const size_t sizes[4] = {outScene.fImages.size(), outScene.fMaterials.size(), outScene.fMeshes.size(),
                             outScene.fNodes.size()};
    constexpr const char* kWhat[4] = {"images", "materials", "meshes", "nodes"};
    for (size_t i = 0; i < 4; ++i)
    {
        if (counts[i] >= 0 && static_cast<size_t>(counts[i]) != sizes[i])
            Fail(fmt::format("the scene has {} {}, and its head says {}", sizes[i], kWhat[i], counts[i]), places[i]);
    }
}

std::string SceneReader::ElementText() const
{
    constexpr size_t kMaxShown = 40; // bytes
    const std::string text = fmt::format("{} {}", fElement.fKind, fElement.fIndex);
    return fElement.fName.empty() ? text : fmt::format("{} \"{}\"", text, Printable(fElement.fName, kMaxShown));
}

Outcome SceneReader::Read(Scene& outScene)
{
    outScene = Scene();
    bool found = false;
    try
    {
        GoToScene();
        found = true;
        GetScene(outScene);
        CheckReferences(outScene);
        return fFile.ReadOutcome();
    }
    catch (const TNqException& error)
    {
        if (fFile.Failed())
            return fFile.ReadOutcome();
        const NqErr code = error.GetError();
        if (code == kNqErrOutOfMemory)
            return Trouble(fmt::format("{}: {}", fFile.ShownName(), OutOfMemoryText()));
        const int32 position = fPosition >= 0 ? fPosition : fStream.tell();
        if (fWhat.empty())
            fWhat = code == kNqErrEndOfFile ? "the file ends" : "not what must stand here";
        if (!found)
            fWhat = "no scene in this file: " + fWhat;
        if (fElement.fKind != nullptr)
            fWhat = ElementText() + ": " + fWhat;
        return AtFault(fFile.FaultText(position, fWhat, code));
    }
}

} // namespace

bool HoldsScene(TokenFile& ioFile)
{
    return SceneReader(ioFile).FindScene();
}

Outcome ReadScene(TokenFile& ioFile, Scene& outScene)
{
    return SceneReader(ioFile).Read(outScene);
}

Outcome ReadScene(const std::string& inPath, Scene& outScene)
{
    TokenFile file;
    Outcome outcome = file.Open(inPath);
    return outcome.Ok() ? ReadScene(file, outScene) : outcome;
}

} // namespace nqtoken
