#include "NqCore/PublicAPI/NqArray.h"
#include "NqCore/PublicAPI/NqClassArray.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "Tests/TestHost.h"

#include <array>
#include <memory>
#include <type_traits>

namespace
{

constexpr int kUnknown = -1; // a cell whose content is indeterminate
const char* const kNoMemory = "Array allocation failed!";
const char* const kNoCopy = "Unable to complete operator=() memory allocation failed.";

// An element that owns memory: leaks, double ends and shared copies show at once under a sanitizer, and in the count.
struct TBox
{
    static int fAlive;
    TBox() : fValue(new int(7)) { ++fAlive; }
    explicit TBox(int value) : fValue(new int(value)) { ++fAlive; }
    TBox(const TBox& other) : fValue(new int(*other.fValue)) { ++fAlive; }
    TBox& operator=(const TBox& other) { return *fValue = *other.fValue, *this; }
    ~TBox() { --fAlive; }
    std::unique_ptr<int> fValue;
};
int TBox::fAlive = 0;

template <size_t kBytes>
struct TNeverCopied : TBox
{
    TNeverCopied() = default;
    TNeverCopied(const TNeverCopied& other) : TBox(other) { throw 14; }
    char fBytes[kBytes];
};

struct TCounted
{
    uint32 AddRef() { return static_cast<uint32>(++fCount); }
    uint32 Release() { return static_cast<uint32>(--fCount); }
    int fCount = 0;
};
TCounted gPool[10]; // value v stands for &gPool[v], 0 for null

using TBoxes = TNqClassArray<TBox>;
using TPointers = TNqPtrArray<TCounted>;
using TCountedPointers = TNqCountedPtrArray<TCounted>;

template <class A>
using TElem = std::decay_t<decltype(std::declval<A&>()[0])>;

template <class E>
E FromInt(int v)
{
    if constexpr (std::is_pointer_v<E>)
        return v == 0 ? nullptr : gPool + v;
    else
        return E(v);
}
template <class E>
int ToInt(const E& elem)
{
    if constexpr (std::is_pointer_v<E>)
        return elem == nullptr ? 0 : static_cast<int>(elem - gPool);
    else if constexpr (std::is_same_v<E, TBox>)
        return *elem.fValue;
    else
        return static_cast<int>(elem);
}

// What an array should hold, in a plain vector, and what it should report.
template <class A>
struct TModel
{
    static constexpr bool kIsClass = std::is_same_v<A, TBoxes>;
    static constexpr bool kIsCounted = std::is_same_v<A, TCountedPointers>;
    static constexpr bool kHasZero = !kIsClass && !kIsCounted;
    static constexpr uint32 kLargestStep = 131072 / sizeof(TElem<A>);

    std::vector<int> fCells; // the block
    uint32 fCount = 0;
    uint32 fGrowSize = kLargestStep;
    bool fSmart = true;
    bool fZero = kHasZero;
    bool fFail = false; // the next allocation fails
    TTexts fReports;

