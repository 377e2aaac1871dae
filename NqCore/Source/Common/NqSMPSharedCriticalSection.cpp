#include "NqCore/PublicAPI/NqSMPSharedCriticalSection.h"

#include "NqCore/Include/NqHostLocks.h"
#include "NqCore/PublicAPI/NqClassArray.h"
#include "NqCore/PublicAPI/NqSMPCriticalSection.h"

// Models/SharedCriticalSection.pml shows, for every order in which threads can take their steps, that a writer is alone
// and no sleeper is forgotten. A change here is a change there.

namespace
{

// The readers' side, the same for the single lock and for a slot. inAwaitWriter enters and leaves the writers' section,
// which waits for the writer without holding anything afterwards.
template <class TAwaitWriter>
void EnterReader(TNqAtomicCounterHolder& ioReaderCount, TNqAtomicCounterHolder& ioHasWriter, TNqSemaphore* inReaderWait,
                 TAwaitWriter&& inAwaitWriter)
{
    if (GetAtomicCounterValueOrdered(ioHasWriter) != 0)
        inAwaitWriter();
    for (;;)
    {
        IncrementAtomicCounter(ioReaderCount);
        if (GetAtomicCounterValueOrdered(ioHasWriter) == 0)
            return;
        if (DecrementAtomicCounter(ioReaderCount) == 0)
            NqSignal(inReaderWait);
        inAwaitWriter();
    }
}

void LeaveReader(TNqAtomicCounterHolder& ioReaderCount, TNqAtomicCounterHolder& ioHasWriter, TNqSemaphore* inReaderWait)
{
    if (DecrementAtomicCounter(ioReaderCount) == 0 && GetAtomicCounterValueOrdered(ioHasWriter) != 0)
        NqSignal(inReaderWait);
}

} // namespace

class TNqSharedCriticalSectionInternal : public TNqObject
{
public:
    TNqSharedCriticalSectionInternal();
    ~TNqSharedCriticalSectionInternal();

    bool IsValid() const { return fWriteCS != nullptr && fReaderCount != nullptr && fHasWriter != nullptr; }

    void EnterShared()
    {
        EnterReader(fReaderCount, fHasWriter, fReaderWait, [this] { AwaitWriter(); });
    }
    void LeaveShared() { LeaveReader(fReaderCount, fHasWriter, fReaderWait); }
    void EnterExclusive()
    {
        EnterCS(fWriteCS);
        IncrementAtomicCounter(fHasWriter);
        while (GetAtomicCounterValueOrdered(fReaderCount) > 0)
            NqAwaitSignal(fReaderWait);
    }
    void LeaveExclusive()
    {
        DecrementAtomicCounter(fHasWriter);
        LeaveCS(fWriteCS);
    }

private:
    friend struct TNqSharedCriticalSectionLayout;

    [[gnu::noinline]] void AwaitWriter() { const CWhileInCS wait(fWriteCS); }

    TNqCriticalSection* fWriteCS;        // held by the writer, inside and while it waits for readers
    TNqSemaphore* fReaderWait;           // the writer sleeps on it until the readers have left
    TNqAtomicCounterHolder fReaderCount; // readers inside or trying
    TNqAtomicCounterHolder fHasWriter;   // writers inside or waiting for readers
};

// A slot's counters. They are the slot's own: a copy, which arrays of objects make of a new element, gets new ones.
class TNqSharedCriticalSectionArrayElem
{
public:
    TNqSharedCriticalSectionArrayElem() : fReaderCount(NqNewZeroCounter()), fHasWriter(NqNewZeroCounter()) {}
    TNqSharedCriticalSectionArrayElem(const TNqSharedCriticalSectionArrayElem&) : TNqSharedCriticalSectionArrayElem() {}
    TNqSharedCriticalSectionArrayElem& operator=(const TNqSharedCriticalSectionArrayElem&) { return *this; }
    ~TNqSharedCriticalSectionArrayElem()
    {
        NqDeleteCounter(fHasWriter);
        NqDeleteCounter(fReaderCount);
    }

    bool IsValid() const { return fReaderCount != nullptr && fHasWriter != nullptr; }

    TNqAtomicCounterHolder fReaderCount; // readers inside or trying
    TNqAtomicCounterHolder fHasWriter;   // 1 for a writer, 2 while it waits for readers
};

