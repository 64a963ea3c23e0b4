// Starting another program from a test and waiting for its end.
#pragma once

#include <functional>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/wait.h>
#include <unistd.h>
#endif

struct ChildExit {
  bool started = false;
  bool finished = false;   // within the time allowed; a child still running then is ended
  unsigned long code = 0;  // the exit code; on POSIX the signal that ended the child, if one did
};

// Args in the host's code page; on POSIX a hung child is left to the test's timeout, not `ms`.
inline ChildExit RunChildProcess(const std::string& program, const std::vector<std::string>& args,
                                 unsigned ms, const std::function<void()>& whileRunning = nullptr) {
  ChildExit result;
#ifdef _WIN32
  std::string command = "\"" + program + "\"";
  for (const std::string& arg : args) command += " \"" + arg + "\"";
  std::wstring wide(command.size() + 1, L'\0');
  MultiByteToWideChar(CP_ACP, 0, command.c_str(), -1, &wide[0], static_cast<int>(wide.size()));
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  result.started = CreateProcessW(nullptr, &wide[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                  &startup, &process) != FALSE;
  if (!result.started) return result;
  if (whileRunning) whileRunning();
  result.finished = WaitForSingleObject(process.hProcess, ms) == WAIT_OBJECT_0;
  if (!result.finished) TerminateProcess(process.hProcess, 1);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  result.code = code;
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
#else
  (void)ms;
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  result.started = child > 0;
  if (whileRunning) whileRunning();
  int status = 0;
  result.finished = waitpid(child, &status, 0) == child;
  result.code = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
#endif
  return result;
}
