// The rows by which the library is judged: for each task who of the contenders is the library, who the peers are, and
// how many times the quickest peer's speed it should have.

#pragma once

#include <string>

namespace NqBench
{

// The task of each row, a line each.
void PrintRows();
// Runs one row, the contenders taking turns, prints it, and writes it as JSON to the file. False when a result was
// wrong or the file cannot be written. Each row is best run in a process of its own: memory and threads that others
// left behind would count.
bool RunRow(const std::string& inTask, const std::string& inFile);
// Writes how much the scenes hold, as JSON.
bool DescribeScene(const std::string& inFile);

} // namespace NqBench
