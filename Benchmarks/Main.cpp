// Runs the benchmarks and prints one table per task, the first row's contender as it is and every other against it.
//   nqbench [--scene=FILE] [options of the benchmark library]
//   nqbench --rows                                      the rows by which the library is judged, see Table.h
//   nqbench --row=ROW --json=FILE [--scene=FILE]        measures one of them, or tells of the scenes (ROW is "scene")

#include "Benchmarks/Scene.h"
#include "Benchmarks/Table.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
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

// Takes an option of this program, such as --scene=FILE, out of the arguments.
std::string TakeOption(int& ioCount, char** ioArguments, const std::string& inName)
{
    std::string value;
    int kept = 1;
    for (int i = 1; i < ioCount; ++i)
    {
        const std::string argument = ioArguments[i];
        if (argument.compare(0, inName.size(), inName) == 0)
            value = argument.substr(inName.size());
        else
            ioArguments[kept++] = ioArguments[i];
    }
    ioCount = kept;
    return value;
}

// Makes freed memory stay with the process, as in an application that has had a large document open: until a large
// block was freed, the C library gives each block back to the system and fetches it anew, page by page.
void KeepMemory()
{
    constexpr size_t largest = (size_t{32} << 20) - 8192; // up to which the C library learns
    void* block = std::malloc(largest);
    benchmark::DoNotOptimize(block);
    std::free(block);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "--rows")
    {
        NqBench::PrintRows();
        return 0;
    }
    TNqHost host;
    NqBench::SetSceneFile(TakeOption(argc, argv, "--scene="));
    const std::string json = TakeOption(argc, argv, "--json=");
    const std::string row = TakeOption(argc, argv, "--row=");
    KeepMemory();
    std::thread([] {}).join(); // while there was only one thread, the peers leave out what makes locks and counts safe
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    if (!row.empty())
        return (row == "scene" ? NqBench::DescribeScene(json) : NqBench::RunRow(row, json)) ? 0 : 1;
    TTables tables;
    benchmark::RunSpecifiedBenchmarks(&tables);
    return 0;
}
