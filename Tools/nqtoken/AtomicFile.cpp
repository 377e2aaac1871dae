#include "Tools/nqtoken/AtomicFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <mutex>
#include <new>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nqtoken
{
namespace
{

// --- what a signal handler must remove

// A slot holds a path of its own, so that the handler never sees one that is being changed. Each file that is worked on
// has one temporary file at most, and all fit; one that did not would only stay behind after a signal.
constexpr int kSlots = 512;
std::atomic<char*> gTemporaries[kSlots];
std::atomic<int> gBeingMade{0}; // temporary files that may exist and are in no slot yet
std::mutex gForgetMutex;        // a path may be freed only while nobody else compares it

// Takes inPath over, which comes from malloc. Allocates nothing and waits for nobody: a handler may wait for it.
void Remember(char* inPath)
{
    for (std::atomic<char*>& slot : gTemporaries)
    {
        char* empty = nullptr;
        if (slot.compare_exchange_strong(empty, inPath))
            return;
    }
}

void Forget(const std::string& inPath)
{
    const std::lock_guard<std::mutex> lock(gForgetMutex);
    for (std::atomic<char*>& slot : gTemporaries)
    {
        char* path = slot.load();
        if (path != nullptr && inPath == path && slot.compare_exchange_strong(path, nullptr))
        {
            free(path);
            return;
        }
    }
}

// Other threads run on meanwhile. Another signal, here or there, does not come in between: the first one ends the
// program.
extern "C" void RemoveAndDie(int inSignal)
{
    static std::atomic<bool> sDying{false};
    if (sDying.exchange(true))
        return;
    while (gBeingMade > 0)
        sched_yield();
    for (std::atomic<char*>& slot : gTemporaries)
    {
        const char* path = slot.exchange(nullptr);
        if (path != nullptr)
            unlink(path);
    }
    signal(inSignal, SIG_DFL);
    raise(inSignal); // is held back until the handler returns
}

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

// --- system calls

Outcome SystemTrouble(const std::string& inName)
{
    return Trouble(fmt::format("{}: {}", inName, strerror(errno)));
}

std::string FolderOf(const std::string& inPath)
{
    const size_t slash = inPath.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : inPath.substr(0, slash);
}

// The file that a path leads to, through symbolic links; the path itself when there is no file yet.
std::string Resolve(const std::string& inPath)
{
    char* resolved = realpath(inPath.c_str(), nullptr);
    if (resolved == nullptr)
        return inPath;
    std::string path = resolved;
    free(resolved);
    return path;
}

// Asked once: the mask can only be read by setting it, which another thread would notice.
mode_t NewFileMode()
{
    static const mode_t sMask = []
    {
        const mode_t mask = umask(0);
        umask(mask);
        return mask;
    }();
    return 0666 & ~sMask;
}

} // namespace

void PrepareProcess()
{
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = open("/dev/null", O_RDONLY);
    if (descriptor >= 0)
        close(descriptor);
    struct sigaction action = {};
    action.sa_handler = RemoveAndDie;
    sigfillset(&action.sa_mask);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGXCPU})
    {
        struct sigaction current = {};
        sigaction(number, nullptr, &current);
        if (current.sa_handler != SIG_IGN) // as nohup leaves it
            sigaction(number, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
}

Outcome MakeTemporary(const std::string& inPrefix, std::string& outPath, int& outDescriptor)
{
    const std::string pattern = inPrefix + "XXXXXX";
    char* const path = strdup(pattern.c_str());
    if (path == nullptr)
        throw std::bad_alloc();
    {
        const MakingTemporary making;
        outDescriptor = mkostemp(path, O_CLOEXEC);
        if (outDescriptor >= 0)
            Remember(path);
    }
    if (outDescriptor < 0)
    {
        Outcome outcome = SystemTrouble(FolderOf(pattern));
        free(path);
        return outcome;
    }
    outPath = path;
    return {};
}

void RemoveTemporary(const std::string& inPath)
{
    unlink(inPath.c_str());
    Forget(inPath);
}

void RemoveOnSignal(const std::string& inPath)
{
    Remember(strdup(inPath.c_str()));
}

void KeepOnSignal(const std::string& inPath)
{
    Forget(inPath);
}

Outcome WriteAll(int inDescriptor, std::string_view inBytes, const std::string& inName)
{
    while (!inBytes.empty())
    {
        const ssize_t count = write(inDescriptor, inBytes.data(), inBytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return SystemTrouble(inName);
        inBytes.remove_prefix(static_cast<size_t>(count));
    }
    return {};
}

AtomicFile::AtomicFile(AtomicFile&& ioOther) noexcept
    : fTarget(std::move(ioOther.fTarget)),
      fTemporary(std::move(ioOther.fTemporary)),
      fDescriptor(std::exchange(ioOther.fDescriptor, -1))
{
    ioOther.fTemporary.clear();
}

AtomicFile::~AtomicFile()
{
    if (fDescriptor >= 0)
        close(fDescriptor);
    if (!fTemporary.empty())
        RemoveTemporary(fTemporary);
}

Outcome AtomicFile::Create(const std::string& inTarget)
{
    fTarget = Resolve(inTarget);
    mode_t mode = NewFileMode();
    struct stat status = {};
    if (stat(fTarget.c_str(), &status) == 0)
    {
        if (S_ISDIR(status.st_mode))
            return Trouble(fmt::format("{}: is a folder", inTarget));
        if (!S_ISREG(status.st_mode))
            return Trouble(fmt::format("{}: is not a file", inTarget));
        if (access(fTarget.c_str(), W_OK) != 0)
            return SystemTrouble(inTarget);
        mode = status.st_mode & 07777;
    }
    else if (errno != ENOENT)
        return SystemTrouble(inTarget);
    if (fTarget.empty() || fTarget.back() == '/')
        return Trouble(fmt::format("\"{}\": is not the name of a file", inTarget));

    // The folder's limit on the length of a name holds for the temporary name too.
    const std::string name = fTarget.substr(fTarget.rfind('/') + 1, NAME_MAX - 16);
    Outcome outcome = MakeTemporary(fmt::format("{}/.{}.", FolderOf(fTarget), name), fTemporary, fDescriptor);
    if (!outcome.Ok())
        return Trouble(fmt::format("{}: {}", inTarget, outcome.Text()));
    // The owner is kept where the system allows it, and never at the price of bits that then mean something else.
    if (status.st_nlink > 0 && (status.st_uid != geteuid() || status.st_gid != getegid()) &&
        fchown(fDescriptor, status.st_uid, status.st_gid) != 0)
        mode &= 0777;
    if (fchmod(fDescriptor, mode) != 0)
        return SystemTrouble(inTarget);
    return {};
}

Outcome AtomicFile::Write(std::string_view inBytes)
{
    return WriteAll(fDescriptor, inBytes, fTarget);
}

Outcome AtomicFile::Sync()
{
    if (fsync(fDescriptor) != 0)
        return SystemTrouble(fTarget);
    return {};
}

Outcome AtomicFile::Replace()
{
    if (rename(fTemporary.c_str(), fTarget.c_str()) != 0)
        return SystemTrouble(fTarget);
    Forget(fTemporary);
    fTemporary.clear();
    // The new name reaches the disk with its folder; a file system that cannot do so is no reason to call the write
    // failed.
    const int folder = open(FolderOf(fTarget).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0)
    {
        fsync(folder);
        close(folder);
    }
    return {};
}

} // namespace nqtoken
