#include "NqHost/PublicAPI/NqHostSockets.h"

#include "NqCore/PublicAPI/NqException.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>

namespace
{

// ---- Errors and waiting --------------------------------------------------------------------------------------------

std::string Reason(int inSystemError)
{
    return std::system_category().message(inSystemError);
}

bool Fails(std::string& outError, const std::string& inWhat, const std::string& inReason)
{
    outError = inWhat + ": " + inReason;
    return false;
}

bool Fails(std::string& outError, const std::string& inWhat, int inSystemError)
{
    return Fails(outError, inWhat, Reason(inSystemError));
}

// A point in time by which something must have happened.
class Deadline
{
public:
    explicit Deadline(int32 inTimeout)
        : fEndless(inTimeout < 0),
          fEnd(Clock::now() + std::chrono::milliseconds(std::max(inTimeout, 0)))
    {
    }

    // Milliseconds that are left, rounded up: 0 only when it has passed. -1 without an end.
    int32 Left() const
    {
        if (fEndless)
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(fEnd - Clock::now()).count();
        return static_cast<int32>(std::max<long long>(left, 0));
    }

private:
    using Clock = std::chrono::steady_clock;

    bool fEndless;
    Clock::time_point fEnd;
};

// Waits until the descriptor is ready for the events, or has failed. Returns 0, or an error of the system.
int WaitFor(int inDescriptor, short inEvents, const Deadline& inDeadline)
{
    for (;;)
    {
        pollfd entry = {inDescriptor, inEvents, 0};
        const int ready = poll(&entry, 1, inDeadline.Left());
        if (ready > 0)
            return 0;
        if (ready == 0)
            return ETIMEDOUT;
        if (errno != EINTR)
            return errno;
    }
}

bool MustWait(int inSystemError)
{
    return inSystemError == EAGAIN || inSystemError == EWOULDBLOCK;
}

// A descriptor that is closed unless it is taken.
class Descriptor
{
public:
    explicit Descriptor(int inDescriptor) : fDescriptor(inDescriptor) {}
    ~Descriptor()
    {
        if (fDescriptor >= 0)
            close(fDescriptor);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return fDescriptor; }
    int Take() { return std::exchange(fDescriptor, -1); }

private:
    int fDescriptor;
};

int NewSocket(int inFamily)
{
    return socket(inFamily, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// ---- Addresses -----------------------------------------------------------------------------------------------------

constexpr const char kUnixPrefix[] = "unix:";

bool IsPath(const std::string& inAddress, std::string& outPath)
{
    const size_t length = sizeof(kUnixPrefix) - 1;
    if (inAddress.compare(0, length, kUnixPrefix) != 0)
        return false;
    outPath = inAddress.substr(length);
    return true;
}

// Any address of the system, with its size.
struct SystemAddress
{
    sockaddr_storage fStorage = {};
    socklen_t fSize = sizeof(fStorage);

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&fStorage); }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&fStorage); }
};

bool AddressOfPath(const std::string& inPath, SystemAddress& outAddress, std::string& outError)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (inPath.empty() || inPath.find('\0') != std::string::npos)
        return Fails(outError, kUnixPrefix + inPath, "is not the name of a file");
    if (inPath.size() >= sizeof(address.sun_path))
        return Fails(outError, kUnixPrefix + inPath,
                     "the name is longer than the " + std::to_string(sizeof(address.sun_path) - 1) +
                         " bytes that the system allows");
    std::memcpy(address.sun_path, inPath.data(), inPath.size());
    std::memcpy(&outAddress.fStorage, &address, sizeof(address));
    outAddress.fSize = sizeof(address);
    return true;
}

struct HostAndPort
{
    std::string fHost; // without brackets; empty when there is none
    std::string fPort;
};

bool IsPort(const std::string& inText)
{
    return !inText.empty() && inText.size() <= 5 && inText.find_first_not_of("0123456789") == std::string::npos &&
           std::stoi(inText) <= 65535;
}

bool Split(const std::string& inAddress, HostAndPort& outParts, std::string& outError)
{
    const size_t colon = inAddress.rfind(':');
    outParts.fPort = colon == std::string::npos ? inAddress : inAddress.substr(colon + 1);
    outParts.fHost = colon == std::string::npos ? std::string() : inAddress.substr(0, colon);
    std::string& host = outParts.fHost;
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (bracketed)
        host = host.substr(1, host.size() - 2);
    if (host.find_first_of(bracketed ? "[]" : "[]:") != std::string::npos)
        return Fails(outError, inAddress, "an IPv6 address must stand in brackets, as in [::1]:4711");
    if (!IsPort(outParts.fPort))
        return Fails(outError, inAddress, "\"" + outParts.fPort + "\" is not a port from 0 to 65535");
    if (colon != std::string::npos && host.empty())
        return Fails(outError, inAddress, "there is no host before the colon");
    return true;
}

