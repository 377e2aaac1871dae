// Token files between two processes, and receivers whose peers mean harm.

#include "Tests/TestHost.h"

#ifdef NQTOKEN_PATH

#include "Tests/NetDoubles.h"
#include "Tools/nqtoken/Transfer.h"

#include "NqHost/PublicAPI/NqHostSockets.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace
{

const std::string kScene =
    "\xEF\xBB\xBF# $ \"\rSCEN{A $00000003\r\0\1\2$\"$\\\"\1\"\"$FFFFFFFF\r{\"#\0$B $00000000\r$C D$E 1}"s;

class TransferTest : public FolderTest
{
protected:
    // What is sent of a file.
    std::string Sent(const std::string& content, nqtoken::Outcome& outcome) const
    {
        nqtoken::FileSender sender;
        TScriptedSocket socket;
        outcome = sender.Open(Put("sent.nq", content));
        if (outcome.Ok())
            outcome = sender.Send(socket);
        return socket.AllSent();
    }
    // "" and the bytes, or what went wrong.
    static std::pair<std::string, std::string> Received(const std::string& wire, int32 block = 256)
    {
        TScriptedSocket socket(wire, block, wire.size());
        std::string bytes;
        const nqtoken::Outcome outcome = nqtoken::ReceiveFile(
            socket, 1000000, [&](std::string_view piece) { return bytes += piece, nqtoken::Outcome(); });
        TakeReports();
        EXPECT_LT(bytes.size(), 1000001U);
        return {outcome.Text(), bytes};
    }
};

} // namespace

TEST_F(TransferTest, SendsTheseBytes)
{
    nqtoken::Outcome outcome;
    EXPECT_EQ(Sent("\xEF\xBB\xBF"
                   "A $00000003\r\0\1\2$ B 1\r"s,
                   outcome),
              "XFER {\rVERS 1\rSIZE 24\rMARK 1\r}\rA $FFFFFFFF\r0000000C`03<`03<`<C304P0$ B 1\r\r"
              "DONE {\rSIZE 24\rCRCS 2602684441\r}\r");
    EXPECT_TRUE(outcome.Ok());
}

// Files of any content: what can be sent comes back as it was, in blocks of any size; what is lost or changed on the
// way never passes for a file.
TEST_F(TransferTest, ComesBackTheSameOrNotAtAll)
{
    const TTexts pieces = {"\"",           "\\",  "{", "}", "#", "$", "\r", " ", "\1", "$00000002\rab$",
                           "$FFFFFFFF\r$", "\0"s, "0"};
    TRandom random(46);
    int sent = 0;
    for (int round = 0; round < 3000; ++round)
    {
        const std::string content = round == 0 ? kScene : Mutated(kScene, pieces, random);
        nqtoken::Outcome outcome;
        const std::string wire = Sent(content, outcome);
        EXPECT_TRUE(outcome.Ok() || outcome.Status() == nqtoken::kAtFault) << outcome.Text();
        if (!outcome.Ok())
            continue;
        ++sent;
        ASSERT_EQ(wire.find('\0'), std::string::npos);
        ASSERT_EQ(Received(wire, 1 + random.Below(300)), std::pair(""s, content)) << round;
        const std::string damaged = Mutated(wire, pieces, random);
        const auto [fault, bytes] = Received(damaged);
        ASSERT_TRUE(fault != "" || bytes == content) << damaged;
        for (size_t size = 0; size < (round == 0 ? wire.size() - 2 : 0); ++size)
            ASSERT_NE(Received(wire.substr(0, size)).first, "") << size;
    }
    EXPECT_GT(sent, 600);
}

