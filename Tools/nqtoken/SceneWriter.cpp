#include "Tools/nqtoken/SceneWriter.h"

#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/InputFile.h"
#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/Reports.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/Text.h"

#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqStream.h"
#include "NqCore/PublicAPI/NqToken.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nqtoken
{
namespace
{

constexpr int32 kStreamBufferSize = 1 << 16;

// Arrays of at most so many values stay text in a raw scene, where text carries them exactly: they are what people look
// at.
constexpr size_t kSmallArray = 16;

constexpr real64 kLargestInText = 2147483647;

bool HaveSameBits(const real32* inA, const real32* inB, size_t inCount)
{
    return memcmp(inA, inB, inCount * sizeof(real32)) == 0;
}

// Keeps account of what decimal text changes.
class TextLoss
{
public:
    void Count(const Reals& inValues)
    {
        fTotal += inValues.size();
        for (const real32 value : inValues)
        {
            const auto exact = static_cast<real64>(value);
            if (std::isnan(value))
                ++fNotNumbers;
            else if (std::fabs(exact) >= kLargestInText)
                ++fTooLarge;
            else
                CountRounding(value);
        }
    }

    void Describe(std::vector<std::string>& outNotes) const
    {
        std::vector<std::string> parts;
        if (fRounded > 0)
            parts.push_back(fmt::format("{} rounded to six decimals, by up to {:.2g}", fRounded, fLargestRounding));
        if (fTooLarge > 0)
            parts.push_back(fmt::format("{} cut to 2147483647 or -2147483647", fTooLarge));
        if (fNotNumbers > 0)
            parts.push_back(fmt::format("{} not a number, written as 0", fNotNumbers));
        if (!parts.empty())
            outNotes.push_back(fmt::format("of {}, {}; --payload raw keeps all as they are",
                                           Counted(fTotal, "real number"), fmt::join(parts, ", ")));
    }

private:
    void CountRounding(real32 inValue)
    {
        const real64 written = 1e-6 * std::floor(0.5 + static_cast<real64>(inValue) * 1e6);
        if (static_cast<real32>(written) == inValue)
            return;
        ++fRounded;
        fLargestRounding = std::max(fLargestRounding, std::fabs(written - static_cast<real64>(inValue)));
    }

    size_t fTotal = 0;
    size_t fRounded = 0;
    size_t fTooLarge = 0;
    size_t fNotNumbers = 0;
    real64 fLargestRounding = 0;
};

// Text is made in memory and handed to the file in pieces, so that a file that takes no more ends the work: on the
// file's own stream each number behind would try the disk again.
class SceneWriter
{
public:
    SceneWriter(TNqiostream& ioFile, Payload inPayload) : fFile(ioFile), fStream(kUTF8Transcoder), fPayload(inPayload)
    {
        NqToken::InitTokenMgr(fStream);
        NqToken::GetNqTokenData(fStream)->fTokenIndent = true;
    }

    // False when something could not be written.
    bool Write(const Scene& inScene);
    const TextLoss& Loss() const { return fLoss; }

private:
    static constexpr int32 kPieceSize = 1 << 16;

    // Hands on what has been made, when it is enough to be worth it.
    void Drain(int32 inLeast = kPieceSize);

    void Begin(FourCharT inName)
    {
        NqToken::PutBeginToken(fStream, static_cast<int32>(inName), false);
        Drain();
    }
    void End() { NqToken::PutEndToken(fStream); }

    void PutInteger(FourCharT inName, int32 inValue)
    {
        NqToken::PutInt32Attribute(fStream, static_cast<int32>(inName), inValue);
    }
    void PutCount(FourCharT inName, size_t inCount) { PutInteger(inName, static_cast<int32>(inCount)); }
    void PutFourChars(FourCharT inName, FourCharT inValue)
    {
        NqToken::PutFourCharConstAttribute(fStream, static_cast<int32>(inName), static_cast<int32>(inValue));
    }
    void PutString(FourCharT inName, const std::string& inText);
    void PutBytes(FourCharT inName, const std::string& inBytes);
    void PutWords(FourCharT inName, const void* inValues, size_t inCount);
    void PutReals(FourCharT inName, const Reals& inValues);
    void PutIntegers(FourCharT inName, const std::vector<int32>& inValues);
    bool SurvivesText(const Reals& inValues);

    void PutImage(const Image& inImage);
    void PutMaterial(const Material& inMaterial);
    void PutTexture(const Texture& inTexture);
    void PutMesh(const Mesh& inMesh);
    void PutFaces(const Mesh& inMesh);
    void PutNodes(const std::vector<Node>& inNodes);

    TNqiostream& fFile;
    TNqstrstream fStream;
    const Payload fPayload;
    const ReportMark fReports;
    TextLoss fLoss;
};

void SceneWriter::Drain(int32 inLeast)
{
    int32 left = fStream.tell();
    if (left < inLeast)
        return;
    fStream.seek(0, TNqiostream::beg);
    int8 piece[4096];
    while (left > 0 && !fReports.Reported())
    {
        const int32 count = std::min(left, static_cast<int32>(sizeof(piece)));
        fStream.read(piece, count);
        fFile.write(piece, count);
        left -= count;
    }
    fStream.seek(0, TNqiostream::beg);
}

// --- values

void SceneWriter::PutString(FourCharT inName, const std::string& inText)
{
    TNqDynamicString text;
    ToLibrary(inText, text);
    NqToken::PutNonLocalizedStringAttribute(fStream, static_cast<int32>(inName), text, false);
}

void SceneWriter::PutBytes(FourCharT inName, const std::string& inBytes)
{
    NqToken::PutBinaryStartAttribute(fStream, static_cast<int32>(inName), static_cast<uint32>(inBytes.size()));
    Drain(1);
    if (!fReports.Reported())
        fFile.write(inBytes.data(), static_cast<int32>(inBytes.size()));
    NqToken::PutBinaryEndAttribute(fStream);
}

// 32-bit values as a payload, the low byte first on every machine.
void SceneWriter::PutWords(FourCharT inName, const void* inValues, size_t inCount)
{
    constexpr size_t kBatch = 1024;
    NqToken::PutBinaryStartAttribute(fStream, static_cast<int32>(inName), static_cast<uint32>(inCount * 4));
    const auto* source = static_cast<const char*>(inValues);
    for (size_t done = 0; done < inCount && !fReports.Reported();)
    {
        char bytes[kBatch * 4];
        const size_t count = std::min(kBatch, inCount - done);
        for (size_t i = 0; i < count; ++i)
        {
            uint32 word;
            memcpy(&word, source + (done + i) * 4, 4);
            for (size_t b = 0; b < 4; ++b)
                bytes[i * 4 + b] = static_cast<char>(word >> (8 * b));
        }
        fStream.write(bytes, static_cast<int32>(count * 4));
        Drain();
        done += count;
    }
    NqToken::PutBinaryEndAttribute(fStream);
}

// Whether values come back to the bit: found by writing and reading them.
bool SceneWriter::SurvivesText(const Reals& inValues)
{
    if (std::any_of(inValues.begin(), inValues.end(), [](real32 value) { return std::isnan(value); }))
        return false;
    TNqstrstream trial(kUTF8Transcoder);
    const auto count = static_cast<int32>(inValues.size());
    NqToken::PutReal32ArrayAttribute(trial, 0, count, inValues.data());
    trial << endl;
    trial.seek(0, TNqiostream::beg);
    Reals back(inValues.size());
    NqToken::GetReal32ArrayToken(trial, count, back.data());
    return HaveSameBits(back.data(), inValues.data(), back.size());
}

// Nothing is written for an empty array: its absence says as much.
void SceneWriter::PutReals(FourCharT inName, const Reals& inValues)
{
    if (inValues.empty() || fReports.Reported())
        return;
    if (fPayload == Payload::kRaw && (inValues.size() > kSmallArray || !SurvivesText(inValues)))
        return PutWords(inName, inValues.data(), inValues.size());
    fLoss.Count(inValues);
    const auto isNotNumber = [](real32 value) { return std::isnan(value); };
    const real32* values = inValues.data();
    Reals numbers;
    if (std::any_of(inValues.begin(), inValues.end(), isNotNumber))
    {
        numbers = inValues;
        std::replace_if(numbers.begin(), numbers.end(), isNotNumber, 0.0F);
        values = numbers.data();
    }
    NqToken::PutReal32ArrayAttribute(fStream, static_cast<int32>(inName), static_cast<int32>(inValues.size()), values);
    Drain();
}

void SceneWriter::PutIntegers(FourCharT inName, const std::vector<int32>& inValues)
{
    if (inValues.empty() || fReports.Reported())
        return;
    if (fPayload == Payload::kRaw && inValues.size() > kSmallArray)
        return PutWords(inName, inValues.data(), inValues.size());
    NqToken::PutInt32ArrayAttribute(fStream, static_cast<int32>(inName), static_cast<int32>(inValues.size()),
                                    inValues.data());
    Drain();
}

// --- blocks

void SceneWriter::PutImage(const Image& inImage)
{
    Begin(names::kImage);
    PutString(names::kName, inImage.fName);
    PutString(names::kFormat, inImage.fFormat);
    if (inImage.fHeight != 0)
    {
        PutInteger(names::kWidth, inImage.fWidth);
        PutInteger(names::kHeight, inImage.fHeight);
    }
    PutBytes(names::kData, inImage.fBytes);
    End();
}

void SceneWriter::PutTexture(const Texture& inTexture)
{
    Begin(names::kTexture);
    PutFourChars(names::kKind, inTexture.fKind);
    PutString(names::kFile, inTexture.fFile);
    if (inTexture.fImage >= 0)
        PutInteger(names::kImageIndex, inTexture.fImage);
    for (const IntegerValue& value : inTexture.fIntegers)
        PutInteger(value.fToken, value.fValue);
    for (const RealValue& value : inTexture.fReals)
        PutReals(value.fToken, value.fValues);
    End();
}

void SceneWriter::PutMaterial(const Material& inMaterial)
{
    Begin(names::kMaterial);
    PutString(names::kName, inMaterial.fName);
    if (inMaterial.fShading != 0)
        PutFourChars(names::kShading, inMaterial.fShading);
    if (!inMaterial.fAlphaMode.empty())
        PutString(names::kAlphaMode, inMaterial.fAlphaMode);
    for (const IntegerValue& value : inMaterial.fIntegers)
        PutInteger(value.fToken, value.fValue);
    for (const RealValue& value : inMaterial.fReals)
        PutReals(value.fToken, value.fValues);
    for (const Texture& texture : inMaterial.fTextures)
        PutTexture(texture);
    End();
}

void SceneWriter::PutFaces(const Mesh& inMesh)
{
    if (inMesh.fFaceSizes.empty())
        return;
    const int32 first = inMesh.fFaceSizes.front();
    const bool alike = first > 0 && std::all_of(inMesh.fFaceSizes.begin(), inMesh.fFaceSizes.end(),
                                                [first](int32 size) { return size == first; });
    PutCount(names::kFaceCount, inMesh.fFaceSizes.size());
    PutCount(names::kCornerCount, inMesh.fCorners.size());
    if (alike)
        PutInteger(names::kFaceSize, first);
    else
        PutIntegers(names::kFaceSizes, inMesh.fFaceSizes);
    PutIntegers(names::kCorners, inMesh.fCorners);
}

void SceneWriter::PutMesh(const Mesh& inMesh)
{
    Begin(names::kMesh);
    PutString(names::kName, inMesh.fName);
    if (inMesh.fMaterial >= 0)
        PutInteger(names::kMaterialIndex, inMesh.fMaterial);
    PutInteger(names::kVertexCount, inMesh.fVertexCount);
    PutReals(names::kPositions, inMesh.fPositions);
    PutReals(names::kNormals, inMesh.fNormals);
    PutReals(names::kTangents, inMesh.fTangents);
    PutReals(names::kBitangents, inMesh.fBitangents);
    for (const TexCoords& set : inMesh.fTexCoords)
    {
        Begin(names::kTexCoords);
        PutInteger(names::kTexCoordSize, set.fSize);
        PutReals(names::kValues, set.fValues);
        End();
    }
    for (const Reals& colours : inMesh.fColours)
    {
        Begin(names::kColours);
        PutReals(names::kValues, colours);
        End();
    }
    PutFaces(inMesh);
    End();
}

// Nodes come parents first, depth first: a block stays open until a node that is not below it.
void SceneWriter::PutNodes(const std::vector<Node>& inNodes)
{
    std::vector<int32> open;
    for (size_t i = 0; i < inNodes.size(); ++i)
    {
        const Node& node = inNodes[i];
        while (!open.empty() && open.back() != node.fParent)
        {
            End();
            open.pop_back();
        }
        Begin(names::kNode);
        open.push_back(static_cast<int32>(i));
        PutString(names::kName, node.fName);
        if (!HaveSameBits(node.fTransform.data(), kIdentity.data(), kIdentity.size()))
            PutReals(names::kTransform, Reals(node.fTransform.begin(), node.fTransform.end()));
        if (!node.fMeshes.empty())
        {
            PutCount(names::kMeshCount, node.fMeshes.size());
            PutIntegers(names::kNodeMeshes, node.fMeshes);
        }
    }
    for (size_t i = open.size(); i > 0; --i)
        End();
}

bool SceneWriter::Write(const Scene& inScene)
{
    Begin(names::kScene);
    PutInteger(names::kVersion, kLayoutVersion);
    PutString(names::kMadeBy, "nqtoken " NQTOKEN_VERSION);
    if (inScene.fUnit > 0)
        PutReals(names::kUnit, {inScene.fUnit});
    if (inScene.fUpAxis != 0)
        PutFourChars(names::kUpAxis, inScene.fUpAxis);
    PutCount(names::kImageCount, inScene.fImages.size());
    PutCount(names::kMaterialCount, inScene.fMaterials.size());
    PutCount(names::kMeshCount, inScene.fMeshes.size());
    PutCount(names::kNodeCount, inScene.fNodes.size());
    for (const Image& image : inScene.fImages)
        PutImage(image);
    for (const Material& material : inScene.fMaterials)
        PutMaterial(material);
    for (const Mesh& mesh : inScene.fMeshes)
        PutMesh(mesh);
    PutNodes(inScene.fNodes);
    End();
    Drain(1);
    return !fReports.Reported();
}

} // namespace

Outcome WriteScene(const Scene& inScene, Payload inPayload, const std::string& inPath,
                   std::vector<std::string>& outNotes)
{
    AtomicFile file;
    Outcome outcome = file.Create(inPath);
    if (!outcome.Ok())
        return outcome;

    const ReportMark mark;
    TNqfstream stream(file.TemporaryPath().c_str(), kUTF8Transcoder, eWrite, kStreamBufferSize, nullptr);
    if (!stream.good())
        return Trouble(fmt::format("{}: cannot be written", inPath));
    SceneWriter writer(stream, inPayload);
    const bool written = writer.Write(inScene);
    const uint32 size = stream.GetFileSize();
    if (written)
        stream.flush();
    const bool good = written && stream.good() && !mark.Reported();
    stream.close();
    if (!good && size > kMaxFileSize - kStreamBufferSize)
        return Trouble(
            fmt::format("{}: the scene needs more than the {} bytes that a token file may have", inPath, kMaxFileSize));
    if (!good)
        return Trouble(fmt::format("{}: could not be written; is the disk full?", inPath));

    writer.Loss().Describe(outNotes);
    outcome = file.Sync();
    EndTimeLimit();
    return outcome.Ok() ? file.Replace() : outcome;
}

} // namespace nqtoken
