// Code of many shapes for the DWARF reader's comparison with LLVM's: namespaces, members,
// templates, lambdas, calls inlined at several depths, a cold part, C linkage.
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace shapes {
struct Counter {
  int total = 0;
  void Add(int value);
  template <typename T>
  T Scaled(T value) const { return value * static_cast<T>(total + 1); }
};
void Counter::Add(int value) { total += value; }

inline int Square(int value) { return value * value; }
inline int SumOfSquares(int a, int b) { return Square(a) + Square(b); }
}  // namespace shapes

extern "C" int CLinkage(int value) { return shapes::SumOfSquares(value, value + 1); }

static int Checked(int value) {
  if (__builtin_expect(value < 0, 0)) {
    std::fprintf(stderr, "negative: %d\n", value);
    std::abort();
  }
  return value * 3;
}

int main(int argc, char** argv) {
  shapes::Counter counter;
  std::vector<int> values;
  for (int i = 0; i < argc; ++i) values.push_back(Checked(i) + CLinkage(i));
  auto add = [&counter](int v) { counter.Add(v); };
  for (int v : values) add(v);
  std::printf("%d %g %s\n", counter.Scaled(3), counter.Scaled(1.5), argv[0]);
  return counter.total;
}
