#include "Tools/nqtoken/Output.h"

#include "Tools/nqtoken/AtomicFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace nqtoken
{
namespace
{

constexpr size_t kPieceSize = 1 << 16;

const char* Sequence(Colour inColour)
{
    switch (inColour)
    {
    case Colour::kName:
        return "\x1b[36m";
    case Colour::kFaint:
        return "\x1b[2m";
    case Colour::kGood:
        return "\x1b[32m";
    case Colour::kBad:
        return "\x1b[31m";
    case Colour::kPlain:
        break;
    }
    return "";
}

bool TerminalShowsColours()
{
    const char* refused = getenv("NO_COLOR");
    const char* terminal = getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || refused[0] == 0) &&
           (terminal == nullptr || strcmp(terminal, "dumb") != 0);
}

} // namespace

Output::Output() : fDescriptor(STDOUT_FILENO), fColours(TerminalShowsColours()) {}

void Output::Put(std::string_view inText, Colour inColour)
{
    if (fColours && inColour != Colour::kPlain)
    {
        fText += Sequence(inColour);
        fText += inText;
        fText += "\x1b[0m";
    }
    else
        fText += inText;
    if (fText.size() >= kPieceSize)
        static_cast<void>(Flush());
}

void Output::EndLine()
{
    Put("\n");
}

Outcome Output::Flush()
{
    if (fOutcome.Ok())
    {
        fOutcome = WriteAll(fDescriptor, fText, "standard output");
        fClosed = !fOutcome.Ok() && errno == EPIPE;
    }
    fText.clear();
    return fOutcome;
}

void PutNote(const std::string& inText)
{
    const std::string line = "nqtoken: " + inText + "\n";
    static_cast<void>(WriteAll(STDERR_FILENO, line, "standard error"));
}

} // namespace nqtoken