    uint32 Space() const { return static_cast<uint32>(fCells.size()); }
    uint32 Step() const { return fSmart ? std::min(fGrowSize, fCount / 5 + 1) : fGrowSize; }
    bool Report(const char* text) { return fReports.push_back(text), false; }
    bool SetSpace(uint32 space)
    {
        if (space != Space() && space != 0 && fFail)
            return Report(kNoMemory);
        fCount = std::min(fCount, space);
        const bool keepsAll = std::is_same_v<A, TPointers> && !fZero;
        fCells.resize(keepsAll ? space : fCount, kUnknown);
        fCells.resize(space, fZero ? 0 : kUnknown);
        return true;
    }
    bool SetCount(uint32 count)
    {
        if (count > Space() && !SetSpace(count))
            return false;
        if (fZero && count < fCount)
            std::fill(fCells.begin() + count, fCells.begin() + fCount, 0);
        if (!kHasZero && count > fCount)
            std::fill(fCells.begin() + fCount, fCells.begin() + count, kIsClass ? 7 : 0);
        fCount = count;
        return true;
    }
    bool AddCount(uint32 n)
    {
        const uint32 step = Step();
        if (fCount + n > Space() && step == 0)
            return Report("grow size is zero!!");
        return (fCount + n <= Space() || SetSpace((fCount + n + step - 1) / step * step)) && SetCount(fCount + n);
    }
    bool Add(int value)
    {
        if (fCount == Space() && !SetSpace(Space() + std::max(Step(), 1U)))
            return false;
        fCells[fCount++] = value;
        return true;
    }
    void SetGrow(uint32 size, bool smart) { fGrowSize = size, fSmart = smart; }
    bool Assign(const TModel& source)
    {
        if (source.fSmart)
            SetGrow(kLargestStep, true);
        if (!SetCount(source.fCount))
            return Report(kNoCopy);
        std::copy_n(source.fCells.begin(), fCount, fCells.begin());
        return true;
    }
};

template <class A>
void ExpectSame(const A& array, const TModel<A>& model)
{
    ASSERT_EQ(array.GetElemCount(), model.fCount);
    ASSERT_EQ(array.GetElemSpace(), model.Space());
    ASSERT_EQ(array.GetGrowSize(), model.Step());
    ASSERT_EQ(array.BaseAddress() == nullptr, model.Space() == 0);
    for (uint32 i = 0; i < model.fCount; ++i)
        ASSERT_TRUE(model.fCells[i] == kUnknown || ToInt(array[i]) == model.fCells[i]) << "element " << i;
}

// A copy, made with the model's luck in allocating; its reports become the model's.
template <class A>
TModel<A> Copied(TModel<A>& model)
{
    TModel<A> copied;
    copied.fFail = model.fFail;
    copied.SetGrow(1, false);
    copied.Assign(model);
    model.fReports = copied.fReports;
    return copied;
}

// Two arrays, so that they can be assigned to each other, each beside its model.
template <class A>
void RunRandomOperations(unsigned seed)
{
    using TThis = TModel<A>;
    std::mt19937 random(seed);
    const auto upTo = [&random](uint32 n) { return static_cast<uint32>(random() % (n + 1)); };
    A arrays[2];
    TThis models[2];
    for (int step = 0; step < 6000 && !::testing::Test::HasFatalFailure(); ++step)
    {
        SCOPED_TRACE(step);
        const uint32 which = upTo(1);
        A& array = arrays[which];
        TThis& model = models[which];
        const uint32 n = upTo(upTo(3) == 0 ? 60 : 4);
        const int value = static_cast<int>(n % 10);
        const uint32 at = model.fCount == 0 ? 0 : upTo(model.fCount - 1);
        model.fFail = upTo(3) == 0;
        const bool known = at < model.fCount && model.fCells[at] != kUnknown;
        bool got = true, wanted = true;
        TestHost().FailAllocations(model.fFail ? 1 : 0);
        // clang-format off
        const std::function<void()> operations[] = {
            [&] { got = array.SetElemCount(n); wanted = model.SetCount(n); },
            [&] { got = array.SetElemSpace(n); wanted = model.SetSpace(n); },
            [&] { if constexpr (!TThis::kIsClass) got = array.AddElemCount(n), wanted = model.AddCount(n); },
            [&] { array.SetGrowSize(n / 2); model.SetGrow(n / 2, false); },
            [&] { array.SetSmartGrow(); model.SetGrow(TThis::kLargestStep, true); },
            [&] { if constexpr (TThis::kHasZero) array.SetZeroMem(model.fZero = n & 1); },
            [&] { array = arrays[1 - which]; model.Assign(models[1 - which]); },
            [&] { ExpectSame(A(array), Copied(model)); },
            [&] { if constexpr (TThis::kIsClass) if (at < model.fCount) array[at] = TBox(model.fCells[at] = value); },
            [&] { if constexpr (!TThis::kIsClass)
                      if (at < model.fCount) array.SetElem(at, FromInt<TElem<A>>(model.fCells[at] = value)); },
            [&] { if (known) got = array.AddElem(array[at]), wanted = model.Add(int(model.fCells[at])); },
            [&] { got = array.AddElem(FromInt<TElem<A>>(value)); wanted = model.Add(value); },
        };
        // clang-format on
        operations[upTo(std::size(operations) - 1)]();
        TestHost().FailAllocations(0);
        ASSERT_EQ(got, wanted);
        ASSERT_EQ(TakeReports(), model.fReports);
        model.fReports.clear();
        ExpectSame(arrays[0], models[0]);
        ExpectSame(arrays[1], models[1]);
        ASSERT_EQ(TBox::fAlive, TThis::kIsClass ? static_cast<int>(models[0].fCount + models[1].fCount) : 0);
        for (int v = 1; v < 10; ++v)
        {
            long held = 0;
            for (const TThis& m : models)
                held += std::count(m.fCells.begin(), m.fCells.begin() + m.fCount, v);
            ASSERT_EQ(gPool[v].fCount, TThis::kIsCounted ? held : 0);
        }
    }
}

} // namespace

