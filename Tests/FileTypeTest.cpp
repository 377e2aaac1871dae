#include "NqCore/PublicAPI/NqFileTypeUtils.h"
#include "NqCore/PublicAPI/NqResourceStream.h"
#include "NqHost/PublicAPI/NqHostPathFile.h"
#include "Tests/TestHost.h"

#include <sys/stat.h>

#include <ctime>
#include <memory>

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

struct TNqFileTypeLayout
{
    static_assert(offsetof(TNqFileType, fName) == 8 && offsetof(TNqFileType, fFileTypeFamilyID) == 64 &&
                  offsetof(TNqFileType, fExtensions) == 72 && offsetof(TNqFileType, fTypes) == 96);
};

namespace
{

// Each row has one extension in the spellings that are the same to a reader.
constexpr const char* kSpellings[][3] = {
    {"jpg", "JPG", "jPg"},
    {"\xC3\x9F", "ss", "\xC5\xBFS"},
    {"\xCF\x83", "\xCF\x82", "\xCE\xA3"},
    {"jpeg", "jpeg", "JPEG"},
    {"\xC3\xA9", "\xC3\x89", "\xC3\xA9"},
    {"\xEF\xAC\x81", "fi", "FI"},
    {"\xC4\xB1", "I", "i"},
    {"", "", ""},
};
constexpr int32 kMeanings = static_cast<int32>(std::size(kSpellings));

// What a list has to do, by the meaning of the extensions.
struct TModelType
{
    NqFileTypeID fID;
    uint32 fFamily;
    std::vector<std::pair<int32, const char*>> fExtensions; // the row and the text
    std::vector<IDType> fCodes;

    bool Has(int32 row) const
    {
        return std::any_of(fExtensions.begin(), fExtensions.end(), [row](auto& own) { return own.first == row; });
    }
    bool HasCode(IDType code) const { return std::count(fCodes.begin(), fCodes.end(), code) > 0; }
    void Add(int32 row, const char* text)
    {
        if (!Has(row))
            fExtensions.emplace_back(row, text);
    }
    void AddCode(IDType code)
    {
        if (code != 0 && !HasCode(code))
            fCodes.push_back(code);
    }
};

struct TFakeFile : TNqFile
{
    void GetInfo(APIFileInfo& info) const override { info.fType.fID = fCode; }
    void GetExtension(TNqString& extension) const override { extension.FromCPtr(fExtension); }

