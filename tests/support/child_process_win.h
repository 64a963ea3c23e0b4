// Starting a second program from a Windows test and waiting for its end.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

struct ChildExit {
  bool started = false;
  bool finished = false;  // within the time allowed; a child still running then is ended
  DWORD code = 0;
};

// Runs `command` (a command line, the program quoted as needed), its standard output and error
// going to `output` if given (an inheritable handle), calls `whileRunning` once it has started,
// then waits up to `ms` milliseconds.
inline ChildExit RunChildProcess(std::wstring command, DWORD ms,
                                 const std::function<void()>& whileRunning = nullptr,
                                 HANDLE output = nullptr) {
  ChildExit result;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  if (output != nullptr) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = output;
  }
  PROCESS_INFORMATION process = {};
  result.started = CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr,
                                  nullptr, &startup, &process) != FALSE;
  if (!result.started) return result;
  if (whileRunning) whileRunning();
  result.finished = WaitForSingleObject(process.hProcess, ms) == WAIT_OBJECT_0;
  if (!result.finished) TerminateProcess(process.hProcess, 1);
  GetExitCodeProcess(process.hProcess, &result.code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return result;
}

// The same for a command line in the host's code page.
inline ChildExit RunChildProcess(const std::string& command, DWORD ms,
                                 const std::function<void()>& whileRunning = nullptr) {
  std::wstring wide(command.size() + 1, L'\0');
  wide.resize(MultiByteToWideChar(CP_ACP, 0, command.c_str(), -1, &wide[0],
                                  static_cast<int>(wide.size())) - 1);
  return RunChildProcess(wide, ms, whileRunning);
}
