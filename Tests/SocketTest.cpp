// The host's sockets against real peers on this machine.

#include "NqHost/PublicAPI/NqHostSockets.h"
#include "Tests/TestHost.h"

#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <set>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

using TSocket = TNqCountedPtr<TNqHostSocket>;

std::set<int> SocketDescriptors()
{
    std::set<int> found;
    for (int descriptor = 3; descriptor < 256; ++descriptor)
    {
        int type = 0;
        socklen_t size = sizeof(type);
        if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0)
            found.insert(descriptor);
    }
    return found;
}

class SocketTest : public FolderTest
{
protected:
    // Two ends of a connection over the listener's address.
    void Join(TSocket& a, TSocket& b, int32 timeout)
    {
        ASSERT_TRUE(TNqHostSocket::Connect(fListener.Address(), timeout, a, fError)) << fError;
        ASSERT_TRUE(fListener.Accept(timeout, b, fError)) << fError;
    }
    void Pair(const std::string& address, TSocket& a, TSocket& b, int32 timeout = 5000)
    {
        ASSERT_TRUE(fListener.Listen(address, fError)) << fError;
        Join(a, b, timeout);
    }
    bool HasIPv6() { return fListener.Listen("[::1]:0", fError); }

    void ExpectError(const std::string& part) const
    {
        EXPECT_NE(fError.find(part), std::string::npos) << fError << " lacks " << part;
    }

    const std::set<int> fDescriptorsBefore = SocketDescriptors();
    TNqHostListener fListener;
    std::string fError;
};

