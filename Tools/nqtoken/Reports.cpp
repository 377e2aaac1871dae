#include "Tools/nqtoken/Reports.h"

namespace nqtoken
{
namespace
{

uint64 gCount = 0;
std::string gLast;

} // namespace

void RecordReport(void*, const char*, unsigned int, const char* inText)
{
    ++gCount;
    gLast = inText != nullptr ? inText : "a check of the library failed";
}

uint64 ReportCount()
{
    return gCount;
}

const std::string& LastReport()
{
    return gLast;
}

} // namespace nqtoken
