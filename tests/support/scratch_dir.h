// A directory of one test's own, so that CTest can run tests in parallel without sharing a file.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include <deskaid/common/internal/platform.h>

class ScratchDir {
 public:
  // Named after the test; made anew, so no other process (another build tree's too) can share it.
  ScratchDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = "deskaid";
    if (info != nullptr) name += std::string("-") + info->test_suite_name() + "-" + info->name();
    std::replace(name.begin(), name.end(), '/', '_');  // parameterised names carry a slash
    for (int n = 0; n < 10000; ++n) {
      path_ = std::filesystem::temp_directory_path() / (name + "-" + std::to_string(n));
      if (std::filesystem::create_directory(path_, ignored_)) break;
    }
  }
  ~ScratchDir() { std::filesystem::remove_all(path_, ignored_); }
  ScratchDir(const ScratchDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string PathOf(const std::string& leaf) const { return (path_ / leaf).string(); }

 private:
  std::filesystem::path path_;
  std::error_code ignored_;
};

// This program's own path.
inline std::string OwnExecutablePath() {
  char path[deskaid::kMaxPath];
  deskaid::platform::ExecutablePath(path, sizeof path);
  return path;
}

// The path of `name` in this program's own folder.
inline std::string BesideThisProgram(const std::string& name) {
  return std::filesystem::path(OwnExecutablePath()).replace_filename(name).string();
}

// A whole file as bytes ("" for a file that cannot be read), and a file made of `bytes`.
inline std::string ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
inline void WriteFileBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}
