// Files that are replaced whole or not at all, and what becomes of temporary files when a program is killed.

#include "Tests/FailingCalls.h"
#include "Tests/TestHost.h"

#include "NqHost/PublicAPI/NqHostAtomicFile.h"
#include "NqHost/PublicAPI/NqHostFiles.h"
#include "NqHost/PublicAPI/NqHostTemporaryFiles.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace
{

class AtomicFile : public FolderTest
{
protected:
    // Each process is a program of its own: it looks for what others left. It does not outlive this one by much.
    static pid_t Start(const std::function<void()>& work)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            alarm(60);
            work();
            _exit(0);
        }
        return child;
    }
    static int End(pid_t child)
    {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    static bool Replaces(const std::string& path, const std::string& bytes)
    {
        TNqDynamicString reason;
        return NqHostReplaceFile(path.c_str(), bytes.data(), static_cast<uint32>(bytes.size()), reason) == kNqNoErr;
    }
    // In a process of its own.
    void ReplaceIn(const fs::path& folder) const
    {
        const std::string path = (folder / "made").string();
        ASSERT_EQ(End(Start([&] { _exit(Replaces(path, "x") ? 0 : 1); })), 0);
        fs::remove(path);
    }

    TTexts Names() const
    {
        TTexts names;
        for (const auto& entry : fs::directory_iterator(fFolder))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
};

} // namespace

// A program that replaces a file is killed at each call in turn. The file is always whole, and the next program removes
// what it left.
TEST_F(AtomicFile, IsWholeWhereverItsWriterIsKilled)
{
    const std::string path = Put("kept", "old");
    std::string left, kept;
    for (int call = 1, status = 1; status != 0; ++call)
    {
        Put("kept", "old");
        status = End(Start(
            [&]
            {
                KillAtCall(call);
                _exit(Replaces(path, "new") ? 0 : 1);
            }));
        ASSERT_TRUE(status == 0 || status == 1000 + SIGKILL) << call << " " << status;
        ASSERT_LT(call, 100);
        left += std::to_string(Names().size() - 1);
        kept += ReadAll(path) + ' ';
        ReplaceIn(fFolder);
        EXPECT_EQ(Names(), TTexts{"kept"}) << call;
    }
    // The file: open, write, fsync, close, fchmod, rename; the folder: open, fsync, close; close.
    EXPECT_EQ(left, "01111100000");
    EXPECT_EQ(kept, "old old old old old old new new new new new ");
}

// A temporary file is there until its writer is dead, whoever works in the same folder; and nothing else is removed
// that has such a name.
TEST_F(AtomicFile, OnlyWhatTheDeadLeftIsRemoved)
{
    std::string name;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t living = Start(
        [&]
        {
            int file = -1;
            if (NqHostMakeTemporaryFile(fFolder, 0600, name, file) != 0 ||
                write(ends[1], name.data(), name.size()) != static_cast<ssize_t>(name.size()))
                _exit(1);
            pause();
        });
    char read[1000];
    const ssize_t length = ::read(ends[0], read, sizeof(read));
    ASSERT_GT(length, 0);
    name = fs::path(std::string(read, static_cast<size_t>(length))).filename();
    for (const int end : ends)
        close(end);
    // FNV-1a of the machine's name.
    char machine[256] = {};
    gethostname(machine, sizeof(machine) - 1);
    uint32 hash = 0x811C9DC5;
    for (const char* c = machine; *c != 0; ++c)
        hash = (hash ^ static_cast<uint8>(*c)) * 0x01000193;
    std::snprintf(machine, sizeof(machine), ".nq-temporary-%08x-", hash);
    const std::string start = machine;
    ASSERT_EQ(name.substr(0, name.size() - 8), start);

    Put("file", "x");
    fs::create_symlink("file", Path(start + "00000001"s));
    fs::create_directory(Path(start + "00000002"s));
    mkfifo(Path(start + "00000003"s).c_str(), 0600);
    TTexts others = {start + "00000001"s, start + "00000002"s, start + "00000003"s};
    for (const std::string& other :
         {start + "0000000", start + "000000001", start + "0000000G"s, "x"s + start + "00000001",
          ".nq-temporary-00000000-00000001"s}) // of another machine
        others.push_back(fs::path(Put(other, "")).filename());
    const bool isRoot = geteuid() == 0;
    if (isRoot)
    {
        others.push_back(start + "00000004"s);
        ASSERT_EQ(chown(Put(others.back(), "").c_str(), 65534, 65534), 0);
    }
    Put(start + "0000000a"s, "left");

    others.push_back("file");
    TTexts withLiving = others;
    withLiving.push_back(name);
    for (TTexts* names : {&others, &withLiving})
        std::sort(names->begin(), names->end());
    ReplaceIn(fFolder);
    EXPECT_EQ(Names(), withLiving);
    kill(living, SIGKILL);
    End(living);
    EXPECT_EQ(Names(), withLiving);
    ReplaceIn(fFolder);
    EXPECT_EQ(Names(), others);
}

