#include "Tools/nqtoken/Guard.h"

#include "Tools/nqtoken/AtomicFile.h"
#include "Tools/nqtoken/EachFile.h"
#include "Tools/nqtoken/Reports.h"

#include "NqCore/PublicAPI/NqCompiler.h"
#include "NqCore/PublicAPI/NqException.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace nqtoken
{
namespace
{

// --- signals

constexpr int kPassedOn[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
constexpr int kMostProcesses = kMostJobs;

std::atomic<pid_t> gProcesses[kMostProcesses]; // 0 where there is none
std::atomic<int> gSignal{0};                   // that was passed on
TNqAbortFlag gCancelled{false};

extern "C" void PassOn(int inSignal)
{
    const int error = errno;
    gSignal = inSignal;
    gCancelled = true;
    for (const std::atomic<pid_t>& process : gProcesses)
    {
        const pid_t id = process;
        if (id > 0)
            kill(id, inSignal);
    }
    errno = error;
}

using SignalActions = struct sigaction[std::size(kPassedOn)];

// The processes remove their temporary files and die of the signal; then so does this one.
void PassSignalsOn(SignalActions& outBefore)
{
    struct sigaction action = {};
    action.sa_handler = PassOn;
    sigfillset(&action.sa_mask);
    for (size_t i = 0; i < std::size(kPassedOn); ++i)
    {
        sigaction(kPassedOn[i], nullptr, &outBefore[i]);
        if (outBefore[i].sa_handler != SIG_IGN)
            sigaction(kPassedOn[i], &action, nullptr);
    }
}

void PassNoSignalsOn(const SignalActions& inBefore)
{
    for (size_t i = 0; i < std::size(kPassedOn); ++i)
        sigaction(kPassedOn[i], &inBefore[i], nullptr);
}

class BlockingSignals
{
public:
    BlockingSignals()
    {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, &fBefore);
    }
    ~BlockingSignals() { End(); }
    void End() { sigprocmask(SIG_SETMASK, &fBefore, nullptr); }
    BlockingSignals(const BlockingSignals&) = delete;
    BlockingSignals& operator=(const BlockingSignals&) = delete;

private:
    sigset_t fBefore;
};

bool EndsPrograms(int inSignal)
{
    return std::find(std::begin(kPassedOn), std::end(kPassedOn), inSignal) != std::end(kPassedOn);
}

void DieOf(int inSignal)
{
    signal(inSignal, SIG_DFL);
    raise(inSignal);
}

// --- processes

// In the new process: signals are not passed on to those of the old one, and its end ends this one.
void BecomeChild([[maybe_unused]] pid_t inParent)
{
    for (std::atomic<pid_t>& process : gProcesses)
        process = 0;
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != inParent)
        _exit(kTrouble);
#endif
}

bool WaitFor(pid_t inProcess, int& outStatus)
{
    while (waitpid(inProcess, &outStatus, 0) < 0)
    {
        if (errno != EINTR)
            return false;
    }
    return true;
}

// What a process leaves behind, in memory that it has in common with this one.
class SharedState
{
public:
    SharedState()
    {
        void* const shared =
            mmap(nullptr, sizeof(LimitState), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        fState = shared != MAP_FAILED ? static_cast<LimitState*>(shared) : &fOwn;
    }
    ~SharedState()
    {
        if (fState != &fOwn)
            munmap(fState, sizeof(LimitState));
    }
    SharedState(const SharedState&) = delete;
    SharedState& operator=(const SharedState&) = delete;

    LimitState& Get() { return *fState; }

private:
    LimitState fOwn = {};
    LimitState* fState;
};

// No exception leaves the process that does the work.
int Finished(const std::string& inFile, const std::function<int()>& inWork, const Limits& inLimits, LimitState& ioState)
{
    const LimitsInForce limits(inLimits, ioState);
    int status = kTrouble;
    const Outcome outcome = CatchExceptions(inFile,
                                            [&]
                                            {
                                                status = inWork();
                                                return Outcome();
                                            });
    if (!outcome.Ok())
        PutNote(outcome.Text());
    return status;
}

// Why a process ended that a signal has ended.
std::string EndText(int inSignal, const Limits& inLimits, const LimitState& inState)
{
    if (inSignal == SIGALRM || inSignal == SIGXCPU)
        return OutOfTimeText(inLimits);
    if (inState.fMemoryRefused)
        return inState.fMemoryText;
    return fmt::format("the library that reads and writes models {} ({})",
                       inSignal == SIGKILL ? "was ended" : "crashed", strsignal(inSignal));
}

// --- what a GuardProcesses and its processes say to each other: a number, and the status of the work

template <class T>
bool Receive(int inSocket, T& outValue)
{
    for (;;)
    {
        const ssize_t count = recv(inSocket, &outValue, sizeof(outValue), MSG_WAITALL);
        if (count >= 0 || errno != EINTR)
            return count == ssize_t{sizeof(outValue)};
    }
}

template <class T>
bool Send(int inSocket, T inValue)
{
    const std::string_view bytes(reinterpret_cast<const char*>(&inValue), sizeof(inValue));
    return WriteAll(inSocket, bytes, "process").Ok();
}

[[noreturn]] void Serve(int inControl, const GuardProcesses::Work& inWork)
{
    {
        const TNqHost host(HostOptions(1));
        uint32 number = 0;
        while (Receive(inControl, number) && Send(inControl, int32{inWork(number)}))
        {
        }
    }
    _exit(kDone);
}

// Both ends of a pipe or a pair of sockets.
struct Ends
{
    int fOurs = -1;
    int fTheirs = -1;

    bool MakePipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        fOurs = ends[0];
        fTheirs = ends[1];
        return fcntl(fOurs, F_SETFL, O_NONBLOCK) == 0;
    }
    bool MakeSockets()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            return false;
        fOurs = ends[0];
        fTheirs = ends[1];
        return true;
    }
};

