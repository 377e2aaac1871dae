// How an operation of the tool ended: done, or a sentence for the user with the exit status that goes with it.
//
//     Outcome outcome = ReadScene(path, scene);
//     if (!outcome.Ok())
//         return outcome; // printed once, by main

#pragma once

#include <string>
#include <utility>

namespace nqtoken
{

enum ExitStatus : int
{
    kDone = 0,
    kAtFault = 1, // what the file holds is wrong, or two files differ
    kTrouble = 2  // wrong usage, or something could not be read or written
};

class [[nodiscard]] Outcome
{
public:
    Outcome() = default;
    Outcome(ExitStatus inStatus, std::string inText) : fStatus(inStatus), fText(std::move(inText)) {}

    bool Ok() const { return fStatus == kDone; }
    ExitStatus Status() const { return fStatus; }
    const std::string& Text() const { return fText; }

private:
    ExitStatus fStatus = kDone;
    std::string fText;
};

inline Outcome AtFault(std::string inText)
{
    return {kAtFault, std::move(inText)};
}

inline Outcome Trouble(std::string inText)
{
    return {kTrouble, std::move(inText)};
}

} // namespace nqtoken
