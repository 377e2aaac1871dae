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
void Nq_CallAssert_(char* file, unsigned int line);
void Nq_CallNotify_(char* file, unsigned int line, const char* text);

// Whether a path starts with one of the top folders of the sources.
constexpr bool NqStartsInTopFolder(std::string_view path)
{
    for (const std::string_view folder : {"NqCore/", "NqUtils/", "NqPlatform/", "NqHost/"})
    {
        if (path.substr(0, folder.size()) == folder)
            return true;
    }
    return false;
}

// The tail of a source path that starts at the last top folder in it, so that a report names the same file wherever the
// library was built or installed; without one the whole path. Points into `path`.
constexpr const char* NqSourcePath(const char* path)
{
    const char* found = path;
    for (const char* p = path; *p != 0; ++p)
    {
        if ((p == path || p[-1] == '/') && NqStartsInTopFolder(p))
            found = p;
    }
    return found;
}

// Reports `text` to the host for the given place in the sources.
[[gnu::cold, gnu::noinline]] inline void NqReport(const char* file, unsigned int line, const char* text)
{
    Nq_CallNotify_(const_cast<char*>(NqSourcePath(file)), line, text);
}

[[gnu::cold, gnu::noinline]] inline void NqReportAssert(const char* file, unsigned int line)
{
    Nq_CallAssert_(const_cast<char*>(NqSourcePath(file)), line);
}

inline bool NqReportUnless(bool holds, const char* file, unsigned int line, const char* text)
{
    if (__builtin_expect(!holds, 0))
        NqReport(file, line, text);
    return holds;
}

inline bool NqReportAssertUnless(bool holds, const char* file, unsigned int line)
{
    if (__builtin_expect(!holds, 0))
        NqReportAssert(file, line);
    return holds;
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
