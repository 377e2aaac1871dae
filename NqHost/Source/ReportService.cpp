// Reports of failed checks: to the application's handler, or one line each to standard error.

#include "NqCore/PublicAPI/NqCompiler.h"
#include "NqHost/Source/NqHostInternal.h"

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

namespace
{

void PrintReport(void*, const char* inFile, unsigned int inLine, const char* inText)
{
    std::fprintf(stderr, "%s:%u: %s\n", inFile != nullptr ? inFile : "?", inLine,
                 inText != nullptr ? inText : "check failed");
}

// A handler and the calls that are inside it.
struct TReceiver
{
    TNqHostReportHandler fHandler = PrintReport;
    void* fContext = nullptr;
    int fCalls = 0; // guarded by TReports::fMutex
};

struct TReports
{
    std::mutex fMutex;
    std::condition_variable fCallEnded;
    std::shared_ptr<TReceiver> fReceiver = std::make_shared<TReceiver>();
};

// Never destroyed: checks may fail before the first host, after the last one, and while the process exits.
TReports& Reports()
{
    static TReports& reports = *new TReports;
    return reports;
}

thread_local int tCallsOnThisThread = 0;

// Holds the receiver of the moment for one call, also one that ends with an exception.
class CWhileReporting
{
public:
    explicit CWhileReporting(TReports& inReports) : fReports(inReports)
    {
        const std::lock_guard<std::mutex> lock(fReports.fMutex);
        fReceiver = fReports.fReceiver;
        ++fReceiver->fCalls;
        ++tCallsOnThisThread;
    }
    ~CWhileReporting()
    {
        const std::lock_guard<std::mutex> lock(fReports.fMutex);
        --tCallsOnThisThread;
        --fReceiver->fCalls;
        fReports.fCallEnded.notify_all();
    }
    CWhileReporting(const CWhileReporting&) = delete;
    CWhileReporting& operator=(const CWhileReporting&) = delete;

    const TReceiver& Receiver() const { return *fReceiver; }

private:
    TReports& fReports;
    std::shared_ptr<TReceiver> fReceiver;
};

void Report(const char* inFile, unsigned int inLine, const char* inText)
{
    const CWhileReporting call(Reports());
    call.Receiver().fHandler(call.Receiver().fContext, inFile, inLine, inText);
}

} // namespace

void NqHostSetReportHandler(TNqHostReportHandler inHandler, void* inContext)
{
    const auto receiver = std::make_shared<TReceiver>();
    if (inHandler != nullptr)
    {
        receiver->fHandler = inHandler;
        receiver->fContext = inContext;
    }
    TReports& reports = Reports();
    std::unique_lock<std::mutex> lock(reports.fMutex);
    const std::shared_ptr<TReceiver> replaced = std::exchange(reports.fReceiver, receiver);
    if (tCallsOnThisThread == 0)
        reports.fCallEnded.wait(lock, [&] { return replaced->fCalls == 0; });
}

void Nq_CallAssert_(char* inFile, unsigned int inLine)
{
    Report(inFile, inLine, nullptr);
}

void Nq_CallNotify_(char* inFile, unsigned int inLine, const char* inText)
{
    Report(inFile, inLine, inText);
}
