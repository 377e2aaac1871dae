// Resource files: bytes, refusals, and what is left when a save fails.

#include "Fuzz/ResourceBytes.h"
#include "Tests/FailingCalls.h"
#include "Tests/ResourceDoubles.h"

#include <map>

using namespace std::string_literals;

namespace
{

constexpr FourCharT kDlog = NqFourChar("DLOG");
constexpr FourCharT kIcon = NqFourChar("ICON");

class ResourceFile : public FolderTest
{
protected:
    // A resource in the file; null when it was not taken.
    static TNqResource* Add(TNqHostResourceFile& file, FourCharT type, int id, const std::string& name,
                            const std::string& data = {}, TResourceStrings* strings = nullptr)
    {
        const TResourcePtr resource = Resource(type, id, name, data, strings);
        return file.AddResource(*resource) == kNqNoErr ? resource : nullptr;
    }

    // The reason why the bytes are refused, "" when they are not.
    static std::string Refusal(const std::string& bytes)
    {
        TNqHostResourceFile file;
        Add(file, kIcon, 7, "stays");
        TNqDynamicString reason;
        const NqErr error = file.ReadBytes(bytes.data(), static_cast<uint32>(bytes.size()), reason);
        EXPECT_TRUE(error == kNqNoErr || error == kNqErrFormat);
        EXPECT_EQ(error == kNqNoErr, reason.ByteLength() == 0);
        EXPECT_TRUE(error == kNqNoErr || (file.CountAllResources() == 1 && file.FindResource(kIcon, 7) != nullptr));
        return reason.StrGet();
    }
};

const std::string kTwo = NqFuzz::TwoResources();

} // namespace

TEST_F(ResourceFile, HasTheseBytes)
{
    TNqHostResourceFile file;
    Add(file, kIcon, -1, "", "abc")->SetAttributes(std::numeric_limits<int32>::min());
    Add(file, kDlog, 128, "About", "\1\2\3\4", Strings({"One", "Zw\xC3\xB6lfe"}))->SetAttributes(7);
    EXPECT_EQ(BytesOf(file), kTwo);
    EXPECT_EQ(Refusal(kTwo), "");
    EXPECT_EQ(BytesOf(TNqHostResourceFile()), NqFuzz::Sealed("", 0));
}

TEST_F(ResourceFile, RefusesEveryCutAndEveryWrongField)
{
    for (size_t length = 0; length < kTwo.size(); ++length)
        EXPECT_NE(Refusal(kTwo.substr(0, length)), "") << length;
    for (size_t at = 0; at < kTwo.size(); ++at)
    {
        std::string damaged = kTwo;
        damaged[at] ^= 0x10;
        EXPECT_NE(Refusal(damaged), "") << at;
    }
    // Damage under a right checksum: where, four bytes (or as many as there are), and what is said of it.
    static const std::tuple<size_t, std::string, const char*> kCases[] = {
        {0, "NqRt"s, "no resource file: it does not begin with \"NqRs\""},
        {4, "\0\0\0\2"s, "has version 2; this program reads version 1"},
        {8, "\0\0\0\x60"s, "has 10 bytes behind its end at 96"},
        {16, "\x80\0\0\0"s, "says that it has 2147483648 resources, which 106 bytes cannot hold"},
        {16, "\0\0\0\1"s, "resource DLOG 128: begins at byte 76, where the one before ends at 48"},
        {26, "\3"s, "resource DLOG 128: has unknown flags 0x03"},
        {26, "\0"s, "resource DLOG 128: strings without a table"},
        {36, "\x80\0\0\0"s, "resource DLOG 128: its 2147483671 bytes from 76 on do not fit the file of 106"},
        {40, "\0\0\0\1"s, "resource DLOG 128: 11 bytes behind its last string"},
        {40, "\xFF\xFF\xFF\xFF"s, "resource DLOG 128: its string 2 does not fit its table"},
        {48, "DLOG\0\x80"s, "resource DLOG 128: is there twice"},
        {48, "DLOG\0\x7F"s, "resource DLOG 127: stands behind one that sorts after it"},
        {60, "\0\0\0\x50"s, "resource ICON -1: begins at byte 80, where the one before ends at 103"},
        {64, "\0\0\0\2"s, "bytes 105 to 106 belong to no resource"},
        {78, "\0"s, "resource DLOG 128: a zero byte in its name"},
        {89, "\0"s, "resource DLOG 128: a zero byte in its string 0"},
        {87, "\0\x12"s, "resource DLOG 128: its string 0 does not fit its table"},
    };
    for (const auto& [at, bytes, reason] : kCases)
    {
        std::string damaged = kTwo;
        damaged.replace(at, bytes.size(), bytes);
        EXPECT_EQ(Refusal(NqFuzz::Resealed(damaged)), reason);
    }
}

