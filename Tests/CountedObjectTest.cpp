#include "NqCore/PublicAPI/NqCountedObject.h"
#include "NqCore/PublicAPI/NqCountedPtr.h"
#include "NqCore/PublicAPI/NqCountedPtrHelper.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqPtr.h"
#include "NqCore/PublicAPI/NqPtrArray.h"
#include "NqCore/PublicAPI/NqSafeGUID.h"
#include "NqCore/PublicAPI/NqString.h"
#include "Tests/TestHost.h"

#include <type_traits>

struct TNqCountedObjectLayout
{
    static_assert(sizeof(TNqCountedObject) == 32);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(offsetof(TNqCountedObject, fRefCount) == 8 && offsetof(TNqCountedObject, fUniqueObjectNumber) == 12);
    static_assert(offsetof(TNqCountedObject, fPreviousCountedObject) == 16 &&
                  offsetof(TNqCountedObject, fNextCountedObject) == 24);
};
struct TNqSMPCountedObjectLayout
{
    static_assert(sizeof(TNqSMPCountedObject) == 16 && offsetof(TNqSMPCountedObject, fRefCountAC) == 8);
    static void SetCount(TNqSMPCountedObject& object, int count) { SetAtomicCounterValue(object.fRefCountAC, count); }
};
struct TNqExceptionLayout
{
    static_assert(sizeof(TNqException) == 40 && offsetof(TNqException, fError) == 8 &&
                  offsetof(TNqException, fFile) == 16);
    static_assert(offsetof(TNqException, fLine) == 24 && offsetof(TNqException, fErrorString) == 32);
#pragma GCC diagnostic pop
};

namespace
{

int gDestroyed = 0;

class TTracked : public TNqCountedObject
{
public:
    ~TTracked() override { ++gDestroyed; }
    TNqCountedPtr<TTracked> fOther; // keeps another object alive
};

int32 LivingObjects()
{
    return GetAtomicCounterValue(*gCurrentCountedObjects);
}

// The registered objects from the first to the last, and the same when walked the other way.
std::vector<TNqCountedObject*> Registered()
{
    std::vector<TNqCountedObject*> objects, backwards;
    for (TNqCountedObject* p = *gFirstCountedObject; p != nullptr; p = p->GetNextCountedObject())
        objects.push_back(p);
    for (TNqCountedObject* p = *gLastCountedObject; p != nullptr; p = p->GetPreviousCountedObject())
        backwards.insert(backwards.begin(), p);
    EXPECT_EQ(backwards, objects);
    return objects;
}

int32 ObjectsEverMade()
{
    return GetAtomicCounterValue(*gTotalCountedObjects);
}

void* const kDead = reinterpret_cast<void*>(0xDECEA5EDDECEA5EDULL);

// An object that is never deleted: a reference too few or too many shows in its count.
struct TFake
{
    uint32 AddRef() { return static_cast<uint32>(++fCount); }
    uint32 Release()
    {
        if (--fCount == 0 && fAtEnd)
            fAtEnd();
        return static_cast<uint32>(fCount);
    }
    void* fMark = nullptr;
    int fCount = 0;
    std::function<void()> fAtEnd;
};

// One of everything that holds references.
struct THolders
{
    ~THolders() { Clear(); }
    void Clear()
    {
        ReleaseIfNotNull(fSlot);
        fPointer = nullptr;
        fArray.ArrayFree();
    }

