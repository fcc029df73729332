#include "platform/clock.h"

#include <chrono>

#include "platform/windows/native.h"

namespace velmora {

std::int64_t steady_now_ns() {
  const auto since_origin = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(since_origin).count();
}

bool read_local_time(std::tm& out) {
  // Not localtime(): the C library reads TZ in its own format and falls back to UTC for Unix values.
  SYSTEMTIME now;
  GetLocalTime(&now);
  using namespace std::chrono;
  const year_month_day date(year(now.wYear), month(now.wMonth), day(now.wDay));
  const year_month_day first(year(now.wYear), January, day(1));
  std::tm local{};
  local.tm_year = now.wYear - 1900;
  local.tm_mon = now.wMonth - 1;
  local.tm_mday = now.wDay;
  local.tm_hour = now.wHour;
  local.tm_min = now.wMinute;
  local.tm_sec = now.wSecond;
  local.tm_wday = now.wDayOfWeek;
  local.tm_yday = static_cast<int>((sys_days(date) - sys_days(first)).count());
  local.tm_isdst = -1;
  out = local;
  return true;
}

std::int64_t unix_time_s() { return std::time(nullptr); }

void sleep_ms(std::uint32_t duration_ms) { Sleep(duration_ms); }

}  // namespace velmora
