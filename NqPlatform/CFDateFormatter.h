// Dates and times as a locale writes them, in the user's time zone (UserZone.h): the formatters of the CoreFoundation
// stand-in.
//
//     const CFMacPtr<CFDateFormatterRef> formatter(
//         CFDateFormatterCreate(kCFAllocatorDefault, locale, kCFDateFormatterShortStyle, kCFDateFormatterNoStyle));
//
// Threads: a formatter belongs to the thread that created it. Cost: creating one for the first time loads the locale's
// data; each thread keeps those that it used last.

#pragma once

#include "NqPlatform/CFDate.h"
#include "NqPlatform/CFLocale.h"
#include "NqPlatform/CFString.h"

enum CFDateFormatterStyle : CFIndex
{
    kCFDateFormatterNoStyle = 0,
    kCFDateFormatterShortStyle = 1,
    kCFDateFormatterMediumStyle = 2,
    kCFDateFormatterLongStyle = 3,
    kCFDateFormatterFullStyle = 4
};

using CFDateFormatterRef = const struct NqCFDateFormatter*;

// One reference for the caller; null without memory or without the locale services' data. A locale that nobody knows is
// written as its language is, and in an unknown language as all languages can be read.
CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef allocator, CFLocaleRef locale, CFDateFormatterStyle dateStyle,
                                         CFDateFormatterStyle timeStyle);

// The text, with plain blanks for those that do not break; null when it could not be made. One reference for the
// caller.
CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef allocator, CFDateFormatterRef formatter,
                                                        CFAbsoluteTime time);
