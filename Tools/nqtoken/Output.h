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
    // To standard error, behind what was put so far. PutNote makes a line of it, behind "nqtoken: ".
    void PutError(std::string_view inText);
    void PutNote(const std::string& inText);
    // False once a write has failed: there is no use in going on.
    bool Good() const { return fOutcome.Ok(); }
    // Whether it failed because nobody reads any more.
    bool Closed() const { return fClosed; }
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

// One line to standard error, behind "nqtoken: ".
void PutNote(const std::string& inText);

} // namespace nqtoken
