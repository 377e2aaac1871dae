#include "Tools/nqtoken/Reports.h"

#include "Tools/nqtoken/Limits.h"

#include "NqCore/PublicAPI/NqException.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

namespace nqtoken
{
namespace
{

// A report comes on the thread that works on the file.
thread_local uint64 tCount = 0;
thread_local std::string tLast;

} // namespace

void RecordReport(void*, const char*, unsigned int, const char* inText)
{
    ++tCount;
    tLast = inText != nullptr ? inText : "a check of the library failed";
}

TNqHostOptions HostOptions(int32 inWorkerCount)
{
    TNqHostOptions options;
    options.fWorkerCount = std::max(inWorkerCount, 1);
    options.fReportHandler = RecordReport;
    return options;
}

uint64 ReportCount()
{
    return tCount;
}

const std::string& LastReport()
{
    return tLast;
}

Outcome CatchExceptions(const std::string& inFile, const std::function<Outcome()>& inWork)
{
    const std::string start = inFile.empty() ? "" : inFile + ": ";
    try
    {
        return inWork();
    }
    catch (const std::bad_alloc&)
    {
        return Trouble(start + OutOfMemoryText());
    }
    catch (const TNqException& error)
    {
        if (error.GetError() == kNqErrCancelled)
            throw;
        if (error.GetError() == kNqErrOutOfMemory)
            return Trouble(start + OutOfMemoryText());
        return Trouble(
            fmt::format("{}error 0x{:08X} ({})", start, static_cast<uint32>(error.GetError()), LastReport()));
    }
}

} // namespace nqtoken
