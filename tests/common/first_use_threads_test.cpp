// The first big integer operation and the first Base64 operation of a process, from several
// threads at once, so that the processor's features are detected and the limb rows and Base64
// kernels chosen under the race. This file is a test program of its own, with this one case, so
// that nothing in the process has used them before.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <deskaid/codec/base64.h>
#include <deskaid/math/bigint.h>

TEST(FirstUse, ThreadsRacingToTheFirstBigIntAndBase64GetTheRightResults) {
  constexpr int kThreads = 8;
  // (10^60 - 1)^2 = 10^120 - 2 * 10^60 + 1; "foobar" is 8 characters of Base64, long enough
  // repeated to take the vector kernels.
  const std::string nines(60, '9'),
      square = std::string(59, '9') + "8" + std::string(59, '0') + "1";
  std::string bytes, text;
  for (int i = 0; i < 64; ++i) bytes += "foobar", text += "Zm9vYmFy";
  std::vector<std::string> squares(kThreads), texts(kThreads);
  std::atomic<int> waiting{kThreads};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (waiting.fetch_sub(1); waiting.load() > 0;) std::this_thread::yield();
      CBigInt x(nines.c_str());
      squares[t] = (x * x).GetString(10);
      Base64Coder coder;
      coder.Encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                   static_cast<uint32_t>(bytes.size()));
      texts[t] = coder.GetText();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(squares, std::vector<std::string>(kThreads, square));
  EXPECT_EQ(texts, std::vector<std::string>(kThreads, text));
}
