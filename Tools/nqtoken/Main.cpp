// nqtoken: looks at token files, checks them, sends them, and turns 3D models into scenes and back.

#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/Check.h"
#include "Tools/nqtoken/CommandLine.h"
#include "Tools/nqtoken/Compare.h"
#include "Tools/nqtoken/Connection.h"
#include "Tools/nqtoken/EachFile.h"
#include "Tools/nqtoken/Formats.h"
#include "Tools/nqtoken/Guard.h"
#include "Tools/nqtoken/Import.h"
#include "Tools/nqtoken/Limits.h"
#include "Tools/nqtoken/ModelExport.h"
#include "Tools/nqtoken/ModelImport.h"
#include "Tools/nqtoken/Output.h"
#include "Tools/nqtoken/Reports.h"
#include "Tools/nqtoken/SceneReader.h"
#include "Tools/nqtoken/SceneWriter.h"
#include "Tools/nqtoken/Show.h"
#include "Tools/nqtoken/TokenFile.h"

#include "NqCore/PublicAPI/NqException.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <limits>

using namespace nqtoken;

namespace
{

void PutNotes(const std::string& inFile, const std::vector<std::string>& inNotes)
{
    for (const std::string& note : inNotes)
        PutNote(fmt::format("{}: {}", inFile, note));
}

// --- commands

struct Arguments
{
    std::vector<std::string> fInputs;
    std::string fTarget;
    std::string fPayload = "text";
    ShowOptions fShow;
    int32 fJobs = 1;
    uint64 fLimit = 100;
    real64 fTolerance = kTextTolerance;
    Limits fLimits;
    ConnectionOptions fConnection;
};

int Import(const Arguments& inArguments)
{
    ImportOptions options;
    options.fModels = inArguments.fInputs;
    options.fTarget = inArguments.fTarget;
    options.fPayload = inArguments.fPayload == "raw" ? Payload::kRaw : Payload::kText;
    options.fJobs = inArguments.fJobs;
    options.fLimits = inArguments.fLimits;
    Output output;
    return Finish(Outcome(ImportModels(options, output), {}), output);
}

int Export(const Arguments& inArguments)
{
    Output output;
    TokenFile file;
    Outcome outcome = file.Open(inArguments.fInputs[0]);
    const SceneLimit limit(outcome.Ok() ? file.Size() : 0);
    Scene scene;
    if (outcome.Ok())
        outcome = ReadScene(file, scene);
    std::vector<std::string> notes;
    if (outcome.Ok())
        outcome = ExportModel(scene, inArguments.fTarget, notes);
    if (outcome.Ok())
        PutNotes(inArguments.fTarget, notes);
    return Finish(outcome, output);
}

int Show(const Arguments& inArguments)
{
    Output output;
    return Finish(ShowFile(inArguments.fInputs[0], inArguments.fShow, output), output);
}

int Check(const Arguments& inArguments)
{
    Output output;
    return Finish(Outcome(CheckFiles(inArguments.fInputs, inArguments.fLimit, output), {}), output);
}

// A file that holds no scene is taken for a model, unless its name says that it is a scene: then it is a broken one. Of
// a model, standard input has no name.
Outcome ReadEither(const std::string& inPath, Scene& outScene)
{
    {
        TokenFile file;
        Outcome outcome = file.Open(inPath);
        if (!outcome.Ok())
            return outcome;
        if (inPath == "-" || HoldsScene(file))
        {
            const SceneLimit limit(file.Size());
            return ReadScene(file, outScene);
        }
        if (file.Failed())
            return file.ReadOutcome();
    }
    Outcome outcome = LoadFormats();
    if (!outcome.Ok())
        return outcome;
    const TNqFileType* const format = FindFormat(inPath);
    if (format == nullptr)
        return AtFault(fmt::format("{}: holds no scene, and neither its name nor its first bytes tell a known format "
                                   "of models (\"nqtoken formats\" lists them)",
                                   inPath));
    if (format->GetFileTypeFamilyID() == kSceneFamily)
        return ReadScene(inPath, outScene);
    std::vector<std::string> notes;
    return ImportModel(inPath, outScene, notes);
}

int Compare(const Arguments& inArguments)
{
    Output output;
    Scene a;
    Scene b;
    const auto read = [](const std::string& path, Scene& scene)
    { return CatchExceptions(path, [&] { return ReadEither(path, scene); }); };
    Outcome outcome = read(inArguments.fInputs[0], a);
    if (outcome.Ok())
        outcome = read(inArguments.fInputs[1], b);
    if (!outcome.Ok()) // without a comparison there is no "different"
        return Finish(Trouble(outcome.Text()), output);
    return Finish(Outcome(CompareScenes(a, b, inArguments.fTolerance, output), {}), output);
}

int Formats()
{
    Output output;
    return Finish(ListFormats(output), output);
}

int Send(const Arguments& inArguments)
{
    Output output;
    return Finish(SendScene(inArguments.fInputs[0], inArguments.fConnection), output);
}

int Receive(const Arguments& inArguments)
{
    Output output;
    return Finish(ReceiveScene(inArguments.fTarget, inArguments.fConnection, output), output);
}

// --- command line

using Command = int (*)(const Arguments&);

constexpr const char* kStatusText =
    "Exit status: 0 done, 1 a file is at fault, 2 wrong usage or a file that could not be read or written.";

void DescribeJobs(CLI::App& ioCommand, Arguments& outArguments)
{
    ioCommand
        .add_option("-j,--jobs", outArguments.fJobs,
                    "files to work on at a time; 0: one per processor. What is printed stays the same")
        ->check(WholeNumber(kMostJobs, fmt::format("from 0 to {}", kMostJobs)))
        ->type_name("N")
        ->capture_default_str();
}

void DescribeLimits(CLI::App& ioCommand, Arguments& outArguments)
{
    constexpr real64 kMonth = 30 * 86400;
    ioCommand
        .add_option("--memory-limit", outArguments.fLimits.fMemory,
                    "give up on what takes more memory, such as 4GB; 0: never. Otherwise half of the machine's, shared "
                    "by what works at a time, and for a scene 64 times its size and 256 MB")
        ->transform(ByteCount())
        ->type_name("BYTES");
    ioCommand.add_option("--time-limit", outArguments.fLimits.fTime, "give up on what takes more seconds; 0: never")
        ->check(PositiveReal(kMonth, fmt::format("from 0 to {}", kMonth)))
        ->type_name("SECONDS")
        ->capture_default_str();
}

void DescribeImport(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("import", "Turn 3D models into scenes");
    command->add_option("MODEL", outArguments.fInputs, "models of formats that \"nqtoken formats\" lists")->required();
    command
        ->add_option("-o,--output", outArguments.fTarget,
                     "scene to write, or a folder for scenes named after their models; without it they go beside the "
                     "models")
        ->type_name("SCENE");
    command
        ->add_option("--payload", outArguments.fPayload,
                     "how arrays are kept: \"text\" (six decimals) or \"raw\" (exact)")
        ->check(OneOf({"text", "raw"}))
        ->type_name("KIND")
        ->capture_default_str();
    DescribeJobs(*command, outArguments);
    DescribeLimits(*command, outArguments);
    command->footer("A model that cannot be read is told, and the others are imported all the same.\n"
                    "Example: nqtoken import duck.dae -o duck.nq\n"
                    "         nqtoken import duck.dae -o duck.nq --payload raw\n"
                    "         nqtoken import models/*.obj -o scenes --jobs 0\n" +
                    std::string(kStatusText));
}

void DescribeExport(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("export", "Turn a scene back into a 3D model");
    command->add_option("SCENE", outArguments.fInputs, "scene to read")->required()->expected(1);
    command->add_option("-o,--output", outArguments.fTarget, "model to write: .obj, .ply, .stl, .gltf or .glb")
        ->required()
        ->type_name("MODEL");
    DescribeLimits(*command, outArguments);
    command->footer(
        "The model is read again before it takes the target's place, and what it does not hold of the scene is\n"
        "told. Beside an .obj with materials goes a .mtl, beside a .gltf a .bin.\n"
        "Example: nqtoken export duck.nq -o duck.glb\n" +
        std::string(kStatusText));
}

void DescribeShow(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("show", "Show the tree of a token file with the first values");
    command->add_option("FILE", outArguments.fInputs, "token file to read; \"-\" is standard input")
        ->required()
        ->expected(1);
    command->add_option("--depth", outArguments.fShow.fDepth, "show deeper blocks as one line")
        ->check(AnyCount())
        ->type_name("N");
    command->add_option("--values", outArguments.fShow.fValues, "show so many values of an array")
        ->check(AnyCount())
        ->type_name("N")
        ->capture_default_str();
    command->footer("Example: nqtoken show duck.nq --depth 2 --values 6\n" + std::string(kStatusText));
}

void DescribeCheck(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("check", "Find what is wrong in token files");
    command->add_option("FILE", outArguments.fInputs, "token files to read; \"-\" is standard input")->required();
    command->add_option("--limit", outArguments.fLimit, "stop after so many faults of a file; 0: never")
        ->check(AnyCount())
        ->type_name("N")
        ->capture_default_str();
    DescribeJobs(*command, outArguments);
    command->footer("Each fault is a line FILE:LINE:COLUMN: what is wrong (code).\n"
                    "Example: nqtoken check duck.nq settings.nq\n"
                    "         nqtoken check scenes/*.nq --jobs 0\n" +
                    std::string(kStatusText));
}

void DescribeCompare(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("compare", "Tell whether two scenes or models are the same");
    command->add_option("FILES", outArguments.fInputs, "two files, each a scene or a model")->required()->expected(2);
    command->add_option("--tolerance", outArguments.fTolerance, "how far real numbers may be apart")
        ->check(PositiveReal(std::numeric_limits<real64>::max(), "of 0 or more"))
        ->type_name("T")
        ->capture_default_str();
    DescribeLimits(*command, outArguments);
    command->footer(
        "Compares nodes, meshes, materials and images. Numbers that went through decimal text differ by up to half a\n"
        "unit in the sixth decimal: that is the default tolerance.\n"
        "Example: nqtoken compare duck.dae duck.nq\n"
        "Exit status: 0 the same, 1 different, 2 wrong usage or a file that could not be read.");
}

void DescribeFormats(CLI::App& ioApp)
{
    CLI::App* command = ioApp.add_subcommand("formats", "List the formats of models and scenes that are known");
    command->footer("Each line: the format, the extensions of its files, whether it is read and written, and the type\n"
                    "codes: the first four bytes, by which a model is recognized when its name does not tell.\n"
                    "Example: nqtoken formats\n" +
                    std::string(kStatusText));
}

constexpr const char* kTransferStatusText = "Exit status: 0 done, 1 the other side or the file is at fault, 2 wrong "
                                            "usage, no connection, or a file that could\n"
                                            "not be read or written.";

void DescribeTimeout(CLI::App& ioCommand, Arguments& outArguments)
{
    constexpr real64 kDay = 86400;
    ioCommand
        .add_option("--timeout", outArguments.fConnection.fTimeout,
                    "give up after so many seconds in which nothing moves; 0: never")
        ->check(PositiveReal(kDay, fmt::format("from 0 to {}", kDay)))
        ->type_name("SECONDS")
        ->capture_default_str();
}

void DescribeSend(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("send", "Send a scene to another process that receives it");
    command
        ->add_option("ADDRESS", outArguments.fConnection.fAddress,
                     "where it is received: HOST:PORT, [IPV6]:PORT or unix:PATH")
        ->required();
    command->add_option("SCENE", outArguments.fInputs, "token file to send; \"-\" is standard input")
        ->required()
        ->expected(1);
    DescribeTimeout(*command, outArguments);
    command->footer(
        "Any token file can be sent. Ends well only when the receiver has confirmed that it has all of it.\n"
        "Example: nqtoken send localhost:4711 duck.nq\n" +
        std::string(kTransferStatusText));
}

void DescribeReceive(CLI::App& ioApp, Arguments& outArguments)
{
    CLI::App* command = ioApp.add_subcommand("receive", "Receive one scene that another process sends");
    command
        ->add_option("ADDRESS", outArguments.fConnection.fAddress,
                     "PORT of this machine (0: a free one), HOST:PORT, [IPV6]:PORT or unix:PATH")
        ->required();
    command->add_option("-o,--output", outArguments.fTarget, "scene to write")->required()->type_name("SCENE");
    command->add_flag("--any", outArguments.fConnection.fAny,
                      "take connections from other machines too; there is no password");
    command->add_option("--max-size", outArguments.fConnection.fMaxSize, "refuse scenes of more bytes, such as 64MB")
        ->transform(ByteCount())
        ->type_name("BYTES")
        ->default_str("1GB");
    DescribeTimeout(*command, outArguments);
    command->footer("Prints \"listening on ADDRESS\" as soon as a scene can be sent there. The target is written when\n"
                    "everything has come, and stays as it was otherwise.\n"
                    "Example: nqtoken receive 4711 -o duck.nq\n" +
                    std::string(kTransferStatusText));
}

int Run(int inCount, char** inArguments)
{
    CLI::App app("Looks at token files, checks them, sends them, and turns 3D models into scenes and back.", "nqtoken");
    app.set_version_flag("--version", "nqtoken " NQTOKEN_VERSION);
    app.require_subcommand(1);
    app.footer("\"nqtoken COMMAND --help\" tells more about each, with an example.");
    Arguments arguments;
    DescribeImport(app, arguments);
    DescribeExport(app, arguments);
    DescribeShow(app, arguments);
    DescribeCheck(app, arguments);
    DescribeCompare(app, arguments);
    DescribeFormats(app);
    DescribeSend(app, arguments);
    DescribeReceive(app, arguments);
    Output output;
    if (const std::optional<int> status = ReadCommandLine(app, inCount, inArguments, output))
        return *status;
    if (app.got_subcommand("import"))
        return Import(arguments);
    const bool isCheck = app.got_subcommand("check");
    const TNqHost host(HostOptions(isCheck ? JobCount(arguments.fJobs, arguments.fInputs.size()) : 1));
    if (isCheck)
        return Check(arguments);
    if (app.got_subcommand("show"))
        return Show(arguments);
    if (app.got_subcommand("formats"))
        return Formats();
    if (app.got_subcommand("send"))
        return Send(arguments);
    if (app.got_subcommand("receive"))
        return Receive(arguments);
    const Command command = app.got_subcommand("export") ? Export : Compare;
    // What ends the reading of two files is not known to be the fault of one.
    return RunGuarded(
        fmt::format("{}", fmt::join(arguments.fInputs, " or ")), [&] { return command(arguments); }, arguments.fLimits);
}

} // namespace

int main(int inCount, char** inArguments)
{
    PrepareProcess();
    int status = kTrouble;
    const Outcome outcome = CatchExceptions({},
                                            [&]
                                            {
                                                status = Run(inCount, inArguments);
                                                return Outcome();
                                            });
    if (!outcome.Ok())
        PutNote(outcome.Text());
    return status;
}
