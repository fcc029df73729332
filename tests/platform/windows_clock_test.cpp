#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>
#include <ctime>

#include "platform/clock.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsClock : public surroundings::Arranged {};

int minute_of_day(int hour, int minute) { return hour * 60 + minute; }

// The C library follows it, to another zone than the system's.
TEST_F(WindowsClock, ShowsTheTimeOfTheSystemWhateverTheVariableTzSays) {
  for (const char* setting : {"TZ=EST5EDT", "TZ=Asia/Shanghai", "TZ=JST-9"}) {
    SCOPED_TRACE(setting);
    ASSERT_EQ(_putenv(setting), 0);
    _tzset();
    SYSTEMTIME before;
    SYSTEMTIME after;
    std::tm told{};
    GetLocalTime(&before);
    ASSERT_TRUE(read_local_time(told));
    GetLocalTime(&after);
    const int minute = minute_of_day(told.tm_hour, told.tm_min);
    EXPECT_TRUE(minute == minute_of_day(before.wHour, before.wMinute) ||
                minute == minute_of_day(after.wHour, after.wMinute));
  }
  ASSERT_EQ(_putenv("TZ="), 0);
  _tzset();
}

}  // namespace
}  // namespace velmora
