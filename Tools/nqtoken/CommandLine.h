// What a command line is checked with before a command runs, and what is said of one that is wrong.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace nqtoken
{

// For numbers from 0 on: digits only. inRange ends the message, as in "is not a whole number from 0 to 256".
CLI::Validator WholeNumber(uint64 inMost, const std::string& inRange);
CLI::Validator AnyCount();
// The same for any number.
CLI::Validator PositiveReal(real64 inMost, const std::string& inRange);

// For numbers of bytes, with a unit or without one: puts the number alone into its place.
CLI::Validator ByteCount();

// The words behind the program's name. "help check" is taken for "check --help".
std::vector<std::string> Words(int inCount, char** inArguments);

// What to say of a command line whose first word is no command: there may be one that it resembles.
std::string NoCommandText(const CLI::App& inApp, const std::string& inWord);

} // namespace nqtoken
