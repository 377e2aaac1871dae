#include "NqCore/PublicAPI/NqCommandBinding.h"

#include "NqCore/PublicAPI/NqException.h"

#include <algorithm>
#include <utility>

namespace
{

int16 InCapitals(int16 inChar)
{
    return inChar >= 'a' && inChar <= 'z' ? static_cast<int16>(inChar - ('a' - 'A')) : inChar;
}

// Flags of a host may be any value but 0.
bool IsSame(boolean inA, boolean inB)
{
    return (inA != 0) == (inB != 0);
}

// The first element that inTest accepts, null entries aside.
template <class T, class Test>
T* FindFirst(const TNqPtrArray<T>& inArray, Test&& inTest)
{
    for (uint32 i = 0; i < inArray.GetElemCount(); ++i)
    {
        T* const elem = inArray.BaseAddress()[i];
        if (elem != nullptr && inTest(*elem))
            return elem;
    }
    return nullptr;
}

// Null entries aside.
template <class T, class Visit>
void ForEach(const TNqPtrArray<T>& inArray, Visit&& inVisit)
{
    for (uint32 i = 0; i < inArray.GetElemCount(); ++i)
    {
        if (T* const elem = inArray.BaseAddress()[i])
            inVisit(*elem);
    }
}

// The first binding of the command that an element of the array knows.
template <class T>
TNqCommandBinding* FindBindingIn(const TNqPtrArray<T>& inArray, int32 inCommandID)
{
    TNqCommandBinding* found = nullptr;
    FindFirst(inArray, [&](const T& elem) { return (found = elem.FindBinding(inCommandID)) != nullptr; });
    return found;
}

// Appends what a factory made, which may be null.
template <class T>
T* Adopt(TNqPtrArray<T>& ioArray, T* inMade)
{
    if (inMade == nullptr || ioArray.AddElem(inMade))
        return inMade;
    delete inMade;
    return nullptr;
}

template <class T>
void DeleteAll(const TNqPtrArray<T>& inArray)
{
    for (uint32 i = 0; i < inArray.GetElemCount(); ++i)
        delete inArray.BaseAddress()[i];
}

// ---- Sorting --------------------------------------------------------------------------------------------------------

bool IsBefore(const TNqCommandBinding& inA, const TNqCommandBinding& inB)
{
    return inA.fCommandName.CompareQuick(inB.fCommandName) < 0;
}

bool IsBefore(const TNqCommandBindingGroup& inA, const TNqCommandBindingGroup& inB)
{
    return inA.fGroupName.CompareQuick(inB.fGroupName) < 0;
}

// One entry is never compared, and so may be null.
template <class T>
void RefuseNulls(const TNqPtrArray<T>& inArray)
{
    T* const* const first = inArray.BaseAddress();
    T* const* const end = first + inArray.GetElemCount();
    if (inArray.GetElemCount() > 1 && std::find(first, end, nullptr) != end)
        throw TNqException(kNqErrInvalidData, NqSourcePath(__FILE__), __LINE__);
}

// Lets the entry at inTop of a heap sink to its place.
template <class T>
void SiftDown(T** ioHeap, NqSize inTop, NqSize inCount)
{
    for (NqSize child = 2 * inTop + 1; child < inCount; child = 2 * inTop + 1)
    {
        if (child + 1 < inCount && IsBefore(*ioHeap[child], *ioHeap[child + 1]))
            ++child;
        if (!IsBefore(*ioHeap[inTop], *ioHeap[child]))
            return;
        std::swap(ioHeap[inTop], ioHeap[child]);
        inTop = child;
    }
}

// A heap sort: the quick comparison narrows to 8 bits, so that a < b < c < a is possible, and the sorts of the standard
// library may leave the array then. Here no comparison decides where the next access goes.
template <class T>
void SortByName(TNqPtrArray<T>& ioArray)
{
    T** const heap = ioArray.BaseAddress();
    const NqSize count = ioArray.GetElemCount();
    if (count < 2)
        return;
    for (NqSize top = count / 2; top > 0; --top)
        SiftDown(heap, top - 1, count);
    for (NqSize last = count - 1; last > 0; --last)
    {
        std::swap(heap[0], heap[last]);
        SiftDown(heap, 0, last);
    }
}

} // namespace

// ---- Bindings -------------------------------------------------------------------------------------------------------

