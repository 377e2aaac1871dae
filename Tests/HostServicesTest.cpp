#include "NqCore/PublicAPI/NqAsciiTranslationTable.h"
#include "NqCore/PublicAPI/NqCompiler.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqHostServices.h"
#include "NqCore/PublicAPI/NqTiming.h"
#include "Tests/TestHost.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <set>

namespace
{

constexpr int kLongWait = 60000; // milliseconds; only a lost wake-up lets it pass

struct TSemaphore
{
    TSemaphore(int maximum, int units) : fHost(NewSemaphore(maximum, units)) {}
    ~TSemaphore() { DeleteSemaphore(fHost); }
    NqErr Wait(int milliseconds) { return WaitForSemaphore(fHost, milliseconds); }
    void Signal() { SignalSemaphore(fHost); }
    TNqSemaphore* fHost;
};

// A handler's context that notices when it is used after it was given up.
struct TContext
{
    static void Receive(void* context, const char*, unsigned int, const char*)
    {
        TContext& self = *static_cast<TContext*>(context);
        ++self.fReports;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        self.fLate += self.fRetired ? 1 : 0;
    }
    static void ReceiveOnce(void* context, const char*, unsigned int, const char*)
    {
        ++static_cast<TContext*>(context)->fReports;
        TestHost().SetReportHandler(nullptr, nullptr);
    }

    std::atomic<int> fReports{0};
    std::atomic<bool> fRetired{false};
    std::atomic<int> fLate{0};
};

} // namespace

using HostServices = NqTest;

TEST_F(HostServices, SemaphoresCountAndSaturateLikeABoundedInteger)
{
    std::mt19937 random(7);
    for (int maximum : {1, 2, 5})
    {
        int units = static_cast<int>(random()) % 2 == 0 ? 0 : maximum;
        TSemaphore semaphore(maximum, units);
        for (int step = 0; step < 2000; ++step)
        {
            if (random() % 2 == 0)
            {
                semaphore.Signal();
                units = std::min(units + 1, maximum);
                continue;
            }
            ASSERT_EQ(semaphore.Wait(random() % 64 == 0 ? 1 : 0), units > 0 ? kNqNoErr : kNqErrInvalidData) << step;
            units = std::max(units - 1, 0);
        }
    }
    const TNqTiming start = TNqTiming::Now();
    EXPECT_EQ(TSemaphore(1, 0).Wait(30), kNqErrInvalidData);
    EXPECT_GE((TNqTiming::Now() - start).GetTime(), 30000000) << "the clock counts nanoseconds";
    TSemaphore corrected(0, -3);
    EXPECT_EQ(corrected.Wait(0), kNqErrInvalidData);
    corrected.Signal();
    EXPECT_EQ(corrected.Wait(0), kNqNoErr);
    EXPECT_EQ(TakeReports(), TTexts{"maxCount > 0 && initialCount >= 0 && initialCount <= maxCount"});
}

// Units pass from producers to consumers that sleep, poll and time out; each unit that was signalled is taken once.
TEST_F(HostServices, NoUnitIsLostBetweenThreads)
{
    constexpr int kUnits = 20000;
    TSemaphore semaphore(4 * kUnits, 0);
    std::atomic<int> taken{0};
    OnThreads(6,
              [&](int index)
              {
                  for (int i = 0; index < 2 && i < kUnits; ++i)
                      semaphore.Signal();
                  if (index < 2)
                      return;
                  const int waits[] = {-1, kLongWait, 0, 1};
                  for (int mine = 0; mine < kUnits / 2;)
                  {
                      const NqErr err = semaphore.Wait(waits[index - 2]);
                      ASSERT_TRUE(err == kNqNoErr || index >= 4) << "a sleeper was not woken";
                      mine += err == kNqNoErr ? 1 : 0;
                      taken += err == kNqNoErr ? 1 : 0;
                  }
              });
    EXPECT_EQ(taken, 2 * kUnits);
    EXPECT_LT(semaphore.Wait(0), 0);
}

// The one that takes the last unit may delete the semaphore while the signaller is still on its way out.
TEST_F(HostServices, AWokenThreadMayDeleteItsSemaphore)
{
    for (int i = 0; i < 500; ++i)
    {
        TNqSemaphore* semaphore = NewSemaphore(1, 0);
        std::thread signaller([semaphore] { SignalSemaphore(semaphore); });
        ASSERT_EQ(WaitForSemaphore(semaphore, kLongWait), kNqNoErr);
        DeleteSemaphore(semaphore);
        signaller.join();
    }
}

