// The root of the CoreFoundation stand-in: references to counted objects, released with CFRelease.
//
// Only the calls that the library makes exist here, with the names and the meaning that they have on a platform with
// CoreFoundation. Threads: an object belongs to one thread.

#pragma once

// What every reference points to: each object of the stand-in derives from it first.
struct NqCFObject
{
    virtual ~NqCFObject() = default;
    long fRetainCount = 1;
};

using CFTypeRef = const void*;
using CFIndex = long;
using CFAllocatorRef = const void*;

constexpr CFAllocatorRef kCFAllocatorDefault = nullptr; // memory is always the C++ heap's

// Gives up one reference; the last one deletes the object. Null is not allowed.
void CFRelease(CFTypeRef inObject);
