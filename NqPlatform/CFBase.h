// The root of the CoreFoundation stand-in: references to counted objects, released with CFRelease.
//
// Only the calls that the library makes exist here. Threads: an object belongs to one thread.

#pragma once

// What every reference points to.
struct NqCFObject
{
    virtual ~NqCFObject() = default;
    long fRetainCount = 1;
};

using CFTypeRef = const NqCFObject*;
using CFIndex = long;

// Gives up one reference; the last one deletes the object. Null is not allowed.
void CFRelease(CFTypeRef inObject);
