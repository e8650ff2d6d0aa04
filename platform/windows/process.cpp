#include "platform/process.h"

#include <windows.h>

#include "platform/text.h"

namespace ostrel::platform {
namespace {

constexpr DWORD kEndingMs = 2000;

// As the usual run-time takes a command line apart again.
std::string Quoted(const std::string& argument) {
  std::string quoted = "\"";
  std::size_t slashes = 0;
  for (const char character : argument) {
    if (character == '"') quoted.append(slashes + 1, '\\');
    slashes = character == '\\' ? slashes + 1 : 0;
    quoted += character;
  }
  quoted.append(slashes, '\\');
  return quoted + '"';
}

HANDLE OpenNowhere() {
  SECURITY_ATTRIBUTES inherited = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_EXISTING, 0,
                     nullptr);
}

}  // namespace

ChildProcess::~ChildProcess() {
  if (process_ == 0) return;
  const auto process = reinterpret_cast<HANDLE>(process_);
  // There is no polite request to a process without a window that its owner would not get as well.
  TerminateProcess(process, 0);
  WaitForSingleObject(process, kEndingMs);
  CloseHandle(process);
}

bool ChildProcess::Start(const std::string& program, const std::vector<std::string>& arguments, std::string& error) {
  std::string line = Quoted(program);
  for (const std::string& argument : arguments) line += ' ' + Quoted(argument);
  OleString wideLine = Utf8ToOle(line);
  const HANDLE nowhere = OpenNowhere();
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nowhere;
  startup.hStdOutput = nowhere;
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION started = {};
  const BOOL result = CreateProcessW(Utf8ToOle(program).c_str(), wideLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                     &startup, &started);
  const DWORD reason = GetLastError();
  if (nowhere != INVALID_HANDLE_VALUE) CloseHandle(nowhere);
  if (result == 0) {
    error = program + ": error " + std::to_string(reason);
    return false;
  }
  CloseHandle(started.hThread);
  process_ = reinterpret_cast<std::intptr_t>(started.hProcess);
  return true;
}

bool ChildProcess::Running() {
  return process_ != 0 && WaitForSingleObject(reinterpret_cast<HANDLE>(process_), 0) == WAIT_TIMEOUT;
}

bool HasPseudoTerminals() { return false; }

std::string ProgramFileName(const std::string& name) { return name + ".exe"; }

}  // namespace ostrel::platform
