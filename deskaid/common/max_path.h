// The length of the module's fixed path buffers, terminator included: the Windows MAX_PATH, which
// the log writer, the converter and the symbol engine use on every platform alike.
#pragma once
#include <cstddef>

namespace deskaid {
constexpr std::size_t kMaxPath = 260;
}  // namespace deskaid
