// With "--second-writer PATH" the program is the other process the sharing test needs.
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <cstring>

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--second-writer") == 0) {
    CLogWriter writer;
    if (!writer.Open(argv[2], 0xFFFFFFFF, 1, 20)) return 3;
    writer.WriteFormat(1, 0, "second writer");
    return 4;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