class TNqSharedCriticalSectionArrayInternal : public TNqObject
{
public:
    TNqSharedCriticalSectionArrayInternal();
    ~TNqSharedCriticalSectionArrayInternal() { NqDeleteSemaphore(fReaderWait); }

    bool HasSlot(int32 inIndex) const { return inIndex >= 0 && inIndex < fCount; }

    boolean Initialize(int32 inCount);
    void EnterShared(int32 inIndex)
    {
        TElem& elem = Elem(inIndex);
        EnterReader(elem.fReaderCount, elem.fHasWriter, fReaderWait, [this, inIndex] { AwaitWriter(inIndex); });
    }
    void LeaveShared(int32 inIndex)
    {
        TElem& elem = Elem(inIndex);
        LeaveReader(elem.fReaderCount, elem.fHasWriter, fReaderWait);
    }
    void EnterExclusive(int32 inIndex)
    {
        fWriteCS.Enter(inIndex);
        TElem& elem = Elem(inIndex);
        IncrementAtomicCounter(elem.fHasWriter);
        if (GetAtomicCounterValueOrdered(elem.fReaderCount) > 0)
            AwaitReaders(inIndex);
    }
    void LeaveExclusive(int32 inIndex)
    {
        DecrementAtomicCounter(Elem(inIndex).fHasWriter);
        fWriteCS.Leave(inIndex);
    }

private:
    friend struct TNqSharedCriticalSectionLayout;
    using TElem = TNqSharedCriticalSectionArrayElem;

    boolean MakeElems(uint32 inCount);
    [[gnu::noinline]] void AwaitWriter(int32 inIndex) { const CWhileInCSArray wait(fWriteCS, inIndex); }
    [[gnu::noinline]] void AwaitReaders(int32 inIndex);
    void PassOn(int32 inIndex);
    TElem& Elem(int32 inIndex) { return fData.ArrayData()[inIndex]; }

    int32 fCount;
    TNqCriticalSectionArray fWriteCS; // a slot is held by its writer, inside and while it waits for readers
    TNqSemaphore* fReaderWait;        // the writers of all slots sleep on it until their readers have left
    TNqClassArray<TElem> fData;
};

struct TNqSharedCriticalSectionLayout
{
    using T = TNqSharedCriticalSectionInternal;
    using TArray = TNqSharedCriticalSectionArrayInternal;
    static_assert(sizeof(TNqSharedCriticalSection) == 8 && sizeof(TNqSharedCriticalSectionArray) == 8 &&
                      offsetof(T, fWriteCS) == 0 && offsetof(T, fReaderWait) == 8 && offsetof(T, fReaderCount) == 16 &&
                      offsetof(T, fHasWriter) == 24 && sizeof(T) == 32,
                  "locks are shared with modules built elsewhere");
    static_assert(offsetof(TArray, fCount) == 0 && offsetof(TArray, fWriteCS) == 8 &&
                      offsetof(TArray, fReaderWait) == 16 && offsetof(TArray, fData) == 24 && sizeof(TArray) == 48 &&
                      sizeof(TArray::TElem) == 16,
                  "locks are shared with modules built elsewhere");
};

TNqSharedCriticalSectionInternal::TNqSharedCriticalSectionInternal()
    : fWriteCS(NewCS()),
      fReaderWait(NewSemaphore(1, 1)),
      fReaderCount(NqNewZeroCounter()),
      fHasWriter(NqNewZeroCounter())
{
    NqCheck(IsValid() && fReaderWait != nullptr);
}

TNqSharedCriticalSectionInternal::~TNqSharedCriticalSectionInternal()
{
    NqDeleteCounter(fHasWriter);
    NqDeleteCounter(fReaderCount);
    NqDeleteSemaphore(fReaderWait);
    if (fWriteCS != nullptr)
        DeleteCS(fWriteCS);
}

TNqSharedCriticalSectionArrayInternal::TNqSharedCriticalSectionArrayInternal()
    : fCount(0),
      fReaderWait(NewSemaphore(1, 1))
{
    NqCheck(fReaderWait != nullptr);
}

boolean TNqSharedCriticalSectionArrayInternal::Initialize(int32 inCount)
{
    fCount = 0;
    fData.ArrayFree();
    if (!fWriteCS.Initialize(inCount))
        return false;
    if (!MakeElems(static_cast<uint32>(inCount)))
    {
        fWriteCS.CleanUp();
        return false;
    }
    fCount = inCount;
    return true;
}

