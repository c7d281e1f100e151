#include "Utility/Generic/VXDateTime.h"

#include <ctime>
#include <cwchar>

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

std::int64_t WholeSeconds(std::int64_t microseconds) {
  const std::int64_t seconds = microseconds / kMicrosecondsPerSecond;
  return microseconds % kMicrosecondsPerSecond < 0 ? seconds - 1 : seconds;
}

std::tm LocalFields(std::int64_t microseconds) {
  const std::time_t seconds = WholeSeconds(microseconds);
  std::tm fields{};
  localtime_r(&seconds, &fields);
  return fields;
}

}  // namespace

VXDateTime::VXDateTime() noexcept : m_microseconds(0) {}

void VXDateTime::GetCurrDateTime(VXDateTime& now) noexcept {
  std::timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  now.m_microseconds = time.tv_sec * kMicrosecondsPerSecond + time.tv_nsec / 1000;
}

VXDateTime VXDateTime::FromFields(int year, int month, int day, int hour, int minute, int second,
                                  int microsecond) noexcept {
  std::tm fields{};
  fields.tm_year = year - 1900;
  fields.tm_mon = month - 1;
  fields.tm_mday = day;
  fields.tm_hour = hour;
  fields.tm_min = minute;
  fields.tm_sec = second;
  fields.tm_isdst = -1;  // the system decides about daylight saving time
  VXDateTime moment;
  moment.m_microseconds = std::mktime(&fields) * kMicrosecondsPerSecond + microsecond;
  return moment;
}

short VXDateTime::GetYear() const noexcept {
  return static_cast<short>(LocalFields(m_microseconds).tm_year + 1900);
}
unsigned short VXDateTime::GetMonth() const noexcept {
  return static_cast<unsigned short>(LocalFields(m_microseconds).tm_mon + 1);
}
unsigned short VXDateTime::GetDay() const noexcept {
  return static_cast<unsigned short>(LocalFields(m_microseconds).tm_mday);
}
unsigned short VXDateTime::GetHour() const noexcept {
  return static_cast<unsigned short>(LocalFields(m_microseconds).tm_hour);
}
unsigned short VXDateTime::GetMinute() const noexcept {
  return static_cast<unsigned short>(LocalFields(m_microseconds).tm_min);
}
unsigned short VXDateTime::GetSecond() const noexcept {
  return static_cast<unsigned short>(LocalFields(m_microseconds).tm_sec);
}

String VXDateTime::ToString(int fractionDigits) const {
  const std::tm fields = LocalFields(m_microseconds);
  wchar_t text[80];
  const int length = std::swprintf(
      text, std::size(text), L"%04d-%02d-%02d %02d:%02d:%02d.%06d", fields.tm_year + 1900,
      fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
      static_cast<int>(m_microseconds - WholeSeconds(m_microseconds) * kMicrosecondsPerSecond));
  if (length < 0) return String();
  const int digits = fractionDigits < 0 ? 0 : fractionDigits > 6 ? 6 : fractionDigits;
  const int cut = digits == 0 ? 7 : 6 - digits;  // without digits, the point is removed too
  return String(text, static_cast<std::size_t>(length - cut));
}

double VXDateTime::DifferenceInSeconds(const VXDateTime& later,
                                       const VXDateTime& earlier) noexcept {
  return static_cast<double>(later.m_microseconds - earlier.m_microseconds) /
         static_cast<double>(kMicrosecondsPerSecond);
}