    IDType fCode = 0;
    const char* fExtension = "";
};

void ExpectSame(const TNqFileType& type, const TModelType& model)
{
    EXPECT_EQ(type.GetID(), model.fID);
    EXPECT_EQ(type.GetFileTypeFamilyID(), model.fFamily);
    EXPECT_EQ(type.GetName().ToInt32(), static_cast<int32>(model.fFamily));
    ASSERT_EQ(type.GetExtensionsCount(), static_cast<int32>(model.fExtensions.size()));
    for (size_t i = 0; i < model.fExtensions.size(); ++i)
        EXPECT_STREQ(type.GetExtension(static_cast<int32>(i)).GetString(), model.fExtensions[i].second);
    ASSERT_EQ(type.GetTypesCount(), static_cast<int32>(model.fCodes.size()));
    for (size_t i = 0; i < model.fCodes.size(); ++i)
        EXPECT_EQ(type.GetType(static_cast<int32>(i)).fID, model.fCodes[i]);
}

using TBytes = std::vector<int8>;

template <class T>
TBytes Written(const T& value, TResourceStrings* strings = nullptr)
{
    TNqResourceStream out(strings);
    out << value;
    const int32 size = out.pcount();
    const std::unique_ptr<int8, void (*)(void*)> bytes(out.str(), Nqfree);
    return {bytes.get(), bytes.get() + size};
}

// Reads from a copy of exactly these bytes, so that a read beyond them is seen.
template <class Read>
bool ReadBack(const TBytes& bytes, TResourceStrings* strings, Read&& read)
{
    const std::unique_ptr<int8[]> copy(new int8[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    TNqCountedPtr<TNqResource> resource;
    *&resource = new TNqResource(NqFourChar("FTyp"), 1, TNqString15(""));
    resource->LendData(copy.get(), static_cast<uint32>(bytes.size()));
    resource->SetLocalizedStrings(strings);
    TNqResourceStream in(*resource, eRead);
    read(in);
    return in.good();
}

TNqFileType SampleType(uint32 id)
{
    TNqFileType type(id, 9);
    type.SetName(TNqString31("Cube"));
    type.AddType({NqFourChar("CUBE")});
    type.AddType({NqFourChar("cub2")});
    type.AddExtension(TNqString15("CUB"));
    type.AddExtension(TNqString15("c4\xC3\x89"));
    return type;
}

using FileTypeTest = FolderTest;

} // namespace

TEST_F(FileTypeTest, ListsAgreeWithAModelThroughMergesAndLookups)
{
    TRandom random(3);
    for (int round = 0; round < 300; ++round)
    {
        TNqFileTypeList list;
        std::vector<TModelType> model;
        for (int steps = random.Below(12); steps > 0; --steps)
        {
            const auto id = static_cast<NqFileTypeID>(random.Below(6));
            const auto family = static_cast<uint32>(1 + random.Below(2));
            TNqFileType type(id, family);
            type.SetName(TNqString15(std::to_string(family).c_str()));
            TModelType added = {id, family, {}, {}};
            for (int n = random.Below(4); n > 0; --n)
            {
                const int32 row = random.Below(kMeanings);
                const char* const text = kSpellings[row][random.Below(3)];
                const auto code = static_cast<IDType>(random.Below(5));
                type.AddExtension(TNqString15(text));
                type.AddType({code});
                added.Add(row, text);
                added.AddCode(code);
            }
            list.AddElem(type);
            EXPECT_EQ(TakeReports(), TTexts(added.fExtensions.empty(), "fileType.GetExtensionsCount() > 0"));
            const auto listed = std::find_if(model.begin(), model.end(), [id](auto& own) { return own.fID == id; });
            if (listed == model.end())
            {
                model.push_back(added);
                continue;
            }
            std::for_each(added.fExtensions.begin(), added.fExtensions.end(),
                          [&](auto& own) { listed->Add(own.first, own.second); });
            std::for_each(added.fCodes.begin(), added.fCodes.end(), [&](IDType code) { listed->AddCode(code); });
        }
        ASSERT_EQ(list.GetElemCount(), static_cast<int32>(model.size()));
        bool single = true;
        for (size_t i = 0; i < model.size(); ++i)
        {
            ExpectSame(list.GetElem(static_cast<int32>(i)), model[i]);
            single = single && model[i].fFamily == model[0].fFamily;
        }
        EXPECT_EQ(list.IsSingleFileFamily(), single);
        const auto first = [&](auto&& test) -> const TNqFileType*
        {
            const auto found = std::find_if(model.begin(), model.end(), test);
            return found == model.end() ? nullptr : &list.GetElem(static_cast<int32>(found - model.begin()));
        };
        for (int32 row = 0; row < kMeanings; ++row)
        {
            const auto code = static_cast<IDType>(random.Below(6));
            const auto* byExtension = first([&](auto& own) { return own.Has(row); });
            const auto* byCode = first([&](auto& own) { return own.HasCode(code); });
            const auto* byEither = first([&](auto& own) { return own.Has(row) || own.HasCode(code); });
            TFakeFile file;
            file.fCode = code;
            file.fExtension = kSpellings[row][random.Below(3)];
            EXPECT_EQ(list.FindNqFileType(TNqString15(file.fExtension), {code}), byExtension ? byExtension : byCode);
            EXPECT_EQ(list.FindNqFileType(file), byEither);
            EXPECT_EQ(list.FindNqFileTypeID(file), byEither ? byEither->GetID() : 0);
            EXPECT_EQ(list.FindNqFileTypeByID(code), first([&](auto& own) { return own.fID == code; }));
        }
        EXPECT_EQ(list.GetElem(list.GetElemCount()).GetExtensionsCount() + list.GetElem(-1).GetTypesCount(), 0);
        EXPECT_EQ(TakeReports(), TTexts(2, "index < GetElemCount()"));
    }
}

// Short ASCII texts are compared without the mapping of the strings, which must not show.
TEST_F(FileTypeTest, ContainsExtIsTheCaseBlindComparison)
{
    TRandom random(4);
    for (int round = 0; round < 20000; ++round)
    {
        const TTexts pieces = {"a",    "A",    "z", "Z", "`", "s", "S", "\xC3\x9F", "\xC5\xBF", std::string(1, '\0'),
                               "\xC3", "\x80", "{"};
        const auto text = [&]
        {
            std::string made(random.OneIn(50) ? static_cast<size_t>(1020 + random.Below(5)) : 0, 'x');
            for (int n = random.Below(4); n > 0; --n)
                made += pieces[random() % pieces.size()];
            return TNqDynamicString(made.data(), static_cast<uint32>(made.size()));
        };
        const TNqDynamicString a = text();
        const TNqDynamicString b = text();
        TNqFileType type;
        type.AddExtension(a);
        const boolean same = b.IsEqualNotCaseSensitive(a);
        EXPECT_EQ(type.ContainsExt(b), same) << a.GetString() << "|" << b.GetString();
        TakeReports(); // of texts that are cut
    }
}

TEST_F(FileTypeTest, WritesTheseBytesAndReadsThemInLowerCase)
{
    const std::string head = "\1\2\3\4";
    const std::string tail("\0\2CUBEcub2\0\2CUB\0c4\xC3\x89\0", 21);
    const auto asText = [](const TBytes& bytes) { return std::string(bytes.begin(), bytes.end()); };
    TNqCountedPtr<TResourceStrings> strings;
    TResourceStrings::Create(&strings);
    strings->AddElem(TNqString15("Ball"));
    const TNqFileType sample = SampleType(0x01020304);
    EXPECT_EQ(asText(Written(sample)), head + std::string("Cube\0", 5) + tail);
    const TBytes localized = Written(sample, strings);
    EXPECT_EQ(asText(localized), head + std::string("\0\0\0\1", 4) + tail);
    EXPECT_TRUE(strings->GetElemCount() == 2 && (*strings)[1] == TNqString15("Cube"));

    for (const char* name : {"Cube", "Ball", ""})
    {
        TBytes bytes = localized;
        bytes[7] = *name == 'C' ? 1 : *name == 'B' ? 0 : 2; // 2 is past the table
        TNqFileType type;
        EXPECT_TRUE(ReadBack(bytes, strings, [&](TNqResourceStream& in) { in >> type; }));
        EXPECT_EQ(TakeReports(), TTexts(*name == 0, "stringIndex < stringCount"));
        EXPECT_STREQ(type.GetName().GetString(), name);
        EXPECT_TRUE(type.GetID() == 0x01020304 && type.GetFileTypeFamilyID() == 0 && type.GetTypesCount() == 2);
        EXPECT_STREQ(type.GetExtension(0).GetString(), "cub");
        EXPECT_STREQ(type.GetExtension(1).GetString(), "c4\xC3\xA9");
    }

    TNqFileTypeList list;
    TNqFileType longer(7, 1);
    TFakeFile file;
    file.fExtension = "ABCDEFGHIJKLMNOPQ";
    longer.AddExtension(TNqString31(file.fExtension));
    list.AddElem(longer);
    EXPECT_EQ(list.FindNqFileTypeID(file), 7U);
    TNqFileType cut;
    EXPECT_TRUE(ReadBack(Written(longer), nullptr, [&](TNqResourceStream& in) { in >> cut; }));
    EXPECT_STREQ(cut.GetExtension(0).GetString(), "abcdefghijklmno"); // 15 bytes are read
    EXPECT_EQ(TakeReports(), TTexts{"byteLength <= fMaxLength"});

    TNqFileType full(1, 1);
    for (uint32 i = 1; i <= kNqMaxFileTypeEntries + 2; ++i)
        full.AddType({i});
    const TBytes bytes = Written(full);
    EXPECT_EQ(TakeReports(), TTexts{"count <= kNqMaxFileTypeEntries"});
    EXPECT_EQ(bytes.size(), 4 + 1 + 2 + 4 * kNqMaxFileTypeEntries + 2);
    EXPECT_EQ(asText(bytes).substr(5, 6), std::string("\x7F\xFF\0\0\0\1", 6));
}

TEST_F(FileTypeTest, ReadsWhatIsWholeOfACutOrDamagedResource)
{
    TNqFileTypeList list;
    std::vector<size_t> ends = {2};
    for (uint32 id = 1; id <= 4; ++id)
    {
        list.AddElem(SampleType(id));
        ends.push_back(Written(list).size());
    }
    const TBytes whole = Written(list);
    for (size_t size = 0; size <= whole.size(); ++size)
    {
        TNqFileTypeList read;
        const bool good = ReadBack({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}, nullptr,
                                   [&](TNqResourceStream& in) { read.ReadFromResource(in, 7); });
        const auto expected = std::count_if(ends.begin() + 1, ends.end(), [size](size_t end) { return end <= size; });
        EXPECT_EQ(read.GetElemCount(), expected) << size;
        EXPECT_EQ(good, size == whole.size()) << size;
        for (int32 i = 0; i < read.GetElemCount(); ++i)
            EXPECT_EQ(read.GetElem(i).GetFileTypeFamilyID(), 7U);

        // What has no room for all of it takes a part and tells.
        TBytes space(whole.size());
        TNqResource resource(0, 0, TNqString31());
        resource.LendData(space.data(), static_cast<uint32>(size));
        TNqResourceStream out(resource, eWrite);
        out << list;
        EXPECT_EQ(out.good() != 0, size == whole.size()) << size;
        EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + out.pcount(), space.begin())) << size;
        TakeReports();
    }
    TRandom random(5);
    const std::string text(whole.begin(), whole.end());
    for (int round = 0; round < 2000; ++round)
    {
        const std::string damaged = Mutated(text, {"\x7F\xFF", std::string(3, '\0'), "\xFF\xFF"}, random);
        TNqFileTypeList read;
        ReadBack({damaged.begin(), damaged.end()}, nullptr,
                 [&](TNqResourceStream& in) { read.ReadFromResource(in, 7); });
        EXPECT_LE(static_cast<size_t>(read.GetElemCount()), damaged.size() / 9);
        TakeReports();
    }
}

