// The command lines of both tools: what they are checked with, and what is said of one that is wrong.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace nqtoken
{

class Output;

// For numbers from 0 on: digits only. inRange ends the message, as in "is not a whole number from 0 to 256".
CLI::Validator WholeNumber(uint64 inMost, const std::string& inRange);
CLI::Validator AnyCount();
// The same for any number.
CLI::Validator PositiveReal(real64 inMost, const std::string& inRange);

// For numbers of bytes, with a unit or without one: puts the number alone into its place.
CLI::Validator ByteCount();

// One of a few words.
CLI::Validator OneOf(const std::vector<std::string>& inWords);

// Reads the command line of a program whose first word is a command. Nothing when that command is to run, else the
// program's exit status: help was printed, or a sentence that says what is wrong.
std::optional<int> ReadCommandLine(CLI::App& ioApp, int inCount, char** inArguments, Output& ioOutput);

} // namespace nqtoken