using ArrayTest = NqTest;

TEST_F(ArrayTest, RandomOperationsOfEachKindAgreeWithAModelAlsoWithoutMemory)
{
    RunRandomOperations<TNqArray<int32>>(1);
    RunRandomOperations<TNqArray<int8>>(2);
    RunRandomOperations<TNqArray<real64>>(3);
    RunRandomOperations<TBoxes>(4);
    RunRandomOperations<TPointers>(5);
    RunRandomOperations<TCountedPointers>(6);
    EXPECT_EQ(TBox::fAlive, 0);
    for (const TCounted& object : gPool)
        EXPECT_EQ(object.fCount, 0);
}

TEST_F(ArrayTest, AStepOfAGrowingArrayIsAtMost128KiB)
{
    TNqArray<int32> array;
    ASSERT_TRUE(array.SetElemCount(1000000) && array.AddElem(5));
    EXPECT_EQ(array.GetElemSpace(), 1000000 + 32768U);
    TNqArray<std::array<char, 200000>> large; // one element is more than a step
    EXPECT_EQ(large.GetGrowSize(), 0U);
    ASSERT_TRUE(large.AddElem({}));
    EXPECT_EQ(large.GetElemSpace(), 1U);
    EXPECT_FALSE(large.AddElemCount(1));
    EXPECT_EQ(TakeReports(), TTexts{"grow size is zero!!"});
}

TEST_F(ArrayTest, SizesThatDoNotFit32BitsFailWithoutAskingTheHost)
{
    struct TWide
    {
        char fBytes[65536];
    };
    TNqArray<TWide> array(0, 0, 0x07FFFFFF, true);
    TNqClassArray<TWide> objects;
    TestHost().FailAllocations(0);
    EXPECT_FALSE(array.SetElemSpace(65536));
    EXPECT_FALSE(array.AddElemCount(65536));
    TNqArray<uint8> bytes(5, true);
    EXPECT_FALSE(bytes.AddElemCount(0xFFFFFFFD)) << "2 if the sum wrapped";
    EXPECT_EQ(bytes.GetElemCount(), 5U);
    TestHost().FailAllocations(0); // counts anew
    EXPECT_FALSE(objects.SetElemCount(0xFFFFFFFC));
    EXPECT_FALSE(TNqArray<uint8>().SetElemSpace(kEndIndex));
    EXPECT_EQ(TakeReports(), TTexts(5, kNoMemory));
    EXPECT_FALSE(array.SetElemCount(0xFFFFFFFD));
    EXPECT_FALSE(objects.SetElemCount(0xFFFFFFFD));
    EXPECT_EQ(TakeReports(), (TTexts{"nAsNqSize < kEndIndex", kNoMemory, "n < kEndIndex", kNoMemory}));
    EXPECT_EQ(TestHost().CountAllocations(), 0);
    EXPECT_TRUE(array.SetElemCount(0x100000002)) << "the low 32 bits count";
    EXPECT_EQ(TakeReports(), TTexts{"nAsNqSize < kEndIndex"});
    EXPECT_EQ(array.GetElemCount(), 2U);
    EXPECT_TRUE(array.AddElem(array[0]) && array.AddElemCount(2));
    EXPECT_EQ(array.GetElemSpace(), 5U) << "a step beyond 32 bits gives way to the exact need";
    array.SetGrowSize(0x0800000A);
    EXPECT_EQ(TakeReports(), TTexts{""}) << "a report without a text";
    EXPECT_EQ(array.GetGrowSize(), 10U);
    EXPECT_FALSE(array.ExternalMemory()) << "the bit above the size";
}