// Interrupts system calls all the time.
class Interruptions
{
public:
    Interruptions()
    {
        Set([](int) {}, 200);
    }
    ~Interruptions() { Set(SIG_IGN, 0); }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

private:
    static void Set(void (*handler)(int), int microseconds)
    {
        struct sigaction action = {};
        action.sa_handler = handler; // without SA_RESTART
        sigaction(SIGALRM, &action, nullptr);
        const itimerval timer = {{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
};

std::string AsLongAs(const std::string& pattern, size_t size)
{
    std::string bytes;
    while (bytes.size() < size)
        bytes += pattern;
    return bytes.substr(0, size);
}

} // namespace

// More than the system's buffers hold, in both directions at once, in pieces of all sizes and through signals.
TEST_F(SocketTest, CarriesEveryByteBothWays)
{
    std::vector<std::string> addresses = {"0", "localhost:0", "*:0", "unix:" + Path("s")};
    if (HasIPv6())
        addresses.emplace_back("[::1]:0");
    for (const std::string& address : addresses)
    {
        SCOPED_TRACE(address);
        TSocket ends[2];
        if (address[0] == '*')
        {
            ASSERT_TRUE(fListener.Listen(address, fError)) << fError;
            const std::string port = fListener.Address().substr(fListener.Address().rfind(':'));
            ASSERT_TRUE(TNqHostSocket::Connect("127.0.0.1" + port, 5000, ends[0], fError)) << fError;
            ASSERT_TRUE(fListener.Accept(5000, ends[1], fError)) << fError;
        }
        else
            Pair(address, ends[0], ends[1]);
        const std::string bytes[2] = {AsLongAs("the one way ", 3 << 20), AsLongAs("and the other", 2 << 20)};
        std::string came[2];
        const Interruptions interruptions;
        OnThreads(4,
                  [&](int i)
                  {
                      TRandom random(i);
                      const int end = i / 2;
                      if (i % 2 == 0)
                      {
                          for (size_t at = 0; at < bytes[end].size();)
                          {
                              const std::string piece = bytes[end].substr(at, 1 + random() % 100000);
                              const int32 size = static_cast<int32>(piece.size());
                              ASSERT_EQ(ends[end]->Send(piece.data(), size), size) << ends[end]->Error();
                              at += piece.size();
                          }
                          ends[end]->FinishSending();
                          return;
                      }
                      std::vector<int8> buffer(100000);
                      for (int32 count = 1; count > 0; came[end].append(buffer.data(), static_cast<size_t>(count)))
                          count = ends[end]->Receive(buffer.data(), 1 + random.Below(100000));
                  });
        EXPECT_TRUE(came[0] == bytes[1] && came[1] == bytes[0]);
        EXPECT_EQ(ends[0]->Error() + ends[1]->Error(), "");
    }
}

TEST_F(SocketTest, NothingWaitsLongerThanItsTimeOut)
{
    for (const std::string& address : {std::string("0"), "unix:" + Path("s")})
    {
        TSocket a;
        TSocket b;
        Pair(address, a, b, 40);
        int8 bytes[4];
        EXPECT_EQ(a->Receive(bytes, 4), -1);
        EXPECT_NE(a->Error().find("timed out"), std::string::npos) << a->Error();
        const std::string much(16 << 20, 'x'); // more than goes into the buffers between two processes
        const int32 sent = b->Send(much.data(), static_cast<int32>(much.size()));
        EXPECT_TRUE(sent > 0 && sent < static_cast<int32>(much.size())) << sent;
        EXPECT_NE(b->Error().find("timed out"), std::string::npos) << b->Error();
        EXPECT_EQ(a->Receive(bytes, 4), 4); // what was sent has come
        TSocket none;
        EXPECT_FALSE(fListener.Accept(40, none, fError));
        EXPECT_EQ(fError, fListener.Address() + ": nobody has connected in time");
    }
}

// A listener that accepts nobody lets few connections wait.
TEST_F(SocketTest, ConnectingToABusyListenerTimesOut)
{
    for (const std::string& address : {std::string("0"), "unix:" + Path("s")})
    {
        ASSERT_TRUE(fListener.Listen(address, fError, 0)) << fError;
        std::vector<TSocket> waiting(10);
        size_t connected = 0;
        while (connected < waiting.size() &&
               TNqHostSocket::Connect(fListener.Address(), 100, waiting[connected], fError))
            ++connected;
        ASSERT_LT(connected, waiting.size());
        EXPECT_EQ(fError, fListener.Address() + ": Connection timed out");
    }
}

TEST_F(SocketTest, APeerThatVanishesIsNoticed)
{
    for (const std::string& address : {std::string("0"), "unix:" + Path("s")})
    {
        SCOPED_TRACE(address);
        TSocket a;
        TSocket b;
        int8 bytes[4];
        const std::string block(1000, 'x');
        Pair(address, a, b);
        b->Close();
        EXPECT_EQ(a->Receive(bytes, 4), 0);
        EXPECT_EQ(a->Error(), "");
        int32 sent = 1000;
        for (int i = 0; i < 100 && sent == 1000; ++i) // no signal ends the test
            sent = a->Send(block.data(), 1000);
        EXPECT_LT(sent, 1000);
        EXPECT_NE(a->Error().find(": "), std::string::npos);
        EXPECT_EQ(b->Receive(bytes, 4), -1);
        EXPECT_EQ(b->Send(bytes, 4), 0);

        Join(a, b, 5000);
        ASSERT_EQ(a->Send("unread", 6), 6);
        b->Close(); // resets the connection
        EXPECT_EQ(a->Receive(bytes, 4), -1);
        EXPECT_NE(a->Error().find("reset"), std::string::npos) << a->Error();
    }
}

TEST_F(SocketTest, TellsWhatIsWrongWithAnAddress)
{
    ASSERT_TRUE(fListener.Listen("0", fError));
    const std::string used = fListener.Address();
    TNqHostListener second;
    EXPECT_FALSE(second.Listen(used, fError));
    EXPECT_EQ(fError, used + ": Address already in use");
    fListener.Close();
    EXPECT_EQ(fListener.Address(), "");
    EXPECT_TRUE(second.Listen(used, fError)) << fError;
    second.Close();
    TSocket socket;
    EXPECT_FALSE(TNqHostSocket::Connect(used, 1000, socket, fError));
    EXPECT_EQ(fError, used + ": Connection refused");
    EXPECT_FALSE(second.Accept(1, socket, fError));

    const std::string path = "unix:" + Path("");
    const std::pair<std::string, std::string> cases[] = {
        {"", "\"\" is not a port"},
        {"host", "\"host\" is not a port"},
        {"host:", "\"\" is not a port"},
        {"127.0.0.1:65536", "\"65536\" is not a port"},
        {"127.0.0.1:-1", "\"-1\" is not a port"},
        {"127.0.0.1:99999999999", "is not a port"},
        {":80", "no host before the colon"},
        {"::1:80", "must stand in brackets"},
        {"[::1:80", "must stand in brackets"},
        {"[localhost]]:80", "must stand in brackets"},
        {std::string(70, 'x') + ":1", ":1: "}, // no name of a host is as long
        {"unix:", "is not the name of a file"},
        {path + std::string(120, 'x'), "longer than the 107 bytes"},
        {path + "missing/socket", "No such file"},
    };
    for (const auto& [address, error] : cases)
    {
        EXPECT_FALSE(TNqHostSocket::Connect(address, 1000, socket, fError));
        ExpectError(error);
        EXPECT_FALSE(fListener.Listen(address, fError));
        ExpectError(error);
    }
    for (const char* address : {"80", "127.0.0.1:0"})
    {
        EXPECT_FALSE(TNqHostSocket::Connect(address, 1000, socket, fError));
        ExpectError("not an address to connect to");
    }
    EXPECT_EQ(SocketDescriptors(), fDescriptorsBefore);
}

TEST_F(SocketTest, UnixSocketsLeaveNoFileAndTakeNoOther)
{
    const std::string path = Path("s");
    const std::string address = "unix:" + path;
    TNqHostListener second;
    TSocket a;
    TSocket b;
    ASSERT_TRUE(fListener.Listen(address, fError)) << fError;
    EXPECT_FALSE(second.Listen(address, fError)); // in use, and not disturbed by the question
    EXPECT_EQ(fError, address + ": Address already in use");
    Join(a, b, 1000);
    fs::rename(path, Path("moved"));
    ASSERT_TRUE(second.Listen(address, fError)) << fError;
    fListener.Close(); // the file under its name is another's
    EXPECT_TRUE(fs::is_socket(path));
    second.Close();
    EXPECT_FALSE(fs::exists(path));

    fs::rename(Path("moved"), path); // nobody listens on it any more
    EXPECT_FALSE(TNqHostSocket::Connect(address, 1000, a, fError));
    ASSERT_TRUE(fListener.Listen(address, fError)) << fError;
    Join(a, b, 1000);
    fListener.Close();
    EXPECT_TRUE(fs::is_empty(fFolder));

    Put("s", "a file");
    EXPECT_FALSE(fListener.Listen(address, fError));
    ExpectError("something else than a socket");
    fs::create_symlink("s", Path("link"));
    EXPECT_FALSE(fListener.Listen("unix:" + Path("link"), fError));
    EXPECT_EQ(ReadAll(path), "a file");
}

TEST_F(SocketTest, DescriptorsStayInThisProcessAndAreNotLost)
{
    const std::string address = "unix:" + Path("s");
    for (const std::string& each : {std::string("0"), address})
    {
        TSocket a;
        TSocket b;
        Pair(each, a, b);
        EXPECT_EQ(SocketDescriptors().size(), fDescriptorsBefore.size() + 3);
        int sendAtOnce = 0;
        for (const int descriptor : SocketDescriptors())
        {
            EXPECT_TRUE(fDescriptorsBefore.count(descriptor) > 0 || (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0);
            int on = 0;
            socklen_t size = sizeof(on);
            getsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, &size);
            sendAtOnce += on != 0 ? 1 : 0;
        }
        EXPECT_EQ(sendAtOnce, each == "0" ? 2 : 0); // both ends
    }
    ForEachFailingAllocation(
        [&](int64)
        {
            TSocket a;
            TSocket b;
            if (TNqHostSocket::Connect(address, 1000, a, fError))
                fListener.Accept(1000, b, fError);
            else
                ExpectError("Cannot allocate memory");
            TSocket taken; // so that nobody waits
            while (fListener.Accept(0, taken, fError))
                taken->Close();
        });
    fListener.Close();
    EXPECT_EQ(SocketDescriptors(), fDescriptorsBefore);
}
