// The log writer suite's main. Started with "--second-writer PATH", the program is instead the
// second writer the sharing test needs in another process.
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <cstring>

int SecondWriter(const char* path) {
  CLogWriter writer;
  if (!writer.Open(path, 0xFFFFFFFF, 1, 20)) return 3;
  writer.WriteFormat(1, 0, "second writer");
  writer.Close();
  return 4;
}

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--second-writer") == 0) return SecondWriter(argv[2]);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
