// A holder of one CoreFoundation reference, released when the holder goes.
//
//     const CFMacPtr<CFStringRef> text(CFStringCreateWithCharacters(kCFAllocatorDefault, units, count));
//     if (text != nullptr)
//         ...

#pragma once

#include "NqPlatform/CFBase.h"

template <typename T>
class CFMacPtr
{
public:
    explicit CFMacPtr(T inRef) : fMacRef(inRef) {} // takes over the reference, which may be null
    ~CFMacPtr()
    {
        if (fMacRef != nullptr)
            CFRelease(fMacRef);
    }
    CFMacPtr(const CFMacPtr&) = delete;
    CFMacPtr& operator=(const CFMacPtr&) = delete;

    operator T() const { return fMacRef; }

private:
    T fMacRef;
};
