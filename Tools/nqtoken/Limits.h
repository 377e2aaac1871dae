// How much memory and time the process that reads a model may take. A file of a few hundred bytes can ask for all
// memory that there is, and another can keep its reader busy for ever: both must become a message.
//
// Memory is limited by the system, as address space, beside what the program takes by itself. Where the system has no
// such limit, and in a build with a sanitizer (which reserves terabytes), only the time is limited: LimitsMemory tells.

#pragma once

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <optional>
#include <string>

namespace nqtoken
{

struct Limits
{
    std::optional<uint64> fMemory; // bytes, 0 for no limit; when not given, DefaultMemoryLimit
    real64 fTime = 600;            // seconds for one piece of work, 0 for no limit
};

constexpr bool LimitsMemory()
{
#if !defined(__linux__) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#elif defined(__has_feature)
    return !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer) && !__has_feature(memory_sanitizer);
#else
    return true;
#endif
}

// For each of inProcesses that work at the same time: together they take no more than half of the memory of the
// machine, or of what the system grants this group of processes; but each has 1 GB if that half is not less.
uint64 DefaultMemoryLimit(int32 inProcesses);

// What a process that was limited leaves behind for the one that waits for it.
struct LimitState
{
    bool fMemoryRefused;
    char fMemoryText[160]; // what to say then
};

// Limits this process from here on, until the destructor; one at a time. ioState outlives it.
// Past the limit of time the process ends by SIGALRM, or by SIGXCPU when it was not scheduled to see that.
class LimitsInForce
{
public:
    LimitsInForce(const Limits& inLimits, LimitState& ioState);
    ~LimitsInForce();
    LimitsInForce(const LimitsInForce&) = delete;
    LimitsInForce& operator=(const LimitsInForce&) = delete;
};

// While it exists, work on a scene of so many bytes may take kSceneShare times as many, and kSceneFree, beside what is
// taken already. That is more than a scene needs which has something in its blocks. Changes nothing when the user has
// said what may be taken, or when no limits are in force.
constexpr uint64 kSceneShare = 64;
constexpr uint64 kSceneFree = uint64{256} << 20;

class SceneLimit
{
public:
    explicit SceneLimit(int64 inSceneSize);
    ~SceneLimit();
    SceneLimit(const SceneLimit&) = delete;
    SceneLimit& operator=(const SceneLimit&) = delete;
};

// Whether memory was refused since the limits are in force: what a library made of that may lack something.
bool MemoryRefused();
// What to say of it, behind the name of a file.
std::string OutOfMemoryText();
// For the sentence when the time was over.
std::string OutOfTimeText(const Limits& inLimits);

// No limit of time from here on. To be called before a target is replaced, since "nothing was written" must be true.
void EndTimeLimit();

} // namespace nqtoken