// Random adding, removing, changing and finding against a map, whose bytes are made here.
TEST_F(ResourceFile, RandomOperations)
{
    using TKey = std::pair<FourCharT, int16>;
    using TValue = std::tuple<std::string, std::string, uint32>; // name, data, attributes
    static constexpr FourCharT kTypes[] = {0, kDlog, kIcon, 0xFFFFFFFF};
    static constexpr int16 kNumbers[] = {-32768, -1, 0, 1, 2, 32767};
    TRandom random(7);
    TNqHostResourceFile file;
    std::map<TKey, TValue> model;
    for (int i = 0; i < 4000; ++i)
    {
        const TKey key{kTypes[random.Below(4)], kNumbers[random.Below(6)]};
        const TValue value{std::string(size_t(random.Below(3)), "ab"[random.Below(2)]),
                           std::string(size_t(random.Below(9)), static_cast<char>(random())), uint32(random())};
        const auto& [name, data, attributes] = value;
        TNqResource* found = file.FindResource(key.first, key.second);
        ASSERT_EQ(found != nullptr, model.count(key) == 1);
        if (random.OneIn(4))
            ASSERT_EQ(file.RemoveResource(key.first, key.second) == kNqNoErr, model.erase(key) == 1);
        else
        {
            TNqResource* const added = Add(file, key.first, key.second, name, data);
            ASSERT_EQ(added != nullptr, found == nullptr);
            found = added != nullptr ? added : found;
            found->SetName(TNqString31(name.c_str()));
            found->SetData(data.data(), static_cast<uint32>(data.size()));
            found->SetAttributes(static_cast<int32>(attributes));
            model[key] = value;
        }
        if (i % 20 != 0)
            continue;

        using NqFuzz::BigEndian;
        std::string entries;
        std::string bodies;
        for (const auto& [k, v] : model)
        {
            const auto& [n, d, a] = v;
            entries += BigEndian(k.first) + BigEndian(static_cast<uint32>(k.second)).substr(2) + '\0' +
                       static_cast<char>(n.size()) + BigEndian(a) +
                       BigEndian(static_cast<uint32>(20 + 28 * model.size() + bodies.size())) +
                       BigEndian(static_cast<uint32>(d.size())) + std::string(8, '\0');
            bodies += n + d;
        }
        const std::string bytes = NqFuzz::Sealed(entries + bodies, static_cast<uint32>(model.size()));
        ASSERT_EQ(BytesOf(file), bytes);
        TNqHostResourceFile copy;
        TNqDynamicString reason;
        ASSERT_EQ(copy.ReadBytes(bytes.data(), static_cast<uint32>(bytes.size()), reason), 0) << reason.StrGet();
        ASSERT_EQ(BytesOf(copy), bytes);
        auto elem = model.begin();
        FourCharT type = 0;
        for (boolean more = file.GetFirstType(type); more; more = file.GetNextType(type))
            for (uint32 n = 0; const TNqResource* resource = file.GetResource(type, n); ++n, ++elem)
                ASSERT_TRUE(n < file.CountResources(type) && elem != model.end() &&
                            TKey(resource->GetType(), resource->GetID()) == elem->first);
        ASSERT_EQ(elem, model.end());
        const auto named = [&key, &wanted = name](const auto& e)
        { return e.first.first == key.first && std::get<0>(e.second) == wanted; };
        ASSERT_EQ(file.FindResource(key.first, TNqString31(name.c_str())) != nullptr,
                  std::any_of(model.begin(), model.end(), named));
    }
}

