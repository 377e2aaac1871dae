// The fixture of every test: a running host whose reports are recorded. A report that a test did not take fails it.

#pragma once

#include "NqHost/PublicAPI/NqHost.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

// The one host of the test program.
TNqHost& TestHost();

struct TTestReport
{
    std::string fFile;
    unsigned int fLine;
    std::string fText; // "" for a report without text
};

// Sends reports to the recorder again, after a test that replaced the handler.
void RecordReports();

// The reports since the last call, and only their texts.
std::vector<TTestReport> TakeFullReports();
std::vector<std::string> TakeReports();

using TTexts = std::vector<std::string>;

class NqTest : public ::testing::Test
{
protected:
    void SetUp() override { TakeReports(); }

    void TearDown() override
    {
        TestHost().FailAllocations(0);
        for (const TTestReport& report : TakeFullReports())
            ADD_FAILURE() << "unexpected report at " << report.fFile << ":" << report.fLine << ": " << report.fText;
    }
};

// Calls a virtual operation by its slot, as a plug-in built elsewhere does.
template <class Function>
inline Function Slot(void* object, size_t index)
{
    void** table;
    std::memcpy(&table, object, sizeof table);
    Function function;
    std::memcpy(&function, &table[index], sizeof function);
    return function;
}

// Makes each allocation of `inBody` fail in turn, until a run needs none that fails. Calls inBody(n) for n = 1, 2, ...
// with the n-th allocation failing; inBody checks what must hold then.
template <class Body>
void ForEachFailingAllocation(Body&& inBody)
{
    for (int64 n = 1;; ++n)
    {
        TestHost().FailAllocations(n);
        inBody(n);
        const bool reached = TestHost().CountAllocations() >= n;
        TestHost().FailAllocations(0);
        TakeReports();
        if (!reached)
            break;
        ASSERT_LT(n, 100000) << "the body never ends allocating";
    }
}