    TFake* fSlot = nullptr;
    TNqCountedPtr<TFake> fPointer;
    TNqCountedPtrArray<TFake> fArray;
};

TFake gOther;

// Each way to store a pointer over what is there, and to let go of it.
struct TWay
{
    std::function<void(THolders&, TFake*)> fStore;
    std::function<void(THolders&)> fLetGo;
};
const auto kSetElem = [](THolders& h, TFake* p) { h.fArray.SetElemCount(1), h.fArray.SetElem(0, p); };
const auto kAssignArray = [](THolders& h, TFake* p)
{
    TNqCountedPtrArray<TFake> source;
    source.AddElem(p);
    h.fArray = source;
};
const TWay kWays[] = {
    {[](THolders& h, TFake* p) { TNqCountedGetHelper<TFake>{& h.fSlot} = p; },
     [](THolders& h) { ReleaseIfNotNull(h.fSlot); }},
    {[](THolders& h, TFake* p) { TNqCountedPtr<TFake>::Assign(&h.fSlot, p); },
     [](THolders& h) { gOther.AddRef(), TNqCountedCreateHelper<TFake>{& h.fSlot} = &gOther; }},
    {[](THolders& h, TFake* p) { h.fPointer = p; }, [](THolders& h) { h.fPointer = nullptr; }},
    {[](THolders& h, TFake* p) { h.fPointer = TNqCountedPtr<TFake>(p); },
     [](THolders& h)
     {
         h.fPointer.~TNqCountedPtr();
         new (static_cast<void*>(std::addressof(h.fPointer))) TNqCountedPtr<TFake>;
     }},
    {kSetElem, [](THolders& h) { h.fArray.SetElem(0, nullptr); }},
    {kSetElem, [](THolders& h) { h.fArray.AddElem(&gOther), h.fArray.AddElem(&gOther), h.fArray.SetElemCount(0); }},
    {kSetElem, [](THolders& h) { h.fArray.SetElemSpace(0); }},
    {kAssignArray, [](THolders& h) { h.fArray.ArrayFree(); }},
    {kAssignArray, [](THolders& h) { h.fArray = TNqCountedPtrArray<TFake>(); }},
};

} // namespace

using CountedObject = NqTest;
using SmartPointer = NqTest;
using ExceptionTest = NqTest;

TEST_F(CountedObject, TheListHoldsExactlyTheLivingObjectsInOrderOfCreation)
{
    std::mt19937 random(11);
    std::vector<TNqCountedObject*> model;
    uint32 lastNumber = 0;
    const int32 before = LivingObjects();
    for (int step = 0; step < 2000; ++step)
    {
        if (model.empty() || random() % 5 < 3)
        {
            TNqCountedObject* object = nullptr;
            TNqCountedObject::Create(&object);
            EXPECT_GT(object->GetUniqueObjectNumber(), lastNumber);
            lastNumber = object->GetUniqueObjectNumber();
            model.push_back(object);
        }
        else
        {
            const size_t i = random() % model.size();
            EXPECT_EQ(model[i]->Release(), 0U);
            model.erase(model.begin() + static_cast<long>(i));
        }
        ASSERT_EQ(Registered(), model);
        ASSERT_EQ(LivingObjects() - before, static_cast<int32>(model.size()));
    }
    for (TNqCountedObject* object : model)
        object->Release();
    EXPECT_TRUE(Registered().empty());
}

TEST_F(CountedObject, OneMadeBeforeTheRegistryIsNeverCountedNorUnlinked)
{
    TNqCountedObject** first;
    TNqCountedObject** last;
    TNqSMPCountedObject** firstSMP;
    TNqSMPCountedObject** lastSMP;
    TNqAtomicCounter** total;
    TNqAtomicCounter** current;
    GetNqCountedObject(first, last, firstSMP, lastSMP, total, current);
    InitNqCountedObject(first, last, firstSMP, lastSMP, total, nullptr);
    TNqCountedObject* early = new TNqCountedObject;
    InitNqCountedObject(first, last, firstSMP, lastSMP, total, current);
    EXPECT_EQ(std::tie(gFirstSMPCountedObject, gLastSMPCountedObject), std::tie(firstSMP, lastSMP));
    EXPECT_EQ(TakeReports(), TTexts{"InitNqCountedObject should be called before creating counted objects"});
    EXPECT_EQ(early->GetUniqueObjectNumber(), 0U);
    TNqCountedObject other;
    const int32 living = LivingObjects();
    EXPECT_EQ(early->AddRef(), 2U);
    EXPECT_EQ(early->Release(), 1U);
    EXPECT_EQ(early->Release(), 0U);
    EXPECT_EQ(LivingObjects(), living);
    EXPECT_EQ(Registered(), std::vector<TNqCountedObject*>{&other});
}

TEST_F(CountedObject, WrongCountsAtTheEndAreReported)
{
    TNqCountedObject().AddRef();
    TNqSMPCountedObject();
    TNqSMPCountedObject released;
    TNqSMPCountedObjectLayout::SetCount(released, 0);
    EXPECT_EQ(released.Release(), 0xFFFFFFFFU); // one Release too many deletes nothing
    TNqSMPCountedObjectLayout::SetCount(released, 0);
    EXPECT_EQ(TakeReports(), (TTexts{"fRefCount <= 1", "GetAtomicCounterValue(fRefCountAC) == 0",
                                     "TNqSMPCountedObject: ref count < 0"}));
}

