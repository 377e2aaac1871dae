// The reference host: every service that the library imports, for applications without a host of their own, and for
// tests, tools and examples.
//
//     int main()
//     {
//         TNqHost host;                 // before the first object of the library
//         TNqDynamicString name("cube");
//         ...
//     }                                 // after the last one
//
// Files are the system's: names are UTF-8, '/' between folders, nothing is converted. A file must be a regular one of
// at most 2^31 - 1 bytes; folders, pipes, sockets, devices and larger files are refused when they are opened, without
// waiting for anything (a character device may be opened for writing only). Writing beyond 2^31 - 1 bytes is refused
// whole. Creating a file spares one that is already there. Type and creator codes are not kept.
//
// Transcoders: one each for Windows-1252, Mac OS Roman and UTF-8, which is also the platform's; none for Japanese.
//
// One host at a time in a process. Threads: make and destroy it on the main thread; the services themselves may be
// called from any thread.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <atomic>

class TNqAsciiTranslationTable;

// One report of the library: text is null for a bare assertion. Called on the thread that failed.
using TNqHostReportHandler = void (*)(void* context, const char* file, unsigned int line, const char* text);

// True asks for a cancel. The owner keeps it alive while loops run that carry it.
using TNqAbortFlag = std::atomic<boolean>;

struct TNqHostOptions
{
    int fWorkerCount = 0;                          // the caller included, at most 256; 0: one per processor
    TNqHostReportHandler fReportHandler = nullptr; // null: one line to standard error
    void* fReportContext = nullptr;
};

// Starts the services in the documented order; the destructor stops them in the reverse one.
class TNqHost
{
public:
    explicit TNqHost(const TNqHostOptions& inOptions = TNqHostOptions());
    ~TNqHost();
    TNqHost(const TNqHost&) = delete;
    TNqHost& operator=(const TNqHost&) = delete;

    // Replaces the handler; null restores the default. Safe while other threads report: on return none of them is
    // inside the old handler, whose context may then go. (A handler that replaces itself returns at once.)
    void SetReportHandler(TNqHostReportHandler inHandler, void* inContext);

    // The byte translation that strings use; null, the default, translates nothing. Not owned.
    void SetAsciiTranslationTable(TNqAsciiTranslationTable* inTable);

    // Asks every running and every later loop to cancel, until it is called with false. Any thread.
    void RequestAbort(bool inAbort);

    // Asks only what the calling thread starts from now on: its loops carry the flag to whoever runs them, and cancel
    // once it is true. Null, the default, for none. The thread needs its storage (SetupSmpThreadLocalStorage).
    static void SetThreadAbortFlag(const TNqAbortFlag* inFlag);

    // For tests: of the allocations from now on, numbered from 1, fails those from inFirst on, inCount of them.
    // 0 ends it. Counts raw blocks, objects, counters and locks alike, on all threads.
    void FailAllocations(int64 inFirst, int64 inCount = 1);
    // How many allocations there were since the last FailAllocations.
    int64 CountAllocations() const;
};
