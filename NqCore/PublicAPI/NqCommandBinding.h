// Keyboard shortcuts: a binding ties a command to a key with modifiers. Bindings stand in groups (a menu, a set of
// tools), groups in contexts (the situations in which they apply), and contexts in one list.
//
//     TNqCommandBindingContext context;
//     context.fBindingContextID = NqFourChar("MAIN");
//     TNqCommandBindingGroup* file = context.AddBindingGroup();
//     TNqCommandBinding* quit = file->AddBinding();
//     quit->fCommandID = kQuitCommand;
//     quit->Validate(false, false, true, false, 'q', TNqString31("Quit"));
//     ...
//     TNqCommandAndContext found;
//     context.FindSameShortcut(*quit, found);
//     if (found.fCommand != quit)
//         TellThatTheKeyIsTaken(*found.fCommand);
//
// A host with more to say of a shortcut derives from these classes and has its own made: groups and contexts create
// what they hold through CreateCommandBinding and CreateBindingGroup. That is also why every member is open to it.
//
// Ownership: a group deletes the bindings that stand in it, a context its groups; who takes one out of the array owns
// it from then on. The list of contexts owns nothing. Groups and contexts cannot be copied.
//
// Failure: what is not found is null. Null entries, which a host may leave in the arrays, are passed over.
// Cost: lookups walk the arrays. Threads: one at a time.

#pragma once

#include "NqCore/PublicAPI/NqEvent.h"
#include "NqCore/PublicAPI/NqPtr.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqString.h"

// The order of the fields and of the virtual operations of all these classes is a contract with hosts built elsewhere.

class TNqCommandBinding : public TNqObject
{
public:
    // No command, no key, not valid.
    TNqCommandBinding() = default;
    TNqCommandBinding(const TNqCommandBinding& inBinding) = default;
    TNqCommandBinding& operator=(const TNqCommandBinding& inBinding) = default;
    virtual ~TNqCommandBinding() = default;

    // Sets everything but the command, and marks the binding as valid. 'a' to 'z' are kept as capitals.
    virtual void Validate(boolean inShift, boolean inStickyShift, boolean inControl, boolean inAlt, int16 inChar,
                          const TNqString& inName);

    // Whether the event is this shortcut: the same key, in either case, with Shift, Command and Option each exactly as
    // asked for. GetControl() is compared with the Command key, not with the Control key: shortcuts are saved so, and
    // mean the key that menus show. Sticky Shift plays no part here.
    boolean Check(TNqPlatformEvent* inEvent) const;

    int32 GetCommandID() const { return fCommandID; }
    boolean GetShift() const { return fShift; }
    boolean GetStickyShift() const { return fStickyShift; }
    boolean GetControl() const { return fControl; }
    boolean GetAlt() const { return fAlt; }
    int16 GetChar() const { return fChar; }
    const TNqDynamicString& GetCommandName() const { return fCommandName; }

    int32 fCommandID = 0;
    boolean fIsValid = false;     // set by Validate
    boolean fShift = false;       // Shift has to be down
    boolean fStickyShift = false; // for conflicts: taken with and without Shift
    boolean fControl = false;     // Command has to be down
    boolean fAlt = false;         // Option has to be down
    int16 fChar = 0;              // a capital for 'a' to 'z'
    TNqDynamicString fCommandName;
    int32 fPrivate = 0; // the host's
};

// Whether the Shift states of two shortcuts of the same key can be met by one event.
boolean ShiftConflicts(const TNqCommandBinding& inA, const TNqCommandBinding& inB);

class TNqCommandBindingGroup : public TNqObject
{
public:
    TNqCommandBindingGroup() = default;
    TNqCommandBindingGroup(const TNqCommandBindingGroup&) = delete;
    TNqCommandBindingGroup& operator=(const TNqCommandBindingGroup&) = delete;
    virtual ~TNqCommandBindingGroup();

    // A new binding, for AddBinding to append. A host returns its own class here.
    virtual TNqCommandBinding* CreateCommandBinding();

    IDType GetGroupID() const { return fGroupID; }
    const TNqDynamicString& GetGroupName() const { return fGroupName; }

    // Appends a new binding and returns it; null without memory.
    TNqCommandBinding* AddBinding();

    // The first binding of the command.
    TNqCommandBinding* FindBinding(int32 inCommandID) const;

    // The first binding that some event would match together with inBinding: inBinding itself when it stands before
    // every other. A null entry is reported ("currBinding").
    TNqCommandBinding* FindSameShortcut(const TNqCommandBinding& inBinding) const;

    // By command name, byte after byte (TNqString::CompareQuick); names that are equal may change places. A null entry
    // among several throws kNqErrInvalidData, and nothing has moved.
    void Sort();

    IDType fGroupID = 0;
    TNqDynamicString fGroupName;
    TNqPtrArray<TNqCommandBinding> fBindings;
};

// A shortcut and the group that it stands in; both null when there is none.
class TNqCommandAndContext
{
public:
    TNqPtr<TNqCommandBinding> fCommand;
    TNqPtr<TNqCommandBindingGroup> fGroup;
};

class TNqCommandBindingContext : public TNqObject
{
public:
    TNqCommandBindingContext() = default;
    TNqCommandBindingContext(const TNqCommandBindingContext&) = delete;
    TNqCommandBindingContext& operator=(const TNqCommandBindingContext&) = delete;

    // A new group, for AddBindingGroup to append. A host returns its own class here.
    virtual TNqCommandBindingGroup* CreateBindingGroup();

    virtual ~TNqCommandBindingContext();

    IDType GetBindingContextID() const { return fBindingContextID; }

    // Appends a new group and returns it; null without memory.
    TNqCommandBindingGroup* AddBindingGroup();

    // The first binding of the command, group after group.
    TNqCommandBinding* FindBinding(int32 inCommandID) const;

    TNqCommandBindingGroup* FindBindingGroup(IDType inGroupID) const;

    // What FindSameShortcut of the first group that finds something finds, and that group.
    void FindSameShortcut(const TNqCommandBinding& inBinding, TNqCommandAndContext& outFound) const;

    // The groups by name, and the bindings of each. Null entries as in TNqCommandBindingGroup::Sort: when one of the
    // arrays has one that throws, nothing moves in any.
    void Sort();

    IDType fBindingContextID = 0;
    TNqDynamicString fBindingContextName;
    TNqPtrArray<TNqCommandBindingGroup> fBindingGroups;
};

// The contexts of an application, which it owns itself.
class TNqCommandBindingContextList : public TNqPtrArray<TNqCommandBindingContext>
{
public:
    TNqCommandBindingContext* FindBindingContext(IDType inContextID) const;

    // The first binding of the command, context after context.
    TNqCommandBinding* FindBinding(int32 inCommandID) const;
};

static_assert(sizeof(TNqCommandBinding) == 64 && sizeof(TNqCommandBindingGroup) == 72 &&
                  sizeof(TNqCommandBindingContext) == 72 && sizeof(TNqCommandAndContext) == 16 &&
                  sizeof(TNqCommandBindingContextList) == sizeof(TNqPtrArray<TNqCommandBindingContext>),
              "bindings are shared with hosts built elsewhere");
