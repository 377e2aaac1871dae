// What the library reports while a command runs. The tool says in its own words what went wrong, so a report is counted
// here rather than printed; an error of a stream, for one, shows nowhere else once later calls have cleared the
// stream's state.
//
//     const ReportMark mark;
//     stream << value;
//     if (mark.Reported())
//         ...                 // the value was not written as it is

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <string>

namespace nqtoken
{

// The report handler of the tool's host.
void RecordReport(void* inContext, const char* inFile, unsigned int inLine, const char* inText);

uint64 ReportCount();
// The text of the report last recorded, for messages about what should not happen.
const std::string& LastReport();

class ReportMark
{
public:
    ReportMark() : fCount(ReportCount()) {}
    bool Reported() const { return ReportCount() != fCount; }

private:
    uint64 fCount;
};

} // namespace nqtoken
