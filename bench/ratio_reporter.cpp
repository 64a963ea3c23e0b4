#include "ratio_reporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace deskaid_bench {
namespace {

// Collects the real time per iteration of every run while the console reporter prints as usual.
// A case stands for its best repetition: on a shared machine the fastest run is the one least
// disturbed, and both sides of a ratio are timed the same way. With repetitions only the
// aggregates are printed.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> shown;
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate || run.repetitions <= 1) shown.push_back(run);
    }
    ConsoleReporter::ReportRuns(shown);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      std::string name = run.run_name.str();
      size_t slash = name.find('/');
      if (slash == std::string::npos) continue;
      std::string rest = name.substr(slash + 1);
      size_t end = rest.find('/');
      std::string impl = rest.substr(0, end);
      std::string key = name.substr(0, slash) + (end == std::string::npos ? "" : rest.substr(end));
      const double seconds = run.GetAdjustedRealTime();
      auto& slot = times_[key];
      auto found = slot.find(impl);
      if (found == slot.end() || seconds < found->second) slot[impl] = seconds;
      if (order_.empty() || order_.back() != key) order_.push_back(key);
    }
  }

  void PrintRatios() const {
    std::printf("\n%-44s %-10s %14s %14s %9s\n", "case", "peer", "deskaid", "peer", "ratio");
    std::vector<std::string> seen;
    for (const std::string& key : order_) {
      bool dup = false;
      for (const auto& s : seen) dup = dup || s == key;
      if (dup) continue;
      seen.push_back(key);
      const auto& impls = times_.at(key);
      auto own = impls.find("deskaid");
      if (own == impls.end()) continue;
      for (const auto& [impl, t] : impls) {
        if (impl.rfind("deskaid", 0) == 0) continue;  // deskaid's own variants are no peers
        std::printf("%-44s %-10s %14.4g %14.4g %8.2fx\n", key.c_str(), impl.c_str(), own->second, t,
                    t / own->second);
      }
    }
    std::printf(
        "(best time per iteration in the benchmark's unit; ratio = peer time / deskaid time)\n");
  }

 private:
  std::map<std::string, std::map<std::string, double>> times_;
  std::vector<std::string> order_;
};

}  // namespace

int RunWithRatios(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}

}  // namespace deskaid_bench
