#include "NqCore/PublicAPI/NqCommandBinding.h"

#include "NqCore/PublicAPI/NqException.h"
#include "Tests/TestHost.h"

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace
{

static_assert(offsetof(TNqCommandBinding, fCommandID) == 8 && offsetof(TNqCommandBinding, fIsValid) == 12 &&
              offsetof(TNqCommandBinding, fStickyShift) == 14 && offsetof(TNqCommandBinding, fAlt) == 16 &&
              offsetof(TNqCommandBinding, fChar) == 18 && offsetof(TNqCommandBinding, fCommandName) == 24 &&
              offsetof(TNqCommandBinding, fPrivate) == 56);
static_assert(offsetof(TNqCommandBindingGroup, fGroupName) == 16 && offsetof(TNqCommandBindingGroup, fBindings) == 48);
static_assert(offsetof(TNqCommandBindingContext, fBindingContextName) == 16 &&
              offsetof(TNqCommandBindingContext, fBindingGroups) == 48);

int gLiving = 0;

template <class Base>
struct TCounted : Base
{
    TCounted() { ++gLiving; }
    ~TCounted() override { --gLiving; }
};

struct TGroup : TCounted<TNqCommandBindingGroup>
{
    TNqCommandBinding* CreateCommandBinding() override { return new TCounted<TNqCommandBinding>; }
};

struct TContext : TCounted<TNqCommandBindingContext>
{
    TNqCommandBindingGroup* CreateBindingGroup() override { return new TGroup; }
};

class CommandBindingTest : public NqTest
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(gLiving, 0);
        NqTest::TearDown();
    }
};

// Names of few different bytes, so that many are equal and the 8-bit order goes round in circles.
TNqString15 RandomName(TRandom& random)
{
    std::string name;
    for (int n = random.Below(3); n > 0; --n)
        name += "AB\x7F\x80\xC1\xFF"[random.Below(6)];
    return TNqString15(name.c_str(), static_cast<uint32>(name.size()));
}

void Randomize(TNqCommandBinding& binding, TRandom& random)
{
    binding.fCommandID = random.Below(12);
    binding.Validate(random.OneIn(2), random.OneIn(4), random.OneIn(2), random.OneIn(2),
                     static_cast<int16>('x' + random.Below(5)), RandomName(random));
}

template <class T>
std::vector<T*> ListOf(const TNqPtrArray<T>& array)
{
    return {array.BaseAddress(), array.BaseAddress() + array.GetElemCount()};
}

// Adds null now and then, as hosts do that keep places free.
void Fill(TNqCommandBindingContext& context, TRandom& random, int32 nullsOneIn)
{
    context.fBindingContextID = static_cast<IDType>(random.Below(4));
    for (int groups = random.Below(5); groups > 0; --groups)
    {
        TNqCommandBindingGroup* const group = context.AddBindingGroup();
        group->fGroupID = static_cast<IDType>(random.Below(4));
        group->fGroupName = RandomName(random);
        for (int n = random.Below(9); n > 0; --n)
        {
            if (random.OneIn(nullsOneIn))
                group->fBindings.AddElem(nullptr);
            else
                Randomize(*group->AddBinding(), random);
        }
        if (random.OneIn(nullsOneIn))
            context.fBindingGroups.AddElem(nullptr);
    }
}

// Whether one event can be meant for both: tried out with every event.
bool Collide(const TNqCommandBinding& a, const TNqCommandBinding& b)
{
    const auto takes = [](const TNqCommandBinding& binding, int shift, int command, int option) {
        return (binding.fStickyShift || binding.fShift == shift) && binding.fControl == command &&
               binding.fAlt == option;
    };
    bool found = false;
    for (int keys = 0; keys < 8; ++keys)
        found = found || (takes(a, keys & 1, keys >> 1 & 1, keys >> 2) && takes(b, keys & 1, keys >> 1 & 1, keys >> 2));
    return found && a.fChar == b.fChar;
}

} // namespace

