#include "Tools/nqtoken/Guard.h"

#include "Tools/nqtoken/Outcome.h"
#include "Tools/nqtoken/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
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

constexpr int kPassedOn[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// The worker removes its temporary files and dies of the signal; then so does this process.
class PassingSignalsOn
{
public:
    PassingSignalsOn()
    {
        struct sigaction action = {};
        action.sa_handler = PassOn;
        for (size_t i = 0; i < std::size(kPassedOn); ++i)
        {
            sigaction(kPassedOn[i], nullptr, &fBefore[i]);
            if (fBefore[i].sa_handler != SIG_IGN)
                sigaction(kPassedOn[i], &action, nullptr);
        }
    }
    ~PassingSignalsOn()
    {
        for (size_t i = 0; i < std::size(kPassedOn); ++i)
            sigaction(kPassedOn[i], &fBefore[i], nullptr);
    }
    PassingSignalsOn(const PassingSignalsOn&) = delete;
    PassingSignalsOn& operator=(const PassingSignalsOn&) = delete;

private:
    struct sigaction fBefore[std::size(kPassedOn)] = {};
};

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
            exit(kTrouble);
#endif
        exit(inWork());
    }
    if (gWorker < 0)
    {
        sigprocmask(SIG_SETMASK, &before, nullptr);
        return inWork();
    }
    const PassingSignalsOn passing;
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
