// The test program of the log writer, which is also the other processes its tests need:
//   --second-writer PATH      opens PATH and writes one record (the sharing test)
//   --kill-child ...          writes records until it is killed (see log_writer_kill_test.cpp)
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <cstring>

int RunKillChild(int argc, char** argv);

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--second-writer") == 0) {
    CLogWriter writer;
    if (!writer.Open(argv[2], 0xFFFFFFFF, 1, 20)) return 3;
    writer.WriteFormat(1, 0, "second writer");
    return 4;
  }
  if (argc > 1 && std::strcmp(argv[1], "--kill-child") == 0)
    return RunKillChild(argc - 2, argv + 2);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
