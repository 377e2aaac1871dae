// Standard output: collected, written in large pieces, and every failure noticed. Colours only where a terminal shows
// them.

#pragma once

#include "Tools/nqtoken/Outcome.h"

#include <string>
#include <string_view>

namespace nqtoken
{

enum class Colour
{
    kPlain,
    kName,  // of a block or attribute
    kFaint, // what describes the value
    kGood,
    kBad
};

class Output
{
public:
    Output();
    // To another file than standard output, without colours.
    explicit Output(int inDescriptor) : fDescriptor(inDescriptor) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output() = default;

    void Put(std::string_view inText, Colour inColour = Colour::kPlain);
    void EndLine();
    // To standard error, behind what was put so far. PutNote makes a line of it, as the function below.
    void PutError(std::string_view inText);
    void PutNote(const std::string& inText);
    // False once a write has failed: there is no use in going on.
    bool Good() const { return fOutcome.Ok(); }
    // False also once nobody reads any more, as behind "| head". That is no failure: what is put then goes nowhere, and
    // only who does nothing but print need not go on.
    bool Wanted() const { return Good() && !fClosed; }
    // Writes what is collected.
    Outcome Flush();

protected:
    // For an output that leaves the writing to another one.
    explicit Output(const Output* inColoursLike) : fColours(inColoursLike->fColours) {}
    virtual Outcome Write(std::string_view inText);
    virtual void WriteError(std::string_view inText);

private:
    std::string fText;
    int fDescriptor = -1;
    bool fColours = false;
    bool fClosed = false;
    Outcome fOutcome;
};

// One line to standard error, behind the name of the program: "nqtoken: ".
void PutNote(const std::string& inText);
// The name is "nqtoken" unless another one is set, before anything is told.
void NameProgram(const char* inName);

// The end of every command: says what went wrong and makes sure that all output was written. The exit status.
int Finish(const Outcome& inOutcome, Output& ioOutput);

} // namespace nqtoken