TEST_F(ResourceFile, KeepsResourcesForWhoHoldsThem)
{
    TNqCountedPtr<TNqResource> held;
    {
        TNqHostResourceFile file;
        TNqHostResourceFile other;
        held = Add(file, kDlog, 1, "held", "data");
        EXPECT_TRUE(held->GetOwningFile() == &file && other.AddResource(*held) == kNqErrInvalidData);
    }
    EXPECT_EQ(held->GetOwningFile(), nullptr);
    held->TakeData(held->GetData(), 2); // its own block
    EXPECT_EQ(std::string(held->GetData(), held->GetSize()), "da");
    TNqHostResourceFile again;
    EXPECT_EQ(again.AddResource(*held), kNqNoErr);
    held->SetName(TNqString31("a\0b", 3));
    TNqByteSwapStream out;
    TNqDynamicString reason;
    EXPECT_EQ(again.WriteBytes(out, reason), kNqErrInvalidData);
    EXPECT_STREQ(reason.StrGet(), "resource DLOG 1: a zero byte in its name");
    EXPECT_EQ(out.tell(), 0);
}

// Whatever call of the system fails, and however far it got: the old file or the new one, and nothing beside it.
TEST_F(ResourceFile, SaveReplacesTheFileOrLeavesIt)
{
    TNqHostResourceFile file;
    Add(file, kDlog, 1, "new", std::string(9000, 'n'));
    const auto restore = [this]
    {
        const std::string name = Put("kept.nqr", kTwo);
        std::filesystem::permissions(name, std::filesystem::perms(0640));
        return name;
    };
    const std::string path = restore();
    std::filesystem::create_symlink("kept.nqr", Path("link.nqr"));
    TNqDynamicString reason;
    for (int call = 1;; ++call)
    {
        FailCall(call);
        const NqErr error = file.Write(Path("link.nqr").c_str(), reason);
        const bool reached = CallsMade() >= call;
        FailCall(0);
        ASSERT_EQ(std::distance(std::filesystem::directory_iterator(fFolder), {}), 2);
        ASSERT_EQ(ReadAll(path), error == 0 ? BytesOf(file) : kTwo) << call;
        if (error != 0)
        {
            ASSERT_NE(std::string(reason.StrGet()).find("Input/output error"), std::string::npos);
        }
        if (!reached)
        {
            EXPECT_TRUE(error == 0 && call > 5);
            break;
        }
        restore();
    }
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
    TNqHostResourceFile back;
    EXPECT_EQ(back.Read(path.c_str(), reason), 0);
    EXPECT_EQ(BytesOf(back), BytesOf(file));

    EXPECT_EQ(back.Read(Path("none").c_str(), reason), kNqErrFileNotFound);
    EXPECT_STREQ(reason.StrGet(), "there is no such file");
    EXPECT_NE(back.Read(fFolder.c_str(), reason), 0);
    EXPECT_STREQ(reason.StrGet(), "is a folder");
    reason.FromText("", 0);
    EXPECT_NE(file.Write(fFolder.c_str(), reason), 0);
    EXPECT_STREQ(reason.StrGet(), "is a folder");
    EXPECT_EQ(file.Write(Path("none/x").c_str(), reason), kNqErrFileNotFound);
    EXPECT_EQ(back.CountAllResources(), 1u);
    TakeReports(); // the host tells of files that do not open
}

TEST_F(ResourceFile, WithoutMemory)
{
    const std::string path = Put("two.nqr", kTwo);
    TNqHostResourceFile file;
    Add(file, kIcon, 7, "stays");
    ForEachFailingAllocation(
        [&](int64)
        {
            TNqDynamicString reason;
            const uint32 before = file.CountAllResources();
            const NqErr error = file.Read(path.c_str(), reason);
            EXPECT_EQ(file.CountAllResources(), error == 0 ? 2u : before);
            TNqByteSwapStream out;
            out.write(std::string(4090, 'x').data(), 4090); // so that the block must grow within the header
            if (error == 0 && file.WriteBytes(out, reason) == 0)
            {
                EXPECT_EQ(out.pcount(), 4090 + static_cast<int32>(kTwo.size()));
            }
        });
}
