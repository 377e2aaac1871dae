#include "Benchmarks/Benchmarks.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqStream.h"

#include <pugixml.hpp>

#include <cmath>
#include <random>

namespace NqBench
{

namespace
{

constexpr int kRows = 310; // vertices along each side of the mesh

bool AreNear(const std::vector<real32>& inA, const std::vector<real32>& inB)
{
    if (inA.size() != inB.size())
        return false;
    for (size_t i = 0; i < inA.size(); ++i)
        if (!(std::fabs(inA[i] - inB[i]) <= 0.0000011F + std::fabs(inA[i]) * 1e-6F))
            return false;
    return true;
}

TMesh MakeMesh()
{
    TMesh mesh;
    std::mt19937 random(1);
    std::uniform_real_distribution<real32> noise(-1, 1);
    for (int y = 0; y < kRows; ++y)
        for (int x = 0; x < kRows; ++x)
        {
            mesh.fPositions.insert(mesh.fPositions.end(),
                                   {real32(x) + noise(random), real32(y) + noise(random), 100 * noise(random)});
            mesh.fNormals.insert(mesh.fNormals.end(), {noise(random), noise(random), noise(random)});
            mesh.fTexture.insert(mesh.fTexture.end(), {real32(x) / kRows, real32(y) / kRows});
        }
    for (int y = 0; y + 1 < kRows; ++y)
        for (int x = 0; x + 1 < kRows; ++x)
        {
            const int32 a = y * kRows + x;
            const int32 b = a + kRows;
            mesh.fFaces.insert(mesh.fFaces.end(), {a, a + 1, b, b, a + 1, b + 1});
        }
    return mesh;
}

std::vector<TObject> MakeObjects()
{
    std::vector<TObject> objects;
    for (int32 i = 0; i < 50000; ++i)
        objects.push_back({"object " + std::to_string(i * 37 % 50000), i, i % 3 == 0, real32(i % 1000) / 8});
    return objects;
}

std::string MakeProse()
{
    std::string text;
    while (text.size() < 1000000)
        text += "The quick brown fox \xC3\xA9tait l\xC3\xA0, \xE2\x82\xAC 12 \xE2\x80\x94 na\xC3\xAFve fa\xC3\xA7"
                "ade; ";
    return text;
}

struct TStringWriter : pugi::xml_writer
{
    void write(const void* inData, size_t inSize) override { fText.append(static_cast<const char*>(inData), inSize); }
    std::string fText;
};

} // namespace

bool TMesh::IsLike(const TMesh& inOther) const
{
    return AreNear(fPositions, inOther.fPositions) && AreNear(fNormals, inOther.fNormals) &&
           AreNear(fTexture, inOther.fTexture) && fFaces == inOther.fFaces;
}

const TMesh& Mesh()
{
    static const TMesh mesh = MakeMesh();
    return mesh;
}

const std::vector<TObject>& Objects()
{
    static const std::vector<TObject> objects = MakeObjects();
    return objects;
}

bool AreLike(const std::vector<TObject>& inA, const std::vector<TObject>& inB)
{
    bool like = inA.size() == inB.size();
    for (size_t i = 0; like && i < inA.size(); ++i)
        like = inA[i].fName == inB[i].fName && inA[i].fId == inB[i].fId && inA[i].fVisible == inB[i].fVisible &&
               inA[i].fMass == inB[i].fMass;
    return like;
}

const std::string& Prose()
{
    static const std::string prose = MakeProse();
    return prose;
}

std::string TakeText(TNqstrstream& ioStream)
{
    const size_t size = static_cast<size_t>(ioStream.pcount());
    int8* const block = ioStream.str();
    std::string text(block, size);
    Nqfree(block);
    return text;
}

std::string TextOf(const pugi::xml_document& inDocument)
{
    TStringWriter writer;
    inDocument.save(writer, "", pugi::format_raw);
    return writer.fText;
}

} // namespace NqBench
