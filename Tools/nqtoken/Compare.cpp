#include "Tools/nqtoken/Compare.h"

#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/Pairing.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace nqtoken
{
namespace
{

constexpr size_t kMaxTold = 5;   // differences in a group that are told; the others are counted
constexpr size_t kMaxShown = 40; // bytes of a text in a message
constexpr const char* kUnset = "not set";

bool HaveSameBits(real32 inA, real32 inB)
{
    uint32 a;
    uint32 b;
    memcpy(&a, &inA, sizeof(a));
    memcpy(&b, &inB, sizeof(b));
    return a == b;
}

// The four characters of a name; empty when there is none.
std::string CodeText(FourCharT inCode)
{
    return inCode == 0 ? std::string() : NameText(inCode);
}

real64 HalfStep(real32 inValue)
{
    const real32 size = std::fabs(inValue);
    return (static_cast<real64>(std::nextafter(size, INFINITY)) - static_cast<real64>(size)) / 2;
}

// What was found in one group: nodes, meshes, materials, images.
class Group
{
public:
    Group(const char* inWhat, real64 inTolerance) : fWhat(inWhat), fTolerance(inTolerance) {}

    void Differs(const std::string& inWhere, const std::string& inHow)
    {
        ++fDifferences;
        if (fTold.size() < kMaxTold)
            fTold.push_back(inWhere.empty() ? inHow : inWhere + ": " + inHow);
    }

    template <class Value>
    bool Same(const std::string& inWhere, const char* inWhat, const Value& inA, const Value& inB)
    {
        if (inA == inB)
            return true;
        Differs(inWhere, fmt::format("{} {} and {}", inWhat, inA, inB));
        return false;
    }

    // An empty text is one that is not set.
    void SameText(const std::string& inWhere, const char* inWhat, const std::string& inA, const std::string& inB)
    {
        const auto shown = [](const std::string& text)
        { return text.empty() ? std::string(kUnset) : Quoted(text, kMaxShown); };
        if (inA != inB)
            Differs(inWhere, fmt::format("{} {} and {}", inWhat, shown(inA), shown(inB)));
    }

    // A size of 0 is one that is not set.
    void SameSize(const std::string& inWhere, const char* inWhat, int32 inA, int32 inB)
    {
        const auto shown = [](int32 size) { return size == 0 ? std::string(kUnset) : std::to_string(size); };
        if (inA != inB)
            Differs(inWhere, fmt::format("{} {} and {}", inWhat, shown(inA), shown(inB)));
    }

    void SameReals(const std::string& inWhere, const char* inWhat, const real32* inA, const real32* inB,
                   size_t inCount);
    void SameReals(const std::string& inWhere, const char* inWhat, const Reals& inA, const Reals& inB)
    {
        if (Same(inWhere, fmt::format("{}: number of values", inWhat).c_str(), inA.size(), inB.size()))
            SameReals(inWhere, inWhat, inA.data(), inB.data(), inA.size());
    }

    // The vertices of a mesh are numbered in another way, which makes no other shape.
    void VerticesDiffer() { fRenumbered = true; }

    void Tell(size_t inCountA, size_t inCountB, Output& ioOutput) const;

    bool Equal() const { return fDifferences == 0; }
    bool BitEqual() const { return Equal() && !fInexact; }

private:
    const char* fWhat;
    const real64 fTolerance;
    size_t fDifferences = 0;
    std::vector<std::string> fTold;
    bool fInexact = false;
    bool fRenumbered = false;
    real64 fLargest = 0; // difference of two reals, and where
    std::string fLargestWhere;
};

void Group::SameReals(const std::string& inWhere, const char* inWhat, const real32* inA, const real32* inB,
                      size_t inCount)
{
    bool told = false; // one tells enough of an array
    for (size_t i = 0; i < inCount; ++i)
    {
        if (HaveSameBits(inA[i], inB[i]))
            continue;
        fInexact = true;
        if (inA[i] == inB[i] || (std::isnan(inA[i]) && std::isnan(inB[i])))
            continue; // 0 and -0, or two kinds of not a number
        real64 apart = std::fabs(static_cast<real64>(inA[i]) - static_cast<real64>(inB[i]));
        if (std::isnan(apart))
            apart = INFINITY;
        const bool differs = !(apart <= fTolerance + HalfStep(std::max(std::fabs(inA[i]), std::fabs(inB[i]))));
        if ((!differs || told) && apart <= fLargest)
            continue;
        const std::string where = fmt::format("{}{}{}, value {}: {:.9g} and {:.9g}", inWhere,
                                              inWhere.empty() ? "" : ": ", inWhat, i, inA[i], inB[i]);
        if (apart > fLargest)
        {
            fLargest = apart;
            fLargestWhere = where;
        }
        if (differs && !told)
            Differs({}, where);
        told = told || differs;
    }
}

void Group::Tell(size_t inCountA, size_t inCountB, Output& ioOutput) const
{
    ioOutput.Put(fmt::format("{:<10}", fWhat), Colour::kName);
    const std::string count =
        inCountA == inCountB ? fmt::format("{}", inCountA) : fmt::format("{} and {}", inCountA, inCountB);
    ioOutput.Put(fmt::format("{:<12}", count));
    if (BitEqual())
        ioOutput.Put("the same to the bit", Colour::kGood);
    else if (Equal())
        ioOutput.Put("the same within the tolerance", Colour::kGood);
    else
        ioOutput.Put(Counted(fDifferences, "difference"), Colour::kBad);
    ioOutput.Put(fRenumbered ? ", corner by corner: vertices are numbered in another way" : "");
    ioOutput.EndLine();
    if (!fLargestWhere.empty())
    {
        ioOutput.Put(fmt::format("          largest difference of two numbers {:.3g} ({})", fLargest, fLargestWhere));
        ioOutput.EndLine();
    }
    for (const std::string& line : fTold)
    {
        ioOutput.Put("          " + line);
        ioOutput.EndLine();
    }
    if (fDifferences > fTold.size())
    {
        ioOutput.Put(fmt::format("          and {} more", fDifferences - fTold.size()));
        ioOutput.EndLine();
    }
}

std::string Named(const std::string& inWhat, const std::string& inName)
{
    return inName.empty() ? inWhat : fmt::format("{} {}", inWhat, Quoted(inName, kMaxShown));
}

// --- which elements belong together

template <class Element>
std::vector<std::string> NamesOf(const std::vector<Element>& inElements)
{
    std::vector<std::string> names;
    for (const Element& element : inElements)
        names.push_back(element.fName);
    return names;
}

// The same list in both scenes.
template <class Element>
struct Lists
{
    const char* fKind;
    const std::vector<Element>& fA;
    const std::vector<Element>& fB;
    Pairing fPairing;

    Lists(const char* inKind, const std::vector<Element>& inA, const std::vector<Element>& inB,
          bool (*inLookAlike)(const Element&, const Element&))
        : fKind(inKind),
          fA(inA),
          fB(inB),
          fPairing(NamesOf(inA), NamesOf(inB), [&](size_t a, size_t b) { return inLookAlike(inA[a], inB[b]); })
    {
    }

    static std::string Shown(const std::vector<Element>& inElements, int32 inIndex)
    {
        return inIndex < 0 ? "none" : Named(std::to_string(inIndex), inElements[static_cast<size_t>(inIndex)].fName);
    }

    void SameReference(const std::string& inWhere, int32 inA, int32 inB, Group& ioGroup) const
    {
        if (!fPairing.SameReference(inA, inB))
            ioGroup.Differs(inWhere, fmt::format("{} {} and {}", fKind, Shown(fA, inA), Shown(fB, inB)));
    }

    // Names both when the other one has another index.
    std::string Where(size_t inA, size_t inB) const
    {
        const std::string where = Named(fmt::format("{} {}", fKind, inA), fA[inA].fName);
        return inA == inB ? where : fmt::format("{} ({} in the second)", where, inB);
    }
};

// --- head

void CompareHead(const Scene& inA, const Scene& inB, Group& ioGroup)
{
    const auto unit = [](real32 value) { return value == 0 ? std::string(kUnset) : fmt::format("{:g}", value); };
    if ((inA.fUnit == 0) != (inB.fUnit == 0))
        ioGroup.Differs("scene", fmt::format("metres per unit {} and {}", unit(inA.fUnit), unit(inB.fUnit)));
    else
        ioGroup.SameReals("scene", "metres per unit", &inA.fUnit, &inB.fUnit, 1);
    ioGroup.SameText("scene", "up axis", CodeText(inA.fUpAxis), CodeText(inB.fUpAxis));
}

// --- meshes

// Where two lists part, if they do.
void CompareLists(const char* inWhat, const std::vector<int32>& inA, const std::vector<int32>& inB,
                  const std::string& inWhere, Group& ioGroup)
{
    if (!ioGroup.Same(inWhere, inWhat, inA.size(), inB.size()))
        return;
    const auto at = std::mismatch(inA.begin(), inA.end(), inB.begin());
    if (at.first != inA.end())
        ioGroup.Differs(
            inWhere, fmt::format("{}: number {} is {} and {}", inWhat, at.first - inA.begin(), *at.first, *at.second));
}

// The values of the corners, one after the other: what an array says, however the vertices are numbered.
Reals AtCorners(const Reals& inValues, const Mesh& inMesh)
{
    if (inMesh.fVertexCount == 0)
        return {};
    const size_t size = inValues.size() / static_cast<size_t>(inMesh.fVertexCount);
    Reals values;
    values.reserve(size * inMesh.fCorners.size());
    for (const int32 vertex : inMesh.fCorners)
    {
        const auto first = inValues.begin() + static_cast<ptrdiff_t>(size) * vertex;
        values.insert(values.end(), first, first + static_cast<ptrdiff_t>(size));
    }
    return values;
}

// Of the same size, and at the same place as far as text may have rounded it.
bool MeshesLookAlike(const Mesh& inA, const Mesh& inB)
{
    constexpr real32 kNear = 1e-4F;
    const auto isNear = [](real32 a, real32 b) { return std::fabs(a - b) <= kNear * (1 + std::fabs(a)); };
    const size_t count = std::min<size_t>(inA.fPositions.size(), 9);
    return inA.fVertexCount == inB.fVertexCount && inA.fFaceSizes.size() == inB.fFaceSizes.size() &&
           inA.fPositions.size() == inB.fPositions.size() &&
           std::equal(inA.fPositions.begin(), inA.fPositions.begin() + static_cast<ptrdiff_t>(count),
                      inB.fPositions.begin(), isNear);
}

void CompareMesh(const Mesh& inA, const Mesh& inB, const Lists<Material>& inMaterials, const std::string& inWhere,
                 Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    inMaterials.SameReference(inWhere, inA.fMaterial, inB.fMaterial, ioGroup);
    CompareLists("faces", inA.fFaceSizes, inB.fFaceSizes, inWhere, ioGroup);
    const bool renumbered = inA.fFaceSizes == inB.fFaceSizes && inA.fCorners != inB.fCorners;
    if (renumbered)
        ioGroup.VerticesDiffer();
    else if (!ioGroup.Same(inWhere, "number of vertices", inA.fVertexCount, inB.fVertexCount))
        return;
    const auto same = [&](const char* what, const Reals& a, const Reals& b)
    {
        if (a.empty() != b.empty())
            ioGroup.Differs(inWhere, fmt::format("{} in the {} only", what, a.empty() ? "second" : "first"));
        else if (renumbered)
            ioGroup.SameReals(inWhere, what, AtCorners(a, inA), AtCorners(b, inB));
        else
            ioGroup.SameReals(inWhere, what, a, b);
    };
    same("positions", inA.fPositions, inB.fPositions);
    same("normals", inA.fNormals, inB.fNormals);
    same("tangents", inA.fTangents, inB.fTangents);
    same("bitangents", inA.fBitangents, inB.fBitangents);
    if (ioGroup.Same(inWhere, "sets of texture coordinates", inA.fTexCoords.size(), inB.fTexCoords.size()))
    {
        for (size_t i = 0; i < inA.fTexCoords.size(); ++i)
            same("texture coordinates", inA.fTexCoords[i].fValues, inB.fTexCoords[i].fValues);
    }
    if (ioGroup.Same(inWhere, "sets of colours", inA.fColours.size(), inB.fColours.size()))
    {
        for (size_t i = 0; i < inA.fColours.size(); ++i)
            same("colours", inA.fColours[i], inB.fColours[i]);
    }
}

// --- materials

// Values by name, in whatever order they stand.
template <class Value, class CompareTwo>
void CompareNamed(const std::vector<Value>& inA, const std::vector<Value>& inB, const std::string& inWhere,
                  Group& ioGroup, CompareTwo&& inCompare)
{
    const auto find = [](const std::vector<Value>& values, FourCharT token) {
        return std::find_if(values.begin(), values.end(),
                            [token](const Value& value) { return value.fToken == token; });
    };
    for (const Value& a : inA)
    {
        const auto b = find(inB, a.fToken);
        if (b == inB.end())
            ioGroup.Differs(inWhere, fmt::format("{} is in the first only", NameText(a.fToken)));
        else
            inCompare(a, *b, NameText(a.fToken));
    }
    for (const Value& b : inB)
    {
        if (find(inA, b.fToken) == inA.end())
            ioGroup.Differs(inWhere, fmt::format("{} is in the second only", NameText(b.fToken)));
    }
}

template <class Holder>
void CompareValues(const Holder& inA, const Holder& inB, const std::string& inWhere, Group& ioGroup)
{
    CompareNamed(inA.fIntegers, inB.fIntegers, inWhere, ioGroup,
                 [&](const IntegerValue& a, const IntegerValue& b, const std::string& name)
                 { ioGroup.Same(inWhere, name.c_str(), a.fValue, b.fValue); });
    CompareNamed(inA.fReals, inB.fReals, inWhere, ioGroup,
                 [&](const RealValue& a, const RealValue& b, const std::string& name)
                 { ioGroup.SameReals(inWhere, name.c_str(), a.fValues, b.fValues); });
}

bool MaterialsLookAlike(const Material& inA, const Material& inB)
{
    const auto isSame = [](const RealValue& a, const RealValue& b)
    { return a.fToken == b.fToken && a.fValues.size() == b.fValues.size(); };
    return inA.fShading == inB.fShading && inA.fTextures.size() == inB.fTextures.size() &&
           std::equal(inA.fReals.begin(), inA.fReals.end(), inB.fReals.begin(), inB.fReals.end(), isSame);
}

void CompareMaterial(const Material& inA, const Material& inB, const Lists<Image>& inImages, const std::string& inWhere,
                     Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    ioGroup.SameText(inWhere, "shading", CodeText(inA.fShading), CodeText(inB.fShading));
    ioGroup.SameText(inWhere, "alpha mode", inA.fAlphaMode, inB.fAlphaMode);
    CompareValues(inA, inB, inWhere, ioGroup);
    if (!ioGroup.Same(inWhere, "textures", inA.fTextures.size(), inB.fTextures.size()))
        return;
    for (size_t i = 0; i < inA.fTextures.size(); ++i)
    {
        const Texture& a = inA.fTextures[i];
        const Texture& b = inB.fTextures[i];
        const std::string where = fmt::format("{}, texture {}", inWhere, i);
        ioGroup.SameText(where, "kind", CodeText(a.fKind), CodeText(b.fKind));
        ioGroup.SameText(where, "file", a.fFile, b.fFile);
        inImages.SameReference(where, a.fImage, b.fImage, ioGroup);
        CompareValues(a, b, where, ioGroup);
    }
}

// --- images

bool ImagesLookAlike(const Image& inA, const Image& inB)
{
    return inA.fFormat == inB.fFormat && inA.fBytes.size() == inB.fBytes.size();
}

void CompareImage(const Image& inA, const Image& inB, const std::string& inWhere, Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    ioGroup.SameText(inWhere, "format", inA.fFormat, inB.fFormat);
    ioGroup.SameSize(inWhere, "width", inA.fWidth, inB.fWidth);
    ioGroup.SameSize(inWhere, "height", inA.fHeight, inB.fHeight);
    if (ioGroup.Same(inWhere, "bytes", inA.fBytes.size(), inB.fBytes.size()) && inA.fBytes != inB.fBytes)
        ioGroup.Differs(inWhere, "other bytes");
}

// --- nodes

// The nodes of a scene, and below each one, or below none, which stand there in order.
struct Tree
{
    explicit Tree(const std::vector<Node>& inNodes)
        : fNodes(inNodes),
          fBelow(inNodes.size() + 1),
          fSizes(inNodes.size(), 1)
    {
        for (size_t i = 0; i < inNodes.size(); ++i)
            fBelow[Place(inNodes[i].fParent)].push_back(static_cast<int32>(i));
        for (size_t i = inNodes.size(); i-- > 0;)
            if (inNodes[i].fParent >= 0)
                fSizes[static_cast<size_t>(inNodes[i].fParent)] += fSizes[i];
    }

    static size_t Place(int32 inNode) { return static_cast<size_t>(inNode + 1); }
    const std::vector<int32>& Below(int32 inNode) const { return fBelow[Place(inNode)]; }
    std::vector<std::string> NamesBelow(int32 inNode) const
    {
        std::vector<std::string> names;
        for (const int32 node : Below(inNode))
            names.push_back(At(node).fName);
        return names;
    }
    const Node& At(int32 inNode) const { return fNodes[static_cast<size_t>(inNode)]; }

    const std::vector<Node>& fNodes;
    std::vector<std::vector<int32>> fBelow; // by Place
    std::vector<size_t> fSizes;             // of each node with all below it
};

std::string MeshesText(const Node& inNode, const std::vector<Mesh>& inMeshes)
{
    constexpr size_t kMost = 4;
    std::vector<std::string> texts;
    for (size_t i = 0; i < std::min(inNode.fMeshes.size(), kMost); ++i)
        texts.push_back(Lists<Mesh>::Shown(inMeshes, inNode.fMeshes[i]));
    if (inNode.fMeshes.size() > kMost)
        texts.emplace_back("...");
    return texts.empty() ? "none" : fmt::format("{}", fmt::join(texts, ", "));
}

class NodeComparison
{
public:
    NodeComparison(const Scene& inA, const Scene& inB, const Lists<Mesh>& inMeshes, Group& ioGroup)
        : fA(inA.fNodes),
          fB(inB.fNodes),
          fMeshes(inMeshes),
          fGroup(ioGroup)
    {
    }

    // Below nodes that belong together, those that do are looked for in turn.
    void Compare()
    {
        fPairs.emplace_back(-1, -1);
        for (size_t i = 0; i < fPairs.size(); ++i)
            CompareBelow(fPairs[i].first, fPairs[i].second);
    }

private:
    static std::string Text(const Tree& inTree, int32 inNode)
    {
        return Named(fmt::format("node {}", inNode), inTree.At(inNode).fName);
    }

    void CompareBelow(int32 inA, int32 inB)
    {
        const std::vector<int32>& a = fA.Below(inA);
        const std::vector<int32>& b = fB.Below(inB);
        const Pairing pairing(fA.NamesBelow(inA), fB.NamesBelow(inB),
                              [&](size_t first, size_t second)
                              { return fA.At(a[first]).fMeshes.size() == fB.At(b[second]).fMeshes.size(); });
        for (size_t i = 0; i < a.size(); ++i)
        {
            if (pairing.ToB(i) == Pairing::kNone)
                TellOnly(fA, a[i], "first");
            else
                CompareTwo(a[i], b[static_cast<size_t>(pairing.ToB(i))]);
        }
        for (size_t i = 0; i < b.size(); ++i)
            if (pairing.ToA(i) == Pairing::kNone)
                TellOnly(fB, b[i], "second");
        if (!pairing.InOrder())
            fGroup.Differs(inA < 0 ? "scene" : Text(fA, inA), "the nodes below it stand in another order");
    }

    void TellOnly(const Tree& inTree, int32 inNode, const char* inWhich)
    {
        const size_t below = inTree.fSizes[static_cast<size_t>(inNode)] - 1;
        const std::string others = below == 0 ? "" : fmt::format(" and {} below it", Counted(below, "node"));
        fGroup.Differs({}, fmt::format("{}{} {} in the {} only", Text(inTree, inNode), others,
                                       below == 0 ? "is" : "are", inWhich));
    }

    void CompareTwo(int32 inA, int32 inB)
    {
        const Node& a = fA.At(inA);
        const Node& b = fB.At(inB);
        const std::string where =
            Text(fA, inA) + (inA == inB ? std::string() : fmt::format(" ({} in the second)", inB));
        fGroup.SameText(where, "name", a.fName, b.fName);
        fGroup.SameReals(where, "transform", a.fTransform.data(), b.fTransform.data(), a.fTransform.size());
        if (!std::equal(a.fMeshes.begin(), a.fMeshes.end(), b.fMeshes.begin(), b.fMeshes.end(),
                        [&](int32 first, int32 second) { return fMeshes.fPairing.SameReference(first, second); }))
            fGroup.Differs(where,
                           fmt::format("meshes {} and {}", MeshesText(a, fMeshes.fA), MeshesText(b, fMeshes.fB)));
        fPairs.emplace_back(inA, inB);
    }

    const Tree fA;
    const Tree fB;
    const Lists<Mesh>& fMeshes;
    Group& fGroup;
    std::vector<std::pair<int32, int32>> fPairs; // -1 and -1 are what all roots are below
};

// --- the whole

template <class Element, class CompareTwo>
void CompareAll(const Lists<Element>& inLists, CompareTwo&& inCompare, Group& ioGroup)
{
    const Pairing& pairing = inLists.fPairing;
    const auto only = [&](const std::vector<Element>& elements, size_t index, const char* which)
    {
        ioGroup.Differs({},
                        fmt::format("{} is in the {} only",
                                    Named(fmt::format("{} {}", inLists.fKind, index), elements[index].fName), which));
    };
    for (size_t i = 0; i < inLists.fA.size(); ++i)
    {
        const int32 other = pairing.ToB(i);
        if (other == Pairing::kNone)
            only(inLists.fA, i, "first");
        else
            inCompare(inLists.fA[i], inLists.fB[static_cast<size_t>(other)],
                      inLists.Where(i, static_cast<size_t>(other)), ioGroup);
    }
    for (size_t i = 0; i < inLists.fB.size(); ++i)
        if (pairing.ToA(i) == Pairing::kNone)
            only(inLists.fB, i, "second");
    if (!pairing.InOrder())
        ioGroup.Differs({}, "they stand in another order");
}

} // namespace

ExitStatus CompareScenes(const Scene& inA, const Scene& inB, real64 inTolerance, Output& ioOutput)
{
    Group nodes("nodes", inTolerance);
    Group meshes("meshes", inTolerance);
    Group materials("materials", inTolerance);
    Group images("images", inTolerance);
    const Lists<Image> imageLists("image", inA.fImages, inB.fImages, ImagesLookAlike);
    const Lists<Material> materialLists("material", inA.fMaterials, inB.fMaterials, MaterialsLookAlike);
    const Lists<Mesh> meshLists("mesh", inA.fMeshes, inB.fMeshes, MeshesLookAlike);
    CompareHead(inA, inB, nodes);
    NodeComparison(inA, inB, meshLists, nodes).Compare();
    CompareAll(
        meshLists,
        [&](const Mesh& a, const Mesh& b, const std::string& where, Group& group)
        { CompareMesh(a, b, materialLists, where, group); },
        meshes);
    CompareAll(
        materialLists,
        [&](const Material& a, const Material& b, const std::string& where, Group& group)
        { CompareMaterial(a, b, imageLists, where, group); },
        materials);
    CompareAll(imageLists, CompareImage, images);
    nodes.Tell(inA.fNodes.size(), inB.fNodes.size(), ioOutput);
    meshes.Tell(inA.fMeshes.size(), inB.fMeshes.size(), ioOutput);
    materials.Tell(inA.fMaterials.size(), inB.fMaterials.size(), ioOutput);
    images.Tell(inA.fImages.size(), inB.fImages.size(), ioOutput);
    const Group* groups[] = {&nodes, &meshes, &materials, &images};
    const bool same =
        std::all_of(std::begin(groups), std::end(groups), [](const Group* group) { return group->Equal(); });
    const bool exact =
        std::all_of(std::begin(groups), std::end(groups), [](const Group* group) { return group->BitEqual(); });
    if (exact)
        ioOutput.Put("the same to the bit", Colour::kGood);
    else if (same)
        ioOutput.Put(fmt::format("the same within {:g} and the rounding to 32 bits", inTolerance), Colour::kGood);
    else
        ioOutput.Put("different", Colour::kBad);
    ioOutput.EndLine();
    return same ? kDone : kAtFault;
}

} // namespace nqtoken
