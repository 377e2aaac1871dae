#include "Tests/TestHost.h"

#include <mutex>
#include <optional>

namespace
{

std::mutex gMutex;
std::vector<TTestReport> gReports;
std::optional<TNqHost> gHost;

void Record(void*, const char* file, unsigned int line, const char* text)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    gReports.push_back({file != nullptr ? file : "", line, text != nullptr ? text : ""});
}

} // namespace

TNqHost& TestHost()
{
    return *gHost;
}

void RecordReports()
{
    gHost->SetReportHandler(Record, nullptr);
}

std::vector<TTestReport> TakeFullReports()
{
    const std::lock_guard<std::mutex> lock(gMutex);
    std::vector<TTestReport> reports;
    reports.swap(gReports);
    return reports;
}

std::vector<std::string> TakeReports()
{
    std::vector<std::string> texts;
    for (const TTestReport& report : TakeFullReports())
        texts.push_back(report.fText);
    return texts;
}

void StartTestHost(int workerCount)
{
    gHost.reset();
    TNqHostOptions options;
    options.fWorkerCount = workerCount;
    options.fReportHandler = Record;
    gHost.emplace(options);
}

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    StartTestHost(0);
    const int result = RUN_ALL_TESTS();
    gHost.reset();
    return result;
}