// Programs that start and write in one folder at the same time: none takes the file of another one for left.
TEST_F(AtomicFile, WritersInOneFolderLeaveEachOtherAlone)
{
    std::vector<pid_t> writers;
    for (int i = 0; i < 4; ++i)
        writers.push_back(Start(
            [&]
            {
                for (int round = 0; round < 25; ++round)
                {
                    const std::string path = Path("f" + std::to_string(i));
                    if (End(Start([&] { _exit(Replaces(path, std::to_string(round)) ? 0 : 1); })) != 0)
                        _exit(1);
                }
            }));
    for (const pid_t writer : writers)
        EXPECT_EQ(End(writer), 0);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(ReadAll(Path("f" + std::to_string(i))), "24");
    EXPECT_EQ(Names().size(), 4u);
}

// What a signal's handler calls removes the files of this process, and none that are its parent's or were given a name.
TEST_F(AtomicFile, HandlersRemoveWhatExists)
{
    std::string parents;
    int file = -1;
    ASSERT_EQ(NqHostMakeTemporaryFile(fFolder, 0600, parents, file), 0);
    const int status = End(Start(
        [&]
        {
            std::string ours;
            int another = -1;
            std::string reason;
            TNqHostAtomicFile done, begun;
            if (NqHostMakeTemporaryFile(fFolder, 0600, ours, another) != 0 || done.Create(Path("done"), reason) != 0 ||
                begun.Create(Path("no"), reason) != 0 || done.Write("done", 4, reason) != 0)
                _exit(1);
            const fs::path formerName = done.TemporaryPath();
            if (done.Replace(reason) != 0 || !done.TemporaryPath().empty())
                _exit(1);
            fs::create_symlink("done", formerName); // which is somebody else's now
            NqHostAddTemporaryFile(Put("added", ""));
            NqHostAddTemporaryFile(Put("kept", ""));
            NqHostKeepTemporaryFile(Path("kept"));
            NqHostRemoveTemporaryFiles();
            _exit(0);
        }));
    EXPECT_EQ(status, 0);
    TTexts names = Names();
    ASSERT_EQ(names.size(), 4u);
    EXPECT_TRUE(names[0] == fs::path(parents).filename() || names[1] == fs::path(parents).filename());
    EXPECT_EQ((TTexts{names[2], names[3]}), (TTexts{"done", "kept"}));
    NqHostRemoveTemporaryFile(parents);
    close(file);
    EXPECT_EQ(ReadAll(Path("done")), "done");
    EXPECT_EQ(Names().size(), 3u);
}

TEST_F(AtomicFile, FollowsLinksAndRefusesWhatIsNoFile)
{
    Put("file", "old");
    fs::create_directory(Path("sub"));
    fs::create_symlink("../file", Path("sub/link"));
    fs::create_symlink("sub/new", Path("dangling"));
    fs::create_symlink("dangling", Path("far"));
    fs::create_symlink("loop", Path("loop"));
    mkfifo(Path("pipe").c_str(), 0600);
    const auto all = [&]
    { return std::distance(fs::recursive_directory_iterator(fFolder), fs::recursive_directory_iterator()); };
    const auto before = all();
    const std::pair<const char*, const char*> refused[] = {
        {"sub", "is a folder"},
        {"sub/", "is a folder"},
        {"new/", "is not the name of a file"},
        {"pipe", "is not a file"},
        {"loop", "Too many levels of symbolic links"},
        {"file/x", "Not a directory"},
        {"none/x", "no new file can be made in its folder: No such file or directory"},
    };
    for (const auto& [name, why] : refused)
    {
        TNqHostAtomicFile file;
        std::string reason;
        EXPECT_EQ(file.Create(Path(name), reason), name == "none/x"s ? kNqErrFileNotFound : kNqErrInvalidData);
        EXPECT_EQ(reason, why) << name;
    }
    EXPECT_FALSE(Replaces("", "x"));
    EXPECT_EQ(all(), before);
    EXPECT_TRUE(Replaces(Path("sub/link"), "through a link"));
    EXPECT_EQ(all(), before);
    EXPECT_TRUE(Replaces(Path("far"), "through two"));
    EXPECT_EQ(ReadAll(Path("file")) + "," + ReadAll(Path("sub/new")), "through a link,through two");
    EXPECT_TRUE(fs::is_symlink(Path("sub/link")) && fs::is_symlink(Path("far")) && fs::is_symlink(Path("dangling")));
    EXPECT_EQ(all(), before + 1);
}

