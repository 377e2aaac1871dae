// What a window for editing shortcuts does behind its lists: it shows them in order, finds what a key does, and refuses
// a key that is taken.
//
// The application's bindings know more than the library's: their menu text, and what they were before the user came.
// Groups make them in its stead.

#include "NqCore/PublicAPI/NqCommandBinding.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>
#include <string>

namespace
{

enum ECommand : int32
{
    kNew = 1,
    kOpen,
    kSave,
    kSaveAs,
    kZoomIn,
    kZoomOut
};

class TEditorBinding : public TNqCommandBinding
{
public:
    void Validate(boolean inShift, boolean inStickyShift, boolean inControl, boolean inAlt, int16 inChar,
                  const TNqString& inName) override
    {
        fIsChanged = fIsValid; // the first shortcut is the one it came with
        TNqCommandBinding::Validate(inShift, inStickyShift, inControl, inAlt, inChar, inName);
    }

    // As a menu shows it.
    std::string GetKeys() const
    {
        std::string keys = fControl ? "Command+" : "";
        keys += fAlt ? "Option+" : "";
        keys += fStickyShift ? "(Shift)+" : fShift ? "Shift+" : "";
        return keys + static_cast<char>(fChar);
    }

    bool fIsChanged = false;
};

class TEditorGroup : public TNqCommandBindingGroup
{
public:
    explicit TEditorGroup(const char* inName) { fGroupName = TNqDynamicString(inName); }

    TNqCommandBinding* CreateCommandBinding() override { return new TEditorBinding; }

    void Add(int32 inCommand, const char* inName, char inKey, boolean inStickyShift)
    {
        TNqCommandBinding* const binding = AddBinding();
        if (binding == nullptr)
            return;
        binding->fCommandID = inCommand;
        binding->Validate(false, inStickyShift, true, false, inKey, TNqString63(inName));
    }
};

void Print(const TNqCommandBindingContext& inContext)
{
    for (uint32 i = 0; i < inContext.fBindingGroups.GetElemCount(); ++i)
    {
        const TNqCommandBindingGroup& group = *inContext.fBindingGroups[i];
        std::printf("%s\n", group.GetGroupName().GetString());
        for (uint32 k = 0; k < group.fBindings.GetElemCount(); ++k)
        {
            const auto& binding = static_cast<const TEditorBinding&>(*group.fBindings[k]);
            std::printf("  %-10s %s%s\n", binding.GetCommandName().GetString(), binding.GetKeys().c_str(),
                        binding.fIsChanged ? " (changed)" : "");
        }
    }
}

// What the user pressed, looked up as a running application does.
void Press(const TNqCommandBindingContext& inContext, const char* inWhat, TNqPlatformEvent inEvent)
{
    for (uint32 i = 0; i < inContext.fBindingGroups.GetElemCount(); ++i)
    {
        const TNqCommandBindingGroup& group = *inContext.fBindingGroups[i];
        for (uint32 k = 0; k < group.fBindings.GetElemCount(); ++k)
        {
            if (group.fBindings[k]->Check(&inEvent))
            {
                std::printf("%s: %s\n", inWhat, group.fBindings[k]->GetCommandName().GetString());
                return;
            }
        }
    }
    std::printf("%s: nothing\n", inWhat);
}

// Gives a command the keys Command and inKey, with Shift or without, unless another command has them.
void Assign(TNqCommandBindingContext& ioContext, int32 inCommand, char inKey, boolean inShift)
{
    TNqCommandBinding* const binding = ioContext.FindBinding(inCommand);
    if (binding == nullptr)
        return;
    // Tried out on a copy: in the context it would be found itself.
    TNqCommandBinding wanted(*binding);
    wanted.Validate(inShift, false, true, false, inKey, binding->GetCommandName());
    TNqCommandAndContext taken;
    ioContext.FindSameShortcut(wanted, taken);
    if (taken.fCommand != nullptr && taken.fCommand != binding)
    {
        std::printf("%s cannot have %c: %s in %s has it\n", binding->GetCommandName().GetString(), inKey,
                    taken.fCommand->GetCommandName().GetString(), taken.fGroup->GetGroupName().GetString());
        return;
    }
    binding->Validate(inShift, false, true, false, inKey, wanted.GetCommandName());
}

} // namespace

int main()
{
    const TNqHost host;
    TNqCommandBindingContext context;
    auto* const view = new TEditorGroup("View");
    auto* const file = new TEditorGroup("File");
    context.fBindingGroups.AddElem(view); // the context deletes them
    context.fBindingGroups.AddElem(file);
    view->Add(kZoomOut, "Zoom Out", '-', false);
    view->Add(kZoomIn, "Zoom In", '+', true); // on some keyboards + needs Shift, on others not
    file->Add(kSave, "Save", 's', false);
    file->Add(kOpen, "Open", 'o', false);
    file->Add(kNew, "New", 'n', false);
    file->Add(kSaveAs, "Save As", 'a', false);
    context.Sort();
    Print(context);

    TNqPlatformEvent event;
    event.fModifiers.fCommandKey = true;
    event.fChar = 's';
    Press(context, "Command+S", event);
    event.fModifiers.fCommandKey = false;
    event.fModifiers.fControlKey = true;
    Press(context, "Control+S", event);

    Assign(context, kSaveAs, 's', false);
    Assign(context, kSaveAs, 's', true); // with Shift it is free
    Assign(context, kNew, '+', false);
    Assign(context, kNew, '+', true); // taken with and without Shift
    Print(context);
    return 0;
}
