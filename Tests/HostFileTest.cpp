#include "NqCore/PublicAPI/INqFile.h"
#include "NqCore/PublicAPI/ITranscoder.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqCore/PublicAPI/NqString.h"
#include "Tests/FailingCalls.h"
#include "Tests/TestHost.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

namespace fs = std::filesystem;

namespace
{

constexpr uint32 kLargest = 0x7FFFFFFF;

TNqCountedPtr<INqFile> NewUnnamedFile()
{
    TNqCountedPtr<INqUnknown> object;
    TNqCountedPtr<INqFile> file;
    gFileUtilities->CreateFileObject(&object);
    if (!!object)
        object->QueryInterface(IID_INqFile, reinterpret_cast<void**>(&file));
    return file;
}

TNqCountedPtr<INqFile> NewFile(const std::string& path, int32 permission)
{
    TNqCountedPtr<INqFile> file = NewUnnamedFile();
    EXPECT_EQ(file->SetFileName(TNqDynamicString(path.c_str()), 0), kNqNoErr);
    EXPECT_EQ(file->SetPermission(permission), kNqNoErr);
    return file;
}

std::string FullPath(INqFile& file)
{
    TNqDynamicString path;
    file.GetFullPath(path);
    return {path.StrGet(), path.ByteLength()};
}

std::vector<int> OpenDescriptors()
{
    std::vector<int> open;
    for (int i = 0; i < 1024; ++i)
        if (fcntl(i, F_GETFD) >= 0)
            open.push_back(i);
    return open;
}

using HostFile = FolderTest;

} // namespace

