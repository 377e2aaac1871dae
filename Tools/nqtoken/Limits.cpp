#include "Tools/nqtoken/Limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <fstream>
#include <new>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace nqtoken
{
namespace
{

constexpr uint64 kMegabyte = uint64{1} << 20;
constexpr uint64 kGigabyte = uint64{1} << 30;

// Granted once memory was refused, for what cleans up and says so.
constexpr uint64 kReserve = 64 * kMegabyte;

// Of the process that is limited.
LimitState* gState = nullptr;
bool gMemoryIsGiven = false;         // by the user
rlimit gBefore = {};                 // address space
uint64 gAllowed = 0;                 // of it, without a scene; 0: no limit
std::string gText;                   // what to say without a scene
std::new_handler gHandler = nullptr; // before

std::string SizeText(uint64 inBytes)
{
    const bool isLarge = inBytes >= kGigabyte;
    const auto size = static_cast<real64>(inBytes) / static_cast<real64>(isLarge ? kGigabyte : kMegabyte);
    return fmt::format("{:.{}f} {}", size, std::floor(size) < size ? 1 : 0, isLarge ? "GB" : "MB");
}

// Address space that is taken; 0 when that cannot be found out.
uint64 TakenMemory()
{
    uint64 pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<uint64>(sysconf(_SC_PAGESIZE));
}

void SetAddressSpace(uint64 inBytes)
{
    rlimit limit = gBefore;
    limit.rlim_cur = std::min(static_cast<rlim_t>(inBytes), limit.rlim_cur);
    setrlimit(RLIMIT_AS, &limit);
}

void SetMemoryText(const std::string& inText)
{
    const size_t length = inText.copy(gState->fMemoryText, sizeof(gState->fMemoryText) - 1);
    gState->fMemoryText[length] = 0;
}

void NoteMemoryRefused()
{
    if (gState->fMemoryRefused)
        return;
    gState->fMemoryRefused = true;
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    if (limit.rlim_cur < gBefore.rlim_cur)
        SetAddressSpace(limit.rlim_cur + kReserve);
}

// Called by operator new when there is no memory.
void OnMemoryRefused()
{
    NoteMemoryRefused();
    throw std::bad_alloc();
}

void LimitMemory(uint64 inBytes)
{
    gState->fMemoryRefused = false;
    gText = "out of memory";
    gHandler = std::set_new_handler(OnMemoryRefused);
    getrlimit(RLIMIT_AS, &gBefore);
    const uint64 taken = TakenMemory();
    const bool isLimited = LimitsMemory() && taken != 0 && inBytes != 0 && inBytes < RLIM_INFINITY - taken;
    gAllowed = isLimited ? taken + inBytes : 0;
    if (isLimited && gAllowed < gBefore.rlim_cur)
        gText = fmt::format("takes more memory than the limit of {}; --memory-limit raises it", SizeText(inBytes));
    else if (gBefore.rlim_cur != RLIM_INFINITY)
        gText = "takes more memory than the system allows this program (see \"ulimit -v\")";
    SetMemoryText(gText);
    if (isLimited)
        SetAddressSpace(gAllowed);
}

void LimitTime(real64 inSeconds)
{
    if (inSeconds <= 0)
        return;
    itimerval timer = {};
    timer.it_value.tv_sec = static_cast<time_t>(inSeconds);
    timer.it_value.tv_usec = static_cast<suseconds_t>(std::fmod(inSeconds, 1) * 1e6);
    if (timer.it_value.tv_sec == 0 && timer.it_value.tv_usec == 0)
        timer.it_value.tv_usec = 1;
    setitimer(ITIMER_REAL, &timer, nullptr);
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    rlimit limit = {};
    getrlimit(RLIMIT_CPU, &limit);
    const auto used = static_cast<rlim_t>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec);
    limit.rlim_cur = std::min(limit.rlim_max, used + static_cast<rlim_t>(std::ceil(inSeconds)) + 2);
    setrlimit(RLIMIT_CPU, &limit);
}

// What the system grants the group of processes that this one belongs to; the largest number when it has no say.
uint64 GroupMemory()
{
    uint64 least = ~uint64{0};
    for (const char* file : {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory/memory.limit_in_bytes"})
    {
        uint64 bytes = 0;
        if (std::ifstream(file) >> bytes)
            least = std::min(least, bytes);
    }
    return least;
}

} // namespace

uint64 DefaultMemoryLimit(int32 inProcesses)
{
    const uint64 machine = static_cast<uint64>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64>(sysconf(_SC_PAGESIZE));
    const uint64 half = std::max(std::min(machine, GroupMemory()) / 2, kMegabyte);
    const uint64 share = half / static_cast<uint64>(std::max(inProcesses, 1));
    return std::max(share, std::min(half, kGigabyte));
}

LimitsInForce::LimitsInForce(const Limits& inLimits, LimitState& ioState)
{
    gState = &ioState;
    gMemoryIsGiven = inLimits.fMemory.has_value();
    LimitMemory(inLimits.fMemory.value_or(DefaultMemoryLimit(1)));
    LimitTime(inLimits.fTime);
}

LimitsInForce::~LimitsInForce()
{
    EndTimeLimit();
    setrlimit(RLIMIT_AS, &gBefore);
    std::set_new_handler(gHandler);
    gState = nullptr;
}

SceneLimit::SceneLimit(int64 inSceneSize)
{
    if (gState == nullptr || gMemoryIsGiven || gAllowed == 0)
        return;
    const uint64 bytes = kSceneFree + kSceneShare * static_cast<uint64>(inSceneSize);
    const uint64 allowed = TakenMemory() + bytes;
    if (allowed >= gAllowed)
        return;
    SetMemoryText(fmt::format("takes more than {} of memory, which are {} and {} times the size of the scene; "
                              "--memory-limit allows more",
                              SizeText(bytes), SizeText(kSceneFree), kSceneShare));
    SetAddressSpace(allowed);
}

SceneLimit::~SceneLimit()
{
    if (gState == nullptr || gAllowed == 0 || gState->fMemoryRefused)
        return;
    SetMemoryText(gText);
    SetAddressSpace(gAllowed);
}

bool MemoryRefused()
{
    return gState != nullptr && gState->fMemoryRefused;
}

std::string OutOfMemoryText()
{
    if (gState == nullptr)
        return "out of memory";
    NoteMemoryRefused();
    return gState->fMemoryText;
}

std::string OutOfTimeText(const Limits& inLimits)
{
    return fmt::format("takes longer than the limit of {:g} {}; --time-limit raises it", inLimits.fTime,
                       inLimits.fTime == 1 ? "second" : "seconds");
}

void EndTimeLimit()
{
    const itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
    rlimit limit = {};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_CPU, &limit);
}

} // namespace nqtoken
