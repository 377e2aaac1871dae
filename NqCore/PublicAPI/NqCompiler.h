// Sizes and checks: what a failed precondition looks like in the code.
//
//     void TPalette::SetColor(uint32 index, const TNqColorRGB& color)
//     {
//         if (!NqCheck(index < fColors.GetElemCount()))
//             return; // reported to the host, with this file, line and condition
//         fColors[index] = color;
//     }
//
// A check never stops the program by itself: the host decides what a report does. Checks stay in release builds.
// Cost: one well-predicted branch; everything else happens only when the condition fails.
// Threads: any; the host's report function is called on the thread that failed.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <limits>
#include <string_view>

using NqSize = size_t; // byte counts

// The two report functions, supplied by the host. Both may return.
void Nq_CallAssert_(char* inFile, unsigned int inLine);
void Nq_CallNotify_(char* inFile, unsigned int inLine, const char* inText);

// Whether a path starts with one of the top folders of the sources.
constexpr bool NqStartsInTopFolder(std::string_view inPath)
{
    for (const std::string_view folder : {"NqCore/", "NqUtils/", "NqPlatform/", "NqHost/"})
    {
        if (inPath.substr(0, folder.size()) == folder)
            return true;
    }
    return false;
}

// The tail of a source path that starts at the last top folder in it, so that a report names the same file wherever the
// library was built or installed; without one the whole path. Points into `inPath`.
constexpr const char* NqSourcePath(const char* inPath)
{
    const char* found = inPath;
    for (const char* p = inPath; *p != 0; ++p)
    {
        if ((p == inPath || p[-1] == '/') && NqStartsInTopFolder(p))
            found = p;
    }
    return found;
}

// Reports `inText` to the host for the given place in the sources.
[[gnu::cold, gnu::noinline]] inline void NqReport(const char* inFile, unsigned int inLine, const char* inText)
{
    Nq_CallNotify_(const_cast<char*>(NqSourcePath(inFile)), inLine, inText);
}

[[gnu::cold, gnu::noinline]] inline void NqReportAssert(const char* inFile, unsigned int inLine)
{
    Nq_CallAssert_(const_cast<char*>(NqSourcePath(inFile)), inLine);
}

inline bool NqReportUnless(bool inHolds, const char* inFile, unsigned int inLine, const char* inText)
{
    if (__builtin_expect(!inHolds, 0))
        NqReport(inFile, inLine, inText);
    return inHolds;
}

inline bool NqReportAssertUnless(bool inHolds, const char* inFile, unsigned int inLine)
{
    if (__builtin_expect(!inHolds, 0))
        NqReportAssert(inFile, inLine);
    return inHolds;
}

// Reports the condition, as written, when it does not hold; yields whether it holds.
#define NqCheck(...) ::NqReportUnless(static_cast<bool>(__VA_ARGS__), __FILE__, __LINE__, #__VA_ARGS__)

// The same with a text of its own.
#define NqCheckText(condition, text) ::NqReportUnless(static_cast<bool>(condition), __FILE__, __LINE__, text)

// Reports without a condition.
#define NqNotify(text) ::NqReport(__FILE__, __LINE__, text)

// A failed check that the host is told of without a text.
#define NqAssertPlain(condition) ::NqReportAssertUnless(static_cast<bool>(condition), __FILE__, __LINE__)

// Checks that a byte count fits the 32 bits in which the library keeps sizes.
#define NqCheckFitsUint32(size)                                                                             \
    ::NqReportUnless((size) <= static_cast<NqSize>(std::numeric_limits<uint32>::max()), __FILE__, __LINE__, \
                     "(" #size ") <= static_cast<NqSize>(std::numeric_limits<uint32>::max())")
