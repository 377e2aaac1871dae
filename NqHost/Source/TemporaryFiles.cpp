#include "NqHost/PublicAPI/NqHostTemporaryFiles.h"

#include "NqCore/PublicAPI/NqBasicTypes.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <set>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace
{

// ---- What a signal handler must remove -----------------------------------------------------------------------------

// A slot holds a path of its own, so that the handler never sees one that is being changed. A file that finds no slot
// would only stay behind after a signal, until the next program.
constexpr int kSlots = 512;
std::atomic<char*> gTemporaries[kSlots];
std::atomic<int> gBeingMade{0}; // temporary files that may exist and are in no slot yet
std::mutex gMutex;              // a path may be freed only while nobody else compares it

// Takes the path over, which comes from malloc. Allocates nothing and waits for nobody: a handler may wait for it.
void Remember(char* inPath)
{
    for (std::atomic<char*>& slot : gTemporaries)
    {
        char* empty = nullptr;
        if (slot.compare_exchange_strong(empty, inPath))
            return;
    }
    std::free(inPath);
}

char* CopyOf(const std::string& inPath)
{
    char* const copy = strdup(inPath.c_str());
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

// In a process made by fork: the files are its parent's.
void LeaveToParent()
{
    for (std::atomic<char*>& slot : gTemporaries)
        slot = nullptr;
    gBeingMade = 0;
    gMutex.unlock();
}

[[maybe_unused]] const int gAtFork = pthread_atfork([] { gMutex.lock(); }, [] { gMutex.unlock(); }, LeaveToParent);

// While it exists, no signal is handled on this thread, and handlers on other threads wait.
class MakingTemporary
{
public:
    MakingTemporary()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &fBefore);
        ++gBeingMade;
    }
    ~MakingTemporary()
    {
        --gBeingMade;
        pthread_sigmask(SIG_SETMASK, &fBefore, nullptr);
    }
    MakingTemporary(const MakingTemporary&) = delete;
    MakingTemporary& operator=(const MakingTemporary&) = delete;

private:
    sigset_t fBefore;
};

// ---- Names ---------------------------------------------------------------------------------------------------------

constexpr size_t kDigits = 8;

std::string Hexadecimal(uint32 inValue)
{
    std::string digits(kDigits, '0');
    for (size_t i = kDigits; i > 0; --i, inValue >>= 4)
        digits[i - 1] = "0123456789abcdef"[inValue & 0xF];
    return digits;
}

// FNV-1a.
uint32 HashOf(std::string_view inBytes)
{
    uint32 hash = 0x811C9DC5;
    for (const char c : inBytes)
        hash = (hash ^ static_cast<uint8>(c)) * 0x01000193;
    return hash;
}

// What the names of temporary files of this machine begin with: in a folder that several machines share, the locks of
// the others may not be seen.
const std::string& Prefix()
{
    static const std::string sPrefix = []
    {
        char name[256] = {};
        gethostname(name, sizeof(name) - 1);
        return ".nq-temporary-" + Hexadecimal(HashOf(name)) + "-";
    }();
    return sPrefix;
}

std::string NewName()
{
    static std::atomic<uint32> sCount{0};
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const uint32 parts[] = {static_cast<uint32>(getpid()), static_cast<uint32>(now.tv_nsec),
                            static_cast<uint32>(now.tv_sec), sCount++};
    char bytes[sizeof(parts)];
    std::memcpy(bytes, parts, sizeof(parts));
    return Prefix() + Hexadecimal(HashOf({bytes, sizeof(bytes)}));
}

bool IsTemporaryName(std::string_view inName)
{
    const std::string& prefix = Prefix();
    return inName.size() == prefix.size() + kDigits && inName.substr(0, prefix.size()) == prefix &&
           inName.find_first_not_of("0123456789abcdef", prefix.size()) == std::string_view::npos;
}

bool IsSame(const struct stat& inA, const struct stat& inB)
{
    return inA.st_dev == inB.st_dev && inA.st_ino == inB.st_ino;
}