// Random operations against a string and a position.
TEST_F(HostFile, BehavesLikeAStringWithAPosition)
{
    const std::vector<int> before = OpenDescriptors();
    TRandom random(42);
    const auto upTo = [&](uint32 limit) { return static_cast<uint32>(random() % (limit + 1)); };
    std::string model = "first content";
    const std::string path = Put("model", model);
    TNqCountedPtr<INqFile> file = NewFile(path, eReadWrite);
    ASSERT_EQ(file->Open(), kNqNoErr);
    uint32 position = 0;
    for (int step = 0; step < 20000; ++step)
    {
        SCOPED_TRACE(step);
        int8 bytes[64];
        uint32 done = 99;
        const uint32 count = upTo(sizeof bytes);
        const uint32 kind = upTo(7);
        if (kind < 2)
        {
            const std::string wanted = position < model.size() ? model.substr(position, count) : "";
            ASSERT_EQ(file->Read(bytes, count, &done), wanted.size() == count ? kNqNoErr : kNqErrEndOfFile);
            ASSERT_EQ(std::string(bytes, done), wanted);
            position += done;
        }
        else if (kind < 4)
        {
            std::generate_n(bytes, count, [&] { return static_cast<int8>(random()); });
            ASSERT_EQ(file->Write(bytes, count, &done), kNqNoErr);
            ASSERT_EQ(done, count);
            model.resize(std::max<size_t>(model.size(), count > 0 ? position + count : 0));
            model.replace(std::min<size_t>(position, model.size()), count, bytes, count);
            position += count;
        }
        else if (kind < 6)
        {
            const auto from = static_cast<TNqiostream::seek_dir>(upTo(2));
            const int32 offset = random.Below(401) - 200;
            const int64 start = from == TNqiostream::beg ? 0 : from == TNqiostream::cur ? position : model.size();
            ASSERT_EQ(file->SetPosition(offset, from), start + offset < 0 ? kNqErrInvalidData : kNqNoErr);
            position = start + offset < 0 ? position : static_cast<uint32>(start + offset);
        }
        else if (kind == 6)
        {
            model.resize(upTo(300));
            ASSERT_EQ(file->SetSize(static_cast<uint32>(model.size())), kNqNoErr);
        }
        else if (upTo(10) == 0)
        {
            ASSERT_EQ(file->Close(), kNqNoErr);
            ASSERT_EQ(file->Close(), kNqNoErr);
            ASSERT_LT(file->GetPosition(&done), 0);
            ASSERT_EQ(ReadAll(path), model);
            ASSERT_EQ(file->Open(), kNqNoErr);
            position = 0;
        }
        uint32 size = 0;
        uint32 where = 0;
        ASSERT_EQ(file->GetSize(&size), kNqNoErr);
        ASSERT_EQ(file->GetPosition(&where), kNqNoErr);
        ASSERT_EQ(size, model.size());
        ASSERT_EQ(where, position);
    }
    const std::vector<int> during = OpenDescriptors();
    ASSERT_EQ(during.size(), before.size() + 1);
    for (int descriptor : during)
    {
        if (std::count(before.begin(), before.end(), descriptor) > 0)
            continue;
        EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << "children would inherit the file";
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0) << "writes to a slow device would fail";
    }
    file = nullptr;
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(HostFile, OpenTellsWhyNot)
{
    struct TCase
    {
        const char* fName;
        int32 fPermission;
        bool fExists;
        NqErr fResult;
        std::function<void(const std::string&)> fPrepare;
    };
    const auto nothing = [](const std::string&) {};
    const auto folder = [](const std::string& path) { fs::create_directory(path); };
    const auto pipe = [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0666), 0); };
    const auto sized = [this](uintmax_t size)
    { return [=](const std::string& path) { fs::resize_file(Put(fs::path(path).filename(), ""), size); }; };
    const auto closed = [this](const std::string&)
    {
        fs::create_directory(Path("closed"));
        fs::permissions(Path("closed"), fs::perms::none);
    };
    const auto locked = [this](const std::string&) { fs::permissions(Put("locked", ""), fs::perms::none); };
    const TCase cases[] = {
        {"missing", eRead, false, kNqErrFileNotFound, nothing},
        {"missing/below", eReadWrite, false, kNqErrFileNotFound, nothing},
        {"plain/below", eRead, false, kNqErrFileNotFound, [this](const std::string&) { Put("plain", ""); }},
        {"folder", eRead, true, kNqErrInvalidData, folder},
        {"pipe for writing", eWrite, true, kNqErrInvalidData, pipe},
        {"/dev/zero", eRead, true, kNqErrInvalidData, nothing},
        {"locked", eRead, true, kNqErrInvalidData, locked},
        {"closed/file", eRead, true, kNqErrInvalidData, closed},
        {"no access asked", eAlways, true, kNqErrInvalidData, sized(0)},
        {"one byte too large", eReadWrite, true, kNqErrInvalidData, sized(uintmax_t{kLargest} + 1)},
        {"4 GiB and one byte", eRead, true, kNqErrInvalidData, sized((uintmax_t{1} << 32) + 1)},
        {"largest", eRead, true, kNqNoErr, sized(kLargest)},
        {"/dev/full", eWrite, true, kNqNoErr, nothing},
    };
    const bool isRoot = geteuid() == 0;
    fs::permissions(fFolder, fs::perms::all);
    for (const TCase& test : cases)
    {
        SCOPED_TRACE(test.fName);
        const std::string path = Path(test.fName);
        test.fPrepare(path);
        TNqCountedPtr<INqFile> file = NewFile(path, test.fPermission);
        ASSERT_TRUE(!isRoot || seteuid(65534) == 0);  // nothing is locked for root
        EXPECT_EQ(file->Exists() != 0, test.fExists); // also where nobody may look
        EXPECT_EQ(file->Open(), test.fResult);
        ASSERT_TRUE(!isRoot || seteuid(0) == 0);
        uint32 done = 99;
        const bool open = test.fResult == kNqNoErr;
        EXPECT_EQ(open ? file->Open() : file->Read(nullptr, 1, &done), open ? kNqErrInvalidData : kNqErrFormat);
    }
    fs::permissions(Path("closed"), fs::perms::owner_all);
}

