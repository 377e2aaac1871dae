// Runs the benchmarks and prints one table per task, the library's own row first and every other against it.

#include "NqHost/PublicAPI/NqHost.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace
{

class TTables : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& inContext) override
    {
        std::printf("%d processors at %.0f MHz; times are of the wall clock, for the whole task\n",
                    inContext.cpu_info.num_cpus, inContext.cpu_info.cycles_per_second / 1e6);
        return true;
    }

    void ReportRuns(const std::vector<Run>& inRuns) override
    {
        for (const Run& run : inRuns)
            if (run.run_type == Run::RT_Iteration)
                Print(run);
        std::fflush(stdout);
    }

private:
    void Print(const Run& inRun)
    {
        const std::string name = inRun.run_name.function_name;
        const size_t slash = name.find('/');
        const std::string task = name.substr(0, slash);
        if (task != fTask)
        {
            std::printf("\n%-34s %10s %12s %9s %9s\n", task.c_str(), "ms", "million/s", "MB", "relative");
            fTask = task;
            fFirstTime = 0;
        }
        if (inRun.error_occurred)
        {
            std::printf("  %-32s %s\n", name.substr(slash + 1).c_str(), inRun.error_message.c_str());
            return;
        }
        const double seconds = inRun.real_accumulated_time / static_cast<double>(inRun.iterations);
        if (fFirstTime == 0)
            fFirstTime = seconds;
        const auto rate = inRun.counters.find("items_per_second");
        const double size = inRun.report_label.empty() ? 0 : std::stod(inRun.report_label) / 1e6;
        std::printf("  %-32s %10.3f %12.2f %9.2f %9.2f\n", name.substr(slash + 1).c_str(), seconds * 1e3,
                    rate == inRun.counters.end() ? 0 : rate->second.value / 1e6, size, seconds / fFirstTime);
    }

    std::string fTask;
    double fFirstTime = 0; // seconds of the task's first contender
};

} // namespace

int main(int argc, char** argv)
{
    TNqHost host;
    std::thread([] {}).join(); // while there was only one thread, the peers leave out what makes locks and counts safe
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    TTables tables;
    benchmark::RunSpecifiedBenchmarks(&tables);
    return 0;
}
