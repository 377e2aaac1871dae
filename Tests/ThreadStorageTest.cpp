#include "NqCore/PublicAPI/NqSMP.h"
#include "Tests/TestHost.h"

#include <map>
#include <memory>
#include <mutex>
#include <set>

struct TNqExtensibleArrayLayout
{
    using TArray = TNqExtensibleArray<int64>;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(sizeof(TArray) == 72 && offsetof(TArray, fElemCount) == 16 && offsetof(TArray, fData) == 24);
    static_assert(sizeof(TNqCountedBlock<int64>) == 32 && sizeof(TNqLocalStorageDataPtrArray) == 80);
#pragma GCC diagnostic pop
};

namespace
{

// A thread that does what it is told, one thing after the other.
class TServant
{
public:
    ~TServant()
    {
        fOrder = nullptr;
        SignalSemaphore(fGiven);
        fThread.join();
        DeleteSemaphore(fGiven);
        DeleteSemaphore(fDone);
    }
    void Do(std::function<void()> order)
    {
        fOrder = std::move(order);
        SignalSemaphore(fGiven);
        WaitForSemaphore(fDone, -1);
    }

private:
    void Serve()
    {
        SetupSmpThreadLocalStorage();
        for (WaitForSemaphore(fGiven, -1); fOrder != nullptr; WaitForSemaphore(fGiven, -1))
        {
            fOrder();
            SignalSemaphore(fDone);
        }
    }

    std::function<void()> fOrder; // null to end
    TNqSemaphore* const fGiven = NewSemaphore(1, 0);
    TNqSemaphore* const fDone = NewSemaphore(1, 0);
    std::thread fThread{[this] { Serve(); }};
};

using TValues = std::multiset<void*>;

std::mutex gEndedMutex;
TValues gEnded; // what the destructor was called with

void RecordEnd(void** value)
{
    const std::lock_guard<std::mutex> lock(gEndedMutex);
    gEnded.insert(*value);
}

TValues TakeEnded()
{
    const std::lock_guard<std::mutex> lock(gEndedMutex);
    return std::exchange(gEnded, {});
}

void* MakeValue(size_t number)
{
    return reinterpret_cast<void*>(number * 16);
}

} // namespace

using ThreadStorage = NqTest;
using ExtensibleArray = NqTest;

TEST_F(ExtensibleArray, AddressesAndValuesSurviveGrowthAlsoWhenMemoryIsShort)
{
    std::mt19937 random(3);
    for (int32 logGrow : {0, 2, 4, 9})
    {
        TNqExtensibleArray<int64> array(8, logGrow, true);
        std::vector<std::pair<int64*, int64>> model;
        std::vector<std::vector<int64>> strangers; // lie where blocks were that a failure gave back
        for (int step = 0; step < 300; ++step)
        {
            const int32 before = array.GetElemCount();
            const int32 count = static_cast<int32>(random() % 280) - 10;
            TestHost().FailAllocations(random() % 3 == 0 ? 1 + random() % 6 : 0);
            const boolean grown = array.SetElemCount(count);
            TestHost().FailAllocations(0);
            for (const std::string& report : TakeReports())
                ASSERT_EQ(report, "Array allocation failed!") << "nothing is thrown";
            if (!grown)
                strangers.emplace_back(size_t{1} << logGrow, -1);
            ASSERT_TRUE(!grown || (count >= 0 && count <= 256));
            ASSERT_EQ(array.GetElemCount(), grown ? count : before);
            const size_t used = static_cast<size_t>(array.GetElemCount());
            for (size_t i = used; i < model.size(); ++i)
                model[i].second = 0; // out of use, zero when it comes back
            for (size_t i = model.size(); i < used; ++i)
                model.push_back({&array[static_cast<int32>(i)], 0});
            for (size_t i = 0; i < used; ++i)
            {
                ASSERT_EQ(&array[static_cast<int32>(i)], model[i].first);
                ASSERT_EQ(*model[i].first, model[i].second);
            }
            if (used != 0)
            {
                auto& [address, value] = model[random() % used];
                *address = value = step + 1;
            }
        }
        EXPECT_TRUE(array.SetElemCount(256));
    }
}

