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

const char* gProgram = "nqtoken";

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

std::string NoteLine(const std::string& inText)
{
    return std::string(gProgram) + ": " + inText + "\n";
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
    if (Wanted())
    {
        errno = 0;
        Outcome written = Write(fText);
        fClosed = !written.Ok() && errno == EPIPE;
        if (!fClosed)
            fOutcome = std::move(written);
    }
    fText.clear();
    return fOutcome;
}

void Output::PutError(std::string_view inText)
{
    static_cast<void>(Flush());
    WriteError(inText);
}

void Output::PutNote(const std::string& inText)
{
    PutError(NoteLine(inText));
}

Outcome Output::Write(std::string_view inText)
{
    return WriteAll(fDescriptor, inText, "standard output");
}

void Output::WriteError(std::string_view inText)
{
    static_cast<void>(WriteAll(STDERR_FILENO, inText, "standard error"));
}

void PutNote(const std::string& inText)
{
    static_cast<void>(WriteAll(STDERR_FILENO, NoteLine(inText), "standard error"));
}

void NameProgram(const char* inName)
{
    gProgram = inName;
}

int Finish(const Outcome& inOutcome, Output& ioOutput)
{
    const Outcome written = ioOutput.Flush();
    if (!inOutcome.Text().empty())
        PutNote(inOutcome.Text());
    if (!written.Ok())
        PutNote(written.Text());
    return written.Ok() ? inOutcome.Status() : kTrouble;
}

} // namespace nqtoken