TEST_F(ArrayTest, AConstructorWithoutMemoryLeavesAnArrayThatIsReportedAndStillFreed)
{
    TestHost().FailAllocations(1, 2);
    TNqArray<int32> array(3, true);
    EXPECT_EQ(TakeReports(), (TTexts{kNoMemory, kNoMemory, "Array allocation failed in constructor!", "IsValid()"}));
    EXPECT_FALSE(array.IsValid());
    EXPECT_TRUE(array.AddElem(1));
    EXPECT_EQ(array.GetElemCount(), 1U);
    EXPECT_EQ(TakeReports(), TTexts{"IsValid()"});
    TestHost().FailAllocations(1);
    TNqPtrArray<int> second(3, true); // its count succeeds where its space failed
    EXPECT_EQ(TakeReports(), (TTexts{kNoMemory, "Array allocation failed in constructor!"}));
    EXPECT_TRUE(second.IsValid() && second.GetElemCount() == 3);
    EXPECT_FALSE(TNqArray<int32>(1, 2, 1, false).GetZeroMem());
    TNqArray<int32> wrong(3, 2, 1, true);
    EXPECT_EQ(TakeReports(), (TTexts{"initialCount <= initialSpace", "initialCount > initialSpace",
                                     "Array allocation failed in constructor!", "IsValid()"}));
    TNqClassArray<TBox> boxes;
    TestHost().FailAllocations(1);
    try
    {
        boxes.AddElem();
        ADD_FAILURE();
    }
    catch (const TNqException& error)
    {
        EXPECT_EQ(error.GetError(), static_cast<NqErr>(0x80010002));
        EXPECT_STREQ(error.what(), "NqCore/PublicAPI/NqClassArray.h");
    }
    EXPECT_EQ(TakeReports(), (TTexts{kNoMemory, "An exception is being thrown"}));
    EXPECT_EQ(*boxes.AddElem()->fValue, 7);
}

TEST_F(ArrayTest, ElementsLargerThanTheStackAreAddedWhereTheyStay)
{
    using TLarge = std::array<char, 12 << 20>;
    TNqArray<TLarge> values;
    ASSERT_TRUE(values.SetElemCount(1));
    values[0].back() = 9;
    ASSERT_TRUE(values.AddElem(values[0])); // a copy of what moves
    EXPECT_EQ(values[1].back(), 9);
    struct TLargeBox : TBox
    {
        TLarge fBytes;
    };
    TNqClassArray<TLargeBox> objects;
    ASSERT_TRUE(objects.SetElemCount(2));
    EXPECT_EQ(*objects[1].fValue, 7);
    EXPECT_EQ(TBox::fAlive, 2);
}

