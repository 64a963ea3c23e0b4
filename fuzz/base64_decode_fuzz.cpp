// Base64 over arbitrary bytes: decoding never fails or strays outside its buffers, the plain
// coder's direct route leaves exactly the state the step-by-step route does, on each kernel set
// the processor offers, and encoding then decoding gives the bytes back.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <deskaid/codec/base64.h>
#include <deskaid/codec/internal/base64_vector.h>

namespace {

struct StepwiseCoder : Base64Coder {
  uint32_t DataCapacity() const { return m_nDataCapacity; }
  uint32_t TextCapacity() const { return m_nTextCapacity; }
};

void Check(bool ok) {
  if (!ok) std::abort();
}

void Compare(Base64Coder& plain, StepwiseCoder& stepwise) {
  Check(plain.GetDataLength() == stepwise.GetDataLength());
  Check(plain.GetTextLength() == stepwise.GetTextLength());
  Check((plain.GetData() == nullptr) == (stepwise.GetData() == nullptr));
  Check((plain.GetText() == nullptr) == (stepwise.GetText() == nullptr));
  // Whole buffers, zeros behind the results included: the capacities follow the same rule.
  if (plain.GetData()) {
    Check(std::memcmp(plain.GetData(), stepwise.GetData(), stepwise.DataCapacity()) == 0);
  }
  if (plain.GetText()) {
    Check(std::memcmp(plain.GetText(), stepwise.GetText(), stepwise.TextCapacity()) == 0);
  }
}

// Reused across inputs so that buffer reuse and clearing are exercised too.
Base64Coder g_plain;
StepwiseCoder g_stepwise;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint32_t length = static_cast<uint32_t>(size);
  const char* text = reinterpret_cast<const char*>(data);
  // The kernel set follows from the length, so that the input itself stays free.
  if (!deskaid::base64::UsePath(static_cast<deskaid::base64::Path>(size % 3))) {
    deskaid::base64::UsePath(deskaid::base64::FastestPath());
  }

  g_plain.Decode(text, length);
  g_stepwise.Decode(text, length);
  Compare(g_plain, g_stepwise);
  Check(g_plain.GetTextLength() <= length);

  g_plain.Encode(data, length);
  g_stepwise.Encode(data, length);
  Compare(g_plain, g_stepwise);
  Check(g_plain.GetTextLength() == (length + 2) / 3 * 4);

  // Back again: every group counts three bytes, so the input comes back followed by zeros.
  Base64Coder back;
  back.Decode(g_plain.GetText(), g_plain.GetTextLength());
  Check(back.GetDataLength() == (length + 2) / 3 * 3);
  if (length != 0) Check(std::memcmp(back.GetData(), data, length) == 0);
  for (uint32_t i = length; i < back.GetDataLength(); ++i) Check(back.GetData()[i] == 0);
  return 0;
}