TEST_F(TransferTest, TellsWhatIsWrong)
{
    const std::string head = "XFER {\rVERS 1\rSIZE 20\rMARK 0\r}\r";
    const std::pair<std::string, std::string> cases[] = {
        {"XFER", "the connection ended before a scene was announced"},
        {"GET / HTTP/1.1\r\n\r\n", "what came is no transfer of a scene"},
        {std::string(100000, 'x'), "far more data came than was announced"},
        {std::string(100000, ' '), "far more data came than was announced"},
        {"XFER {\rVERS 2\r", "the transfer has version 2, and only 1 is known here"},
        {"XFER {\rVERS 1\rSIZE -2\rMARK 0\r}\r", "the header of the transfer is damaged"},
        {"XFER {\rVERS 1\rSIZE 2\rMARK 1\r}\r", "the header of the transfer is damaged"},
        {"XFER {\rVERS 1\rSIZE 1000001\rMARK 0\r}\r", "the scene has 1000001 bytes, more than the 1000000 allowed"},
        {head + "A 1\r", "the connection ended after 4 of 20 bytes"},
        {head + "A \0"s, "what came is damaged: there is a zero byte in it"},
        {head + "A $00000001\rx$", "what came is damaged: a payload is not in six-bit text"},
        {head + "A $FFFFFFFF\r0000000C`03{", "what came is damaged: a payload in it is malformed"},
        {head + "A $FFFFFFFF\r00000FFF`03{", "more came than was announced"},
        {head + "A $FFFFFFFF\r0000000C`03<" + std::string(100000, ' '), "far more data came than was announced"},
        {head + std::string(20, ' '), "the connection ended without the closing marker"},
        {head + std::string(20, ' ') + "\rDONE {\rSIZE 21\rCRCS 1\r}", "more came than was announced"},
        {head + std::string(20, ' ') + "\rDONE {\rSIZE 20\rCRCS 1\r}", "what came is damaged: the checksum differs"},
    };
    for (const auto& [wire, fault] : cases)
        EXPECT_EQ(Received(wire, 50).first, fault) << wire.substr(0, 80);
    nqtoken::Outcome sent;
    const std::string whole = Sent(kScene, sent);
    for (int bad = 1;; ++bad)
    {
        TScriptedSocket socket(whole, 5, bad);
        socket.fBadReceive = bad;
        const nqtoken::Outcome outcome =
            nqtoken::ReceiveFile(socket, 1000000, [](std::string_view) { return nqtoken::Outcome(); });
        TakeReports();
        if (socket.fReceives < bad)
            break;
        EXPECT_EQ(outcome.Text().substr(0, 24), "the connection broke off") << outcome.Text();
    }
    const std::pair<std::string, std::string> files[] = {
        {"A 1\rB \0"s, ":2:3: a zero byte outside of a payload cannot be sent (0x80010024)"},
        {"A \"x", ":1:3: a string without its closing quote cannot be sent (0x80010027)"},
        {"A $00000005\rx$", ":1:3: a payload that is not all there cannot be sent (0x80010027)"},
    };
    for (const auto& [content, fault] : files)
    {
        nqtoken::Outcome outcome;
        EXPECT_EQ(Sent(content, outcome), "");
        EXPECT_EQ(outcome.Text(), Path("sent.nq") + fault);
    }
}

// ---- Two processes -------------------------------------------------------------------------------------------------

namespace
{

// The tool in a process of its own, with both outputs in one pipe.
class TTool
{
public:
    explicit TTool(std::vector<std::string> arguments)
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        fChild = fork();
        if (fChild == 0)
        {
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            std::vector<char*> pointers = {const_cast<char*>("nqtoken")};
            for (std::string& argument : arguments)
                pointers.push_back(argument.data());
            pointers.push_back(nullptr);
            execv(NQTOKEN_PATH, pointers.data());
            _exit(98);
        }
        close(ends[1]);
        fOutput = fdopen(ends[0], "r");
    }
    ~TTool() { fclose(fOutput); }
    TTool(const TTool&) = delete;
    TTool& operator=(const TTool&) = delete;

    std::string Line()
    {
        char line[1000] = {};
        return fgets(line, sizeof line, fOutput) != nullptr ? line : "";
    }
    // The address that a receiver prints.
    std::string Address()
    {
        const std::string line = Line();
        EXPECT_EQ(line.substr(0, 13), "listening on ") << line;
        return line.substr(13, line.size() - 14);
    }
    // The rest of its output, and "0", or what its status was.
    std::string End()
    {
        std::string text;
        for (std::string line = Line(); !line.empty(); line = Line())
            text += line;
        int status = 0;
        waitpid(fChild, &status, 0);
        return text + (WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "a signal");
    }

private:
    pid_t fChild;
    FILE* fOutput;
};

} // namespace

