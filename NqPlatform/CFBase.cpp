#include "NqPlatform/CFBase.h"

void CFRelease(CFTypeRef inObject)
{
    NqCFObject* const object = static_cast<NqCFObject*>(const_cast<void*>(inObject));
    if (--object->fRetainCount == 0)
        delete object;
}
