// Works out the dates of a project: weekdays, a deadline, and the way from a date to an instant and back.

#include "NqCore/PublicAPI/NqDateTime.h"
#include "NqHost/PublicAPI/NqHost.h"

#include <cstdio>

namespace
{

constexpr const char* kDays[] = {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"};

void Print(const char* inWhat, const TNqUserTimeRecord& inDate)
{
    std::printf("%-9s %04d-%02d-%02d %02d:%02d %s\n", inWhat, inDate.fYear, inDate.fMonth, inDate.fDay, inDate.fHour,
                inDate.fMinute, kDays[inDate.fDayOfWeek - 1]);
}

} // namespace

int main()
{
    const TNqHost host;
    TNqUserTimeRecord start;
    start.fYear = 2024;
    start.fMonth = 2;
    start.fDay = 28;
    start.fHour = 18;
    TNqSystemTime instant;
    instant.TimeRecordToSysTime(start);
    start.SysTimeToTimeRecord(instant); // which fills in the weekday
    Print("start", start);

    TNqUserTimeRecord due = start;
    due.fDay = static_cast<int16>(due.fDay + 90);
    due.fHour = static_cast<int16>(due.fHour + 6); // into the next day
    due.NormalizeTimeRecord();
    TNqSystemTime end;
    end.TimeRecordToSysTime(due);
    due.SysTimeToTimeRecord(end);
    Print("due", due);
    std::printf("%.2f days in all; February has %d\n", (end.fSeconds - instant.fSeconds) / 86400,
                TNqUserTimeRecord::DaysInMonth(start.fYear, start.fMonth));
    std::printf("now is %s\n", TNqSystemTime::GetCurrentLocalTime().fSeconds > end.fSeconds ? "later" : "earlier");
    return 0;
}
