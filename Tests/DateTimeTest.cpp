#include "NqCore/PublicAPI/NqDateTime.h"
#include "NqCore/PublicAPI/NqException.h"
#include "NqCore/PublicAPI/NqString.h"
#include "NqPlatform/CFDateFormatter.h"
#include "Tests/TestHost.h"

#include <unicode/ucal.h>
#include <unicode/uloc.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>

// The linker sends calls of f to __wrap_f (--wrap in CMakeLists.txt). The call with this number fails.
static int gFailing = 0;

#define FAILABLE(number, result, name, mangled, parameters, arguments) \
    result Real##name parameters __asm__("__real_" mangled);           \
    result Failing##name parameters __asm__("__wrap_" mangled);        \
    result Failing##name parameters                                    \
    {                                                                  \
        return gFailing == (number) ? nullptr : Real##name arguments;  \
    }

FAILABLE(1, CFLocaleRef, Locale, "_Z19CFLocaleCopyCurrentv", (), ())
FAILABLE(2, CFDateFormatterRef, Formatter, "_Z21CFDateFormatterCreatePKvPK10NqCFLocale20CFDateFormatterStyleS4_",
         (CFAllocatorRef a, CFLocaleRef l, CFDateFormatterStyle d, CFDateFormatterStyle t), (a, l, d, t))
FAILABLE(3, CFStringRef, Text, "_Z43CFDateFormatterCreateStringWithAbsoluteTimePKvPK17NqCFDateFormatterd",
         (CFAllocatorRef a, CFDateFormatterRef f, CFAbsoluteTime t), (a, f, t))

namespace
{

using DateTimeTest = NqTest;

// Year, month, day, hour, minute, second, day of the week.
using TFields = std::vector<int16>;

TNqUserTimeRecord Record(TFields fields)
{
    TNqUserTimeRecord record;
    fields.resize(7);
    std::memcpy(static_cast<void*>(&record), fields.data(), sizeof record);
    return record;
}

TFields Fields(real64 seconds)
{
    TNqSystemTime time;
    time.fSeconds = seconds;
    TNqUserTimeRecord r;
    r.SysTimeToTimeRecord(time);
    return {r.fYear, r.fMonth, r.fDay, r.fHour, r.fMinute, r.fSecond, r.fDayOfWeek};
}

TNqSystemTime Instant(const TFields& fields)
{
    TNqSystemTime time;
    time.TimeRecordToSysTime(Record(fields));
    return time;
}

// The date, or the time of day with or without seconds.
std::string Text(const TNqSystemTime& time, int form)
{
    TNqString63 text("kept");
    form == 0 ? time.SysDateString(text) : time.SysTimeString(text, static_cast<uint8>(form - 1));
    return text.StrGet();
}

// A date that goes from day to day.
struct TSlowDate
{
    int64 year, month, day;

