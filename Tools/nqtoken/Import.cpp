#include "Tools/nqtoken/Import.h"

#include "Tools/nqtoken/EachFile.h"
#include "Tools/nqtoken/Guard.h"
#include "Tools/nqtoken/ModelImport.h"
#include "Tools/nqtoken/Reports.h"
#include "Tools/nqtoken/SceneTargets.h"

#include "NqCore/PublicAPI/ISMPJob.h"
#include "NqCore/PublicAPI/NqException.h"

#include <fmt/format.h>

namespace nqtoken
{
namespace
{

void PutNotes(const std::string& inFile, const std::vector<std::string>& inNotes)
{
    for (const std::string& note : inNotes)
        PutNote(fmt::format("{}: {}", inFile, note));
}

// In a process of its own.
int ImportOne(const std::string& inModel, const std::string& inTarget, Payload inPayload)
{
    Scene scene;
    std::vector<std::string> left;
    std::vector<std::string> lost;
    Outcome outcome = ImportModel(inModel, scene, left);
    if (outcome.Ok())
        outcome = WriteScene(scene, inPayload, inTarget, lost);
    if (outcome.Ok())
    {
        PutNotes(inModel, left);
        PutNotes(inTarget, lost);
    }
    else
        PutNote(outcome.Text());
    return outcome.Status();
}

} // namespace

ExitStatus ImportModels(const ImportOptions& inOptions, Output& ioOutput)
{
    const std::vector<std::string>& models = inOptions.fModels;
    SceneTargets targets;
    const Outcome chosen = ChooseTargets(models, inOptions.fTarget, targets);
    if (!chosen.Ok())
    {
        ioOutput.PutNote(chosen.Text());
        return chosen.Status();
    }
    const int32 jobs = JobCount(inOptions.fJobs, models.size());
    Limits limits = inOptions.fLimits;
    limits.fMemory = limits.fMemory.value_or(DefaultMemoryLimit(jobs));
    const auto import = [&](uint32 index)
    {
        return RunGuarded(
            models[index], [&] { return ImportOne(models[index], targets.fPaths[index], inOptions.fPayload); }, limits);
    };
    ExitStatus status = kTrouble;
    {
        // One at a time needs no thread here, and so no process that forks in its place.
        GuardProcesses processes(jobs > 1 ? jobs : 0, import);
        const TNqHost host(HostOptions(processes.Count()));
        TNqHost::SetThreadAbortFlag(&GuardProcesses::Cancelled());
        try
        {
            status = ForEachFile(
                models, ioOutput,
                [&](size_t file, Output& fileOutput)
                {
                    const auto index = static_cast<uint32>(file);
                    const int ended = processes.Count() > 0 ? processes.Run(GetCurrentSMPWorkerID(), index, fileOutput)
                                                            : import(index);
                    if (ended == kDone && targets.fAreNamedAfterModels)
                    {
                        fileOutput.Put(fmt::format("{}: written to {}", models[file], targets.fPaths[file]));
                        fileOutput.EndLine();
                    }
                    return Outcome(static_cast<ExitStatus>(ended), {});
                });
        }
        catch (const TNqException& error)
        {
            if (error.GetError() != kNqErrCancelled)
                throw;
            // The program ends when the processes have.
        }
        TNqHost::SetThreadAbortFlag(nullptr);
    }
    GuardProcesses::DieIfCancelled();
    return status;
}

} // namespace nqtoken