TEST_F(ArrayTest, AnElementThatCannotBeCopiedLeavesNothingBehind)
{
    struct TStubborn : TBox
    {
        TStubborn() = default;
        TStubborn& operator=(const TStubborn&) = default;
        TStubborn(const TStubborn& other) : TBox(other)
        {
            if (*fValue == 13)
                throw 13;
        }
    };
    EXPECT_THROW(TNqClassArray<TNeverCopied<1>>().SetElemCount(1), int) << "new elements are copies of one";
    EXPECT_THROW(TNqClassArray<TNeverCopied<100000>>().SetElemCount(2), int) << "a large one is the first of them";
    EXPECT_EQ(TBox::fAlive, 0);
    TNqClassArray<TStubborn> source;
    ASSERT_TRUE(source.SetElemCount(3));
    *source[2].fValue = 13;
    EXPECT_THROW(TNqClassArray<TStubborn>{source}, int); // its block must not leak either
    TNqClassArray<TStubborn> target;
    EXPECT_THROW(target = source, int);
    EXPECT_EQ(target.GetElemCount(), 0U);
    EXPECT_THROW(target.AddElem(source[2]), int);
    EXPECT_EQ(TBox::fAlive, 3);
}

TEST_F(ArrayTest, IndicesOutsideTheCountAreReportedAndNothingBeyondTheBlockIsTouched)
{
    TNqArray<int32> array(2, 4, 1, true);
    array.SetElem(3, 9);
    EXPECT_EQ(array[3], 9);
    EXPECT_EQ(std::as_const(array)[3], 9);
    array.SetElem(4, 9);
    EXPECT_EQ(TakeReports(),
              (TTexts{"index < GetElemCount()", "i < GetElemCount()", "i < GetElemCount()", "index < GetElemCount()"}));
    TNqPtrArray<TCounted> pointers;
    pointers.SetElem(0, gPool);
    EXPECT_EQ(TakeReports(), (TTexts{"BaseAddress()", "index < GetElemCount()"}));
    EXPECT_EQ(pointers.Pointer(0), std::as_const(pointers).Pointer(0));
    TNqClassArray<int32> objects;
    ASSERT_TRUE(objects.SetElemSpace(1));
    EXPECT_EQ(&objects[0], &std::as_const(objects)[0]);
    EXPECT_EQ(TakeReports(), TTexts(4, "i < GetElemCount()"));
    TNqCountedPtrArray<TCounted> counted;
    counted.SetElemSpace(4);
    counted.SetElem(0, gPool + 1);
    EXPECT_EQ(counted[0], nullptr);
    EXPECT_EQ(gPool[1].fCount, 0);
    EXPECT_EQ(TakeReports(), (TTexts{"index < GetElemCount()", "i < GetElemCount()"}));
    EXPECT_TRUE(array.IsInArray(array.BaseAddress() + 3));
    EXPECT_FALSE(array.IsInArray(array.BaseAddress() + 4));
    EXPECT_FALSE(pointers.IsInArray(nullptr));
}

TEST_F(ArrayTest, LentMemoryIsUsedButNeverResizedOrFreed)
{
    int32 block[3] = {1, 2, 3};
    TCounted* slots[3] = {gPool + 1, gPool + 2, gPool + 3};
    gPool[1].fCount = 1;
    {
        TNqArray<int32> array;
        ASSERT_TRUE(array.ArrayAllocFromBuffer(block, 1, 3));
        EXPECT_TRUE(array.AddElem(4) && array.AddElem(5));
        EXPECT_FALSE(array.AddElem(6));
        EXPECT_FALSE(array.AddElemCount(1));
        EXPECT_FALSE(array.SetElemSpace(2));
        TNqCountedPtrArray<TCounted> counted;
        ASSERT_TRUE(counted.ArrayAllocFromBuffer(slots, 1, 3));
        EXPECT_EQ(slots[2], nullptr);
        EXPECT_TRUE(counted.SetElemCount(3));
        EXPECT_EQ(counted[2], nullptr);
        EXPECT_EQ(TakeReports(), TTexts(3, "Can't resize array with external memory"));
        TNqArray<int32> refused;
        EXPECT_FALSE(refused.ArrayAllocFromBuffer(block, 4, 3));
        EXPECT_FALSE(refused.ArrayAllocFromBuffer(nullptr, 0, 1));
        EXPECT_EQ(refused.BaseAddress(), nullptr);
        EXPECT_FALSE(TCountedPointers().ArrayAllocFromBuffer(slots, 4, 3));
        EXPECT_EQ(TakeReports(), (TTexts{"count <= space", "buffer != nullptr || space == 0", "count <= space"}));
    }
    EXPECT_EQ(block[1], 4);
    EXPECT_EQ(block[2], 5);
    EXPECT_EQ(gPool[1].fCount, 0) << "the reference in use passed to the array";
}

