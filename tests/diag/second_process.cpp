#include "second_process.h"

#include <cstring>

#include <deskaid/diag/log_writer.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

constexpr int kExitRefused = 3;
constexpr int kExitWrote = 4;

int SecondWriterBody(const char* path) {
  CLogWriter writer;
  if (!writer.Open(path, 0xFFFFFFFF, 1, 20)) return kExitRefused;
  writer.WriteFormat(1, 0, "second writer");
  writer.Close();
  return kExitWrote;
}

SecondWriterResult FromExitCode(int code) {
  if (code == kExitRefused) return SecondWriterResult::kRefused;
  if (code == kExitWrote) return SecondWriterResult::kWrote;
  return SecondWriterResult::kError;
}

}  // namespace

bool RunAsSecondWriter(int argc, char** argv, int& exitCode) {
  if (argc != 3 || std::strcmp(argv[1], "--second-writer") != 0) return false;
  exitCode = SecondWriterBody(argv[2]);
  return true;
}

#ifdef _WIN32

SecondWriterResult RunSecondWriter(const std::string& path) {
  char exe[MAX_PATH];
  GetModuleFileNameA(nullptr, exe, MAX_PATH);
  std::string command = std::string("\"") + exe + "\" --second-writer \"" + path + "\"";
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessA(exe, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    return SecondWriterResult::kError;
  }
  WaitForSingleObject(process.hProcess, 60000);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return FromExitCode(static_cast<int>(code));
}

#else

SecondWriterResult RunSecondWriter(const std::string& path) {
  pid_t child = fork();
  if (child == 0) _exit(SecondWriterBody(path.c_str()));
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
    return SecondWriterResult::kError;
  }
  return FromExitCode(WEXITSTATUS(status));
}

#endif
