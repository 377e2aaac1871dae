// A key event as the library sees it: which modifier keys were down, and the character.
//
//     TNqPlatformEvent event;
//     event.fModifiers.fCommandKey = true;
//     event.fChar = 'q';
//     if (quit->Check(&event))
//         Quit();
//
// The host fills one from the event of its window system. What the Command key is, the host decides: usually the key
// that menus name in their shortcuts.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <cstddef>

// What was held down when an event happened. All up at first.
class TNqModifiers
{
public:
    boolean CommandKeyDown() const { return fCommandKey; }
    boolean ShiftKeyDown() const { return fShiftKey; }
    boolean OptionKeyDown() const { return fOptionKey; }

    // Their order is a contract with hosts built elsewhere.
    boolean fLeftButton = false;
    boolean fRightButton = false;
    boolean fCommandKey = false;
    boolean fShiftKey = false;
    boolean fAlphaLock = false;
    boolean fOptionKey = false;
    boolean fControlKey = false;
    boolean fAutoKey = false; // the event repeats one, as the key is held
};

static_assert(sizeof(TNqModifiers) == 8 && offsetof(TNqModifiers, fCommandKey) == 2 &&
                  offsetof(TNqModifiers, fAutoKey) == 7,
              "hosts fill this record");

class TNqPlatformEvent
{
public:
    boolean CommandKeyDown() const { return fModifiers.CommandKeyDown(); }
    boolean ShiftKeyDown() const { return fModifiers.ShiftKeyDown(); }
    boolean OptionKeyDown() const { return fModifiers.OptionKeyDown(); }

    TNqModifiers fModifiers;
    int16 fChar = 0; // the character of the key, in either case
};
