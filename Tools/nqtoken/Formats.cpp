#include "Tools/nqtoken/Formats.h"

#include "Tools/nqtoken/ModelExport.h"
#include "Tools/nqtoken/ModelImport.h"
#include "Tools/nqtoken/Output.h"

#include "NqCore/PublicAPI/NqFileTypeUtils.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqHost/PublicAPI/NqHostPathFile.h"
#include "NqHost/PublicAPI/NqHostResourceFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace nqtoken
{
namespace
{

constexpr const char* kFileName = "formats.nqr";

// The resources of the file: one that lists the families, each with the number of the one that lists its types.
constexpr FourCharT kFamiliesType = 0x4646616D;  // "FFam"
constexpr FourCharT kFileTypesType = 0x46547970; // "FTyp"
constexpr int16 kFamiliesID = 1;

std::vector<NqTypeFamilyID> gFamilies; // in the order of the file

// Of the places where the file may be, the first that has one; else the last, for the message.
std::string FindFile()
{
    std::error_code ignored;
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const std::filesystem::path beside = folder / kFileName;
    if (std::filesystem::exists(beside, ignored))
        return beside;
    return (folder / NQTOKEN_DATA_DIR / kFileName).lexically_normal();
}

std::string CodeText(FourCharT inCode)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const auto byte = static_cast<unsigned char>(inCode >> shift);
        text += byte > 0x20 && byte < 0x7F ? std::string(1, static_cast<char>(byte)) : fmt::format("\\x{:02X}", byte);
    }
    return text;
}

TNqDynamicString LibraryText(const std::string& inText)
{
    return {inText.data(), static_cast<uint32>(inText.size())};
}

const TNqFileType* FindByExtensionOrCode(const TNqFile& inFile, const TNqFileID& inCode)
{
    TNqString255 extension;
    inFile.GetExtension(extension);
    return TNqFileTypeUtils::GetAllTypes().FindNqFileType(extension, inCode);
}

// ---- Reading --------------------------------------------------------------------------------------------------------

Outcome ReadFamily(TNqHostResourceFile& ioFile, NqTypeFamilyID inFamily, int16 inListID)
{
    TNqResource* const resource = ioFile.FindResource(kFileTypesType, inListID);
    if (resource == nullptr)
        return Trouble(fmt::format("resource FTyp {} is missing", inListID));
    TNqResourceStream stream(*resource, eRead);
    TNqFileTypeUtils::GetAllTypes().ReadFromResource(stream, inFamily);
    if (!stream.good() || stream.tell() != static_cast<int32>(resource->GetSize()))
        return Trouble(fmt::format("resource FTyp {} is no list of file types", inListID));
    return {};
}

Outcome ReadFamilies(TNqHostResourceFile& ioFile)
{
    TNqResource* const resource = ioFile.FindResource(kFamiliesType, kFamiliesID);
    if (resource == nullptr)
        return Trouble(fmt::format("resource FFam {} is missing", kFamiliesID));
    TNqResourceStream stream(*resource, eRead);
    int16 count = 0;
    stream >> count;
    for (int16 i = 0; i < count && stream.good(); ++i)
    {
        NqTypeFamilyID family = 0;
        int16 listID = 0;
        TNqString31 name;
        stream >> family;
        stream >> listID;
        stream.ReadLocalizedCString(name);
        if (!stream.good())
            break;
        Outcome outcome = ReadFamily(ioFile, family, listID);
        if (!outcome.Ok())
            return outcome;
        TNqFileTypeUtils::RegisterFileFamily(static_cast<int32>(family), name);
        gFamilies.push_back(family);
    }
    if (gFamilies.empty() || !stream.good())
        return Trouble(fmt::format("resource FFam {} is no list of families", kFamiliesID));
    return {};
}

// ---- Listing --------------------------------------------------------------------------------------------------------