TEST_F(HostFile, PositionsNeverWrapAndFailedWritesTellWhatWasDone)
{
    const std::string path = Put("large", "");
    TNqCountedPtr<INqFile> file = NewFile(path, eReadWrite);
    ASSERT_EQ(file->Open(), kNqNoErr);
    uint32 value = 0;
    EXPECT_EQ(file->SetSize(0x80000000U), kNqErrInvalidData);
    EXPECT_EQ(file->SetPosition(0x7FFFFFFC, TNqiostream::beg), kNqNoErr);
    EXPECT_EQ(file->SetPosition(4, TNqiostream::cur), kNqErrInvalidData);
    EXPECT_EQ(file->Write("12345", 0xFFFFFFFFU, &value), kNqErrInvalidData);
    EXPECT_EQ(file->Write("1234", 4, &value), kNqErrInvalidData);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(file->GetSize(&value), kNqNoErr);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(file->Write("123", 3, &value), kNqNoErr);
    EXPECT_EQ(file->GetSize(&value), kNqNoErr);
    EXPECT_EQ(value, kLargest);
    EXPECT_EQ(file->SetPosition(1, TNqiostream::end), kNqErrInvalidData);
    EXPECT_EQ(file->SetPosition(0, static_cast<TNqiostream::seek_dir>(3)), kNqErrInvalidData);
    int8 bytes[8];
    EXPECT_EQ(file->SetPosition(-2, TNqiostream::end), kNqNoErr);
    EXPECT_EQ(file->Read(bytes, 0xFFFFFFFFU, &value), kNqErrEndOfFile);
    EXPECT_EQ(std::string(bytes, value), "23");

    // The file may grow to 10 bytes: the first system call writes part, the second one fails.
    ASSERT_EQ(file->SetSize(0), kNqNoErr);
    ASSERT_EQ(file->SetPosition(0, TNqiostream::beg), kNqNoErr);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit oldLimit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &oldLimit), 0);
    const rlimit limit = {10, oldLimit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(file->Write("0123456789abcdef", 16, &value), kNqErrInvalidData);
    EXPECT_EQ(value, 10U);
    EXPECT_EQ(file->SetSize(11), kNqErrInvalidData);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &oldLimit), 0);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(file->Write("abc", 3, nullptr), kNqNoErr);
    EXPECT_EQ(ReadAll(path), "0123456789abc");

    TNqCountedPtr<INqFile> full = NewFile("/dev/full", eWrite);
    ASSERT_EQ(full->Open(), kNqNoErr);
    EXPECT_EQ(full->SetSize(0), kNqNoErr);
    EXPECT_EQ(full->Write("x", 1, &value), kNqErrInvalidData);
    EXPECT_EQ(value, 0U);
    TNqCountedPtr<INqFile> readOnly = NewFile(path, eRead);
    ASSERT_EQ(readOnly->Open(), kNqNoErr);
    EXPECT_EQ(readOnly->Write("x", 1, &value), kNqErrInvalidData);
    EXPECT_EQ(readOnly->SetSize(1), kNqErrInvalidData);
}

TEST_F(HostFile, CreateMakesAnEmptyFileAndSparesOneThatIsThere)
{
    TNqCountedPtr<INqFile> file = NewFile(Path("new"), eReadWrite);
    EXPECT_EQ(file->Create(), kNqNoErr);
    EXPECT_TRUE(file->Exists());
    uint32 size = 9;
    EXPECT_EQ(file->GetSize(&size), kNqNoErr);
    EXPECT_EQ(size, 0U);
    const std::string old = Put("old", "kept");
    EXPECT_EQ(NewFile(old, eReadWrite)->Create(), kNqErrInvalidData);
    EXPECT_EQ(NewFile(old, eWrite)->Open(), kNqNoErr);
    EXPECT_EQ(ReadAll(old), "kept");
    EXPECT_EQ(NewFile(Path("no folder/new"), eReadWrite)->Create(), kNqErrFileNotFound);
    // A file is closed whatever the system says; what a signal interrupts has not failed.
    for (const int error : {EIO, EINTR})
    {
        const std::vector<int> before = OpenDescriptors();
        file = NewFile(old, eWrite);
        ASSERT_EQ(file->Open(), kNqNoErr);
        FailCall(1, error);
        EXPECT_EQ(file->Close(), error == EINTR ? kNqNoErr : kNqErrInvalidData);
        FailCall(0);
        EXPECT_EQ(OpenDescriptors(), before);
    }
}