TEST_F(FileTypeTest, WithoutMemoryWhatIsAddedIsThereWholeOrNotAtAll)
{
    const TNqFileType sample = SampleType(1);
    ForEachFailingAllocation(
        [&sample](int64)
        {
            const TNqFileType type = SampleType(2);
            EXPECT_FALSE(type.ContainsExt(TNqString15("")));
            TNqFileTypeList list;
            list.AddElem(sample);
            EXPECT_TRUE(list.GetElemCount() == 0 || (list.GetElem(0).GetTypesCount() == sample.GetTypesCount() &&
                                                     list.GetElem(0).GetExtension(0) == sample.GetExtension(0) &&
                                                     list.GetElem(0).GetExtension(1) == sample.GetExtension(1)));
        });
}

TEST_F(FileTypeTest, TheRegistryIsForgottenAtShutDown)
{
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_FALSE(TNqFileTypeUtils::IsFileFamily(NqFourChar("Modl")));
        EXPECT_EQ(TNqFileTypeUtils::GetAllTypes().GetElemCount(), 0);
        TNqFileTypeUtils::GetAllTypes().AddElem(SampleType(1));
        TNqFileTypeUtils::RegisterFileFamily(NqFourChar("Modl"), TNqString15("3D models"));
        TNqFileTypeUtils::RegisterFileFamily(NqFourChar("Modl"), TNqString15("Models"));
        EXPECT_TRUE(TNqFileTypeUtils::FindFileFamily(NqFourChar("Modl"))->GetName() == TNqString15("3D models"));
        EXPECT_FALSE(TNqFileTypeUtils::IsFileFamily(0));
        EXPECT_EQ(&TNqFileTypeUtils::GetAllTypes(), &TNqFileTypeUtils::GetAllTypes());
        TNqFileTypeUtils::ShutDown();
    }
}

