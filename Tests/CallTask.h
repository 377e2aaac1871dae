// A task that calls a function.

#pragma once

#include "NqCore/PublicAPI/ISMPJob.h"

#include <functional>
#include <utility>

class TCallTask : public TBasicSMPTask
{
public:
    using TCall = std::function<void(ISMPJobTask**)>;

    static TNqCountedPtr<ISMPJobTask> Make(TCall inCall, bool inSpawns = false)
    {
        TNqCountedPtr<ISMPJobTask> task;
        TNqCountedCreateHelper<ISMPJobTask>{& task} = new TCallTask(std::move(inCall), inSpawns);
        return task;
    }

    void Execute(ISMPJobTask** outNext) override { fCall(outNext); }
    boolean CanSpawnTasks() override { return fSpawns; }

private:
    TCallTask(TCall inCall, bool inSpawns) : fCall(std::move(inCall)), fSpawns(inSpawns) {}

    const TCall fCall;
    const bool fSpawns;
};
