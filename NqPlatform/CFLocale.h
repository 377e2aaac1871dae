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

// The locale of the user's dates; null without memory. One reference for the caller. It is ICU's default, which the
// program may have set, unless the environment asks for another one: of LC_ALL, LC_TIME and LANG counts the first that
// is not empty. A locale that the program chose with setlocale counts before them.
CFLocaleRef CFLocaleCopyCurrent();