TEST_F(FileTypeTest, AFileByItsPathTellsWhatTheSystemKnows)
{
    const std::tuple<const char*, const char*, const char*, IDType> cases[] = {
        {"duck.GLB", "glTF\2", "GLB", 0x676C5446},
        {"a.b.ply", "ply\n", "ply", 0x706C790A},
        {".hidden", "xyz", "", 0},
        {".hidden.t", "\x80\xFF\1\2", "t", 0x80FF0102},
        {"none", "", "", 0},
        {"end.", "abcd", "", 0x61626364}};
    for (const auto& [name, bytes, ending, code] : cases)
    {
        const std::string path = Put(name, bytes);
        const TNqHostPathFile file(TNqDynamicString(path.c_str()));
        APIFileInfo info;
        TNqString255 extension("old");
        file.GetInfo(info);
        file.GetExtension(extension);
        EXPECT_STREQ(extension.GetString(), ending);
        EXPECT_EQ(info.fType.fID, code) << name;
        EXPECT_TRUE(info.fDataSize == strlen(bytes) && info.fIsHidden == (name[0] == '.') && !info.fIsDir);
        EXPECT_FALSE(info.fIsReadOnly);
        const auto now = static_cast<real64>(time(nullptr) - 978307200); // since 2001
        EXPECT_NEAR(info.fModificationTime.fSeconds, now, 100);
        EXPECT_NEAR(info.fCreationTime.fSeconds, now, 100);
    }
    ASSERT_EQ(mkfifo(Path("pipe.obj").c_str(), 0600), 0);
    for (const std::string& path : {Path("pipe.obj"), fFolder.string(), Path("absent.obj"), std::string()})
    {
        const TNqHostPathFile file(TNqDynamicString(path.c_str()));
        APIFileInfo info;
        info.fDataSize = 5;
        file.GetInfo(info); // waits for nobody
        EXPECT_TRUE(info.fType.fID == 0 && info.fDataSize == 0) << path;
        EXPECT_EQ(info.fIsDir, path == fFolder.string());
    }
}
