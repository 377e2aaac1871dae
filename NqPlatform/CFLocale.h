// The user's locale, of the CoreFoundation stand-in.
//
//     CFLocaleRef locale = CFLocaleCopyCurrent();
//     ...
//     CFRelease(locale);

#pragma once

#include "NqPlatform/CFBase.h"

#include <string>

// A locale is its ICU name, such as "de_CH".
struct NqCFLocale : NqCFObject
{
    std::string fName;
};

using CFLocaleRef = const NqCFLocale*;

// The process's default locale; null without memory. One reference for the caller.
CFLocaleRef CFLocaleCopyCurrent();
