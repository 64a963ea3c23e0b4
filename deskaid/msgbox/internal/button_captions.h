// The built-in English button captions and the string resource ids that localise them, one per
// caption slot (ButtonCaptionSlot order).
#pragma once

namespace deskaid {

// Each slot holds 99 characters and a terminating zero.
constexpr int kCaptionSlotSize = 100;

// The English caption of a slot; null for a slot outside 0-18.
const char* EnglishButtonCaption(int slot);

// The string resource id (9001-9019) of a slot; 0 for a slot outside 0-18.
unsigned ButtonCaptionResourceId(int slot);

}  // namespace deskaid