using AddressList = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

AddressList LookUp(const HostAndPort& inParts, int inFlags, std::string& outReason)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | inFlags;
    addrinfo* found = nullptr;
    const char* const host = inParts.fHost.empty() ? nullptr : inParts.fHost.c_str();
    const int error = getaddrinfo(host, inParts.fPort.c_str(), &hints, &found);
    if (error != 0)
        outReason = error == EAI_SYSTEM ? Reason(errno) : gai_strerror(error);
    return AddressList(error == 0 ? found : nullptr, [](addrinfo* list) { freeaddrinfo(list); });
}

// In the form that Connect takes.
std::string TextOf(const SystemAddress& inAddress)
{
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (inAddress.fStorage.ss_family == AF_UNIX ||
        getnameinfo(inAddress.Get(), inAddress.fSize, host, sizeof(host), port, sizeof(port),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return "a local socket";
    const bool bracketed = std::strchr(host, ':') != nullptr;
    return (bracketed ? "[" + std::string(host) + "]:" : std::string(host) + ":") + port;
}

// ---- Connecting ----------------------------------------------------------------------------------------------------

// A socket that connects to a port which is free just now may be given that port for its own end, and meet itself.
bool IsConnectedToItself(int inDescriptor)
{
    SystemAddress own;
    SystemAddress other;
    return getsockname(inDescriptor, own.Get(), &own.fSize) == 0 &&
           getpeername(inDescriptor, other.Get(), &other.fSize) == 0 && own.fStorage.ss_family != AF_UNIX &&
           own.fSize == other.fSize && std::memcmp(&own.fStorage, &other.fStorage, own.fSize) == 0;
}

// Returns 0, or an error of the system.
int ConnectTo(int inDescriptor, const sockaddr* inAddress, socklen_t inSize, const Deadline& inDeadline)
{
    constexpr int kRetryInterval = 5; // milliseconds
    while (connect(inDescriptor, inAddress, inSize) != 0)
    {
        if (errno == EAGAIN) // a Unix listener whose backlog is full: nothing tells when there is room
        {
            if (inDeadline.Left() == 0)
                return ETIMEDOUT;
            poll(nullptr, 0, kRetryInterval);
            continue;
        }
        if (errno != EINPROGRESS && errno != EINTR)
            return errno;
        if (const int error = WaitFor(inDescriptor, POLLOUT, inDeadline))
            return error;
        int error = 0;
        socklen_t size = sizeof(error);
        if (getsockopt(inDescriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
            return errno;
        if (error != 0)
            return error;
        break;
    }
    return IsConnectedToItself(inDescriptor) ? ECONNREFUSED : 0;
}

// The streams collect small writes themselves: the system need not wait for more.
void SendAtOnce(int inDescriptor)
{
    const int on = 1;
    setsockopt(inDescriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)); // a Unix socket refuses, and never waits
}

} // namespace

// ---- TNqHostSocket -------------------------------------------------------------------------------------------------

TNqHostSocket::TNqHostSocket(int inDescriptor, std::string inName, int32 inTimeout)
    : fDescriptor(inDescriptor),
      fTimeout(inTimeout),
      fName(std::move(inName))
{
}

TNqHostSocket::~TNqHostSocket()
{
    TNqHostSocket::Close();
}

bool TNqHostSocket::Make(int inDescriptor, const std::string& inName, int32 inTimeout,
                         TNqCountedPtr<TNqHostSocket>& outSocket, std::string& outError)
{
    SendAtOnce(inDescriptor);
    try
    {
        if (auto* const made = new TNqHostSocket(inDescriptor, inName, inTimeout))
        {
            outSocket = made;
            made->Release(); // the first reference, to which outSocket has added its own
            return true;
        }
    }
    catch (const TNqException&) // no memory for the count
    {
    }
    close(inDescriptor);
    return Fails(outError, inName, ENOMEM);
}

bool TNqHostSocket::Connect(const std::string& inAddress, int32 inTimeout, TNqCountedPtr<TNqHostSocket>& outSocket,
                            std::string& outError)
{
    const auto connectTo = [&](const sockaddr* address, socklen_t size, const Deadline& deadline)
    {
        Descriptor descriptor(NewSocket(address->sa_family));
        const int error = descriptor.Get() < 0 ? errno : ConnectTo(descriptor.Get(), address, size, deadline);
        if (error != 0)
            return Fails(outError, inAddress, error);
        return Make(descriptor.Take(), inAddress, inTimeout, outSocket, outError);
    };
    const Deadline deadline(inTimeout);
    std::string path;
    if (IsPath(inAddress, path))
    {
        SystemAddress address;
        return AddressOfPath(path, address, outError) && connectTo(address.Get(), address.fSize, deadline);
    }
    HostAndPort parts;
    if (!Split(inAddress, parts, outError))
        return false;
    if (parts.fHost.empty() || std::stoi(parts.fPort) == 0)
        return Fails(outError, inAddress, "is not an address to connect to, such as localhost:4711");
    const AddressList found = LookUp(parts, 0, outError);
    if (found == nullptr)
        return Fails(outError, inAddress, std::string(outError));
    int32 untried = 0;
    for (const addrinfo* each = found.get(); each != nullptr; each = each->ai_next)
        ++untried;
    // An address that does not answer leaves the others their share of the time.
    for (const addrinfo* each = found.get(); each != nullptr; each = each->ai_next, --untried)
    {
        const int32 left = deadline.Left();
        if (connectTo(each->ai_addr, each->ai_addrlen, Deadline(left < 0 ? left : left / untried)))
            return true;
    }
    return false;
}

NqErr TNqHostSocket::QueryInterface(const NqIID& iid, void** outInterface)
{
    return TNqSMPCountedObject::QueryInterface(iid, outInterface);
}

void TNqHostSocket::NoteError(int inSystemError)
{
    if (fError.empty())
        Fails(fError, fName, inSystemError);
}

int32 TNqHostSocket::Receive(int8* outBuffer, int32 inSize)
{
    const Deadline deadline(fTimeout);
    for (;;)
    {
        const ssize_t count = recv(fDescriptor, outBuffer, static_cast<size_t>(std::max(inSize, 0)), 0);
        if (count >= 0)
            return static_cast<int32>(count);
        int error = errno;
        if (MustWait(error))
            error = WaitFor(fDescriptor, POLLIN, deadline);
        if (error == 0 || error == EINTR)
            continue;
        NoteError(error);
        return -1;
    }
}

int32 TNqHostSocket::Send(const int8* inBuffer, int32 inSize)
{
    int32 sent = 0;
    Deadline deadline(fTimeout);
    while (sent < inSize)
    {
        const ssize_t count = send(fDescriptor, inBuffer + sent, static_cast<size_t>(inSize - sent), MSG_NOSIGNAL);
        if (count > 0)
        {
            sent += static_cast<int32>(count);
            deadline = Deadline(fTimeout);
            continue;
        }
        int error = errno;
        if (MustWait(error))
            error = WaitFor(fDescriptor, POLLOUT, deadline);
        if (error == 0 || error == EINTR)
            continue;
        NoteError(error);
        break;
    }
    return sent;
}

void TNqHostSocket::FinishSending()
{
    shutdown(fDescriptor, SHUT_WR); // a peer that is gone already needs not be told
}

void TNqHostSocket::Close()
{
    if (fDescriptor >= 0)
        close(std::exchange(fDescriptor, -1));
}

// ---- TNqHostListener -----------------------------------------------------------------------------------------------

namespace
{

// Whether no process has the socket with this name open. A socket of another kind is refused with the one error when
// somebody has, and with the other when nobody has: nobody gets a connection that is none.
bool IsStale(const SystemAddress& inAddress)
{
    const Descriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return probe.Get() >= 0 && connect(probe.Get(), inAddress.Get(), inAddress.fSize) != 0 && errno == ECONNREFUSED;
}

bool IsSame(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Makes the name free if a process that is gone has left it.
bool RemoveStale(const std::string& inPath, const SystemAddress& inAddress, std::string& outError)
{
    struct stat found = {};
    struct stat again = {};
    if (lstat(inPath.c_str(), &found) != 0)
        return errno == ENOENT || Fails(outError, kUnixPrefix + inPath, errno);
    if (!S_ISSOCK(found.st_mode))
        return Fails(outError, kUnixPrefix + inPath, "there is something else than a socket under this name");
    if (!IsStale(inAddress))
        return Fails(outError, kUnixPrefix + inPath, EADDRINUSE);
    if (lstat(inPath.c_str(), &again) != 0 || !IsSame(found, again) || unlink(inPath.c_str()) != 0)
        return Fails(outError, kUnixPrefix + inPath, EADDRINUSE);
    return true;
}

// The addresses to listen on, the best first.
AddressList AddressesToListenOn(const std::string& inAddress, std::string& outError)
{
    HostAndPort parts;
    AddressList none(nullptr, [](addrinfo*) {});
    if (!Split(inAddress, parts, outError))
        return none;
    if (parts.fHost.empty())
        parts.fHost = "127.0.0.1";
    if (parts.fHost == "*")
        parts.fHost = "::"; // takes IPv4 as well
    std::string reason;
    AddressList found = LookUp(parts, AI_PASSIVE, reason);
    if (found == nullptr)
        Fails(outError, inAddress, reason);
    return found;
}

// Stores a socket that listens on the address. Returns 0, or an error of the system.
int ListenOn(const sockaddr* inAddress, socklen_t inSize, int inBacklog, int& outDescriptor)
{
    Descriptor descriptor(NewSocket(inAddress->sa_family));
    const int on = 1;
    const int off = 0;
    if (descriptor.Get() < 0)
        return errno;
    // The port of a listener that has just ended is free, though the system may still wait for late packets.
    setsockopt(descriptor.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (inAddress->sa_family == AF_INET6)
        setsockopt(descriptor.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof(off));
    if (bind(descriptor.Get(), inAddress, inSize) != 0 || listen(descriptor.Get(), inBacklog) != 0)
        return errno;
    outDescriptor = descriptor.Take();
    return 0;
}

} // namespace

bool TNqHostListener::ListenOnPath(const std::string& inPath, int inBacklog, std::string& outError)
{
    SystemAddress address;
    if (!AddressOfPath(inPath, address, outError) || !RemoveStale(inPath, address, outError))
        return false;
    Descriptor descriptor(NewSocket(AF_UNIX));
    if (descriptor.Get() < 0 || bind(descriptor.Get(), address.Get(), address.fSize) != 0)
        return Fails(outError, kUnixPrefix + inPath, errno);
    struct stat made = {};
    lstat(inPath.c_str(), &made);
    fPath = inPath;
    fDevice = made.st_dev;
    fNode = made.st_ino;
    fDescriptor = descriptor.Take();
    fAddress = kUnixPrefix + inPath;
    if (listen(fDescriptor, inBacklog) == 0)
        return true;
    Fails(outError, kUnixPrefix + inPath, errno);
    Close();
    return false;
}

bool TNqHostListener::ListenOnPort(const std::string& inAddress, int inBacklog, std::string& outError)
{
    const AddressList found = AddressesToListenOn(inAddress, outError);
    int error = 0;
    for (const addrinfo* each = found.get(); each != nullptr && fDescriptor < 0; each = each->ai_next)
    {
        error = ListenOn(each->ai_addr, each->ai_addrlen, inBacklog, fDescriptor);
        if (error != 0)
            Fails(outError, inAddress, error);
    }
    if (fDescriptor < 0 && inAddress.compare(0, 2, "*:") == 0 && error != 0 && error != EADDRINUSE)
        return ListenOnPort("0.0.0.0" + inAddress.substr(1), inBacklog, outError); // a machine without IPv6
    if (fDescriptor < 0)
        return false;
    SystemAddress own;
    getsockname(fDescriptor, own.Get(), &own.fSize);
    fAddress = TextOf(own);
    return true;
}

bool TNqHostListener::Listen(const std::string& inAddress, std::string& outError, int inBacklog)
{
    Close();
    std::string path;
    return IsPath(inAddress, path) ? ListenOnPath(path, inBacklog, outError)
                                   : ListenOnPort(inAddress, inBacklog, outError);
}

bool TNqHostListener::Accept(int32 inTimeout, TNqCountedPtr<TNqHostSocket>& outSocket, std::string& outError)
{
    const Deadline deadline(inTimeout);
    for (;;)
    {
        SystemAddress peer;
        const int accepted = accept4(fDescriptor, peer.Get(), &peer.fSize, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (accepted >= 0)
            return TNqHostSocket::Make(accepted, fPath.empty() ? TextOf(peer) : fAddress, inTimeout, outSocket,
                                       outError);
        int error = errno;
        if (MustWait(error))
            error = WaitFor(fDescriptor, POLLIN, deadline);
        if (error == ETIMEDOUT)
            return Fails(outError, fAddress, "nobody has connected in time");
        if (error != 0 && error != EINTR && error != ECONNABORTED && error != EPROTO) // a peer that gave up
            return Fails(outError, fAddress.empty() ? "a listener that listens on nothing" : fAddress, error);
    }
}

// The file goes first: as long as the socket is open, no other listener takes it for stale and puts one of its own
// there.
void TNqHostListener::Close()
{
    struct stat now = {};
    if (!fPath.empty() && lstat(fPath.c_str(), &now) == 0 && now.st_dev == fDevice && now.st_ino == fNode)
        unlink(fPath.c_str());
    if (fDescriptor >= 0)
        close(std::exchange(fDescriptor, -1));
    fPath.clear();
    fAddress.clear();
}