TEST_F(CountedObject, QueriesKeepTheCountsRight)
{
    TTracked* object = new TTracked;
    TTracked* other = new TTracked;
    gDestroyed = 0;
    void* out = static_cast<INqUnknown*>(other);
    EXPECT_EQ(object->QueryInterface(IID_INqMenuBar, &out), kNqNoInterface);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(gDestroyed, 1); // what the caller held was released
    EXPECT_EQ(object->QueryInterface(IID_INqUnknown, &out), 0);
    EXPECT_EQ(object->AddRef(), 3U);
    EXPECT_EQ(object->Release(), 2U);
    // Asking again into the same pointer must not drop the last reference on the way.
    EXPECT_EQ(object->Release(), 1U);
    EXPECT_EQ(object->QueryInterface(IID_INqUnknown, &out), 0);
    EXPECT_EQ(gDestroyed, 1);
    ReleaseIfNotNull(out);
    EXPECT_EQ(gDestroyed, 2);
    EXPECT_EQ(out, nullptr);
}

TEST_F(CountedObject, SlotsStandWherePlugInsCallThem)
{
    TNqCountedObject* plain = nullptr;
    TNqSMPCountedObject* shared = nullptr;
    const int32 made = ObjectsEverMade();
    TNqCountedObject::Create(&plain);
    TNqSMPCountedObject::Create(&shared);
    EXPECT_EQ(ObjectsEverMade(), made + 2);
    EXPECT_EQ(plain->QueryInterface(IID_INqUnknown, nullptr), kNqNoInterface);
    EXPECT_EQ(TakeReports(), TTexts{"outInterface != NULL"});
    for (void* const object : {static_cast<void*>(plain), static_cast<void*>(shared)})
    {
        using TCount = uint32 (*)(void*);
        EXPECT_EQ(Slot<TCount>(object, 1)(object), 2U);
        EXPECT_EQ(Slot<TCount>(object, 2)(object), 1U);
        const int32 living = LivingObjects();
        EXPECT_EQ(Slot<TCount>(object, 2)(object), 0U);
        EXPECT_EQ(LivingObjects(), living - 1);
    }
    TNqCountedObject::Create(nullptr);
    EXPECT_EQ(TakeReports(), TTexts{"outObject != NULL"});
}

TEST_F(CountedObject, CreationWithoutMemoryThrowsAndKeepsTheCallersObject)
{
    TNqSMPCountedObject* object = nullptr;
    TNqSMPCountedObject::Create(&object);
    TNqSMPCountedObject* const old = object;
    const int32 living = LivingObjects();
    const auto create = [&](int64)
    {
        try
        {
            TNqSMPCountedObject::Create(&object);
        }
        catch (const TNqException& error)
        {
            EXPECT_TRUE(error.GetError() == kNqErrOutOfMemory && object == old);
        }
        EXPECT_EQ(LivingObjects(), living);
    };
    ForEachFailingAllocation(create);
    EXPECT_NE(object, old);
    object->Release();
}

TEST_F(CountedObject, SharedCountsSurviveThreads)
{
    TNqSMPCountedObject* object = nullptr;
    TNqSMPCountedObject::Create(&object);
    const auto work = [object](int)
    {
        for (int i = 0; i < 20000; ++i)
            object->AddRef(), object->Release();
    };
    OnThreads(4, work);
    EXPECT_EQ(object->AddRef(), 2U);
    object->Release();
    EXPECT_EQ(object->Release(), 0U);
}

