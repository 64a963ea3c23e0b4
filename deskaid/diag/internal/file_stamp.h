// The time stamp in the names of the files the module sets aside: archived logs and crash dumps,
// "YYYY.MM.DD HH.MM.SS" in local time.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "deskaid/common/internal/platform.h"

namespace deskaid {

inline std::string FileStamp(uint32_t seconds) {
  char stamp[40];
  std::tm local = platform::LocalTime(seconds);
  std::strftime(stamp, sizeof stamp, "%Y.%m.%d %H.%M.%S", &local);
  return stamp;
}

}  // namespace deskaid
