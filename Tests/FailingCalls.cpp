#include "Tests/FailingCalls.h"

#include <cerrno>
#include <sys/types.h>

namespace
{

thread_local int tBadCall = 0;
thread_local int tCalls = 0;

bool Fails()
{
    if (tBadCall == 0 || ++tCalls != tBadCall)
        return false;
    errno = EIO;
    return true;
}

} // namespace

void FailCall(int inCall)
{
    tBadCall = inCall;
    if (inCall != 0)
        tCalls = 0;
}

int CallsMade()
{
    return tCalls;
}

// The linker sends calls of f to __wrap_f and those of __real_f to f (--wrap in CMakeLists.txt).
#define FAILING(name, parameters, arguments, ...) \
    extern "C" int __real_##name parameters;      \
    extern "C" int __wrap_##name parameters;      \
    int __wrap_##name parameters                  \
    {                                             \
        if (!Fails())                             \
            return __real_##name arguments;       \
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
    __real_write(file, bytes, count / 2);
    errno = EIO;
    return -1;
}
