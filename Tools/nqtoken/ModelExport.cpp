#include "Tools/nqtoken/ModelExport.h"

#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/Formats.h"
#include "Tools/nqtoken/GltfModel.h"
#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/Losses.h"
#include "Tools/nqtoken/ModelFileSystem.h"
#include "Tools/nqtoken/ModelImport.h"
#include "Tools/nqtoken/ModelNames.h"
#include "Tools/nqtoken/ObjWriter.h"
#include "Tools/nqtoken/PlyWriter.h"
#include "Tools/nqtoken/SceneNames.h"
#include "Tools/nqtoken/StlWriter.h"

#include "NqCore/PublicAPI/NqFileTypeUtils.h"

#include <assimp/Exporter.hpp>
#include <assimp/scene.h>
#include <fmt/format.h>

#include <algorithm>

namespace nqtoken
{
namespace
{

// --- formats

// Writes a scene into memory; ioWriting gets the names of materials. The text of an outcome is a reason, without the
// file.
using Writer = Outcome (*)(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles, Writing& ioWriting);

Outcome MakePly(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles, Writing&)
{
    return WritePly(inScene, outFiles[inPath]);
}

Outcome MakeStl(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles, Writing&)
{
    return WriteStl(inScene, outFiles[inPath]);
}

Outcome MakeObj(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles, Writing& ioWriting)
{
    return WriteObj(inScene, inPath, outFiles, ioWriting.fMaterials);
}

Outcome MakeGltf(const char* inExporter, const Scene& inScene, const std::string& inPath, ModelFiles& outFiles,
                 Writing& ioWriting)
{
    // The exporter would name those without a name, and the importer has one of its own without.
    for (const Material& material : inScene.fMaterials)
        ioWriting.fMaterials.push_back(material.fName.empty() ? "material" : QuotedName(material.fName));
    ioWriting.fNote = DescribeForeignImages(inScene);
    const std::unique_ptr<aiScene> model = MakeGltfModel(inScene, ioWriting.fMaterials);
    if (model == nullptr)
        return AtFault("there is no vertex in it");
    Assimp::Exporter exporter;
    exporter.SetIOHandler(new MemoryFiles(outFiles)); // taken over
    if (exporter.Export(model.get(), inExporter, inPath) == aiReturn_SUCCESS && outFiles.count(inPath) > 0)
        return {};
    const std::string reason = exporter.GetErrorString();
    return AtFault(reason.empty() ? "it needs meshes, and faces in them" : reason);
}

Outcome MakeGltfText(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles, Writing& ioWriting)
{
    return MakeGltf("gltf2", inScene, inPath, outFiles, ioWriting);
}

Outcome MakeGltfBinary(const Scene& inScene, const std::string& inPath, ModelFiles& outFiles, Writing& ioWriting)
{
    return MakeGltf("glb2", inScene, inPath, outFiles, ioWriting);
}

struct Format
{
    FourCharT fType; // in the registry
    Writer fWriter;
    FaceRules fFaces;
    bool fHoldsNodes;
    bool fHoldsMeshes;
    bool fHoldsMaterials;
};

constexpr Format kFormats[] = {
    {Name("OBJ "), MakeObj, {false, true, false}, false, true, true},
    {Name("PLY "), MakePly, {false, false, false}, false, false, false},
    {Name("STL "), MakeStl, {true, false, false}, false, false, false},
    {Name("GLTF"), MakeGltfText, {true, true, true}, true, true, true},
    {Name("GLB "), MakeGltfBinary, {true, true, true}, true, true, true},
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

// --- files

Outcome WriteFiles(const ModelFiles& inFiles, const std::string& inMain)
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
    EndTimeLimit();
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
    Writing writing{format->fFaces, format->fHoldsNodes, format->fHoldsMeshes, format->fHoldsMaterials, {}, {}};
    ModelFiles files;
    const Outcome made = format->fWriter(inScene, inPath, files, writing);
    if (MemoryRefused())
        return Trouble(fmt::format("{}: {}", inPath, OutOfMemoryText()));
    if (!made.Ok())
        return AtFault(fmt::format("{}: the scene does not fit this format: {}", inPath, made.Text()));
    return PlaceModel(inScene, writing, files, inPath, outNotes);
}

Outcome PlaceModel(const Scene& inScene, const Writing& inWriting, ModelFiles& inFiles, const std::string& inPath,
                   std::vector<std::string>& outNotes)
{
    Scene back;
    std::vector<std::string> ignored;
    Outcome outcome = ImportModel(inFiles, inPath, back, ignored);
    if (MemoryRefused())
        return Trouble(fmt::format("{}: {}", inPath, OutOfMemoryText()));
    if (!outcome.Ok())
        return AtFault(fmt::format("{}; the scene became a model that cannot be read again, and nothing was written",
                                   outcome.Text()));
    std::vector<std::string> losses = DescribeLosses(inScene, back, inWriting);
    outcome = WriteFiles(inFiles, inPath);
    if (outcome.Ok())
        outNotes = std::move(losses);
    return outcome;
}

bool CanExport(const TNqFileType& inFormat)
{
    return FindWritten(inFormat) != nullptr;
}

} // namespace nqtoken