// The mask counts for a new file, and the old file's permissions and owner for another one.
TEST_F(AtomicFile, KeepsOwnerAndPermissions)
{
    const mode_t mask = umask(027);
    EXPECT_TRUE(Replaces(Path("new"), "x"));
    umask(mask);
    const auto status = [this](const char* name)
    {
        struct stat now = {};
        stat(Path(name).c_str(), &now);
        return now;
    };
    EXPECT_EQ(status("new").st_mode & 07777, 0640u);
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    ASSERT_EQ(chown(Path("new").c_str(), 65534, 65533), 0);
    ASSERT_EQ(chmod(Path("new").c_str(), 04751), 0);
    EXPECT_TRUE(Replaces(Path("new"), "y"));
    EXPECT_EQ(status("new").st_mode & 07777, 04751u);
    EXPECT_EQ(status("new").st_uid, 65534u);
    EXPECT_EQ(status("new").st_gid, 65533u);

    chmod(fFolder.c_str(), 0755);
    // Who may write the file, but not its folder, is told what is missing; nobody else sees a private file meanwhile.
    const int ended = End(Start(
        [&]
        {
            if (setgid(65533) != 0 || setuid(65534) != 0)
                _exit(2);
            TNqHostAtomicFile file;
            std::string reason;
            _exit(file.Create(Path("new"), reason) == kNqErrInvalidData &&
                          reason == "no new file can be made in its folder: Permission denied"
                      ? 0
                      : 1);
        }));
    EXPECT_NE(ended, 1);
    TNqHostAtomicFile file;
    std::string reason;
    ASSERT_EQ(file.Create(Path("new"), reason), kNqNoErr);
    struct stat temporary = {};
    ASSERT_EQ(stat(file.TemporaryPath().c_str(), &temporary), 0);
    EXPECT_EQ(temporary.st_mode & 07777, 0600u);
}

// Every call of the system fails in turn: each is told up to the moment in which the new name stands, unless it was
// only interrupted and can be made again.
TEST_F(AtomicFile, TellsEveryFailureBeforeTheNewNameStands)
{
    const std::string path = Put("kept", "old");
    FailCall(1000);
    ASSERT_TRUE(Replaces(path, "new"));
    const int all = CallsMade();
    FailCall(0);
    EXPECT_EQ(all, 10); // the file: open, write, fsync, close, fchmod, rename; the folder: open, fsync, close; close
    for (const auto& [error, told] : {std::pair{EIO, "1111110000"s}, {EINTR, "0000110000"s}})
    {
        std::string failed;
        for (int call = 1; call <= all; ++call)
        {
            Put("kept", "old");
            FailCall(call, error);
            const bool replaced = Replaces(path, "new");
            FailCall(0);
            failed += replaced ? '0' : '1';
            EXPECT_EQ(ReadAll(path), replaced ? "new" : "old") << call;
            EXPECT_EQ(Names(), TTexts{"kept"}) << call;
        }
        EXPECT_EQ(failed, told) << error;
    }
}

TEST_F(AtomicFile, LoadingTellsWhyNot)
{
    fs::create_directory(Path("sub"));
    mkfifo(Path("pipe").c_str(), 0600); // nobody writes to it
    Put("file", "x");
    truncate(Put("large", "").c_str(), 0x80000000);
    const std::tuple<std::string, NqErr, const char*> cases[] = {
        {"", kNqErrInvalidData, "the name of a file is empty"},
        {Path("none"), kNqErrFileNotFound, "there is no such file"},
        {Path("sub"), kNqErrInvalidData, "is a folder"},
        {Path("pipe"), kNqErrInvalidData, "is not a file"},
        {Path("file/x"), kNqErrInvalidData, "Not a directory"},
        {"/proc/self/stat", kNqErrInvalidData, "changed while it was read"},
        {Path("large"), kNqErrInvalidData, "has more than the 2147483647 bytes that can be read"},
    };
    int8* read = nullptr;
    uint32 readSize = 0;
    TNqDynamicString none;
    FailCall(1, EINTR); // what a signal interrupts is begun again
    EXPECT_EQ(NqHostLoadFile(Path("file").c_str(), read, readSize, none), kNqNoErr);
    FailCall(0);
    EXPECT_EQ(readSize, 1U);
    Nqfree(read);
    for (const auto& [path, wanted, why] : cases)
    {
        int8* bytes = nullptr;
        uint32 size = 1;
        TNqDynamicString reason;
        EXPECT_EQ(NqHostLoadFile(path.c_str(), bytes, size, reason), wanted) << path;
        EXPECT_STREQ(reason.StrGet(), why);
        EXPECT_TRUE(bytes == nullptr && size == 0);
    }
}
