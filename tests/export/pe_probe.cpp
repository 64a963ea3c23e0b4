#include "pe_probe.h"

namespace probe {
struct Widget {
  static int Twice(int value);
};
}  // namespace probe

static_assert(__LINE__ + 3 == kPeProbeLine, "pe_probe.h must name the line of the definition");

// The image's entry point (linked with -e _ZN5probe6Widget5TwiceEi).
int probe::Widget::Twice(int value) { return value * 2; }