TEST_F(ArrayTest, ACountedArrayReleasesOnlyWhatItHolds)
{
    const std::function<void(TCountedPointers&)> beginnings[] = {
        [](TCountedPointers& array) { array.ArrayAlloc(3, 2, 1); },
        [](TCountedPointers& array) { array.ArrayAllocFromBuffer(nullptr, 0, 1); },
        [](TCountedPointers& array) { array.ZeroInternals(); },
        [](TCountedPointers& array) { array.SetValid(false); },
    };
    for (const auto& begin : beginnings)
    {
        TCountedPointers array;
        begin(array);
        void* const dirt = Nqmalloc(128); // the block of the array, when it is given out again
        std::memset(dirt, 0xAA, 128);
        Nqfree(dirt);
        EXPECT_TRUE(array.SetElemSpace(16) && array.AddElem(gPool + 1) && array.AddElemCount(3));
        EXPECT_TRUE(array.AddElem(gPool + 2) && array.SetElemCount(8));
        for (uint32 i = 0; i < 8; ++i)
            EXPECT_EQ(array[i], i == 0 ? gPool + 1 : i == 4 ? gPool + 2 : nullptr);
        array.SetValid(false);
        array.ArrayFree();
        EXPECT_EQ(array.GetElemCount(), 8U);
        array.SetValid(true);
        array.ArrayFree();
        EXPECT_EQ(gPool[1].fCount + gPool[2].fCount, 0);
        TakeReports(); // of an array that is not valid
    }
}

TEST_F(ArrayTest, IteratorsOverObjectsEndOnePastAndOverPointersAtNull)
{
    const char* const forgot = "fCurrent == NULL, did you forget to call/check More()?";
    const char* const past = "Went past the end of the Array!!!";
    TNqClassArray<int32> objects;
    TNqPtrArray<int32> pointers;
    TNqIterator<int32> walk(objects, 0);
    TNqConstPtrIterator<int32> ptrWalk(pointers, 0);
    EXPECT_TRUE(walk.Next() == nullptr && ptrWalk.Next() == nullptr);
    EXPECT_EQ(TakeReports(), TTexts(2, forgot));
    EXPECT_TRUE(walk.First() == nullptr && ptrWalk.First() == nullptr);
    objects.SetElemSpace(1); // the block must move during the walk
    pointers.SetElemSpace(1);
    *pointers.Begin() = &objects.BaseAddress()[0];
    EXPECT_TRUE(walk.First() == nullptr && ptrWalk.First() == nullptr) << "room, but no element";
    for (uint32 i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(objects.AddElem(static_cast<int32>(i)));
        int32* const elem = i == 0 ? walk.First() : walk.Next();
        ASSERT_EQ(elem, objects.BaseAddress() + i);
        EXPECT_EQ(walk.GetIndex(), i);
        EXPECT_TRUE(walk.More());
    }
    EXPECT_EQ(walk.Next(), objects.BaseAddress() + 3);
    EXPECT_FALSE(walk.More());
    EXPECT_EQ(walk.Next(), nullptr);
    pointers.AddElem(&objects[0]);
    pointers.AddElem(&objects[1]);
    EXPECT_EQ(ptrWalk.First(), &objects[0]);
    EXPECT_EQ(ptrWalk.Next(), &objects[1]);
    EXPECT_EQ(ptrWalk.Next(), nullptr);
    pointers.SetElemCount(0); // a count that shrinks under the iterator
    EXPECT_EQ(ptrWalk.Next(), nullptr);
    EXPECT_EQ(TakeReports(), TTexts(2, past));
}