TEST_F(HostFile, NamesBecomeAbsoluteAndAreCopiedWithTheirPermission)
{
    const fs::path old = fs::current_path();
    fs::current_path(fFolder);
    const std::string here = fs::current_path().string();
    Put("scene.nq", "content");
    TNqCountedPtr<INqFile> file = NewFile("scene.nq", eReadWrite | kNqModeNoCreate);
    EXPECT_EQ(FullPath(*file), here + "/scene.nq");
    TNqString255 folder;
    file->GetPathRelativeFolder(folder);
    EXPECT_EQ(std::string(folder.StrGet()), here + "/");
    TNqCountedPtr<INqFile> copy = NewFile("other", eRead);
    EXPECT_EQ(copy->CopyFrom(*file), kNqNoErr);
    fs::current_path("/");
    EXPECT_EQ(FullPath(*file), "/scene.nq");
    fs::current_path(old);
    EXPECT_EQ(FullPath(*copy), here + "/scene.nq");
    int32 permission = 0;
    EXPECT_EQ(copy->GetPermission(&permission), kNqNoErr);
    EXPECT_EQ(permission, eReadWrite | kNqModeNoCreate);
    EXPECT_EQ(copy->Open(), kNqNoErr);
    EXPECT_EQ(copy->CopyFrom(*copy), kNqNoErr); // closed again
    EXPECT_EQ(copy->Open(), kNqNoErr);

    EXPECT_EQ(copy->CopyFrom(*NewFile("", eRead)), kNqErrInvalidData);
    TNqString15 tooShort;
    copy->GetFullPath(tooShort);
    EXPECT_EQ(tooShort.ByteLength(), 0U) << "a cut path names another file";
    EXPECT_EQ(TakeReports().size(), 1U);
}

TEST_F(HostFile, WithoutMemoryThereIsAnErrorAndNeverAnotherPath)
{
    TNqCountedPtr<INqFile> file;
    const std::string whole = fs::current_path().string() + "/a/scene.nq";
    bool isCopied = false;
    const auto name = [&](int64)
    {
        file = NewUnnamedFile();
        const bool isNamed = !!file && file->SetFileName(TNqString255("a/scene.nq"), 0) == kNqNoErr;
        const std::string path = !file ? "" : FullPath(*file);
        EXPECT_TRUE(path.empty() || (path == whole && isNamed)) << path;
        isCopied = !!file && file->CopyFrom(*file) == kNqNoErr;
    };
    const auto check = [&]
    {
        const std::string path = !file ? "" : FullPath(*file);
        EXPECT_TRUE(path == whole || (path.empty() && !isCopied)) << path;
    };
    ForEachFailingAllocation(name, check);
}

TEST_F(HostFile, EachStreamGetsATranscoderOfItsOwnOrNone)
{
    int8 separator = 0;
    EXPECT_EQ(gFileUtilities->GetPathSeparator(&separator), '/');
    EXPECT_EQ(separator, '/');
    TNqCountedPtr<ITranscoder> one, other;
    gFileUtilities->CreateTranscoder(one, kPlatformDependent);
    gFileUtilities->CreateTranscoder(other, kPlatformDependent);
    EXPECT_NE(static_cast<ITranscoder*>(one), static_cast<ITranscoder*>(other));
    TestHost().FailAllocations(1);
    gFileUtilities->CreateTranscoder(other, kMacTranscoder);
    EXPECT_TRUE(!other);
    TakeReports();
}