// ---- What dead programs left ---------------------------------------------------------------------------------------

// Removes a file when it is this user's and nobody holds its lock. Between its making and its locking a file is
// nobody's, too: who makes it looks whether it is still there.
void RemoveIfLeft(int inFolder, const char* inName)
{
    struct stat named = {};
    const auto isNamed = [&] { return fstatat(inFolder, inName, &named, AT_SYMLINK_NOFOLLOW) == 0; };
    if (!isNamed() || !S_ISREG(named.st_mode) || named.st_uid != geteuid())
        return;
    const int file = openat(inFolder, inName, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0)
        return;
    struct stat opened = {};
    if (fstat(file, &opened) == 0 && IsSame(opened, named) && flock(file, LOCK_EX | LOCK_NB) == 0 && isNamed() &&
        IsSame(opened, named))
        unlinkat(inFolder, inName, 0);
    close(file);
}

struct CloseFolder
{
    void operator()(DIR* inFolder) const { closedir(inFolder); }
};

// Once for each folder: what others leave later is for later programs.
void RemoveLeftIn(const std::string& inFolder)
{
    static std::set<std::string> sCleaned;
    {
        const std::lock_guard<std::mutex> lock(gMutex);
        if (!sCleaned.insert(inFolder).second)
            return;
    }
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(inFolder.c_str()));
    if (folder == nullptr)
        return;
    while (const dirent* entry = readdir(folder.get()))
    {
        if (IsTemporaryName(entry->d_name))
            RemoveIfLeft(dirfd(folder.get()), entry->d_name);
    }
}

// Whether a file that was just made is locked now, or cannot be on this file system. False when somebody took it for
// one that was left: it is gone, or will be soon.
bool Lock(int inFile)
{
    struct stat status = {};
    if (flock(inFile, LOCK_EX | LOCK_NB) != 0)
        return errno != EWOULDBLOCK;
    return fstat(inFile, &status) == 0 && status.st_nlink > 0;
}

} // namespace

int NqHostMakeTemporaryFile(const std::string& inFolder, unsigned int inMode, std::string& outPath, int& outDescriptor)
{
    constexpr int kMostTries = 1000;
    const std::string start = inFolder.empty() ? "./" : inFolder.back() == '/' ? inFolder : inFolder + "/";
    RemoveLeftIn(start);
    for (int tries = 0; tries < kMostTries; ++tries)
    {
        outPath = start + NewName();
        char* const copy = CopyOf(outPath);
        const MakingTemporary making;
        outDescriptor = open(outPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, static_cast<mode_t>(inMode));
        const int error = errno;
        if (outDescriptor >= 0 && Lock(outDescriptor))
        {
            Remember(copy);
            return 0;
        }
        std::free(copy);
        if (outDescriptor >= 0)
            close(outDescriptor);
        else if (error != EEXIST && error != EINTR)
            return error;
    }
    return EEXIST;
}

void NqHostRemoveTemporaryFile(const std::string& inPath)
{
    unlink(inPath.c_str());
    NqHostKeepTemporaryFile(inPath);
}

void NqHostAddTemporaryFile(const std::string& inPath)
{
    Remember(CopyOf(inPath));
}

void NqHostKeepTemporaryFile(const std::string& inPath)
{
    const std::lock_guard<std::mutex> lock(gMutex);
    for (std::atomic<char*>& slot : gTemporaries)
    {
        char* remembered = slot.load();
        if (remembered != nullptr && inPath == remembered && slot.compare_exchange_strong(remembered, nullptr))
        {
            std::free(remembered);
            return;
        }
    }
}

void NqHostRemoveTemporaryFiles()
{
    while (gBeingMade > 0)
        sched_yield();
    for (std::atomic<char*>& slot : gTemporaries)
    {
        const char* path = slot.exchange(nullptr);
        if (path != nullptr)
            unlink(path);
    }
}
