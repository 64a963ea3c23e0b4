#include "deskaid/msgbox/internal/button_captions.h"

#include "deskaid/msgbox/message_dialog.h"

namespace deskaid {
namespace {

struct CaptionEntry {
  const char* english;
  unsigned resourceId;
};

const CaptionEntry kCaptions[kButtonCaptionCount] = {
    {"&Abort", 9005},
    {"Cancel", 9002},
    {"&Continue", 9009},
    {"Don't ask me again", 9010},
    {"Don't tell me again", 9011},
    {"Don't show again", 9012},
    {"&Help", 9006},
    {"&Ignore", 9003},
    {"I&gnore All", 9017},
    {"&No", 9008},
    {"N&o to All", 9014},
    {"OK", 9001},
    {"Re&port", 9016},
    {"&Retry", 9004},
    {"&Skip", 9018},
    {"S&kip All", 9019},
    {"&Try Again", 9015},
    {"&Yes", 9007},
    {"Y&es to All", 9013},
};

}  // namespace

const char* EnglishButtonCaption(int slot) {
  return slot >= 0 && slot < kButtonCaptionCount ? kCaptions[slot].english : nullptr;
}

unsigned ButtonCaptionResourceId(int slot) {
  return slot >= 0 && slot < kButtonCaptionCount ? kCaptions[slot].resourceId : 0;
}

}  // namespace deskaid
