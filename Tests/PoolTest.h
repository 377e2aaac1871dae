// The fixture of tests that run tasks on real pools, and tasks that call a function.

#pragma once

#include "NqCore/PublicAPI/NqSMP.h"
#include "NqCore/PublicAPI/NqSMPParallel.h"
#include "NqCore/PublicAPI/NqString.h"
#include "Tests/TestHost.h"

// A task that calls a function.
class TCallTask : public TBasicSMPTask
{
public:
    using TCall = std::function<void(ISMPJobTask**)>;

    static TNqCountedPtr<ISMPJobTask> Make(TCall call, bool spawns = false)
    {
        TNqCountedPtr<ISMPJobTask> task;
        TNqCountedCreateHelper<ISMPJobTask>{& task} = new TCallTask(std::move(call), spawns);
        return task;
    }

    void Execute(ISMPJobTask** next) override { fCall(next); }
    boolean CanSpawnTasks() override { return fSpawns; }

private:
    TCallTask(TCall call, bool spawns) : fCall(std::move(call)), fSpawns(spawns) {}

    const TCall fCall;
    const bool fSpawns;
};

constexpr int kNoPool = 0;

// The parameter is the number of workers.
class PoolTest : public NqTest, public ::testing::WithParamInterface<int>
{
protected:
    void SetUp() override
    {
        StartTestHost(GetParam());
        if (GetParam() == kNoPool)
        {
            TerminateSMP();
            InitSMP(false);
        }
        NqTest::SetUp();
    }
    void TearDown() override
    {
        TerminateSMP();
        EXPECT_EQ(GetAtomicCounterValue(*gCurrentCountedObjects), 0) << "counted objects are left";
        NqTest::TearDown();
        StartTestHost(0);
    }

    // The reports of loops that were cancelled or whose bodies threw, any number of them.
    static void ExpectReports(const std::string& expected = "An exception is being thrown")
    {
        for (const std::string& text : TakeReports())
            EXPECT_EQ(text, expected);
    }

    static TNqCountedPtr<ISMPJob> NewJob()
    {
        TNqCountedPtr<ISMPJob> job;
        GetSMPWorkers()->CreateJob(&job);
        return job;
    }
};

// What a call throws, as text: a code as the number it is, "" when it throws nothing.
inline std::string WhatIsThrown(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const TNqException& error)
    {
        return error.GetErrorString() != nullptr ? "message" : std::to_string(static_cast<uint32>(error.GetError()));
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
    catch (int number)
    {
        return "int " + std::to_string(number);
    }
    return "";
}