TEST_F(HostServices, ASignalWithoutSleepersMakesNoSystemCall)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer makes system calls of its own";
#endif
    TSemaphore semaphore(3, 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        // Any system call but the one that ends the process kills it.
        sock_filter rules[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                               BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
                               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
                               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
        const sock_fprog program = {4, rules};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
            _exit(77);
        for (int i = 0; i < 10; ++i)
            semaphore.Signal();
        syscall(SYS_exit_group, 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "system calls cannot be forbidden here";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "killed by signal " << WTERMSIG(status);
}

TEST_F(HostServices, SectionsExcludeOtherThreadsUntilTheOutermostLeave)
{
    TNqCriticalSection* section = NewCS();
    int guarded = 0;
    const auto guard = [&](int index)
    {
        for (int i = 0; i < 2000; ++i)
        {
            EnterCS(section);
            if (index % 2 == 0)
                EnterCS(section), LeaveCS(section);
            ++guarded;
            LeaveCS(section);
        }
    };
    OnThreads(4, guard);
    EXPECT_EQ(guarded, 8000);
    DeleteCS(section);
    EnterCS(nullptr);
    LeaveCS(nullptr);
}

TEST_F(HostServices, CountersHandOutEachValueOnce)
{
    constexpr int kThreads = 4;
    constexpr int kSteps = 5000;
    TNqAtomicCounter* counter = NewAtomicCounter();
    EXPECT_EQ(GetAtomicCounterValue(counter), 0);
    std::vector<std::vector<int32>> values(kThreads + 1);
    const auto count = [&](int index)
    {
        for (TNqAtomicCounter* mine = counter; values[static_cast<size_t>(index)].size() < kSteps;)
            values[static_cast<size_t>(index)].push_back(IncrementAtomicCounter(mine));
    };
    count(kThreads); // alone at first, and where nothing has started a thread, the only one of the process
    OnThreads(kThreads, count);
    std::set<int32> all;
    for (const std::vector<int32>& part : values)
        all.insert(part.begin(), part.end());
    EXPECT_TRUE(all.size() == (kThreads + 1) * kSteps && *all.begin() == 1 && *all.rbegin() == (kThreads + 1) * kSteps);

    SetAtomicCounterValue(counter, 0x7FFFFFFF);
    EXPECT_EQ(IncrementAtomicCounter(counter), -0x7FFFFFFF - 1);
    SetAtomicCounterValue(counter, 1);
    EXPECT_EQ(DecrementAtomicCounter(counter), 0);
    EXPECT_EQ(DecrementAtomicCounter(counter), -1);
    EXPECT_EQ(GetAtomicCounterValueOrdered(counter), -1);
    TNqAtomicCounter* other = NewAtomicCounter();
    EXPECT_NE(reinterpret_cast<uintpointer>(counter) / 64, reinterpret_cast<uintpointer>(other) / 64);
    DeleteAtomicCounter(other);
    DeleteAtomicCounter(counter);
}

TEST_F(HostServices, ChosenAllocationsFailWhateverTheirKind)
{
    void* block = Nqmalloc(0);
    ASSERT_NE(block, nullptr);
    TestHost().FailAllocations(2, 4);
    void* grown = Nqrealloc(block, 8);
    EXPECT_NE(grown, nullptr);
    EXPECT_EQ(Nqrealloc(grown, 16), nullptr); // and the block is still there to be freed
    EXPECT_EQ(NewCS(), nullptr);
    EXPECT_EQ(NewSemaphore(1, 0), nullptr);
    EXPECT_EQ(NewAtomicCounter(), nullptr);
    void* object = gMemoryUtilities->AllocateBlock(4);
    EXPECT_NE(object, nullptr);
    EXPECT_EQ(TestHost().CountAllocations(), 6);
    gMemoryUtilities->FreeBlock(object);
    Nqfree(grown);
}

TEST_F(HostServices, AHostThatEndsLeavesNoTranslation)
{
    TNqAsciiTranslationTable table;
    TestHost().SetAsciiTranslationTable(&table);
    EXPECT_EQ(GetAsciiTranslationTable(), &table);
    StartTestHost(0);
    EXPECT_EQ(GetAsciiTranslationTable(), nullptr);
}

TEST_F(HostServices, NoThreadIsInAHandlerThatWasReplaced)
{
    constexpr int kThreads = 3;
    constexpr int kReports = 200;
    std::vector<TContext> contexts(50);
    TestHost().SetReportHandler(TContext::Receive, &contexts[0]);
    std::thread replacer(
        [&]
        {
            NqNotify("busy"); // who has reported waits for the others all the same
            for (size_t i = 1; i < contexts.size(); ++i)
            {
                TestHost().SetReportHandler(TContext::Receive, &contexts[i]);
                contexts[i - 1].fRetired = true;
            }
        });
    const auto report = [](int)
    {
        for (int i = 0; i < kReports; ++i)
            NqNotify("busy");
    };
    OnThreads(kThreads, report);
    replacer.join();
    RecordReports();
    int reports = 0;
    for (const TContext& context : contexts)
    {
        EXPECT_EQ(context.fLate, 0);
        reports += context.fReports;
    }
    EXPECT_EQ(reports, kThreads * kReports + 1);
}

TEST_F(HostServices, AHandlerMayReplaceItselfByTheLineOnStandardError)
{
    TContext context;
    TestHost().SetReportHandler(TContext::ReceiveOnce, &context);
    ::testing::internal::CaptureStderr();
    NqNotify("taken");
    Nq_CallNotify_(const_cast<char*>("NqCore/a.h"), 12, "index < count");
    Nq_CallAssert_(const_cast<char*>("NqCore/b.h"), 3);
    Nq_CallNotify_(nullptr, 0, "nowhere");
    const std::string lines = ::testing::internal::GetCapturedStderr();
    RecordReports();
    EXPECT_EQ(lines, "NqCore/a.h:12: index < count\nNqCore/b.h:3: check failed\n?:0: nowhere\n");
    EXPECT_EQ(context.fReports, 1);
}
