#pragma once

/// \file
/// Points in time as local date and time.

#include <cstdint>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// A point in time with microseconds, shown in local time. The default is the epoch.
class XMLAHOST_API VXDateTime {
 public:
  VXDateTime() noexcept;
  /// Sets `now` to the current time.
  static void GetCurrDateTime(VXDateTime& now) noexcept;
  /// Creates a point in time from local calendar fields.
  static VXDateTime FromFields(int year, int month, int day, int hour, int minute, int second,
                               int microsecond = 0) noexcept;

  short GetYear() const noexcept;             ///< four digits
  unsigned short GetMonth() const noexcept;   ///< 1 to 12
  unsigned short GetDay() const noexcept;     ///< 1 to 31
  unsigned short GetHour() const noexcept;    ///< 0 to 23
  unsigned short GetMinute() const noexcept;  ///< 0 to 59
  unsigned short GetSecond() const noexcept;  ///< 0 to 60

  /// "YYYY-MM-DD HH:MM:SS". If fractionDigits is 1 to 6, a point and that many digits follow
  /// (truncated, not rounded).
  String ToString(int fractionDigits) const;
  /// Seconds from `earlier` to `later`; may be negative.
  static double DifferenceInSeconds(const VXDateTime& later, const VXDateTime& earlier) noexcept;

 private:
  std::int64_t m_microseconds;  // since the epoch
};
