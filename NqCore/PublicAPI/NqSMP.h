// Multiprocessing start and stop, and pointers that every thread has its own value of.
//
//     TNqLocalStorage* cache = NewTLSWithDelete(DeleteCache);      // once, for all threads; null without memory
//     ...
//     TCache* mine = static_cast<TCache*>(GetTLS(cache));          // null until this thread sets it
//     if (mine == nullptr)
//         mine = static_cast<TCache*>(SetTLS(cache, new TCache));
//     ...
//     DeleteTLS(cache);                                            // when no thread uses it any more
//
// Use it where a value must outlive one loop and follow its thread; for one loop, TSMPJobTLS (ISMPJob.h) is simpler.
//
// Threads: all of it may be called from any thread. The threads of the worker pool and the one that started the host
// have a table of values; any other thread calls SetupSmpThreadLocalStorage first. Without a table a get or a set is
// reported and yields null. Cost: a get is a call into the host and a few reads; no lock, except when a thread's table
// grows.

#pragma once

#include "NqCore/PublicAPI/NqExtensibleArray.h"

// The handle of one value per thread: an index that the host allocated.
class TNqLocalStorage : public TNqObject
{
public:
    explicit TNqLocalStorage(int32 inIndex) : fIndex(inIndex) {}

    int32 GetIndex() const { return fIndex; }

private:
    int32 fIndex;
};

// One thread's value for one index.
class TNqLocalStorageData : public TNqObject
{
public:
    void* fDataPtr; // null until set
};

// One thread's table of values. The host makes one for each thread; only its thread grows it, while the host may look
// at the elements of any thread under the table's section.
class TNqLocalStorageDataPtrArray : public TNqExtensibleArray<TNqLocalStorageData>
{
public:
    static constexpr int32 kLogMaxElemCount = 12; // 4096 handles at a time
    static constexpr int32 kLogGrowSize = 5;

    TNqLocalStorageDataPtrArray();
    ~TNqLocalStorageDataPtrArray();

    // False when the host had no section to give; the table must not be used then.
    boolean IsValid() const { return fTlsDataCS != nullptr; }

    // The element, after growing the table when it does not reach that far. Null, after a report, for an index out of
    // bounds or without memory. Only for the table's own thread.
    TNqLocalStorageData* GetElem(int32 inIndex);

    // The element if the table has it already, otherwise null. For other threads, which hold the section.
    TNqLocalStorageData* FindElem(int32 inIndex);

    TNqCriticalSection* GetCS() const { return fTlsDataCS; }

private:
    boolean Grow(int32 inIndex);

    TNqCriticalSection* fTlsDataCS; // held while the table grows
};

// Start and stop the host's multiprocessing layer, on the main thread, while no other thread uses it. The flag is the
// host's: the reference host starts its worker pool when it is set, and otherwise runs everything on the calling
// threads.
void InitSMP(boolean inFlag);
void TerminateSMP();

// At least 1.
int32 GetNumberOfProcessors();

// A new handle, null on every thread, with or without a function that ends a thread's value. That function gets the
// address of the value when its thread ends, and for every value left when the handle is deleted; never for null.
// Null when the host has no memory or no index left.
TNqLocalStorage* NewTLS();
TNqLocalStorage* NewTLSWithDelete(void (*inDestructor)(void**));
void DeleteTLS(TNqLocalStorage* inStorage);

// Gives the calling thread its table. A thread that has one keeps it.
void SetupSmpThreadLocalStorage();

// Whether the calling thread has a table.
boolean IsTLSValid();

// The calling thread's value: null until set, and null without a table, which is reported.
void* GetTLS(TNqLocalStorage* aTLS);

// Sets the calling thread's value and returns it; null, with nothing stored, for a null handle or without a table.
void* SetTLS(TNqLocalStorage*& aTLS, void* inValue);

// The calling thread's abort flag (what it points to is the host's), null when there is none.
void* GetSMPAbortFlag();

// Set up by the host: the number of processors, and the handle of the abort flag, null until it exists.
extern int32* gNumberOfProcessors;
extern TNqLocalStorage* gSMPAbortFlagTLS;
