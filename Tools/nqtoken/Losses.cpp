#include "Tools/nqtoken/Losses.h"

#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace nqtoken
{
namespace
{

// How far numbers may be apart that went through single precision and nine digits: of positions, relative to the size
// of the scene; of others, relative to 1 or to the number.
constexpr real64 kPrecision = 1e-6;
constexpr real64 kNormalPrecision = 1e-4;

std::string Count(size_t inCount, const char* inOne, const char* inMany)
{
    return fmt::format("{} {}", inCount, inCount == 1 ? inOne : inMany);
}

// ---- Faces ----------------------------------------------------------------------------------------------------------

struct FaceName
{
    const char* fOne;
    const char* fMany;
};
constexpr FaceName kFaceNames[kFaceKinds] = {{"vertex that no face uses", "vertices that no face uses"},
                                             {"point", "points"},
                                             {"line", "lines"},
                                             {"triangle", "triangles"},
                                             {"polygon", "polygons"}};

struct FaceCounts
{
    size_t fKinds[kFaceKinds] = {};
    size_t fCut = 0;        // polygons that are triangles in fKinds
    size_t fPieces = 0;     // those triangles
    size_t fMadePoints = 0; // vertices that are points in fKinds
    size_t fWithoutCorners = 0;
    size_t fMeshes = 0; // with vertices

    size_t& operator[](FaceKind inKind) { return fKinds[static_cast<size_t>(inKind)]; }
    // Adds those of a mesh that is placed so many times.
    void Add(const FaceCounts& inCounts, size_t inTimes)
    {
        for (size_t kind = 0; kind < kFaceKinds; ++kind)
            fKinds[kind] += inCounts.fKinds[kind] * inTimes;
        fCut += inCounts.fCut * inTimes;
        fPieces += inCounts.fPieces * inTimes;
        fMadePoints += inCounts.fMadePoints * inTimes;
        fWithoutCorners += inCounts.fWithoutCorners * inTimes;
        fMeshes += inCounts.fMeshes * inTimes;
    }
};

FaceCounts CountMesh(const Mesh& inMesh, const FaceRules& inRules)
{
    FaceCounts counts;
    counts.fMeshes = inMesh.fVertexCount > 0;
    std::vector<bool> used(static_cast<size_t>(inMesh.fVertexCount));
    for (const int32 vertex : inMesh.fCorners)
        used[static_cast<size_t>(vertex)] = true;
    const auto loose = static_cast<size_t>(std::count(used.begin(), used.end(), false));
    const bool arePoints = inRules.fLoosePoints && inMesh.fFaceSizes.empty();
    counts[arePoints ? FaceKind::kPoint : FaceKind::kLooseVertex] = loose;
    counts.fMadePoints = arePoints ? loose : 0;
    for (const int32 size : inMesh.fFaceSizes)
    {
        counts.fWithoutCorners += size == 0;
        counts[FaceKind::kPoint] += size == 1;
        counts[FaceKind::kLine] += size == 2;
        counts[FaceKind::kTriangle] += size == 3;
        counts[FaceKind::kPolygon] += size > 3 && !inRules.fTriangles;
        counts.fCut += size > 3 && inRules.fTriangles;
        counts.fPieces += size > 3 && inRules.fTriangles ? static_cast<size_t>(size) - 2 : 0;
    }
    counts[FaceKind::kTriangle] += counts.fPieces;
    return counts;
}

FaceCounts CountFaces(const Scene& inScene, const FaceRules& inRules)
{
    std::vector<size_t> uses(inScene.fMeshes.size());
    for (PlacingWalk placing(inScene); placing.Next();)
        ++uses[static_cast<size_t>(placing.MeshIndex())];
    FaceCounts counts;
    for (size_t i = 0; i < uses.size(); ++i)
        counts.Add(CountMesh(inScene.fMeshes[i], inRules), uses[i]);
    return counts;
}

// The largest coordinate.
real64 ExtentOf(const Scene& inScene, bool inOnce)
{
    real64 extent = 0;
    for (PlacingWalk placing(inScene, inOnce); placing.Next();)
    {
        for (int32 vertex = 0; vertex < placing.MeshOf().fVertexCount; ++vertex)
        {
            for (const real64 part : placing.Position(vertex))
                extent = std::isfinite(part) ? std::max(extent, std::fabs(part)) : extent;
        }
    }
    return extent;
}

// ---- Values at corners ----------------------------------------------------------------------------------------------

// What is found of one kind of value at the corners of faces that are in both.
struct Values
{
    size_t fCount = 0; // corners that have it in the scene
    size_t fLost = 0;
    size_t fChanged = 0;
    size_t fInfinite = 0; // apart
    real64 fLargest = 0;  // difference of those that are not

    void Lose()
    {
        ++fCount;
        ++fLost;
    }
    // No number is closest to what is not a number or infinite.
    void Compare(real64 inApart, real64 inTolerance)
    {
        ++fCount;
        fInfinite += std::isinf(inApart);
        fChanged += inApart > inTolerance && !std::isinf(inApart);
        fLargest = std::isinf(inApart) ? fLargest : std::max(fLargest, inApart);
    }
    void Describe(const std::string& inWhat, std::vector<std::string>& outLines) const
    {
        if (fLost > 0)
            outLines.push_back(fmt::format("lost: {} at {} of {} corners", inWhat, fLost, fCount));
        if (fChanged > 0)
            outLines.push_back(
                fmt::format("changed: {} at {} of {} corners, by up to {:.2g}", inWhat, fChanged, fCount, fLargest));
        if (fInfinite > 0)
            outLines.push_back(fmt::format("lost: {} at {} of {} corners that are infinite or not a number", inWhat,
                                           fInfinite, fCount));
    }
};

real64 Apart(real64 inA, real64 inB)
{
    if (inA == inB || (std::isnan(inA) && std::isnan(inB)))
        return 0;
    const real64 apart = std::fabs(inA - inB);
    return std::isnan(apart) ? INFINITY : apart;
}

real64 Apart(const Vector3& inA, const Vector3& inB)
{
    return std::max({Apart(inA[0], inB[0]), Apart(inA[1], inB[1]), Apart(inA[2], inB[2])});
}

// The number of the material in the model for each of the scene, -1 for one that is lost.
using MaterialNumbers = std::vector<int32>;

class CornerValues
{
public:
    CornerValues(real64 inExtent, const MaterialNumbers& inMaterials) : fExtent(inExtent), fMaterials(inMaterials) {}

    void CompareFace(const FaceWalk& inScene, const FaceWalk& inBack);
    void CompareCorners(const FaceWalk& inScene, const FaceWalk& inBack);
    void Describe(std::vector<std::string>& outLines) const;

private:
    // Values of one vertex in some set; none in the model when inB is null.
    static void CompareSet(const real32* inA, size_t inSizeA, const real32* inB, size_t inSizeB, Values& ioValues);
    void CompareCorner(const PlacingWalk& inA, int32 inVertexA, const PlacingWalk& inB, int32 inVertexB);

    const real64 fExtent;
    const MaterialNumbers& fMaterials;
    size_t fFaces = 0; // with a material that the model has
    size_t fOtherMaterials = 0;
    Values fPositions;
    Values fNormals;
    Values fTangents;
    std::vector<Values> fTexCoords; // by set
    std::vector<Values> fColours;
};

// A coordinate or colour of fewer parts says 0 for the others, and 1 for alpha.
void CornerValues::CompareSet(const real32* inA, size_t inSizeA, const real32* inB, size_t inSizeB, Values& ioValues)
{
    if (inB == nullptr)
        return ioValues.Lose();
    real64 largest = 0;
    real64 size = 1;
    for (size_t i = 0; i < inSizeA; ++i)
    {
        const auto a = static_cast<real64>(inA[i]);
        largest = std::max(largest, Apart(a, i < inSizeB ? static_cast<real64>(inB[i]) : i == 3 ? 1 : 0));
        size = std::isfinite(a) ? std::max(size, std::fabs(a)) : size;
    }
    ioValues.Compare(largest, kPrecision * size);
}

void CornerValues::CompareCorner(const PlacingWalk& inA, int32 inVertexA, const PlacingWalk& inB, int32 inVertexB)
{
    fPositions.Compare(Apart(inA.Position(inVertexA), inB.Position(inVertexB)), kPrecision * fExtent);
    const Mesh& a = inA.MeshOf();
    const Mesh& b = inB.MeshOf();
    if (!a.fNormals.empty() && !b.fNormals.empty())
        fNormals.Compare(Apart(inA.Normal(inVertexA), inB.Normal(inVertexB)), kNormalPrecision);
    else if (!a.fNormals.empty())
        fNormals.Lose();
    if ((!a.fTangents.empty() && b.fTangents.empty()) || (!a.fBitangents.empty() && b.fBitangents.empty()))
        fTangents.Lose();
    const auto indexA = static_cast<size_t>(inVertexA);
    const auto indexB = static_cast<size_t>(inVertexB);
    fTexCoords.resize(std::max(fTexCoords.size(), a.fTexCoords.size()));
    for (size_t set = 0; set < a.fTexCoords.size(); ++set)
    {
        const bool isThere = set < b.fTexCoords.size();
        const auto sizeA = static_cast<size_t>(a.fTexCoords[set].fSize);
        const size_t sizeB = isThere ? static_cast<size_t>(b.fTexCoords[set].fSize) : 0;
        CompareSet(&a.fTexCoords[set].fValues[indexA * sizeA], sizeA,
                   isThere ? &b.fTexCoords[set].fValues[indexB * sizeB] : nullptr, sizeB, fTexCoords[set]);
    }
    fColours.resize(std::max(fColours.size(), a.fColours.size()));
    for (size_t set = 0; set < a.fColours.size(); ++set)
    {
        const bool isThere = set < b.fColours.size();
        CompareSet(&a.fColours[set][indexA * 4], 4, isThere ? &b.fColours[set][indexB * 4] : nullptr, 4, fColours[set]);
    }
}

void CornerValues::CompareFace(const FaceWalk& inScene, const FaceWalk& inBack)
{
    const int32 material = inScene.Placing().MeshOf().fMaterial;
    const int32 number = material >= 0 ? fMaterials[static_cast<size_t>(material)] : -1;
    fFaces += number >= 0;
    fOtherMaterials += number >= 0 && number != inBack.Placing().MeshOf().fMaterial;
    CompareCorners(inScene, inBack);
}

void CornerValues::CompareCorners(const FaceWalk& inScene, const FaceWalk& inBack)
{
    for (size_t i = 0; i < inScene.Corners().size() && i < inBack.Corners().size(); ++i)
        CompareCorner(inScene.Placing(), inScene.Corners()[i], inBack.Placing(), inBack.Corners()[i]);
}

void CornerValues::Describe(std::vector<std::string>& outLines) const
{
    fPositions.Describe("positions", outLines);
    fNormals.Describe("normals", outLines);
    fTangents.Describe("tangents", outLines);
    const auto describe = [&](const char* what, const std::vector<Values>& sets)
    {
        for (size_t set = 0; set < sets.size(); ++set)
            sets[set].Describe(set == 0 ? what : fmt::format("{} of set {}", what, set + 1), outLines);
    };
    describe("texture coordinates", fTexCoords);
    describe("colours", fColours);
    if (fOtherMaterials > 0)
        outLines.push_back(
            fmt::format("changed: materials of {} of {}", fOtherMaterials, Count(fFaces, "face", "faces")));
}

// ---- Lines about faces ----------------------------------------------------------------------------------------------

void DescribeMeshes(const Scene& inScene, FaceCounts& inA, FaceCounts& inB, std::vector<std::string>& outLines)
{
    std::vector<bool> isPlaced(inScene.fMeshes.size());
    for (PlacingWalk placing(inScene); placing.Next();)
        isPlaced[static_cast<size_t>(placing.MeshIndex())] = true;
    size_t empty = 0;
    size_t unplaced = 0;
    for (size_t i = 0; i < isPlaced.size(); ++i)
    {
        empty += inScene.fMeshes[i].fVertexCount == 0;
        unplaced += inScene.fMeshes[i].fVertexCount > 0 && !isPlaced[i];
    }
    if (empty > 0)
        outLines.push_back(fmt::format("lost: {} without vertices", Count(empty, "mesh", "meshes")));
    if (unplaced > 0)
        outLines.push_back(fmt::format("lost: {} that no node places", Count(unplaced, "mesh", "meshes")));
    if (inA.fMeshes != inB.fMeshes)
        outLines.push_back(fmt::format("changed: {}, as the nodes place them, became {}",
                                       Count(inA.fMeshes, "mesh", "meshes"), inB.fMeshes));
}

void DescribeFaces(FaceCounts& inA, FaceCounts& inB, std::vector<std::string>& outLines)
{
    for (size_t kind = 0; kind < kFaceKinds; ++kind)
    {
        const size_t a = inA.fKinds[kind];
        const size_t b = inB.fKinds[kind];
        const auto& [one, many] = kFaceNames[kind];
        if (b < a)
            outLines.push_back(fmt::format("lost: {} of {}", a - b, Count(a, one, many)));
        else if (b > a)
            outLines.push_back(fmt::format("added: {}", Count(b - a, one, many)));
    }
    if (inA.fWithoutCorners > inB.fWithoutCorners)
        outLines.push_back(
            fmt::format("lost: {} without corners", Count(inA.fWithoutCorners - inB.fWithoutCorners, "face", "faces")));
    if (inA.fMadePoints > 0)
        outLines.push_back(fmt::format("changed: {} of meshes without faces became points",
                                       Count(inA.fMadePoints, "vertex", "vertices")));
    if (inA.fCut > 0)
        outLines.push_back(
            fmt::format("changed: {} became {} triangles", Count(inA.fCut, "polygon", "polygons"), inA.fPieces));
}

// Faces of a kind of which some are missing are in no order that could be compared.
void DescribeShapes(const Scene& inScene, const Scene& inBack, const FaceRules& inRules,
                    const MaterialNumbers& inMaterials, std::vector<std::string>& outLines)
{
    FaceCounts a = CountFaces(inScene, inRules);
    FaceCounts b = CountFaces(inBack, {});
    DescribeMeshes(inScene, a, b, outLines);
    DescribeFaces(a, b, outLines);
    CornerValues values(ExtentOf(inScene, inRules.fOnce), inMaterials);
    const FaceRules back{false, false, inRules.fOnce};
    for (size_t i = 0; i < kFaceKinds; ++i)
    {
        const auto kind = static_cast<FaceKind>(i);
        FaceWalk expected(inScene, kind, inRules);
        FaceWalk found(inBack, kind, back);
        while (a[kind] == b[kind] && expected.Next() && found.Next())
        {
            if (kind == FaceKind::kLooseVertex)
                values.CompareCorners(expected, found);
            else
                values.CompareFace(expected, found);
        }
    }
    values.Describe(outLines);
}

// ---- Names, nodes, materials, images --------------------------------------------------------------------------------

// How many of some names are not among those of the model, one for one.
class NameLosses
{
public:
    void Expect(const std::string& inName) { ++fExpected[inName]; }
    void Find(const std::string& inName)
    {
        const auto found = fExpected.find(inName);
        if (found != fExpected.end() && found->second > 0)
            --found->second;
    }
    void Describe(const char* inOne, const char* inMany, std::vector<std::string>& outLines) const
    {
        size_t changed = 0;
        const std::string* first = nullptr;
        for (const auto& [name, count] : fExpected)
        {
            if (name.empty() || count == 0)
                continue;
            changed += count;
            first = first != nullptr ? first : &name;
        }
        if (first != nullptr)
            outLines.push_back(fmt::format("changed: names of {}, such as \"{}\"", Count(changed, inOne, inMany),
                                           Printable(*first, 40)));
        const auto unnamed = fExpected.find({});
        if (unnamed != fExpected.end() && unnamed->second > 0)
            outLines.push_back(fmt::format("added: names of {} without one", Count(unnamed->second, inOne, inMany)));
    }

private:
    std::map<std::string, size_t> fExpected;
};

template <class Element>
void DescribeNames(const std::vector<Element>& inA, const std::vector<Element>& inB, const char* inOne,
                   const char* inMany, std::vector<std::string>& outLines)
{
    if (inA.size() > inB.size())
        outLines.push_back(fmt::format("lost: {} of {}", inA.size() - inB.size(), Count(inA.size(), inOne, inMany)));
    NameLosses names;
    for (const Element& element : inA)
        names.Expect(element.fName);
    for (const Element& element : inB)
        names.Find(element.fName);
    names.Describe(inOne, inMany, outLines);
}

void DescribeNodes(const Scene& inScene, const Scene& inBack, const Writing& inWriting,
                   std::vector<std::string>& outLines)
{
    const std::vector<Node>& a = inScene.fNodes;
    const std::vector<Node>& b = inBack.fNodes;
    if (inWriting.fHoldsNodes)
    {
        DescribeNames(a, b, "node", "nodes", outLines);
        size_t moved = 0;
        for (size_t i = 0; i < a.size() && a.size() == b.size(); ++i)
        {
            real64 apart = 0;
            real64 size = 1;
            for (size_t part = 0; part < a[i].fTransform.size(); ++part)
            {
                const auto value = static_cast<real64>(a[i].fTransform[part]);
                apart = std::max(apart, Apart(value, static_cast<real64>(b[i].fTransform[part])));
                size = std::isfinite(value) ? std::max(size, std::fabs(value)) : size;
            }
            moved += !(apart <= kPrecision * size);
        }
        if (moved > 0)
            outLines.push_back(fmt::format("changed: transforms of {}", Count(moved, "node", "nodes")));
        return;
    }
    const bool isTree = std::any_of(a.begin(), a.end(),
                                    [](const Node& node) { return node.fParent > 0 || node.fTransform != kIdentity; });
    if (isTree)
        outLines.push_back(
            fmt::format("lost: the tree of {}; meshes are where it places them", Count(a.size(), "node", "nodes")));
}

bool AreSame(const Reals& inA, const Reals& inB)
{
    // A colour of three parts is opaque.
    for (size_t i = 0; i < inA.size(); ++i)
    {
        const auto a = static_cast<real64>(inA[i]);
        const real64 b = i < inB.size() ? static_cast<real64>(inB[i]) : 1;
        if (!(Apart(a, b) <= kPrecision * std::max(1.0, std::fabs(a))))
            return false;
    }
    return true;
}

// What the materials of the model have not of those of the scene.
class MaterialLosses
{
public:
    void Compare(const Material& inA, const Material& inB);
    size_t LossCount() const { return fLost + fLostTextures + fChangedFiles; }
    void Describe(std::vector<std::string>& outLines) const;

private:
    // A value of the scene, found in the model or not.
    void Count(bool inIsFound, FourCharT inToken)
    {
        ++fValues;
        if (!inIsFound && ++fLost > 0)
            fTokens.insert(NameText(inToken));
    }
    template <class Holder>
    void CompareValues(const Holder& inA, const Holder& inB);

    size_t fValues = 0;
    size_t fLost = 0;
    std::set<std::string> fTokens;
    size_t fTextures = 0;
    size_t fLostTextures = 0;
    size_t fChangedFiles = 0;
};

template <class Holder>
void MaterialLosses::CompareValues(const Holder& inA, const Holder& inB)
{
    const auto isFound = [](const auto& value, const auto& values, auto&& isSame)
    {
        return std::any_of(values.begin(), values.end(),
                           [&](const auto& other) { return other.fToken == value.fToken && isSame(value, other); });
    };
    for (const IntegerValue& value : inA.fIntegers)
        Count(isFound(value, inB.fIntegers, [](const auto& a, const auto& b) { return a.fValue == b.fValue; }),
              value.fToken);
    for (const RealValue& value : inA.fReals)
        Count(isFound(value, inB.fReals, [](const auto& a, const auto& b) { return AreSame(a.fValues, b.fValues); }),
              value.fToken);
}

void MaterialLosses::Compare(const Material& inA, const Material& inB)
{
    if (inA.fShading != 0)
        Count(inA.fShading == inB.fShading, names::kShading);
    if (!inA.fAlphaMode.empty())
        Count(inA.fAlphaMode == inB.fAlphaMode, names::kAlphaMode);
    CompareValues(inA, inB);
    std::map<FourCharT, size_t> met; // textures of each kind
    for (const Texture& texture : inA.fTextures)
    {
        ++fTextures;
        size_t number = met[texture.fKind]++;
        const auto other =
            std::find_if(inB.fTextures.begin(), inB.fTextures.end(),
                         [&](const Texture& one) { return one.fKind == texture.fKind && number-- == 0; });
        if (other == inB.fTextures.end())
        {
            ++fLostTextures;
            continue;
        }
        fChangedFiles +=
            (texture.fImage >= 0) != (other->fImage >= 0) || (texture.fImage < 0 && texture.fFile != other->fFile);
        CompareValues(texture, *other);
    }
}

void MaterialLosses::Describe(std::vector<std::string>& outLines) const
{
    if (fLostTextures > 0)
        outLines.push_back(fmt::format("lost: {} of {} of materials", fLostTextures,
                                       nqtoken::Count(fTextures, "texture", "textures")));
    if (fChangedFiles > 0)
        outLines.push_back(
            fmt::format("changed: file names of {}", nqtoken::Count(fChangedFiles, "texture", "textures")));
    if (fLost > 0)
        outLines.push_back(fmt::format("lost or changed: {} of {} of materials ({})", fLost,
                                       nqtoken::Count(fValues, "value", "values"), fmt::join(fTokens, ", ")));
}

size_t CountLosses(const Material& inA, const Material& inB)
{
    MaterialLosses losses;
    losses.Compare(inA, inB);
    return losses.LossCount();
}

using MaterialsByName = std::multimap<std::string, const Material*>;

// Of several with one name, which come in any order, the one that holds most; of very many, among the first.
MaterialsByName::iterator FindMaterial(MaterialsByName& ioMaterials, const std::string& inName,
                                       const Material& inMaterial)
{
    constexpr int kMostTried = 16;
    const auto [begin, end] = ioMaterials.equal_range(inName);
    auto best = begin != end ? begin : ioMaterials.end();
    size_t least = SIZE_MAX;
    int tried = 0;
    for (auto one = begin; one != end && least > 0 && tried < kMostTried; ++one, ++tried)
    {
        const size_t losses = CountLosses(inMaterial, *one->second);
        best = losses < least ? one : best;
        least = std::min(least, losses);
    }
    return best;
}

// A material and the one in the model that has the name it was given. A format without materials has one all the same,
// from its reader, which counts when it happens to be that of the scene.
MaterialNumbers DescribeMaterials(const Scene& inScene, const Scene& inBack, const Writing& inWriting,
                                  std::vector<std::string>& outLines)
{
    MaterialNumbers numbers(inScene.fMaterials.size(), -1);
    MaterialsByName written;
    for (const Material& material : inBack.fMaterials)
        written.emplace(material.fName, &material);
    MaterialLosses losses;
    NameLosses names;
    size_t lost = 0;
    for (size_t i = 0; i < inScene.fMaterials.size(); ++i)
    {
        const Material& material = inScene.fMaterials[i];
        const std::string& name = inWriting.fHoldsMaterials ? inWriting.fMaterials[i] : material.fName;
        const auto found = FindMaterial(written, name, material);
        if (found == written.end() || (!inWriting.fHoldsMaterials && CountLosses(material, *found->second) > 0))
        {
            ++lost;
            continue;
        }
        names.Expect(material.fName);
        names.Find(found->first);
        losses.Compare(material, *found->second);
        numbers[i] = static_cast<int32>(found->second - inBack.fMaterials.data());
        written.erase(found);
    }
    if (lost > 0)
        outLines.push_back(
            fmt::format("lost: {} of {}", lost, Count(inScene.fMaterials.size(), "material", "materials")));
    names.Describe("material", "materials", outLines);
    losses.Describe(outLines);
    return numbers;
}

void DescribeImages(const Scene& inScene, const Scene& inBack, std::vector<std::string>& outLines)
{
    const std::vector<Image>& a = inScene.fImages;
    const std::vector<Image>& b = inBack.fImages;
    if (b.size() < a.size())
        outLines.push_back(fmt::format("lost: {} of {}", a.size() - b.size(),
                                       Count(a.size(), "embedded texture", "embedded textures")));
    size_t encoded = 0;
    size_t changed = 0;
    for (size_t i = 0; i < a.size() && a.size() == b.size(); ++i)
    {
        encoded += a[i].fHeight != 0 && b[i].fHeight == 0;
        changed += a[i].fHeight == b[i].fHeight && a[i].fBytes != b[i].fBytes;
    }
    if (encoded > 0)
        outLines.push_back(fmt::format("changed: {} became {}",
                                       Count(encoded, "embedded texture of texels", "embedded textures of texels"),
                                       encoded == 1 ? "an image file" : "image files"));
    if (changed > 0)
        outLines.push_back(
            fmt::format("changed: bytes of {}", Count(changed, "embedded texture", "embedded textures")));
}

void DescribeHead(const Scene& inScene, const Scene& inBack, std::vector<std::string>& outLines)
{
    if (inScene.fUnit > 0 && inBack.fUnit != inScene.fUnit)
        outLines.push_back(
            inBack.fUnit > 0 ? fmt::format("changed: the model is in units of {:g} metres, and the scene of {:g}; its "
                                           "numbers are written as they are",
                                           inBack.fUnit, inScene.fUnit)
                             : fmt::format("lost: that a unit stands for {:g} metres", inScene.fUnit));
    if (inScene.fUpAxis != 0 && inBack.fUpAxis != inScene.fUpAxis)
        outLines.push_back(inBack.fUpAxis != 0
                               ? fmt::format("changed: the model has {} upward, and the scene {}; its numbers are "
                                             "written as they are",
                                             NameText(inBack.fUpAxis), NameText(inScene.fUpAxis))
                               : fmt::format("lost: that {} is upward", NameText(inScene.fUpAxis)));
}

} // namespace

std::vector<std::string> DescribeLosses(const Scene& inScene, const Scene& inBack, const Writing& inWriting)
{
    std::vector<std::string> lines;
    std::vector<std::string> materialLines;
    const MaterialNumbers materials = DescribeMaterials(inScene, inBack, inWriting, materialLines);
    DescribeShapes(inScene, inBack, inWriting.fFaces, materials, lines);
    if (inWriting.fHoldsMeshes)
    {
        NameLosses names;
        for (const Mesh& mesh : inScene.fMeshes)
        {
            if (mesh.fVertexCount > 0)
                names.Expect(mesh.fName);
        }
        for (const Mesh& mesh : inBack.fMeshes)
            names.Find(mesh.fName);
        names.Describe("mesh", "meshes", lines);
    }
    DescribeNodes(inScene, inBack, inWriting, lines);
    lines.insert(lines.end(), materialLines.begin(), materialLines.end());
    DescribeImages(inScene, inBack, lines);
    DescribeHead(inScene, inBack, lines);
    if (!inWriting.fNote.empty())
        lines.push_back(inWriting.fNote);
    return lines;
}

} // namespace nqtoken
