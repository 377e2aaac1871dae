// Strings of the CoreFoundation stand-in: immutable texts of 16-bit units, compared as the user's language orders them.
//
//     CFStringRef text = CFStringCreateWithCharacters(kCFAllocatorDefault, units, count);
//     const CFComparisonResult order = CFStringCompare(text, other, kCFCompareLocalized);
//     CFRelease(text);
//
// Ownership: a Create call gives one reference to its caller. Threads: any for different strings, and for comparing.

#pragma once

#include "NqPlatform/CFBase.h"

#include <cstdint>

using CFStringEncoding = std::uint32_t;
using CFStringCompareFlags = unsigned long;
using UniChar = unsigned short;
using Boolean = unsigned char;
using CFStringRef = const struct NqCFString*;

constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;
constexpr CFStringCompareFlags kCFCompareLocalized = 32;

enum CFComparisonResult : CFIndex
{
    kCFCompareLessThan = -1,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
};

// A copy of the units; null without memory.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars, CFIndex numChars);

// The number of UTF-16 units.
CFIndex CFStringGetLength(CFStringRef string);

// Writes the text and a NUL in UTF-8, the only encoding here. False, with an empty buffer, when it does not fit, holds
// a surrogate without its other half, or asks for another encoding.
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding);

// The order of the process's default locale with kCFCompareLocalized, else that of the units.
CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2, CFStringCompareFlags flags);