TEST_F(TransferTest, AFileTravelsBetweenTwoProcesses)
{
    std::string large = "DATA $00100000\r" + std::string(0x100000, '\0') + "$\r";
    for (int i = 0; i < 20000; ++i)
        large += "NAME \"node " + std::to_string(i) + "\"\r";
    const std::pair<std::string, std::string> exchanges[] = {
        {kScene, "0"}, {kScene, "localhost:0"}, {large, "unix:" + Path("s")}, {"", "0"}};
    for (const auto& [content, address] : exchanges)
    {
        TTool receiver({"receive", address, "-o", Path("come.nq")});
        TTool sender({"send", receiver.Address(), Put("sent.nq", content)});
        EXPECT_EQ(sender.End(), "0");
        EXPECT_EQ(receiver.End(), "0");
        EXPECT_TRUE(ReadAll(Path("come.nq")) == content) << address;
        EXPECT_EQ(std::distance(fs::directory_iterator(fFolder), {}), 2); // no socket, no temporary file
    }
    TTool receiver({"receive", "0", "-o", Path("come.nq"), "--max-size", "1MB"});
    TTool sender({"send", receiver.Address(), Put("sent.nq", large)});
    const std::string why =
        "the scene has " + std::to_string(large.size()) + " bytes, more than the 1048576 allowed\n1";
    EXPECT_EQ(receiver.End(), "nqtoken: " + why);
    EXPECT_EQ(sender.End(), "nqtoken: the receiver has refused it: " + why);
    EXPECT_EQ(TTool({"receive", "localhost:0", "--any", "-o", Path("x")}).End(),
              "nqtoken: --any goes with a port, not with an address\n2");
    EXPECT_EQ(TTool({"receive", "0", "--timeout", "0.05", "-o", Path("x")}).End().substr(0, 13), "listening on ");
}

TEST_F(TransferTest, APeerThatMisbehavesLeavesTheTargetAlone)
{
    nqtoken::Outcome outcome;
    const std::string wire = Sent(kScene, outcome);
    const std::string half = wire.substr(0, wire.size() / 2);
    using TSocket = TNqCountedPtr<TNqHostSocket>;
    const auto send = [](const std::string& bytes)
    { return [bytes](TSocket& peer) { peer->Send(bytes.data(), static_cast<int32>(bytes.size())); }; };
    const auto slowly = [&wire](TSocket& peer)
    {
        for (const char c : wire.substr(0, wire.size() - 3))
            peer->Send(&c, 1);
        const std::string rest = wire.substr(wire.size() - 3) + std::string(300, ' ');
        peer->Send(rest.data(), static_cast<int32>(rest.size()));
        peer->FinishSending();
        int8 answer[100];
        int32 count = 1;
        while (count > 0)
            count = peer->Receive(answer, 100);
        EXPECT_EQ(count, 0) << peer->Error(); // what nobody reads does not reset the connection
    };
    const std::pair<std::function<void(TSocket&)>, std::string> cases[] = {
        {slowly, "0"},
        {send(half), "after"}, // and waits
        {send(half), "the connection ended after"},
        {send(std::string(100, '\0')), "no transfer"},
        {send(std::string(8 << 20, ' ')), "far more data"},
        {send(""), "before a scene was announced"},
    };
    for (const auto& [behave, part] : cases)
    {
        Put("come.nq", "kept");
        const std::string timeout = part == "after" ? "0.2" : "20";
        TTool receiver({"receive", "unix:" + Path("s"), "-o", Path("come.nq"), "--timeout", timeout});
        TSocket peer;
        std::string error;
        ASSERT_TRUE(TNqHostSocket::Connect(receiver.Address(), 5000, peer, error)) << error;
        behave(peer);
        if (part != "after")
            peer->Close();
        const std::string end = receiver.End();
        EXPECT_NE(end.find(part), std::string::npos) << end;
        EXPECT_EQ(end.back(), part == "0" ? '0' : '1') << end;
        EXPECT_TRUE(ReadAll(Path("come.nq")) == (part == "0" ? kScene : "kept"));
        EXPECT_EQ(std::distance(fs::directory_iterator(fFolder), {}), 2);
    }
    // And the other way round: a receiver that takes all and says nothing, one that goes, and one that confirms what it
    // has not read.
    TNqHostListener listener;
    std::string error;
    const std::string small = Path("sent.nq");
    const std::string large = Put("large.nq", std::string(20 << 20, ' '));
    for (const auto& [file, reply, stays] :
         {std::tuple(small, "", true), {small, "", false}, {large, "DONE {}", false}})
    {
        ASSERT_TRUE(listener.Listen("0", error));
        TTool sender({"send", listener.Address(), file, "--timeout", "0.2"});
        TSocket peer;
        ASSERT_TRUE(listener.Accept(5000, peer, error));
        send(reply)(peer);
        if (!stays)
            peer->Close();
        const std::string end = sender.End();
        EXPECT_EQ(end.substr(0, 9) + end.back(), "nqtoken: 1") << end;
    }
    const std::string gone = listener.Address();
    listener.Close();
    EXPECT_EQ(TTool({"send", gone, Path("sent.nq")}).End(), "nqtoken: " + gone + ": Connection refused\n2");
}

#endif