TEST_F(CommandBindingTest, MatchesAnEventByKeyShiftCommandAndOptionAlone)
{
    const int16 characters[] = {'@', 'A', 'Q', 'Z', '[', '`', 'a', 'q', 'z', '{', 0xE9, 0xC9, 0, -1, '1'};
    for (int keys = 0; keys < 512; ++keys)
    {
        const auto bit = [keys](int i) { return static_cast<boolean>(keys >> i & 1); };
        for (const int16 own : characters)
        {
            TNqCommandBinding binding;
            binding.Validate(bit(0), bit(1), bit(2), bit(3), own, TNqString15("Do"));
            EXPECT_EQ(binding.GetChar(), own == 'a' || own == 'q' || own == 'z' ? own - 32 : own);
            for (const int16 pressed : characters)
            {
                TNqPlatformEvent event;
                event.fChar = pressed;
                event.fModifiers.fShiftKey = bit(4);
                event.fModifiers.fCommandKey = bit(5);
                event.fModifiers.fOptionKey = bit(6);
                event.fModifiers.fControlKey = event.fModifiers.fAlphaLock = bit(7);
                event.fModifiers.fLeftButton = event.fModifiers.fAutoKey = bit(8);
                const bool letters = own < 128 && pressed < 128 && isalpha(own & 127) && isalpha(pressed & 127);
                const bool sameKey = own == pressed || (letters && own >= 0 && pressed >= 0 && (own ^ pressed) == 32);
                ASSERT_EQ(binding.Check(&event), sameKey && bit(0) == bit(4) && bit(2) == bit(5) && bit(3) == bit(6))
                    << keys << " " << own << " " << pressed;
            }
        }
    }
    TNqCommandBinding binding;
    EXPECT_FALSE(binding.Check(nullptr));
    EXPECT_EQ(TakeReports(), TTexts{"inEvent != nullptr"});
    EXPECT_FALSE(binding.fIsValid);
    Slot<void (*)(void*, boolean, boolean, boolean, boolean, int16, const TNqString&)>(&binding, 2)(
        &binding, 2, 0, 4, 8, 'k', TNqString15("Keep"));
    EXPECT_TRUE(binding.fIsValid && binding.GetCommandName() == TNqString15("Keep"));
    TNqPlatformEvent event;
    event.fChar = 'K';
    event.fModifiers.fShiftKey = event.fModifiers.fCommandKey = event.fModifiers.fOptionKey = 1;
    EXPECT_TRUE(binding.Check(&event)); // any value but 0 is down
    EXPECT_TRUE(TNqCommandBinding(binding).Check(&event));
}

TEST_F(CommandBindingTest, FindsWhatASearchByHandFinds)
{
    TRandom random(1);
    for (int round = 0; round < 400; ++round)
    {
        TContext contexts[3];
        TNqCommandBindingContextList list;
        list.AddElem(nullptr);
        for (TContext& context : contexts)
        {
            Fill(context, random, 6);
            list.AddElem(&context);
        }
        const auto contextID = static_cast<IDType>(random.Below(5));
        const auto* const byID = std::find_if(std::begin(contexts), std::end(contexts),
                                              [&](auto& c) { return c.fBindingContextID == contextID; });
        EXPECT_EQ(list.FindBindingContext(contextID), byID == std::end(contexts) ? nullptr : byID);

        const int32 command = random.Below(14);
        TNqCommandBinding* first = nullptr;
        for (TContext& context : contexts)
        {
            TNqCommandBinding sought;
            Randomize(sought, random);
            const TNqCommandBindingGroup* firstByID = nullptr;
            const TNqCommandBindingGroup* collidingGroup = nullptr;
            const TNqCommandBinding* colliding = nullptr;
            size_t nulls = 0;
            TNqCommandBinding* own = nullptr;
            for (TNqCommandBindingGroup* group : ListOf(context.fBindingGroups))
            {
                if (group == nullptr)
                    continue;
                if (firstByID == nullptr && group->GetGroupID() == contextID)
                    firstByID = group;
                for (TNqCommandBinding* binding : ListOf(group->fBindings))
                {
                    nulls += binding == nullptr && colliding == nullptr;
                    if (binding != nullptr && own == nullptr && binding->GetCommandID() == command)
                        own = binding;
                    if (binding == nullptr || colliding != nullptr || !Collide(sought, *binding))
                        continue;
                    colliding = binding;
                    collidingGroup = group;
                }
            }
            first = first != nullptr ? first : own;
            EXPECT_EQ(context.FindBinding(command), own);
            EXPECT_EQ(context.FindBindingGroup(contextID), firstByID);
            TNqCommandAndContext found;
            found.fCommand = &sought;
            context.FindSameShortcut(sought, found);
            EXPECT_TRUE(found.fCommand == colliding && found.fGroup == collidingGroup) << round;
            EXPECT_EQ(TakeReports(), TTexts(nulls, "currBinding"));
        }
        EXPECT_EQ(list.FindBinding(command), first);
    }
}