TEST_F(CountedObject, IdentifiersAreSixteenBytesInOrder)
{
    const struct
    {
        const NqGUID& fIdentifier;
        uint8 fBytes[16];
    } cases[] = {
        {NqGUID_NULL, {}},
        {IID_INqUnknown, {0, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}},
        {IID_INqClassFactory, {1, 0, 0, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}},
        {IID_INqFile, {0x40, 0x94, 0xF1, 0x58, 0xE7, 0x50, 0xD2, 0x11, 0xA6, 0x3C, 0, 0, 0xC0, 0x3B, 0x8B, 0x53}},
        {IID_INqLargeFile,
         {0x21, 0xFC, 0xF6, 0xD5, 0xBD, 0x16, 0xAD, 0x4A, 0xAD, 0xFD, 0x1F, 0x59, 0x81, 0x0A, 0x76, 0x57}},
        {IID_ITranscoder,
         {0xCF, 0x30, 0xEA, 0x83, 0x91, 0x7D, 0x14, 0x49, 0xAA, 0xB4, 0x9E, 0x65, 0x6C, 0x01, 0x27, 0x3E}},
        {IID_INqMenuBar,
         {0xEC, 0xDD, 0xE4, 0x19, 0x30, 0x77, 0x68, 0x42, 0xBD, 0x12, 0x48, 0x5E, 0xF2, 0x76, 0x2D, 0xA8}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(std::memcmp(static_cast<const void*>(&c.fIdentifier), c.fBytes, 16), 0) << (&c - cases);
    for (size_t i = 0; i < 16; ++i)
    {
        NqGUID other = IID_ITranscoder;
        reinterpret_cast<uint8*>(&other)[i] ^= 0x80;
        EXPECT_FALSE(NqInlineIsEqualGUID(other, IID_ITranscoder)) << i;
    }
    EXPECT_TRUE(NqInlineIsEqualGUID(NqGUID(0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46), IID_INqUnknown));
}

TEST_F(SmartPointer, AssigningWhatTheOldObjectHoldsKeepsItAlive)
{
    gDestroyed = 0;
    TNqCountedPtr<TTracked> pointer;
    *pointer.GetAddress() = new TTracked;
    TNqCountedCreateHelper<TTracked>{& pointer->fOther} = new TTracked;
    pointer = static_cast<TTracked*>(pointer->fOther); // its only owner goes away
    EXPECT_EQ(gDestroyed, 1);
    EXPECT_EQ(pointer->AddRef(), 2U);
    const TNqCountedPtr<TTracked>& same = pointer;
    pointer = same;
    EXPECT_EQ(pointer->Release(), 1U);
    TNqCountedPtr<TTracked> copy(pointer);
    EXPECT_EQ(copy->AddRef(), 3U);
    copy->Release();
    copy = nullptr;
    EXPECT_TRUE(!copy);
    TTracked* raw = pointer;
    TNqCountedCreateHelper<TTracked>{& pointer} = raw; // the pointer that is there already
    EXPECT_EQ(raw->AddRef(), 2U);
    raw->Release();
    EXPECT_THROW(TNqCountedCreateHelper<TTracked>{& pointer} = nullptr, TNqException);
    EXPECT_EQ(static_cast<TTracked*>(pointer), raw);
    ReleaseIfNotNull(*pointer.GetAddress());
    EXPECT_EQ(gDestroyed, 2);
    EXPECT_EQ(TakeReports(), TTexts{"An exception is being thrown"});
}

TEST_F(SmartPointer, EveryHolderCountsBeforeItReleasesAndReleasesOnce)
{
    for (const TWay& way : kWays)
    {
        SCOPED_TRACE(&way - kWays);
        THolders holders;
        TFake owner, owned, zombie, last;
        owner.fAtEnd = [&] { owned.Release(); };
        owned.fAtEnd = [&] { holders.Clear(); }; // reaches whoever lets go of it
        way.fStore(holders, &owner);
        owned.AddRef();
        way.fStore(holders, &owned); // only its owner held it
        EXPECT_EQ(owner.fCount, 0);
        EXPECT_EQ(owned.fCount, 1);
        way.fLetGo(holders);
        EXPECT_EQ(owned.fCount, 0);
        zombie.fMark = kDead; // neither counted nor released, whatever comes after it
        way.fStore(holders, &zombie);
        way.fStore(holders, &last);
        EXPECT_EQ(last.fCount, 1);
        way.fStore(holders, &zombie);
        way.fLetGo(holders);
        EXPECT_EQ(zombie.fCount, 0);
        EXPECT_EQ(last.fCount, 0);
        TakeReports(); // of the zombie
    }
}

TEST_F(SmartPointer, DeadPointersAreReportedAndLeftAlone)
{
    TTracked* const dead = static_cast<TTracked*>(kDead);
    void* deadObject[8] = {kDead};
    TTracked* const zombie = reinterpret_cast<TTracked*>(deadObject);
    {
        TNqCountedPtr<TTracked> pointer(dead);
        TNqCountedPtr<TTracked> copy(pointer);
        (void)static_cast<TTracked*>(pointer);
        (void)pointer.operator->();
        TTracked object;
        pointer = &object; // the dead one is not released
        pointer = nullptr;
    }
    const char* const start = "!NqCheckDeceased(*(void**)fObject)";
    EXPECT_EQ(TakeReports(), (TTexts{"!NqCheckDeceased(lp)", "!NqCheckDeceased(lp.fObject)",
                                     "!NqCheckDeceased(fObject)", "Bad Pointer", "!NqCheckDeceased(*pp)",
                                     "!NqCheckDeceased(fObject)"})); // the last at the copy's end
    TNqCountedPtr<TTracked> pointer;
    pointer = dead;
    *pointer.GetAddress() = nullptr;
    pointer = zombie;
    *pointer.GetAddress() = nullptr;
    (void)pointer.operator->();
    TTracked object;
    EXPECT_EQ(TNqCountedPtr<TTracked>::Assign(nullptr, &object), &object);
    EXPECT_EQ(TNqCountedPtr<TTracked>::Assign(static_cast<TTracked**>(kDead), &object), &object);
    {
        TNqCountedPtr<TTracked> holder;
        *holder.GetAddress() = zombie;
    }
    EXPECT_EQ(TakeReports(),
              (TTexts{"(lp == NULL) || !NqCheckDeceased(lp)", "(lp == NULL) || !NqCheckDeceased(*(void**)lp)",
                      "Bad Pointer", "Bad Pointer", "Bad Pointer", start}));
    TNqPtr<TTracked> plain;
    (void)plain.operator->();
    plain = zombie;
    (void)plain.operator->();
    (void)static_cast<TTracked*>(plain);
    plain = dead;
    (void)static_cast<TTracked*>(plain);
    const std::string wanted = std::string("fObject && ") + start;
    EXPECT_EQ(TakeReports(), (TTexts{"Bad Pointer", wanted, wanted, std::string("(fObject == NULL) || ") + start,
                                     "!NqCheckDeceased(fObject)"}));
}

TEST_F(ExceptionTest, EachCodeHasItsReport)
{
    const std::pair<uint32, TTexts> cases[] = {
        {0, {}},
        {0x80010081, {}},
        {4, {"An unable to connect exception is being thrown"}},
        {0x80010080, {"A cancel exception is being thrown"}},
        {0x800101EA, {"A cancel exception is being thrown"}},
        {0xFFFFFFFF, {"An exception is being thrown"}},
    };
    const char* const file = "a/file.cpp";
    for (const auto& [code, reports] : cases)
    {
        const TNqException error(static_cast<int>(code), file, 12);
        EXPECT_EQ(TakeReports(), reports) << code;
        EXPECT_EQ(error.GetError(), static_cast<NqErr>(code));
        const TNqException copy(error);
        EXPECT_EQ(copy.what(), file);
        EXPECT_TRUE(TakeReports().empty());
        using TWhat = const char* (*)(const void*);
        EXPECT_EQ(Slot<TWhat>(const_cast<TNqException*>(&copy), 0)(&copy), file);
    }
}

TEST_F(ExceptionTest, TheMessageMovesWithTheCopyAndEndsOnce)
{
    struct TMessage : TNqString15
    {
        TMessage() : TNqString15("why") {}
        using TNqString15::operator=;
        ~TMessage() override { ++gDestroyed; }
    };
    gDestroyed = 0;
    TMessage* const message = new TMessage;
    {
        const TNqException first(kNqErrSilent, message, "a/file.cpp", 0);
        const TNqException copy(first);
        EXPECT_EQ(first.GetErrorString(), nullptr);
        EXPECT_EQ(copy.GetErrorString(), message);
        TNqException assigned(kNqNoErr, nullptr, 0);
        assigned = copy;
        EXPECT_EQ(assigned.GetError(), kNqErrSilent);
        EXPECT_STREQ(assigned.what(), "a/file.cpp");
        const TNqException& same = assigned;
        assigned = same;
        EXPECT_EQ(copy.GetErrorString(), nullptr);
        EXPECT_EQ(assigned.GetErrorString(), message);
        EXPECT_EQ(gDestroyed, 0);
    }
    EXPECT_EQ(gDestroyed, 1);
}
