#include "Tools/nqtoken/EachFile.h"

#include "Tools/nqtoken/OrderedOutput.h"
#include "Tools/nqtoken/Reports.h"

#include "NqCore/PublicAPI/NqSMPParallel.h"

#include <algorithm>
#include <atomic>
#include <thread>

#ifdef __linux__
#include <sched.h>
#endif

namespace nqtoken
{
namespace
{

int32 ProcessorCount()
{
#ifdef __linux__
    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof(processors), &processors) == 0)
        return CPU_COUNT(&processors);
#endif
    return std::max(static_cast<int32>(std::thread::hardware_concurrency()), 1);
}

struct WorstStatus
{
    using Type = ExitStatus;
    static void Init(ExitStatus& outStatus) { outStatus = kDone; }
    static void Update(ExitStatus& ioStatus, ExitStatus inStatus) { ioStatus = std::max(ioStatus, inStatus); }
};

} // namespace

int32 JobCount(int32 inJobs, size_t inFileCount)
{
    const int32 wanted = std::min(inJobs == 0 ? ProcessorCount() : inJobs, kMostJobs);
    return static_cast<int32>(std::min(static_cast<size_t>(wanted), inFileCount));
}

ExitStatus ForEachFile(const std::vector<std::string>& inPaths, Output& ioOutput, const FileWork& inWork)
{
    OrderedOutput ordered(ioOutput);
    std::atomic<size_t> next{0};
    TBasicEstimator always;
    ExitStatus worst = kDone;
    // A body takes the next file that nobody has begun, not the one of its index: a pool starts pieces in any order,
    // and what is printed first should be done first.
    SMPParallelReduce<WorstStatus>(
        TSimplePartitioner(0, static_cast<int32>(inPaths.size()), 1), always,
        [&](const TRange& range, TSMPJobReduce<WorstStatus>& status)
        {
            for (int64 count = range.Size(); count > 0 && ordered.Good(); --count)
            {
                ThrowIfSMPJobCancelled();
                const size_t index = next++;
                OrderedOutput::File output(ordered, index);
                const Outcome outcome = CatchExceptions(inPaths[index], [&] { return inWork(index, output); });
                if (!outcome.Text().empty())
                    output.PutNote(outcome.Text());
                status.Update(outcome.Status());
                output.End();
            }
        },
        worst);
    return worst;
}

} // namespace nqtoken
