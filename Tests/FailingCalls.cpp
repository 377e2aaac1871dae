#include "Tests/FailingCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/types.h>
#include <unistd.h>

namespace
{

thread_local int tBadCall = 0;
thread_local int tCalls = 0;
thread_local int tError = EIO;
thread_local bool tKills = false;
std::atomic<int> gBadRead{0};
std::atomic<int> gReads{0};
std::atomic<long> gBadPosition{-1};

bool Fails()
{
    if (tBadCall == 0 || ++tCalls != tBadCall)
        return false;
    errno = tError;
    return true;
}

void KillIfWanted()
{
    if (tKills)
        raise(SIGKILL);
}

} // namespace

void FailCall(int call, int error)
{
    tBadCall = call;
    tError = error;
    if (call != 0)
        tCalls = 0;
}

void KillAtCall(int call)
{
    FailCall(call);
    tKills = true;
}

int CallsMade()
{
    return tCalls;
}

void FailRead(int call)
{
    gReads = 0;
    gBadRead = call;
}

int ReadsMade()
{
    return gReads;
}

void FailReadAt(long position)
{
    gBadPosition = position;
}

// The linker sends calls of f to __wrap_f and those of __real_f to f (--wrap in CMakeLists.txt).
#define FAILING(name, parameters, arguments, ...) \
    extern "C" int __real_##name parameters;      \
    extern "C" int __wrap_##name parameters;      \
    int __wrap_##name parameters                  \
    {                                             \
        if (!Fails())                             \
            return __real_##name arguments;       \
        KillIfWanted();                           \
        __VA_ARGS__;                              \
        return -1;                                \
    }

FAILING(open, (const char* path, int flags, mode_t mode), (path, flags, mode), )
FAILING(fchmod, (int file, mode_t mode), (file, mode), )
FAILING(fsync, (int file), (file), )
FAILING(close, (int file), (file), __real_close(file))
FAILING(rename, (const char* from, const char* to), (from, to), )

extern "C" ssize_t __real_write(int file, const void* bytes, size_t count);
extern "C" ssize_t __wrap_write(int file, const void* bytes, size_t count);
ssize_t __wrap_write(int file, const void* bytes, size_t count)
{
    if (!Fails())
        return __real_write(file, bytes, count);
    if (tError != EINTR) // or what was written would count
        __real_write(file, bytes, count / 2);
    KillIfWanted();
    errno = tError;
    return -1;
}

namespace
{

// Reads by read(count) at a position of a file, -1 for what has none, up to the byte that cannot be read.
template <class Read>
ssize_t ReadUnlessBad(long position, size_t count, Read&& read)
{
    const bool isBad = gBadRead != 0 && ++gReads == gBadRead;
    const long before =
        position < 0 || gBadPosition < position ? -1 : gBadPosition - position; // bytes that can be read
    if (!isBad && before != 0)
        return read(before > 0 ? std::min(count, static_cast<size_t>(before)) : count);
    errno = EIO;
    return -1;
}

} // namespace

extern "C" ssize_t __real_read(int file, void* bytes, size_t count);
extern "C" ssize_t __wrap_read(int file, void* bytes, size_t count);
ssize_t __wrap_read(int file, void* bytes, size_t count)
{
    const long position = gBadPosition < 0 ? -1 : lseek(file, 0, SEEK_CUR);
    return ReadUnlessBad(position, count, [=](size_t some) { return __real_read(file, bytes, some); });
}

extern "C" ssize_t __real_pread(int file, void* bytes, size_t count, off_t position);
extern "C" ssize_t __wrap_pread(int file, void* bytes, size_t count, off_t position);
ssize_t __wrap_pread(int file, void* bytes, size_t count, off_t position)
{
    return ReadUnlessBad(position, count, [=](size_t some) { return __real_pread(file, bytes, some, position); });
}