std::string ExtensionsText(const TNqFileType& inFormat)
{
    std::string text;
    for (int32 i = 0; i < inFormat.GetExtensionsCount(); ++i)
        text += fmt::format("{}.{}", i == 0 ? "" : " ", inFormat.GetExtension(i).GetString());
    return text;
}

std::string CodesText(const TNqFileType& inFormat)
{
    std::string text;
    for (int32 i = 0; i < inFormat.GetTypesCount(); ++i)
        text += (i == 0 ? "" : " ") + CodeText(inFormat.GetType(i).fID);
    return text;
}

std::string UseText(const TNqFileType& inFormat)
{
    const bool isScene = inFormat.GetFileTypeFamilyID() == kSceneFamily;
    const bool isRead = isScene || CanImport(inFormat);
    const bool isWritten = isScene || CanExport(inFormat);
    return isRead && isWritten ? "read, written" : isRead ? "read" : isWritten ? "written" : "not in this build";
}

void ListFamily(NqTypeFamilyID inFamily, Output& outOutput)
{
    const TNqFileTypeList& types = TNqFileTypeUtils::GetAllTypes();
    const TNqFileTypeFamily* const family = TNqFileTypeUtils::FindFileFamily(static_cast<int32>(inFamily));
    outOutput.Put(fmt::format("{} ({})", family->GetName().GetString(), CodeText(inFamily)), Colour::kName);
    outOutput.EndLine();
    for (int32 i = 0; i < types.GetElemCount(); ++i)
    {
        const TNqFileType& type = types.GetElem(i);
        if (type.GetFileTypeFamilyID() != inFamily)
            continue;
        outOutput.Put(
            fmt::format("  {:<22} {:<30} {}", type.GetName().GetString(), ExtensionsText(type), UseText(type)));
        if (type.GetTypesCount() > 0)
            outOutput.Put(" (" + CodesText(type) + ")", Colour::kFaint);
        outOutput.EndLine();
    }
}

} // namespace

Outcome LoadFormats()
{
    return TNqFileTypeUtils::GetAllTypes().GetElemCount() == 0 ? LoadFormats(FindFile()) : Outcome();
}

Outcome LoadFormats(const std::string& inPath)
{
    TNqFileTypeUtils::ShutDown();
    gFamilies.clear();
    TNqHostResourceFile file;
    TNqDynamicString reason;
    const NqErr error = file.Read(inPath.c_str(), reason);
    Outcome outcome = error == kNqNoErr ? ReadFamilies(file) : Trouble(reason.GetString());
    if (outcome.Ok())
        return outcome;
    TNqFileTypeUtils::ShutDown();
    gFamilies.clear();
    return Trouble(fmt::format("the formats that nqtoken knows cannot be read: {}: {}; installing nqtoken anew brings "
                               "the file back",
                               inPath, outcome.Text()));
}

const TNqFileType* FindFormat(const std::string& inPath)
{
    APIFileInfo info;
    const TNqHostPathFile file(LibraryText(inPath));
    file.GetInfo(info);
    return FindByExtensionOrCode(file, info.fType);
}

const TNqFileType* FindFormatByName(const std::string& inPath)
{
    return FindByExtensionOrCode(TNqHostPathFile(LibraryText(inPath)), {});
}

std::string JoinExtensions(const std::vector<const TNqFileType*>& inFormats)
{
    std::string text;
    for (size_t i = 0; i < inFormats.size(); ++i)
        text += fmt::format("{}.{}",
                            i == 0                      ? ""
                            : i + 1 == inFormats.size() ? " or "
                                                        : ", ",
                            inFormats[i]->GetExtension(0).GetString());
    return text;
}

Outcome ListFormats(Output& outOutput)
{
    Outcome outcome = LoadFormats();
    if (!outcome.Ok())
        return outcome;
    for (const NqTypeFamilyID family : gFamilies)
        ListFamily(family, outOutput);
    return {};
}

} // namespace nqtoken
