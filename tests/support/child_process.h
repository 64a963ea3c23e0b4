// Starting another program from a test, waiting for its end or ending it.
#pragma once

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

struct ChildExit {
  bool started = false;
  unsigned long startError = 0;  // why the start failed (GetLastError; errno elsewhere)
  bool finished = false;         // within the time allowed; a child still running then is ended
  unsigned long code = 0;  // the exit code; on POSIX the signal that ended the child, if one did
};

// A running child. Args in the host's code page.
class ChildProcess {
 public:
  ChildProcess(const std::string& program, const std::vector<std::string>& args) {
#ifdef _WIN32
    std::string command = "\"" + program + "\"";
    for (const std::string& arg : args) command += " \"" + arg + "\"";
    std::wstring wide(command.size() + 1, L'\0');
    MultiByteToWideChar(CP_ACP, 0, command.c_str(), -1, &wide[0], static_cast<int>(wide.size()));
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    m_exit.started = CreateProcessW(nullptr, &wide[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                    &startup, &m_process) != FALSE;
    if (!m_exit.started) m_exit.startError = GetLastError();
#else
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    m_exit.started = m_pid > 0;
    if (!m_exit.started) m_exit.startError = static_cast<unsigned long>(errno);
#endif
  }
  ~ChildProcess() { Kill(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool Started() const { return m_exit.started; }
  unsigned long StartError() const { return m_exit.startError; }

  // Waits up to `ms` for the end; a child still running then is ended.
  ChildExit Wait(unsigned ms) {
    if (!m_exit.started || m_waited) return m_exit;
#ifdef _WIN32
    m_exit.finished = WaitForSingleObject(m_process.hProcess, ms) == WAIT_OBJECT_0;
    if (!m_exit.finished) TerminateProcess(m_process.hProcess, 1);
    WaitForSingleObject(m_process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(m_process.hProcess, &code);
    m_exit.code = code;
    CloseHandle(m_process.hThread);
    CloseHandle(m_process.hProcess);
#else
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    pid_t ended = 0;
    while ((ended = waitpid(m_pid, &status, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < deadline)
      usleep(5000);
    m_exit.finished = ended == m_pid;
    if (ended == 0) {
      kill(m_pid, SIGKILL);
      waitpid(m_pid, &status, 0);
    }
    m_exit.code = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
#endif
    m_waited = true;
    return m_exit;
  }

  // Ends the child at once, wherever it is, and waits for its end. `finished` tells whether it had
  // ended by itself before.
  ChildExit Kill() { return Wait(0); }

 private:
  ChildExit m_exit;
  bool m_waited = false;
#ifdef _WIN32
  PROCESS_INFORMATION m_process = {};
#else
  pid_t m_pid = -1;
#endif
};

// Runs a program to its end, or ends it after `ms`. `whileRunning` runs once the child has started.
inline ChildExit RunChildProcess(const std::string& program, const std::vector<std::string>& args,
                                 unsigned ms, const std::function<void()>& whileRunning = nullptr) {
  ChildProcess child(program, args);
  if (!child.Started()) return ChildExit{};
  if (whileRunning) whileRunning();
  return child.Wait(ms);
}
