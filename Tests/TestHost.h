// The fixture of every test: a running host whose reports are recorded. A report that a test did not take fails it.

#pragma once

#include "NqHost/PublicAPI/NqHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

// The one host of the test program.
TNqHost& TestHost();

// Starts it anew with so many workers; 0 for one per processor, as it is at first. No object of the library may be
// alive.
void StartTestHost(int workerCount);

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

// A fixture with a folder of its own, removed at its end.
class FolderTest : public NqTest
{
protected:
    void SetUp() override
    {
        NqTest::SetUp();
        std::string pattern = (std::filesystem::temp_directory_path() / "nqtestXXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        fFolder = pattern;
    }
    void TearDown() override
    {
        std::filesystem::remove_all(fFolder);
        NqTest::TearDown();
    }

    std::string Path(const std::string& name) const { return (fFolder / name).string(); }
    std::string Put(const std::string& name, const std::string& bytes) const
    {
        std::filesystem::remove(Path(name)); // writing over a file may wait for the disk, a new one does not
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }
    static std::string ReadAll(const std::string& path)
    {
        std::ostringstream bytes;
        bytes << std::ifstream(path, std::ios::binary).rdbuf();
        return bytes.str();
    }

    std::filesystem::path fFolder;
};

// Random numbers that follow from a seed.
struct TRandom : std::mt19937
{
    template <class Seed>
    explicit TRandom(Seed seed) : std::mt19937(static_cast<uint32>(seed))
    {
    }
    int32 Below(int32 end) { return static_cast<int32>((*this)() % static_cast<uint32>(end)); }
    bool OneIn(int32 n) { return Below(n) == 0; }
};

// The text with a few of its bytes lost or changed, pieces and parts of itself added.
inline std::string Mutated(std::string text, const TTexts& pieces, TRandom& random)
{
    for (int changes = 1 + random.Below(4); changes > 0; --changes)
    {
        const int32 size = static_cast<int32>(text.size());
        const size_t at = static_cast<size_t>(random.Below(size + 1));
        const int kind = random.Below(4);
        if (kind == 0)
            text.insert(at, pieces[random() % pieces.size()]);
        else if (kind == 1)
            text.erase(at, random() % 9);
        else if (kind == 2)
            text.insert(at, text.substr(random() % (text.size() + 1), random() % 40));
        else if (at < text.size())
            text[at] = static_cast<char>(random());
    }
    return text;
}

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

// Runs body(0) to body(count - 1), each on a thread of its own.
template <class Body>
void OnThreads(int count, Body&& body)
{
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&body, i] { body(i); });
    for (std::thread& thread : threads)
        thread.join();
}

// Whether a test passes in a process of its own, which finds the variable in its environment.
inline bool PassesAnew(const std::string& test, const std::string& variable, const std::string& value)
{
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    return std::system((variable + "='" + value + "' '" + program + "' --gtest_brief=1 --gtest_filter='" + test + "'")
                           .c_str()) == 0;
}

// Makes each allocation of `body` fail in turn, until a run needs none that fails. Calls body(n) for n = 1, 2, ...
// with the n-th allocation failing, and after() when allocations succeed again; both check what must hold then.
template <class Body, class After = void (*)()>
void ForEachFailingAllocation(
    Body&& body, After&& after = [] {})
{
    for (int64 n = 1;; ++n)
    {
        TestHost().FailAllocations(n);
        body(n);
        const bool reached = TestHost().CountAllocations() >= n;
        TestHost().FailAllocations(0);
        after();
        TakeReports();
        if (!reached)
            break;
        ASSERT_LT(n, 100000) << "the body never ends allocating";
    }
}
