#pragma once

#include <cstdint>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// A moment in local time, to the microsecond. A default-made one is the epoch.
class XMLAHOST_API VXDateTime {
 public:
  VXDateTime() noexcept;
  static void GetCurrDateTime(VXDateTime& now) noexcept;
  /// A moment from its local calendar fields, for tests and displays.
  static VXDateTime FromFields(int year, int month, int day, int hour, int minute, int second,
                               int microsecond = 0) noexcept;

  short GetYear() const noexcept;             ///< four digits
  unsigned short GetMonth() const noexcept;   ///< 1 to 12
  unsigned short GetDay() const noexcept;     ///< 1 to 31
  unsigned short GetHour() const noexcept;    ///< 0 to 23
  unsigned short GetMinute() const noexcept;  ///< 0 to 59
  unsigned short GetSecond() const noexcept;  ///< 0 to 60

  /// "YYYY-MM-DD HH:MM:SS" and, for fractionDigits 1 to 6, a point and that many digits (cut, not
  /// rounded).
  String ToString(int fractionDigits) const;
  /// Seconds from `earlier` to `later`, negative when they stand the other way round.
  static double DifferenceInSeconds(const VXDateTime& later, const VXDateTime& earlier) noexcept;

 private:
  std::int64_t m_microseconds;  // since the epoch
};