TEST_F(ExtensibleArray, ABlockIsMadeWithoutATraceOrNotAtAll)
{
    using TBlock = TNqCountedBlock<int64>;
    TBlock::Create(nullptr, 4, true);
    EXPECT_EQ(TakeReports(), TTexts{"outObject != NULL"});
    const int32 living = GetAtomicCounterValue(*gCurrentCountedObjects);
    const int32 made = GetAtomicCounterValue(*gTotalCountedObjects);
    TBlock* block = nullptr;
    ForEachFailingAllocation(
        [&](int64)
        {
            EXPECT_EQ(block, nullptr);
            try
            {
                TBlock::Create(&block, 4, true);
                EXPECT_EQ(GetAtomicCounterValue(*gCurrentCountedObjects), living + 1);
            }
            catch (const TNqException& error)
            {
                EXPECT_EQ(error.GetError(), kNqErrOutOfMemory);
                EXPECT_EQ(GetAtomicCounterValue(*gCurrentCountedObjects), living);
            }
        });
    ASSERT_NE(block, nullptr);
    EXPECT_GT(GetAtomicCounterValue(*gTotalCountedObjects), made);
    EXPECT_EQ(block->GetData()[3], 0);
    EXPECT_EQ(block->Release(), 0U);
    EXPECT_EQ(GetAtomicCounterValue(*gCurrentCountedObjects), living);
}

TEST_F(ExtensibleArray, ABadIndexIsReportedAndHarmless)
{
    EXPECT_EQ(TNqExtensibleArray<int64>(-1, -1, true).GetMaxElemCount(), 1);
    EXPECT_EQ(TNqExtensibleArray<int64>(31, 31, true).GetMaxElemCount(), 1 << 30);
    TNqExtensibleArray<int64> array(10, 4, true);
    ASSERT_TRUE(array.SetElemCount(18));
    EXPECT_EQ(&array[17], &array[16] + 1); // the second element of the second block
    for (int32 index : {-1, 18, 32, 1 << 30})
    {
        array[index] = 7;
        EXPECT_EQ(array[index], 0);
        EXPECT_EQ(TakeReports(), TTexts(2, "i>=0 && i < fElemCount"));
    }
}

TEST_F(ThreadStorage, EveryThreadSeesItsOwnValuesUntilTheyEnd)
{
    struct THandle
    {
        TNqLocalStorage* fStorage;
        bool fEnds;
        std::map<size_t, void*> fValues; // by thread
    };
    std::mt19937 random(5);
    std::vector<std::unique_ptr<TServant>> threads(4);
    std::vector<THandle> handles;
    size_t lastValue = 0;
    for (int step = 0; step < 3000; ++step)
    {
        const size_t thread = random() % threads.size();
        const size_t dice = random() % 100;
        if (threads[thread] == nullptr)
            threads[thread] = std::make_unique<TServant>();
        if (handles.empty() || dice < 4)
        {
            const bool ends = random() % 2 == 0;
            handles.push_back({ends ? NewTLSWithDelete(RecordEnd) : NewTLS(), ends, {}});
        }
        THandle& handle = handles[random() % handles.size()];
        TValues ended;
        const auto end = [&ended](const THandle& inHandle, void* inValue)
        {
            if (inHandle.fEnds && inValue != nullptr)
                ended.insert(inValue);
        };
        if (dice >= 98)
        {
            threads[thread] = nullptr;
            for (THandle& h : handles)
            {
                end(h, h.fValues[thread]);
                h.fValues.erase(thread);
            }
        }
        else if (dice >= 95)
        {
            DeleteTLS(handle.fStorage);
            for (const auto& [owner, value] : handle.fValues)
                end(handle, value);
            std::swap(handle, handles.back());
            handles.pop_back();
        }
        else
        {
            void* const value = dice < 10 ? nullptr : MakeValue(++lastValue);
            threads[thread]->Do(
                [&]
                {
                    EXPECT_EQ(GetTLS(handle.fStorage), handle.fValues[thread]);
                    EXPECT_EQ(SetTLS(handle.fStorage, value), value);
                });
            handle.fValues[thread] = value;
        }
        ASSERT_EQ(TakeEnded(), ended) << "step " << step;
    }
    for (THandle& handle : handles)
        DeleteTLS(handle.fStorage);
    threads.clear();
    TakeEnded();
}

