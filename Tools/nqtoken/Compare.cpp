#include "Tools/nqtoken/Compare.h"

#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nqtoken
{
namespace
{

constexpr size_t kMaxTold = 5;   // differences in a group that are told; the others are counted
constexpr size_t kMaxShown = 40; // bytes of a text in a message

bool HaveSameBits(real32 inA, real32 inB)
{
    uint32 a;
    uint32 b;
    memcpy(&a, &inA, sizeof(a));
    memcpy(&b, &inB, sizeof(b));
    return a == b;
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

    void SameText(const std::string& inWhere, const char* inWhat, const std::string& inA, const std::string& inB)
    {
        if (inA != inB)
            Differs(inWhere,
                    fmt::format("{} \"{}\" and \"{}\"", inWhat, Printable(inA, kMaxShown), Printable(inB, kMaxShown)));
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
        ioOutput.Put(fmt::format("{} {}", fDifferences, fDifferences == 1 ? "difference" : "differences"),
                     Colour::kBad);
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

std::string Where(const char* inKind, size_t inIndex, const std::string& inName)
{
    return inName.empty() ? fmt::format("{} {}", inKind, inIndex)
                          : fmt::format("{} {} \"{}\"", inKind, inIndex, Printable(inName, kMaxShown));
}

// --- head and nodes

void CompareHead(const Scene& inA, const Scene& inB, Group& ioGroup)
{
    ioGroup.SameReals("scene", "metres per unit", &inA.fUnit, &inB.fUnit, 1);
    const auto axis = [](FourCharT name) { return name == 0 ? "not known" : NameText(name); };
    ioGroup.SameText("scene", "up axis", axis(inA.fUpAxis), axis(inB.fUpAxis));
}

void CompareNode(const Node& inA, const Node& inB, const std::string& inWhere, Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    ioGroup.Same(inWhere, "parent", inA.fParent, inB.fParent);
    ioGroup.SameReals(inWhere, "transform", inA.fTransform.data(), inB.fTransform.data(), inA.fTransform.size());
    if (inA.fMeshes != inB.fMeshes)
        ioGroup.Differs(inWhere, "other meshes");
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

void CompareMesh(const Mesh& inA, const Mesh& inB, const std::string& inWhere, Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    ioGroup.Same(inWhere, "material", inA.fMaterial, inB.fMaterial);
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

void CompareMaterial(const Material& inA, const Material& inB, const std::string& inWhere, Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    ioGroup.SameText(inWhere, "shading", NameText(inA.fShading), NameText(inB.fShading));
    ioGroup.SameText(inWhere, "alpha mode", inA.fAlphaMode, inB.fAlphaMode);
    CompareValues(inA, inB, inWhere, ioGroup);
    if (!ioGroup.Same(inWhere, "textures", inA.fTextures.size(), inB.fTextures.size()))
        return;
    for (size_t i = 0; i < inA.fTextures.size(); ++i)
    {
        const Texture& a = inA.fTextures[i];
        const Texture& b = inB.fTextures[i];
        const std::string where = fmt::format("{}, texture {}", inWhere, i);
        ioGroup.SameText(where, "kind", NameText(a.fKind), NameText(b.fKind));
        ioGroup.SameText(where, "file", a.fFile, b.fFile);
        ioGroup.Same(where, "image", a.fImage, b.fImage);
        CompareValues(a, b, where, ioGroup);
    }
}

// --- images

void CompareImage(const Image& inA, const Image& inB, const std::string& inWhere, Group& ioGroup)
{
    ioGroup.SameText(inWhere, "name", inA.fName, inB.fName);
    ioGroup.SameText(inWhere, "format", inA.fFormat, inB.fFormat);
    ioGroup.Same(inWhere, "width", inA.fWidth, inB.fWidth);
    ioGroup.Same(inWhere, "height", inA.fHeight, inB.fHeight);
    if (ioGroup.Same(inWhere, "bytes", inA.fBytes.size(), inB.fBytes.size()) && inA.fBytes != inB.fBytes)
        ioGroup.Differs(inWhere, "other bytes");
}

// --- the whole

template <class Element>
void CompareAll(const char* inKind, const std::vector<Element>& inA, const std::vector<Element>& inB,
                void (*inCompare)(const Element&, const Element&, const std::string&, Group&), Group& ioGroup,
                Output& ioOutput)
{
    if (inA.size() != inB.size())
        ioGroup.Differs({}, fmt::format("{} in the first, {} in the second", inA.size(), inB.size()));
    for (size_t i = 0; i < std::min(inA.size(), inB.size()); ++i)
        inCompare(inA[i], inB[i], Where(inKind, i, inA[i].fName), ioGroup);
    ioGroup.Tell(inA.size(), inB.size(), ioOutput);
}

} // namespace

ExitStatus CompareScenes(const Scene& inA, const Scene& inB, real64 inTolerance, Output& ioOutput)
{
    Group nodes("nodes", inTolerance);
    Group meshes("meshes", inTolerance);
    Group materials("materials", inTolerance);
    Group images("images", inTolerance);
    CompareHead(inA, inB, nodes);
    CompareAll("node", inA.fNodes, inB.fNodes, CompareNode, nodes, ioOutput);
    CompareAll("mesh", inA.fMeshes, inB.fMeshes, CompareMesh, meshes, ioOutput);
    CompareAll("material", inA.fMaterials, inB.fMaterials, CompareMaterial, materials, ioOutput);
    CompareAll("image", inA.fImages, inB.fImages, CompareImage, images, ioOutput);
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
