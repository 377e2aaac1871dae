#include "Tools/nqtoken/AtomicFile.h"

#include "NqHost/PublicAPI/NqHostTemporaryFiles.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace nqtoken
{
namespace
{

// Other threads run on meanwhile. Another signal, here or there, does not come in between: the first one ends the
// program.
extern "C" void RemoveAndDie(int inSignal)
{
    static std::atomic<bool> sDying{false};
    if (sDying.exchange(true))
        return;
    NqHostRemoveTemporaryFiles();
    signal(inSignal, SIG_DFL);
    raise(inSignal); // is held back until the handler returns
}

Outcome OutcomeOf(NqErr inError, const std::string& inName, const std::string& inReason)
{
    return inError == kNqNoErr ? Outcome()
                               : Trouble(fmt::format("{}{}{}", inName, inName.empty() ? "" : ": ", inReason));
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

Outcome MakeTemporary(const std::string& inFolder, std::string& outPath, int& outDescriptor)
{
    const int error = NqHostMakeTemporaryFile(inFolder, 0600, outPath, outDescriptor);
    return error == 0 ? Outcome()
                      : Trouble(fmt::format("{}: no temporary file can be made there: {}", inFolder, strerror(error)));
}

void RemoveTemporary(const std::string& inPath)
{
    NqHostRemoveTemporaryFile(inPath);
}

void RemoveOnSignal(const std::string& inPath)
{
    NqHostAddTemporaryFile(inPath);
}

void KeepOnSignal(const std::string& inPath)
{
    NqHostKeepTemporaryFile(inPath);
}

Outcome WriteAll(int inDescriptor, std::string_view inBytes, const std::string& inName)
{
    while (!inBytes.empty())
    {
        const ssize_t count = write(inDescriptor, inBytes.data(), inBytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Trouble(fmt::format("{}: {}", inName, strerror(errno)));
        inBytes.remove_prefix(static_cast<size_t>(count));
    }
    return {};
}

Outcome AtomicFile::Create(const std::string& inTarget)
{
    fTarget = inTarget;
    std::string reason;
    const NqErr error = fFile.Create(inTarget, reason);
    return OutcomeOf(error, fTarget, reason);
}

Outcome AtomicFile::Write(std::string_view inBytes)
{
    std::string reason;
    const NqErr error = fFile.Write(inBytes.data(), inBytes.size(), reason);
    return OutcomeOf(error, fTarget, reason);
}

Outcome AtomicFile::Sync()
{
    std::string reason;
    const NqErr error = fFile.Sync(reason);
    return OutcomeOf(error, fTarget, reason);
}

Outcome AtomicFile::Replace()
{
    std::string reason;
    const NqErr error = fFile.Replace(reason);
    return OutcomeOf(error, fTarget, reason);
}

} // namespace nqtoken
