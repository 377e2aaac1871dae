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

    void Put(std::string_view inText, Colour inColour = Colour::kPlain);
    void EndLine();
    // False once a write has failed: there is no use in going on.
    bool Good() const { return fOutcome.Ok(); }
    // Whether it failed because nobody reads any more.
    bool Closed() const { return fClosed; }
    // Writes what is collected.
    Outcome Flush();

private:
    std::string fText;
    int fDescriptor;
    bool fColours = false;
    bool fClosed = false;
    Outcome fOutcome;
};

// One line to standard error, behind "nqtoken: ".
void PutNote(const std::string& inText);

} // namespace nqtoken
