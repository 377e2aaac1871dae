#include "Tools/nqtoken/Check.h"

#include "Tools/nqtoken/EachFile.h"
#include "Tools/nqtoken/Text.h"
#include "Tools/nqtoken/TokenFile.h"
#include "Tools/nqtoken/Walker.h"

#include <fmt/format.h>

#include <algorithm>

namespace nqtoken
{
namespace
{

Outcome CheckFile(const std::string& inPath, uint64 inLimit, Output& ioOutput)
{
    TokenFile file;
    Outcome outcome = file.Open(inPath);
    if (!outcome.Ok())
        return outcome;
    uint64 faults = 0;
    Walker walker(file);
    while (walker.Next() && ioOutput.Good())
    {
        if (walker.Kind() != Walker::kFault)
            continue;
        ++faults;
        ioOutput.Put(file.FaultText(walker.FaultPosition(), walker.Fault(), walker.FaultCode()));
        ioOutput.EndLine();
        if (faults == inLimit)
            return AtFault(
                fmt::format("{}: {}, and the rest was not read (--limit)", file.ShownName(), Counted(faults, "fault")));
    }
    const Outcome read = file.ReadOutcome();
    if (!read.Ok())
        return read;
    if (faults > 0)
        return AtFault({});
    ioOutput.Put(fmt::format("{}: no faults", file.ShownName()), Colour::kGood);
    ioOutput.EndLine();
    return {};
}

} // namespace

ExitStatus CheckFiles(const std::vector<std::string>& inPaths, uint64 inLimit, Output& ioOutput)
{
    if (std::count(inPaths.begin(), inPaths.end(), "-") > 1)
    {
        ioOutput.PutNote("standard input (\"-\") can be read only once");
        return kTrouble;
    }
    return ForEachFile(inPaths, ioOutput,
                       [&](size_t inIndex, Output& ioFileOutput)
                       { return CheckFile(inPaths[inIndex], inLimit, ioFileOutput); });
}

} // namespace nqtoken