TEST_F(ThreadStorage, AThreadWithoutATableAndBadHandlesAreReported)
{
    TNqLocalStorage* storage = NewTLS();
    std::thread(
        [&]
        {
            EXPECT_FALSE(IsTLSValid());
            EXPECT_EQ(GetTLS(storage), nullptr);
            EXPECT_EQ(SetTLS(storage, &storage), nullptr);
            EXPECT_EQ(TakeReports(), TTexts(2, "localStorage"));
            SetupSmpThreadLocalStorage();
            EXPECT_EQ(SetTLS(storage, &storage), &storage);
            SetupSmpThreadLocalStorage();
            EXPECT_EQ(GetTLS(storage), &storage);
        })
        .join();
    DeleteTLS(storage);

    TNqLocalStorage* none = nullptr;
    EXPECT_EQ(SetTLS(none, &none), nullptr);
    EXPECT_EQ(GetTLS(none), nullptr);
    EXPECT_EQ(TakeReports(), TTexts({"aTLS"}));
    for (int32 index : {-1, 4096})
    {
        TNqLocalStorage outside(index);
        EXPECT_EQ(GetTLS(&outside), nullptr);
        EXPECT_EQ(TakeReports().size(), 1U);
    }
}

TEST_F(ThreadStorage, HandlesRunOutAndComeBack)
{
    std::vector<TNqLocalStorage*> handles;
    while (TNqLocalStorage* storage = NewTLS())
        handles.push_back(storage);
    EXPECT_GT(handles.size(), 4000U);
    SetTLS(handles.back(), &handles);
    DeleteTLS(handles.back());
    handles.back() = NewTLS();
    EXPECT_EQ(GetTLS(handles.back()), nullptr);
    for (TNqLocalStorage* storage : handles)
        DeleteTLS(storage);
}

TEST_F(ThreadStorage, ADestructorMaySetValuesButNotForEver)
{
    static TNqLocalStorage* sFirst;
    static TNqLocalStorage* sSecond;
    sSecond = NewTLSWithDelete(RecordEnd);
    sFirst = NewTLSWithDelete(
        [](void** inValue)
        {
            SetTLS(sSecond, *inValue);
            SetTLS(sFirst, *inValue);
        });
    TServant().Do([] { SetTLS(sFirst, MakeValue(1)); });
    EXPECT_GE(TakeEnded().count(MakeValue(1)), 1U);
    SetTLS(sFirst, MakeValue(2));
    DeleteTLS(sFirst);
    DeleteTLS(sSecond);
    EXPECT_GE(TakeEnded().count(MakeValue(2)), 1U);
}

TEST_F(ThreadStorage, WithoutMemoryNothingIsStoredAndLaterAllWorks)
{
    ForEachFailingAllocation(
        [](int64)
        {
            const auto use = [](int)
            {
                SetupSmpThreadLocalStorage();
                TNqLocalStorage* storage = NewTLS();
                void* const stored = SetTLS(storage, &storage);
                TestHost().FailAllocations(0);
                SetupSmpThreadLocalStorage();
                storage = storage == nullptr ? NewTLS() : storage;
                EXPECT_EQ(GetTLS(storage), stored);
                EXPECT_EQ(SetTLS(storage, MakeValue(1)), MakeValue(1));
                DeleteTLS(storage);
            };
            OnThreads(1, use);
        });
}

TEST_F(ThreadStorage, TheLayerStopsAndStartsAgain)
{
    TNqLocalStorage* storage = NewTLSWithDelete(RecordEnd);
    SetTLS(storage, MakeValue(2));
    TerminateSMP();
    EXPECT_EQ(TakeEnded(), TValues({MakeValue(2)}));
    EXPECT_EQ(GetSMPAbortFlag(), nullptr); // without a report, though this thread has no table
    EXPECT_GE(GetNumberOfProcessors(), 1);
    InitSMP(true);
    InitSMP(true);
    EXPECT_EQ(GetTLS(storage), nullptr);
    const TNqAbortFlag flag{false};
    TNqHost::SetThreadAbortFlag(&flag);
    EXPECT_EQ(GetSMPAbortFlag(), &flag);
    TNqHost::SetThreadAbortFlag(nullptr);
    DeleteTLS(storage);
}