    int64 Length() const
    {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : month != 2 ? 31 : leap ? 29 : 28;
    }
    void Normalize()
    {
        const bool back = day < 1;
        for (; day < 1; day += Length())
        {
            year -= month == 1;
            month = month == 1 ? 12 : month - 1;
        }
        while (!back && day > Length())
        {
            day -= Length();
            year += month >= 12;
            month = month >= 12 ? month - 11 : month + 1;
        }
    }
};

TEST_F(DateTimeTest, EveryDayOfTwelveCenturiesIsCounted)
{
    TSlowDate date{-400, 1, 1};
    int64 days = -876948; // before 2001: 2401 years of 365 days, and 583 leap days
    int16 weekday = 6;    // a Saturday, as six times 400 years later, in 2000
    for (int16 dayOfYear = 1; date.year <= 800; ++days, ++date.day, ++dayOfYear, weekday = weekday % 7 + 1)
    {
        date.Normalize();
        dayOfYear = date.month == 1 && date.day == 1 ? 1 : dayOfYear;
        int16 year = static_cast<int16>(date.year), month = 1, day = dayOfYear;
        TNqUserTimeRecord::NormalizeDate(year, month, day);
        ASSERT_TRUE(year == date.year && month == date.month && day == date.day) << year << "-" << month << "-" << day;
        const int16 hour = static_cast<int16>(dayOfYear % 24), second = static_cast<int16>(dayOfYear % 60);
        const TFields fields = {year, month, day, hour, 59, second, weekday};
        const real64 seconds = static_cast<real64>(days * 86400 + hour * 3600 + 59 * 60 + second);
        ASSERT_EQ(Instant(fields).fSeconds, seconds) << year << "-" << month << "-" << day;
        ASSERT_EQ(Fields(seconds + 0.75), fields);
        ASSERT_TRUE(TNqUserTimeRecord::DayOfWeek(year, month, day) == weekday % 7 + 1 || year < 1);
    }
}

TEST_F(DateTimeTest, RandomRecordsAreNormalisedAsStepByStep)
{
    TRandom random(75);
    const auto field = [&random](int usual)
    {
        const int kinds[] = {-32768, 32767, -366, 366, random.Below(65536), random.Below(3) - 1, random.Below(usual)};
        return static_cast<int16>(kinds[random.Below(7)]);
    };
    for (int round = 0; round < 30000; ++round)
    {
        const int16 month = random.OneIn(8) ? field(12) : static_cast<int16>(1 + random.Below(12));
        TFields fields = {field(2400), month, field(31), field(24), field(60), field(60), 99};
        TNqUserTimeRecord record = Record(fields);
        record.NormalizeTimeRecord();
        const real64 seconds = fields[3] * 3600.0 + fields[4] * 60.0 + fields[5];
        const real64 days = std::floor(seconds / 86400);
        const int32 left = static_cast<int32>(seconds - days * 86400);
        TSlowDate date{fields[0], month, fields[2] + static_cast<int64>(days)};
        date.Normalize();
        ASSERT_EQ(record.fYear, static_cast<int16>(date.year)) << ::testing::PrintToString(fields);
        ASSERT_TRUE(record.fMonth == static_cast<int16>(date.month) && record.fDay == date.day);
        ASSERT_EQ(record.fHour * 3600 + record.fMinute * 60 + record.fSecond, left);
        ASSERT_TRUE(record.fMinute / 60 == 0 && record.fSecond / 60 == 0 && record.fSecond >= 0 && record.fMinute >= 0);
        ASSERT_EQ(record.fDayOfWeek, 99);
        ASSERT_LT(static_cast<uint16>(TNqUserTimeRecord::DayOfWeek(fields[0], fields[1], fields[2]) - 1), 7);
        ASSERT_EQ(TNqUserTimeRecord::DaysInMonth(fields[0], month), (TSlowDate{fields[0], month, 0}.Length()));
        ASSERT_EQ(TNqUserTimeRecord::IsLeapYear(fields[0]), (TSlowDate{fields[0], 2, 0}.Length() == 29));
    }
}

TEST_F(DateTimeTest, EveryInstantHasFields)
{
    constexpr real64 infinity = std::numeric_limits<real64>::infinity();
    const std::pair<real64, TFields> cases[] = {
        {-0.5, {2000, 12, 31, 23, 59, 59, 7}},
        {-1e-20, {2000, 12, 31, 23, 59, 59, 7}},
        {std::nextafter(31.0, 0), {2001, 1, 1, 0, 0, 30, 1}},
        {std::numeric_limits<real64>::quiet_NaN(), {2001, 1, 1, 0, 0, 0, 1}},
        {(76 * 146097 + 364) * 86400.0, {32401, 12, 31, 0, 0, 0, 1}},
        {100 * 146097 * 86400.0, {42001 - 65536, 1, 1, 0, 0, 0, 1}},
    };
    for (const auto& [seconds, expected] : cases)
        EXPECT_EQ(Fields(seconds), expected) << seconds;
    for (const real64 seconds : {infinity, -infinity, 1e300, -1e300, 9.3e18, -9.3e18, 1e17, -1e17})
    {
        for (const int16 field : Fields(seconds))
            EXPECT_TRUE((field >= 0 && field < 60) || field == Fields(seconds)[0]) << seconds;
        TNqSystemTime time;
        time.fSeconds = seconds;
        EXPECT_GT(Text(time, 0).size(), 5U);
    }
    // A month counts on from the year, and has 8 bits, as the day and the time have.
    EXPECT_EQ(Instant({2000, 13, 1}).fSeconds, 0);
    EXPECT_EQ(Instant({2003, -23, 0}).fSeconds, -86400);
    EXPECT_EQ(Instant({2001, 257, 258, 256, -257, 32767}).fSeconds, 86400 - 60 + 32767);
}

TEST_F(DateTimeTest, TextsAreThoseOfTheUsersLocaleAndZone)
{
    const std::string localeBefore = uloc_getDefault();
    UChar zoneBefore[64];
    UErrorCode status = U_ZERO_ERROR;
    ucal_getDefaultTimeZone(zoneBefore, 64, &status);
    const TNqSystemTime afternoon = Instant({2024, 2, 3, 14, 5, 9});
    const std::tuple<const char*, const UChar*, std::string, std::string> cases[] = {
        {"en_US", u"UTC", "2/3/24", "2:05:09 PM UTC"},
        {"en_GB", u"Asia/Tokyo", "03/02/2024", "23:05:09 GMT+9"},
        {"de_DE", u"UTC", "03.02.24", "14:05:09 UTC"},
        {"de_XX", u"UTC", "03.02.24", "14:05:09 UTC"},   // no such country
        {"xx_YY", u"UTC", "2024-02-03", "14:05:09 UTC"}, // no such language
        {"en_GB", u"GMT+05:30", "03/02/2024", "19:35:09 GMT+5:30"},
        {"en_GB", u"UTC", "03/02/2024", "14:05:09 UTC"},
    };
    for (int round = 0; round < 2; ++round) // more forms than are kept, and all of them again
    {
        for (const auto& [locale, zone, date, time] : cases)
        {
            uloc_setDefault(locale, &status);
            ucal_setDefaultTimeZone(zone, &status);
            EXPECT_EQ(Text(afternoon, 0), date) << locale;
            EXPECT_EQ(Text(afternoon, 7), time) << locale;
            EXPECT_EQ(Text(afternoon, 1), time[1] == ':' ? "2:05 PM" : time.substr(0, 5)) << locale;
        }
    }
    EXPECT_EQ(Text(Instant({1500, 3, 1}), 0), "01/03/1500"); // the calendar of the record
    OnThreads(4,
              [&](int)
              {
                  for (int i = 0; i < 50; ++i)
                      EXPECT_EQ(Text(afternoon, 0) + Text(afternoon, 1), "03/02/202414:05");
              });
    uloc_setDefault("ar_EG", &status); // digits of its own
    EXPECT_EQ(Text(afternoon, 0), "kept");
    EXPECT_EQ(TakeReports(), TTexts{"converted"});
    uloc_setDefault(localeBefore.c_str(), &status);
    ucal_setDefaultTimeZone(zoneBefore, &status);
}

// What the program has chosen with setlocale for dates; null for what it really has (--wrap as above).
static const char* gChosenForDates = nullptr;
extern "C" char* __real_setlocale(int category, const char* locale);
extern "C" char* __wrap_setlocale(int category, const char* locale)
{
    if (gChosenForDates == nullptr || category != LC_TIME || locale != nullptr)
        return __real_setlocale(category, locale);
    return const_cast<char*>(gChosenForDates);
}

// Variables of the environment, as they were again at the end. Null takes one away.
class CWhileInEnvironment
{
public:
    CWhileInEnvironment(std::initializer_list<std::pair<std::string, const char*>> variables)
    {
        for (const auto& [name, value] : variables)
        {
            const char* const before = std::getenv(name.c_str());
            fBefore.emplace_back(name, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
            Set(name, value);
        }
    }
    ~CWhileInEnvironment()
    {
        for (const auto& [name, value] : fBefore)
            Set(name, value.has_value() ? value->c_str() : nullptr);
    }

private:
    static void Set(const std::string& name, const char* value)
    {
        value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
    }
    std::vector<std::pair<std::string, std::optional<std::string>>> fBefore;
};

// The texts of an instant with the C library's letters for them.
std::string Formatted(const TNqSystemTime& time, const char* form)
{
    const std::time_t instant = static_cast<std::time_t>(std::floor(time.fSeconds + 978307200));
    std::tm fields{};
    tzset();
    localtime_r(&instant, &fields);
    char text[200];
    return std::string(text, std::strftime(text, sizeof text, form, &fields));
}

TEST_F(DateTimeTest, RulesOfTZAreReadAsTheCLibraryReadsThem)
{
    const char* const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
    const std::tuple<const char*, TFields, std::string> cases[] = {
        {berlin, {2024, 3, 31, 0, 59, 59}, "31.03.24 01:59:59 CET"},
        {berlin, {2024, 3, 31, 1, 0, 0}, "31.03.24 03:00:00 CEST"},
        {berlin, {2024, 10, 27, 0, 59, 59}, "27.10.24 02:59:59 CEST"},
        {berlin, {2024, 10, 27, 1, 0, 0}, "27.10.24 02:00:00 CET"},
        {"IST-5:30", {2024, 12, 31, 18, 30, 0}, "01.01.25 00:00:00 IST"},
        {"<+0530>-5:30", {2024, 7, 1, 0, 0, 1}, "01.07.24 05:30:01 +0530"},
        {"NST3:30NDT", {2024, 7, 1, 0, 0, 0}, "30.06.24 21:30:00 NDT"},                    // the rules of the USA
        {"AEST-10AEDT,M10.1.0,M4.1.0/3", {2024, 1, 1, 0, 0, 0}, "01.01.24 11:00:00 AEDT"}, // summer in January
        {"AEST-10AEDT,M10.1.0,M4.1.0/3", {2024, 4, 6, 16, 0, 0}, "07.04.24 02:00:00 AEST"},
        {"AAA0BBB,J60,J300", {2024, 3, 1, 2, 0, 0}, "01.03.24 03:00:00 BBB"}, // 29 February is not counted
        {"AAA0BBB,59,299", {2024, 2, 29, 2, 0, 0}, "29.02.24 03:00:00 BBB"},  // and here it is
        {"AAA0BBB,59,299", {2023, 3, 1, 2, 0, 0}, "01.03.23 03:00:00 BBB"},
        {"GMT+5", {2024, 7, 1, 0, 0, 0}, "30.06.24 19:00:00 GMT"}, // to the west
        {"XXX-24:59:58", {2024, 7, 1, 0, 0, 0}, "02.07.24 00:59:58 XXX"},
        {":/usr/share/zoneinfo/Asia/Tokyo", {2024, 7, 1, 0, 0, 0}, "01.07.24 09:00:00 JST"},
        {"/usr/share/zoneinfo/Asia/Tokyo", {2024, 7, 1, 0, 0, 0}, "01.07.24 09:00:00 JST"},
        {":Asia/Tokyo", {2024, 7, 1, 0, 0, 0}, "01.07.24 09:00:00 GMT+9"}, // the name of a zone, for ICU
        {"America/New_York", {2024, 7, 1, 0, 0, 0}, "30.06.24 20:00:00 GMT-4"},
        {"PST", {2024, 7, 1, 0, 0, 0}, "01.07.24 00:00:00 PST"}, // no zone, and no offset
        {"", {2024, 7, 1, 0, 0, 0}, "01.07.24 00:00:00 UTC"},
        {"Nowhere/At_all", {2024, 7, 1, 0, 0, 0}, "01.07.24 00:00:00 Nowhere"},
    };
    const CWhileInEnvironment german{{"LC_ALL", "de_DE.UTF-8"}};
    for (const auto& [zone, fields, expected] : cases)
    {
        const CWhileInEnvironment environment{{"TZ", zone}};
        EXPECT_EQ(Text(Instant(fields), 0) + " " + Text(Instant(fields), 2), expected) << zone;
    }
    for (const real64 seconds : {1e300, -1e300, std::numeric_limits<real64>::quiet_NaN()})
    {
        const CWhileInEnvironment environment{{"TZ", berlin}};
        TNqSystemTime time;
        time.fSeconds = seconds;
        EXPECT_EQ(Text(time, 0).substr(0, 8), seconds != seconds ? "01.01.01" : Text(time, 0).substr(0, 8));
        EXPECT_EQ(Text(time, 1).size(), 5U);
    }
    TRandom random(76);
    const auto name = [&random]
    {
        const char* const names[] = {"AAA", "Bbbb", "<+03>", "<-0330>", "CEST", "AB", ""};
        return std::string(names[random.Below(20) < 18 ? random.Below(5) : random.Below(7)]);
    };
    const auto number = [&random](int32 end) { return std::to_string(random.Below(end)); };
    const auto offset = [&](int32 hours)
    { return std::string(random.OneIn(2) ? "-" : "") + number(hours) + (random.OneIn(2) ? ":" + number(60) : ""); };
    const auto day = [&]
    {
        const std::string days[] = {"M" + number(14) + "." + number(7) + "." + number(8), "J" + number(368),
                                    number(367)};
        return "," + days[random.Below(3)] + (random.OneIn(2) ? "/" + offset(30) : "");
    };
    for (int round = 0; round < 800; ++round)
    {
        std::string rule = name() + offset(25);
        if (!random.OneIn(4))
            rule += name() + (random.OneIn(4) ? offset(25) : "") + (random.OneIn(6) ? "" : day() + day());
        if (random.OneIn(5))
            rule = Mutated(rule, {",", "M", "/", "<", ":", "J1", "CET"}, random);
        const CWhileInEnvironment environment{{"TZ", rule.c_str()}};
        for (int i = 0; i < 8; ++i)
        {
            TNqSystemTime time;
            time.fSeconds = (random.Below(1000000000) - 3e8) * 16 + random.Below(1000) / 8.0; // 1849 to 2356
            const std::string date = Text(time, 0) + " " + Text(time, 1), clock = Text(time, 2);
            ASSERT_EQ(date, Formatted(time, "%d.%m.%y %H:%M")) << rule;
            ASSERT_EQ(clock, Formatted(time, "%H:%M:%S %Z").substr(0, 63)) << rule;
        }
    }
    TakeReports(); // of names that are too long
}

TEST_F(DateTimeTest, ALocaleThatTheProgramChoseCountsBeforeTheEnvironment)
{
    const CWhileInEnvironment environment{{"LC_ALL", "en_GB.UTF-8"}};
    for (const auto& [chosen, expected] : {std::pair{"sv_SE.UTF-8", "2024-02-03"}, {"C.UTF-8", "03/02/2024"}})
    {
        gChosenForDates = chosen;
        EXPECT_EQ(Text(Instant({2024, 2, 3}), 0), expected);
    }
    gChosenForDates = nullptr;
}

// The date that a process writes which finds this in its environment. It is this program, started anew.
TEST_F(DateTimeTest, TheLanguageOfDatesIsThatOfTheEnvironment)
{
    const TNqSystemTime day = Instant({2024, 2, 3});
    if (const char* const expected = std::getenv("NQTEST_EXPECTED_DATE"))
    {
        EXPECT_EQ(Text(day, 0), expected);
        return;
    }
    const std::tuple<const char*, const char*, const char*, const char*, const char*> cases[] = {
        // LC_ALL, LC_TIME, LC_MESSAGES, LANG
        {nullptr, nullptr, nullptr, nullptr, "2/3/24"},
        {nullptr, nullptr, nullptr, "de_DE.UTF-8", "03.02.24"},
        {"", "", "", "de_DE.UTF-8", "03.02.24"}, // empty is as good as not there
        {nullptr, "sv_SE.UTF-8", nullptr, "de_DE.UTF-8", "2024-02-03"},
        {"en_GB.UTF-8", "sv_SE.UTF-8", "fr_CA", "de_DE.UTF-8", "03/02/2024"},
        {nullptr, nullptr, "sv_SE", "de_DE@euro", "03.02.24"}, // messages are not dates
        {"", "C", nullptr, "de_DE.UTF-8", "2/3/24"},
        {"POSIX", "de_DE", "de_DE", "de_DE", "2/3/24"},
    };
    for (const auto& [all, time, messages, language, expected] : cases)
    {
        const CWhileInEnvironment environment{
            {"LC_ALL", all}, {"LC_TIME", time}, {"LC_MESSAGES", messages}, {"LANG", language}};
        EXPECT_EQ(Text(day, 0), expected) << "set while the program runs";
        EXPECT_TRUE(PassesAnew("DateTimeTest.TheLanguage*", "NQTEST_EXPECTED_DATE", expected)) << expected;
    }
}

TEST_F(DateTimeTest, EachFailureOfTheSystemIsThrown)
{
    for (gFailing = 3; gFailing > 0; --gFailing)
    {
        TNqString63 text("kept");
        try
        {
            TNqSystemTime::GetCurrentLocalTime().SysTimeString(text, 1);
            ADD_FAILURE() << gFailing;
        }
        catch (const TNqException& error)
        {
            EXPECT_EQ(error.GetError(), kNqErrInvalidData);
        }
        EXPECT_STREQ(text.StrGet(), "kept");
        EXPECT_EQ(TakeReports(), TTexts{"An exception is being thrown"});
    }
    ForEachFailingAllocation([](int64 n) { EXPECT_EQ(Text(TNqSystemTime(), 0) == "kept", n == 1); });
    EXPECT_NEAR(TNqSystemTime::GetCurrentLocalTime().fSeconds + 978307200, static_cast<real64>(std::time(nullptr)), 5);
}

} // namespace
