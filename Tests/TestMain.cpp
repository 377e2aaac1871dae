#include "Tests/TestHost.h"

#include <mutex>

namespace
{

std::mutex gMutex;
std::vector<TTestReport> gReports;
TNqHost* gHost = nullptr;

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

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    TNqHostOptions options;
    options.fReportHandler = Record;
    TNqHost host(options);
    gHost = &host;
    return RUN_ALL_TESTS();
}