void Close(std::initializer_list<int> inDescriptors)
{
    for (const int descriptor : inDescriptors)
    {
        if (descriptor >= 0)
            close(descriptor);
    }
}

// Passes on all that there is to read now.
void PassOutputOn(int inPipe, Output& ioOutput, bool inIsError)
{
    char bytes[1 << 14];
    for (;;)
    {
        const ssize_t count = read(inPipe, bytes, sizeof(bytes));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        const std::string_view text(bytes, static_cast<size_t>(count));
        if (inIsError)
            ioOutput.PutError(text);
        else
            ioOutput.Put(text);
    }
}

// Adds one process; false when the system gives no more.
bool Start(const GuardProcesses::Work& inWork, BlockingSignals& ioBlocking,
           std::vector<GuardProcesses::Process>& ioProcesses)
{
    Ends control;
    Ends out;
    Ends error;
    const pid_t parent = getpid();
    pid_t process = -1;
    if (control.MakeSockets() && out.MakePipe() && error.MakePipe())
        process = fork();
    if (process == 0)
    {
        BecomeChild(parent);
        for (const GuardProcesses::Process& earlier :
             ioProcesses) // their sockets must be closed when the parent closes them
            Close({earlier.fControl, earlier.fOut, earlier.fError});
        Close({control.fOurs, out.fOurs, error.fOurs});
        dup2(out.fTheirs, STDOUT_FILENO);
        dup2(error.fTheirs, STDERR_FILENO);
        Close({out.fTheirs, error.fTheirs});
        ioBlocking.End();
        Serve(control.fTheirs, inWork);
    }
    Close({control.fTheirs, out.fTheirs, error.fTheirs});
    if (process < 0)
    {
        Close({control.fOurs, out.fOurs, error.fOurs});
        return false;
    }
    gProcesses[ioProcesses.size()] = process;
    ioProcesses.push_back({process, control.fOurs, out.fOurs, error.fOurs});
    return true;
}

} // namespace

int RunGuarded(const std::string& inFile, const std::function<int()>& inWork, const Limits& inLimits)
{
    SharedState state;
    BlockingSignals blocking; // no signal may arrive before it is known whom to pass it on to
    const pid_t parent = getpid();
    const pid_t worker = fork();
    if (worker == 0)
    {
        BecomeChild(parent);
        blocking.End();
        exit(Finished(inFile, inWork, inLimits, state.Get()));
    }
    if (worker < 0)
    {
        blocking.End();
        return Finished(inFile, inWork, inLimits, state.Get());
    }
    gProcesses[0] = worker;
    SignalActions before;
    PassSignalsOn(before);
    blocking.End();
    int status = 0;
    const bool ended = WaitFor(worker, status);
    gProcesses[0] = 0;
    PassNoSignalsOn(before);
    GuardProcesses::DieIfCancelled(); // also when the work was done by then
    if (!ended)
        return kTrouble;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    const int number = WTERMSIG(status);
    if (EndsPrograms(number))
        DieOf(number);
    PutNote(fmt::format("{}: {}; nothing was written", inFile, EndText(number, inLimits, state.Get())));
    return kTrouble;
}

GuardProcesses::GuardProcesses(int32 inCount, const Work& inWork)
{
    BlockingSignals blocking;
    while (Count() < std::min(inCount, kMostProcesses) && Start(inWork, blocking, fProcesses))
    {
    }
    if (Count() > 0)
        PassSignalsOn(fBefore);
}

GuardProcesses::~GuardProcesses()
{
    if (Count() == 0)
        return;
    for (Process& process : fProcesses)
        Close({process.fControl});
    for (size_t i = 0; i < fProcesses.size(); ++i)
    {
        int status = 0;
        if (gProcesses[i] > 0)
            WaitFor(fProcesses[i].fID, status);
        gProcesses[i] = 0;
        Close({fProcesses[i].fOut, fProcesses[i].fError});
    }
    PassNoSignalsOn(fBefore);
}

int GuardProcesses::Run(int32 inProcess, uint32 inNumber, Output& ioOutput)
{
    const Process& process = fProcesses[static_cast<size_t>(inProcess)];
    bool isAlive = Send(process.fControl, inNumber);
    for (bool isDone = false; !isDone;)
    {
        pollfd polled[] = {{process.fControl, POLLIN, 0}, {process.fOut, POLLIN, 0}, {process.fError, POLLIN, 0}};
        if (poll(polled, std::size(polled), -1) < 0)
            continue;
        // The status comes last, so that nothing is read too early: it was printed before.
        isDone = polled[0].revents != 0;
        PassOutputOn(process.fOut, ioOutput, false);
        PassOutputOn(process.fError, ioOutput, true);
    }
    int32 status = kTrouble;
    isAlive = isAlive && Receive(process.fControl, status);
    if (isAlive)
        return status;
    // It died of a signal that was meant for all, or for it alone: as if all of them had got it.
    int ended = 0;
    gProcesses[inProcess] = 0;
    if (WaitFor(process.fID, ended) && gSignal == 0)
        PassOn(WIFSIGNALED(ended) && EndsPrograms(WTERMSIG(ended)) ? WTERMSIG(ended) : SIGTERM);
    throw TNqException(kNqErrCancelled, NqSourcePath(__FILE__), __LINE__);
}

const TNqAbortFlag& GuardProcesses::Cancelled()
{
    return gCancelled;
}

void GuardProcesses::DieIfCancelled()
{
    if (gSignal != 0)
        DieOf(gSignal);
}

} // namespace nqtoken
