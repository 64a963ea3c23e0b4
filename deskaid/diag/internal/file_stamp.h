// The time stamp in the names of the files the module sets aside: archived logs and crash dumps,
// "YYYY.MM.DD HH.MM.SS" in local time.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "deskaid/common/internal/platform.h"
#include "deskaid/diag/internal/fixed_text.h"

namespace deskaid {

// Adds the stamp of a broken-down local time; without the heap, as a crash report needs.
inline void AddFileStamp(FixedText& text, const std::tm& local) {
  const auto twoDigits = [&text](int value) {
    text.Add(static_cast<char>('0' + value / 10 % 10)).Add(static_cast<char>('0' + value % 10));
  };
  text.Decimal(static_cast<uint64_t>(local.tm_year + 1900)).Add('.');
  twoDigits(local.tm_mon + 1);
  text.Add('.');
  twoDigits(local.tm_mday);
  text.Add(' ');
  twoDigits(local.tm_hour);
  text.Add('.');
  twoDigits(local.tm_min);
  text.Add('.');
  twoDigits(local.tm_sec);
}

inline std::string FileStamp(uint32_t seconds) {
  char stamp[40];
  FixedText text(stamp, sizeof stamp);
  AddFileStamp(text, platform::LocalTime(seconds));
  return stamp;
}

}  // namespace deskaid
