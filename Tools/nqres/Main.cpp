// nqres: makes resource files from text, shows them, and takes their strings to translators and back.

#include "Tools/nqres/Build.h"
#include "Tools/nqres/Strings.h"
#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/CommandLine.h"
#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/Text.h"

#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqHost/PublicAPI/NqHost.h"
#include "NqHost/PublicAPI/NqHostFiles.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

using namespace nqres;
using nqtoken::AtFault;
using nqtoken::Counted;
using nqtoken::Output;
using nqtoken::Trouble;

namespace
{

// ---- Files ---------------------------------------------------------------------------------------------------------

using Bytes = std::unique_ptr<int8, decltype(&Nqfree)>;

// A block of a text needs room for one line end more.
constexpr uint32 kLargestText = 0x7FFFFFFE;

Outcome FileTrouble(const std::string& inPath, const char* inReason)
{
    return Trouble(inPath + (inPath.empty() ? "" : ": ") + inReason);
}

Outcome Load(const std::string& inPath, Bytes& outBytes, std::string_view& outText)
{
    int8* block = nullptr;
    uint32 size = 0;
    TNqDynamicString reason;
    const NqErr error = NqHostLoadFile(inPath.c_str(), block, size, reason);
    outBytes.reset(block);
    outText = {block, size};
    if (error != kNqNoErr)
        return FileTrouble(inPath, reason.StrGet());
    return size <= kLargestText ? Outcome() : Trouble(fmt::format("{}: has more than {} bytes", inPath, kLargestText));
}

Outcome Save(const std::string& inPath, const int8* inBytes, size_t inSize)
{
    if (inSize > kLargestText)
        return Trouble(fmt::format("{}: would have more than {} bytes", inPath, kLargestText));
    TNqDynamicString reason;
    if (NqHostReplaceFile(inPath.c_str(), inBytes, static_cast<uint32>(inSize), reason) != kNqNoErr)
        return FileTrouble(inPath, reason.StrGet());
    return {};
}

Outcome LoadResources(const std::string& inPath, TNqHostResourceFile& outFile)
{
    Bytes bytes(nullptr, &Nqfree);
    std::string_view text;
    Outcome outcome = Load(inPath, bytes, text);
    TNqDynamicString reason;
    if (outcome.Ok() && outFile.ReadBytes(text.data(), static_cast<uint32>(text.size()), reason) != kNqNoErr)
        outcome = AtFault(fmt::format("{}: {}", inPath, reason.StrGet()));
    return outcome;
}

Outcome SaveResources(const std::string& inPath, const TNqHostResourceFile& inFile)
{
    TNqDynamicString reason;
    if (inFile.Write(inPath.c_str(), reason) != kNqNoErr)
        return FileTrouble(inPath, reason.StrGet());
    return {};
}

// The strings of a resource file, or of a text for translators.
Outcome LoadStrings(const std::string& inPath, StringMap& outStrings)
{
    Bytes bytes(nullptr, &Nqfree);
    std::string_view text;
    Outcome outcome = Load(inPath, bytes, text);
    if (!outcome.Ok())
        return outcome;
    if (text.substr(0, 4) != "NqRs")
        return ParseStrings(inPath, text, outStrings);
    TNqHostResourceFile file;
    outcome = LoadResources(inPath, file);
    outStrings = StringsOf(file);
    return outcome;
}

// ---- Commands ------------------------------------------------------------------------------------------------------

struct Arguments
{
    std::string fInput;
    std::optional<std::string> fStrings; // of import-strings and check
    std::string fTarget;
};

void PutLines(const std::vector<std::string>& inLines, Output& ioOutput)
{
    for (const std::string& line : inLines)
        ioOutput.Put(line + "\n");
}

Outcome Build(const Arguments& inArguments, Output&)
{
    Bytes bytes(nullptr, &Nqfree);
    std::string_view text;
    Outcome outcome = Load(inArguments.fInput, bytes, text);
    TNqHostResourceFile file;
    if (outcome.Ok())
        outcome = BuildResources(inArguments.fInput, text, file);
    return outcome.Ok() ? SaveResources(inArguments.fTarget, file) : outcome;
}

Outcome Show(const Arguments& inArguments, Output& ioOutput)
{
    TNqHostResourceFile file;
    Outcome outcome = LoadResources(inArguments.fInput, file);
    if (outcome.Ok())
        ioOutput.Put(ShowResources(file));
    return outcome;
}

Outcome Export(const Arguments& inArguments, Output&)
{
    TNqHostResourceFile file;
    Outcome outcome = LoadResources(inArguments.fInput, file);
    if (!outcome.Ok())
        return outcome;
    const std::string text = ExportStrings(file);
    return Save(inArguments.fTarget, text.data(), text.size());
}

void PutImportNotes(const Arguments& inArguments, size_t inKept, const std::vector<std::string>& inFaults)
{
    for (const std::string& fault : inFaults)
        nqtoken::PutNote(fault);
    if (!inFaults.empty())
        nqtoken::PutNote(fmt::format("{} is written with {} all the same; correct {} and import again",
                                     inArguments.fTarget, inFaults.size() == 1 ? "it" : "them", *inArguments.fStrings));
    if (inKept != 0)
        nqtoken::PutNote(fmt::format("{}: {} of {} {} missing and {}; \"nqres check {} --against {}\" lists {}",
                                     *inArguments.fStrings, Counted(inKept, "string"), inArguments.fInput,
                                     inKept == 1 ? "is" : "are", inKept == 1 ? "stays as it is" : "stay as they are",
                                     inArguments.fInput, *inArguments.fStrings, inKept == 1 ? "it" : "them"));
}

Outcome Import(const Arguments& inArguments, Output&)
{
    TNqHostResourceFile file;
    StringMap strings;
    std::vector<std::string> faults;
    size_t kept = 0;
    Outcome outcome = LoadResources(inArguments.fInput, file);
    if (outcome.Ok())
        outcome = LoadStrings(*inArguments.fStrings, strings);
    if (outcome.Ok())
    {
        faults = CheckPlaceholders(StringsOf(file), strings, *inArguments.fStrings);
        outcome = ImportStrings(*inArguments.fStrings, strings, file, kept);
    }
    if (outcome.Ok())
        outcome = SaveResources(inArguments.fTarget, file);
    if (outcome.Ok())
        PutImportNotes(inArguments, kept, faults);
    return outcome;
}

Outcome Check(const Arguments& inArguments, Output& ioOutput)
{
    TNqHostResourceFile file;
    Outcome outcome = LoadResources(inArguments.fInput, file);
    if (!outcome.Ok())
        return outcome;
    const StringMap original = StringsOf(file);
    std::vector<std::string> faults;
    std::string good = fmt::format("{}: {}, {}", inArguments.fInput, Counted(file.CountAllResources(), "resource"),
                                   Counted(original.size(), "string"));
    if (!inArguments.fStrings)
        faults = CheckStrings(original, inArguments.fInput);
    else
    {
        StringMap translation;
        outcome = LoadStrings(*inArguments.fStrings, translation);
        if (!outcome.Ok())
            return outcome;
        faults = CompareStrings(original, translation, *inArguments.fStrings);
        const std::vector<std::string> malformed = CheckStrings(translation, *inArguments.fStrings);
        faults.insert(faults.end(), malformed.begin(), malformed.end());
        good = fmt::format("{}: {}", *inArguments.fStrings,
                           original.size() == 1 ? "the one string is there"
                                                : fmt::format("all {} strings are there", original.size()));
    }
    PutLines(faults.empty() ? std::vector<std::string>{good} : faults, ioOutput);
    return faults.empty() ? Outcome() : AtFault({});
}

// ---- Command line --------------------------------------------------------------------------------------------------

constexpr const char* kStatusText =
    "Exit status: 0 done, 1 a file is at fault, 2 wrong usage or a file that could not be read or written.";

using Command = Outcome (*)(const Arguments&, Output&);

struct Description
{
    Command fRun;
    const char* fName;
    const char* fWhat;
    const char* fInput;
    const char* fInputWhat;
    const char* fStringsWhat; // null when the command takes none
    const char* fTargetWhat;  // null when it writes no file
    const char* fExample;
};

constexpr Description kCommands[] = {
    {Build, "build", "Make a resource file from text", "TEXT", "text form of the resources", nullptr,
     "resource file to write", "nqres build types.txt -o types.nqr"},
    {Show, "show", "Print the text that builds a resource file", "FILE", "resource file to read", nullptr, nullptr,
     "nqres show types.nqr"},
    {Export, "export-strings", "Write the strings of a resource file for translators", "FILE", "resource file to read",
     nullptr, "strings to write, one a line", "nqres export-strings types.nqr -o types.strings"},
    {Import, "import-strings", "Make a resource file with other strings", "FILE",
     "resource file that the strings were exported from", "translated strings, or a resource file with them",
     "resource file to write", "nqres import-strings types.nqr types.de.strings -o types.de.nqr"},
    {Check, "check", "Check a resource file, or a translation of its strings", "FILE", "resource file to read",
     "find what is missing, surplus or empty in these strings, or in this resource file, and placeholders that differ",
     nullptr, "nqres check types.nqr --against types.de.strings"},
};

void Describe(const Description& inCommand, CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand(inCommand.fName, inCommand.fWhat);
    command->add_option(inCommand.fInput, outArguments.fInput, inCommand.fInputWhat)->required();
    if (inCommand.fStringsWhat != nullptr && inCommand.fTargetWhat != nullptr)
        command->add_option("STRINGS", outArguments.fStrings, inCommand.fStringsWhat)->required();
    else if (inCommand.fStringsWhat != nullptr)
        command->add_option("--against", outArguments.fStrings, inCommand.fStringsWhat)->type_name("OTHER");
    if (inCommand.fTargetWhat != nullptr)
        command->add_option("-o,--output", outArguments.fTarget, inCommand.fTargetWhat)
            ->required()
            ->type_name("TARGET");
    command->footer(fmt::format("Example: {}\n{}", inCommand.fExample, kStatusText));
}

int Run(int inCount, char** inArguments)
{
    CLI::App app("Makes resource files from text, shows them, and takes their strings to translators and back.",
                 "nqres");
    app.set_version_flag("--version", "nqres " NQRES_VERSION);
    app.require_subcommand(1);
    app.footer("\"nqres COMMAND --help\" tells more about each, with an example.");
    Arguments arguments;
    for (const Description& command : kCommands)
        Describe(command, app, arguments);
    Output output;
    if (const std::optional<int> status = nqtoken::ReadCommandLine(app, inCount, inArguments, output))
        return *status;
    for (const Description& command : kCommands)
        if (app.got_subcommand(command.fName))
            return nqtoken::Finish(command.fRun(arguments, output), output);
    return nqtoken::kTrouble;
}

// Faults are told in the tool's own words.
void IgnoreReport(void*, const char*, unsigned int, const char*) {}

} // namespace

int main(int inCount, char** inArguments)
{
    nqtoken::NameProgram("nqres");
    nqtoken::PrepareProcess();
    TNqHostOptions options;
    options.fWorkerCount = 1;
    options.fReportHandler = IgnoreReport;
    const TNqHost host(options);
    try
    {
        return Run(inCount, inArguments);
    }
    catch (const std::bad_alloc&)
    {
        nqtoken::PutNote("out of memory");
    }
    catch (const TNqException& error)
    {
        nqtoken::PutNote(error.GetError() == kNqErrOutOfMemory
                             ? "out of memory"
                             : fmt::format("error 0x{:08X}", static_cast<uint32>(error.GetError())));
    }
    return nqtoken::kTrouble;
}