boolean TNqSharedCriticalSectionArrayInternal::MakeElems(uint32 inCount)
{
    boolean valid = fData.SetElemCount(inCount);
    for (uint32 i = 0; valid && i < inCount; ++i)
        valid = NqCheck(fData[i].IsValid());
    if (!valid)
        fData.ArrayFree();
    return valid;
}

// A unit may wake the writer of another slot than the one whose readers have left, and nobody would signal again. So a
// writer that sleeps can be told by its count of 2, and whoever took a unit signals for one that need not sleep.
void TNqSharedCriticalSectionArrayInternal::AwaitReaders(int32 inIndex)
{
    TElem& elem = Elem(inIndex);
    IncrementAtomicCounter(elem.fHasWriter);
    while (GetAtomicCounterValueOrdered(elem.fReaderCount) > 0)
    {
        NqAwaitSignal(fReaderWait);
        PassOn(inIndex);
        if (GetAtomicCounterValueOrdered(elem.fReaderCount) > 0)
            gShellThreadUtilities->Yield(0); // the one who is meant comes first
    }
    DecrementAtomicCounter(elem.fHasWriter);
}

// Signals once if the writer of another slot waits although its readers have left.
void TNqSharedCriticalSectionArrayInternal::PassOn(int32 inIndex)
{
    for (int32 i = 0; i < fCount; ++i)
    {
        if (i != inIndex && GetAtomicCounterValueOrdered(Elem(i).fHasWriter) > 1 &&
            GetAtomicCounterValueOrdered(Elem(i).fReaderCount) == 0)
        {
            NqSignal(fReaderWait);
            return;
        }
    }
}

TNqSharedCriticalSection::TNqSharedCriticalSection() : fInternal(new TNqSharedCriticalSectionInternal)
{
    NqCheck(fInternal != nullptr);
}

TNqSharedCriticalSection::~TNqSharedCriticalSection()
{
    delete fInternal;
}

namespace
{

// Whether the lock is there; a call to it would cost as much as the rest of a free lock's entry.
inline bool IsThere(const TNqSharedCriticalSectionInternal* inInternal)
{
    return NqCheckText(inInternal != nullptr && inInternal->IsValid(), "IsValid()");
}

} // namespace

boolean TNqSharedCriticalSection::IsValid() const
{
    return fInternal != nullptr && fInternal->IsValid();
}

void TNqSharedCriticalSection::EnterShared()
{
    if (IsThere(fInternal))
        fInternal->EnterShared();
}

void TNqSharedCriticalSection::LeaveShared()
{
    if (IsThere(fInternal))
        fInternal->LeaveShared();
}

void TNqSharedCriticalSection::EnterExclusive()
{
    if (IsThere(fInternal))
        fInternal->EnterExclusive();
}

void TNqSharedCriticalSection::LeaveExclusive()
{
    if (IsThere(fInternal))
        fInternal->LeaveExclusive();
}

TNqSharedCriticalSectionArray::TNqSharedCriticalSectionArray() : fInternal(new TNqSharedCriticalSectionArrayInternal)
{
    NqCheck(fInternal != nullptr);
}

TNqSharedCriticalSectionArray::~TNqSharedCriticalSectionArray()
{
    delete fInternal;
}

inline bool TNqSharedCriticalSectionArray::HasSlot(int32 inIndex) const
{
    return NqCheckText(fInternal != nullptr && fInternal->HasSlot(inIndex), "index < fInternal->fCount");
}

boolean TNqSharedCriticalSectionArray::Initialize(int32 inCount)
{
    return NqCheck(fInternal != nullptr) && fInternal->Initialize(inCount);
}

void TNqSharedCriticalSectionArray::EnterShared(int32 inIndex)
{
    if (HasSlot(inIndex))
        fInternal->EnterShared(inIndex);
}

void TNqSharedCriticalSectionArray::LeaveShared(int32 inIndex)
{
    if (HasSlot(inIndex))
        fInternal->LeaveShared(inIndex);
}

void TNqSharedCriticalSectionArray::EnterExclusive(int32 inIndex)
{
    if (HasSlot(inIndex))
        fInternal->EnterExclusive(inIndex);
}

void TNqSharedCriticalSectionArray::LeaveExclusive(int32 inIndex)
{
    if (HasSlot(inIndex))
        fInternal->LeaveExclusive(inIndex);
}