TEST_F(CommandBindingTest, SortsByNameOrThrowsBeforeAnythingMoves)
{
    TRandom random(2);
    int thrown = 0;
    for (int round = 0; round < 1000; ++round)
    {
        TContext context;
        Fill(context, random, random.OneIn(2) ? 12 : 1000000);
        const auto groups = ListOf(context.fBindingGroups);
        std::vector<std::vector<TNqCommandBinding*>> bindings;
        bool hasNull = groups.size() > 1 && std::count(groups.begin(), groups.end(), nullptr) > 0;
        for (TNqCommandBindingGroup* group : groups)
        {
            bindings.push_back(group == nullptr ? std::vector<TNqCommandBinding*>() : ListOf(group->fBindings));
            const auto& own = bindings.back();
            hasNull = hasNull || (own.size() > 1 && std::count(own.begin(), own.end(), nullptr) > 0);
        }
        NqErr error = kNqNoErr;
        try
        {
            context.Sort();
        }
        catch (const TNqException& exception)
        {
            error = exception.GetError();
            EXPECT_EQ(TakeReports(), TTexts{"An exception is being thrown"});
            ++thrown;
        }
        EXPECT_EQ(error, hasNull ? kNqErrInvalidData : kNqNoErr);
        const auto after = ListOf(context.fBindingGroups);
        EXPECT_TRUE(hasNull ? after == groups : std::is_permutation(groups.begin(), groups.end(), after.begin()));
        for (size_t i = 0; i < groups.size(); ++i)
        {
            const auto now = groups[i] == nullptr ? bindings[i] : ListOf(groups[i]->fBindings);
            ASSERT_EQ(now.size(), bindings[i].size());
            EXPECT_TRUE(hasNull ? now == bindings[i]
                                : std::is_permutation(now.begin(), now.end(), bindings[i].begin()));
        }
    }
    EXPECT_TRUE(thrown > 100 && thrown < 900);

    // Names that are in order byte by byte come out so, whatever order they went in: groups and what is in them.
    for (int32 count = 0; count < 40; ++count)
    {
        TContext context;
        for (int32 i = 0; i < count; ++i)
        {
            TNqCommandBindingGroup* const group = context.AddBindingGroup();
            group->fGroupName.FromInt32(100 + i * 37 % count);
            for (int32 k = 0; k < i; ++k)
                group->AddBinding()->fCommandName.FromInt32(100 + k * 37 % i);
        }
        context.Sort();
        for (uint32 i = 0; i < context.fBindingGroups.GetElemCount(); ++i)
        {
            const TNqCommandBindingGroup& group = *context.fBindingGroups[i];
            EXPECT_TRUE(i == 0 || context.fBindingGroups[i - 1]->fGroupName.ToInt32() <= group.fGroupName.ToInt32());
            for (uint32 k = 1; k < group.fBindings.GetElemCount(); ++k)
                EXPECT_LE(group.fBindings[k - 1]->fCommandName.ToInt32(), group.fBindings[k]->fCommandName.ToInt32());
        }
    }
}

TEST_F(CommandBindingTest, LeavesNothingBehindWithoutMemory)
{
    ForEachFailingAllocation(
        [](int64)
        {
            TContext context;
            TNqCommandBindingGroup* const group = context.AddBindingGroup();
            TNqCommandBinding* const binding = group != nullptr ? group->AddBinding() : nullptr;
            EXPECT_EQ(context.fBindingGroups.GetElemCount(), group != nullptr);
            EXPECT_TRUE(group == nullptr || group->fBindings.GetElemCount() == (binding != nullptr));
        },
        [] { EXPECT_EQ(gLiving, 0); });
    // A module built elsewhere calls the factories by their slots.
    TNqCommandBindingContext context;
    auto* const group = Slot<TNqCommandBindingGroup* (*)(void*)>(&context, 0)(&context);
    auto* const binding = Slot<TNqCommandBinding* (*)(void*)>(group, 2)(group);
    EXPECT_TRUE(binding->GetCommandID() == 0 && group->GetGroupID() == 0);
    delete binding;
    delete group;
}
