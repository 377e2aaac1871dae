// What the library reports while a command runs. The tool says in its own words what went wrong, so a report is counted
// here rather than printed; an error of a stream, for one, shows nowhere else once later calls have cleared the
// stream's state. Each thread has counts of its own: files that are read at the same time do not mix.
//
//     const ReportMark mark;
//     stream << value;
//     if (mark.Reported())
//         ...                 // the value was not written as it is

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include "NqHost/PublicAPI/NqHost.h"

#include <functional>
#include <string>

namespace nqtoken
{

// The report handler of the tool's host.
void RecordReport(void* inContext, const char* inFile, unsigned int inLine, const char* inText);

// For a host of the tool with so many workers, at least one.
TNqHostOptions HostOptions(int32 inWorkerCount);

uint64 ReportCount();
// The text of the report last recorded, for messages about what should not happen.
const std::string& LastReport();

// Makes Trouble about inFile (or about nothing, when empty) of what inWork throws for want of memory or by a report. A
// cancel is thrown on.
Outcome CatchExceptions(const std::string& inFile, const std::function<Outcome()>& inWork);

class ReportMark
{
public:
    ReportMark() : fCount(ReportCount()) {}
    bool Reported() const { return ReportCount() != fCount; }

private:
    uint64 fCount;
};

} // namespace nqtoken
