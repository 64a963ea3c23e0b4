// Shared main for the benchmark programs. Benchmarks are named "<case>/<implementation>", one of
// them "<case>/deskaid" and the others the peers measured beside it in the same run. After the
// run a table gives, for each case and peer, the ratio of the peer's time to deskaid's: above 1
// means deskaid is faster.
#pragma once

namespace deskaid_bench {
int RunWithRatios(int argc, char** argv);
}  // namespace deskaid_bench

#define DESKAID_BENCH_MAIN() \
  int main(int argc, char** argv) { return deskaid_bench::RunWithRatios(argc, argv); }
