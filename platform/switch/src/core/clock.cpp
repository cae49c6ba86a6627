#include <switch.h>

namespace {

constexpr int64_t kMicrosecondsPerSecond = 1000000;

switch_time_exp_t take_apart(switch_time_t input, tm* (*convert)(const time_t*, tm*)) {
  int64_t microseconds = input % kMicrosecondsPerSecond;
  if (microseconds < 0) microseconds += kMicrosecondsPerSecond;
  const time_t seconds = (input - microseconds) / kMicrosecondsPerSecond;
  tm parts{};
  convert(&seconds, &parts);
  switch_time_exp_t result{};
  result.tm_usec = static_cast<int32_t>(microseconds);
  result.tm_sec = parts.tm_sec;
  result.tm_min = parts.tm_min;
  result.tm_hour = parts.tm_hour;
  result.tm_mday = parts.tm_mday;
  result.tm_mon = parts.tm_mon;
  result.tm_year = parts.tm_year;
  result.tm_wday = parts.tm_wday;
  result.tm_yday = parts.tm_yday;
  result.tm_isdst = parts.tm_isdst;
  result.tm_gmtoff = static_cast<int32_t>(parts.tm_gmtoff);
  return result;
}

}  // namespace

switch_time_t switch_time_now(void) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_nsec / 1000;
}

switch_time_t switch_micro_time_now(void) {
  return switch_time_now();
}

void switch_sleep(switch_interval_time_t t) {
  if (t <= 0) return;
  timespec left;
  left.tv_sec = t / kMicrosecondsPerSecond;
  left.tv_nsec = t % kMicrosecondsPerSecond * 1000;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

switch_status_t switch_time_exp_lt(switch_time_exp_t* result, switch_time_t input) {
  *result = take_apart(input, localtime_r);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_time_exp_gmt(switch_time_exp_t* result, switch_time_t input) {
  *result = take_apart(input, gmtime_r);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_strftime(char* s, switch_size_t* retsize, switch_size_t max, const char* format,
                                switch_time_exp_t* tm) {
  struct tm parts {};
  parts.tm_sec = tm->tm_sec;
  parts.tm_min = tm->tm_min;
  parts.tm_hour = tm->tm_hour;
  parts.tm_mday = tm->tm_mday;
  parts.tm_mon = tm->tm_mon;
  parts.tm_year = tm->tm_year;
  parts.tm_wday = tm->tm_wday;
  parts.tm_yday = tm->tm_yday;
  parts.tm_isdst = tm->tm_isdst;
  parts.tm_gmtoff = tm->tm_gmtoff;
  *retsize = strftime(s, max, format, &parts);
  return SWITCH_STATUS_SUCCESS;
}