void TNqCommandBinding::Validate(boolean inShift, boolean inStickyShift, boolean inControl, boolean inAlt, int16 inChar,
                                 const TNqString& inName)
{
    fIsValid = true;
    fShift = inShift;
    fStickyShift = inStickyShift;
    fControl = inControl;
    fAlt = inAlt;
    fChar = InCapitals(inChar);
    fCommandName = inName;
}

boolean TNqCommandBinding::Check(TNqPlatformEvent* inEvent) const
{
    if (!NqCheck(inEvent != nullptr))
        return false;
    return InCapitals(inEvent->fChar) == fChar && IsSame(fShift, inEvent->ShiftKeyDown()) &&
           IsSame(fControl, inEvent->CommandKeyDown()) && IsSame(fAlt, inEvent->OptionKeyDown());
}

boolean ShiftConflicts(const TNqCommandBinding& inA, const TNqCommandBinding& inB)
{
    return inA.fStickyShift || inB.fStickyShift || IsSame(inA.fShift, inB.fShift);
}

// ---- Groups ---------------------------------------------------------------------------------------------------------

TNqCommandBindingGroup::~TNqCommandBindingGroup()
{
    DeleteAll(fBindings);
}

TNqCommandBinding* TNqCommandBindingGroup::CreateCommandBinding()
{
    return new TNqCommandBinding;
}

TNqCommandBinding* TNqCommandBindingGroup::AddBinding()
{
    return Adopt(fBindings, CreateCommandBinding());
}

TNqCommandBinding* TNqCommandBindingGroup::FindBinding(int32 inCommandID) const
{
    return FindFirst(fBindings,
                     [inCommandID](const TNqCommandBinding& binding) { return binding.fCommandID == inCommandID; });
}

TNqCommandBinding* TNqCommandBindingGroup::FindSameShortcut(const TNqCommandBinding& inBinding) const
{
    for (uint32 i = 0; i < fBindings.GetElemCount(); ++i)
    {
        TNqCommandBinding* const currBinding = fBindings.BaseAddress()[i];
        if (NqCheck(currBinding) && currBinding->fChar == inBinding.fChar &&
            IsSame(currBinding->fAlt, inBinding.fAlt) && IsSame(currBinding->fControl, inBinding.fControl) &&
            ShiftConflicts(*currBinding, inBinding))
            return currBinding;
    }
    return nullptr;
}

void TNqCommandBindingGroup::Sort()
{
    RefuseNulls(fBindings);
    SortByName(fBindings);
}

// ---- Contexts -------------------------------------------------------------------------------------------------------

TNqCommandBindingContext::~TNqCommandBindingContext()
{
    DeleteAll(fBindingGroups);
}

TNqCommandBindingGroup* TNqCommandBindingContext::CreateBindingGroup()
{
    return new TNqCommandBindingGroup;
}

TNqCommandBindingGroup* TNqCommandBindingContext::AddBindingGroup()
{
    return Adopt(fBindingGroups, CreateBindingGroup());
}

TNqCommandBinding* TNqCommandBindingContext::FindBinding(int32 inCommandID) const
{
    return FindBindingIn(fBindingGroups, inCommandID);
}

TNqCommandBindingGroup* TNqCommandBindingContext::FindBindingGroup(IDType inGroupID) const
{
    return FindFirst(fBindingGroups,
                     [inGroupID](const TNqCommandBindingGroup& group) { return group.fGroupID == inGroupID; });
}

void TNqCommandBindingContext::FindSameShortcut(const TNqCommandBinding& inBinding,
                                                TNqCommandAndContext& outFound) const
{
    TNqCommandBinding* command = nullptr;
    outFound.fGroup = FindFirst(fBindingGroups, [&](const TNqCommandBindingGroup& group)
                                { return (command = group.FindSameShortcut(inBinding)) != nullptr; });
    outFound.fCommand = command;
}

void TNqCommandBindingContext::Sort()
{
    RefuseNulls(fBindingGroups);
    ForEach(fBindingGroups, [](const TNqCommandBindingGroup& group) { RefuseNulls(group.fBindings); });
    SortByName(fBindingGroups);
    ForEach(fBindingGroups, [](TNqCommandBindingGroup& group) { group.Sort(); });
}

TNqCommandBindingContext* TNqCommandBindingContextList::FindBindingContext(IDType inContextID) const
{
    return FindFirst(*this, [inContextID](const TNqCommandBindingContext& context)
                     { return context.fBindingContextID == inContextID; });
}

TNqCommandBinding* TNqCommandBindingContextList::FindBinding(int32 inCommandID) const
{
    return FindBindingIn(*this, inCommandID);
}
