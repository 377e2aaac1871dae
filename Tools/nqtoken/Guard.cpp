#include "Tools/nqtoken/Guard.h"

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Output.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace nqtoken
{
namespace
{

pid_t gWorker = -1;

extern "C" void PassOn(int inSignal)
{
    if (gWorker > 0)
        kill(gWorker, inSignal);
}

// The worker removes its temporary files and dies of the signal; then so does this process.
void PassSignalsOn()
{
    struct sigaction action = {};
    action.sa_handler = PassOn;
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
    {
        struct sigaction current = {};
        sigaction(number, nullptr, &current);
        if (current.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
}

bool EndsPrograms(int inSignal)
{
    return inSignal == SIGHUP || inSignal == SIGINT || inSignal == SIGQUIT || inSignal == SIGTERM ||
           inSignal == SIGKILL;
}

} // namespace

int RunGuarded(const std::function<int()>& inWork)
{
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, &before); // no signal may arrive before it is known whom to pass it on to
    [[maybe_unused]] const pid_t parent = getpid();
    gWorker = fork();
    if (gWorker == 0)
    {
        sigprocmask(SIG_SETMASK, &before, nullptr);
#ifdef __linux__
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            return kTrouble;
#endif
        return inWork();
    }
    if (gWorker < 0)
    {
        sigprocmask(SIG_SETMASK, &before, nullptr);
        return inWork();
    }
    PassSignalsOn();
    sigprocmask(SIG_SETMASK, &before, nullptr);
    int status = 0;
    while (waitpid(gWorker, &status, 0) < 0)
    {
        if (errno != EINTR)
            return kTrouble;
    }
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    const int number = WTERMSIG(status);
    if (EndsPrograms(number))
    {
        signal(number, SIG_DFL);
        raise(number);
    }
    PutNote(
        fmt::format("the library that reads and writes models crashed ({}); nothing was written", strsignal(number)));
    return kTrouble;
}

} // namespace nqtoken
