#include "NqCore/PublicAPI/NqCompiler.h"
#include "NqHost/Source/NqHostInternal.h"

#include <cstdio>
#include <mutex>

namespace
{

void PrintReport(void*, const char* file, unsigned int line, const char* text)
{
    std::fprintf(stderr, "%s:%u: %s\n", file != nullptr ? file : "?", line, text != nullptr ? text : "check failed");
}

std::mutex gHandlerMutex;
TNqHostReportHandler gHandler = PrintReport;
void* gContext = nullptr;

void Report(const char* file, unsigned int line, const char* text)
{
    TNqHostReportHandler handler;
    void* context;
    {
        const std::lock_guard<std::mutex> lock(gHandlerMutex);
        handler = gHandler;
        context = gContext;
    }
    handler(context, file, line, text);
}

} // namespace

void NqHostSetReportHandler(TNqHostReportHandler inHandler, void* inContext)
{
    const std::lock_guard<std::mutex> lock(gHandlerMutex);
    gHandler = inHandler != nullptr ? inHandler : PrintReport;
    gContext = inContext;
}

void Nq_CallAssert_(char* file, unsigned int line)
{
    Report(file, line, nullptr);
}

void Nq_CallNotify_(char* file, unsigned int line, const char* text)
{
    Report(file, line, text);
}
