#include "NqPlatform/CFBase.h"

void CFRelease(CFTypeRef inObject)
{
    NqCFObject* object = const_cast<NqCFObject*>(inObject);
    if (--object->fRetainCount == 0)
        delete object;
}
