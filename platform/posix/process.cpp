#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

extern char** environ;

namespace ostrel::platform {
namespace {

constexpr int kEndingSteps = 100;
constexpr int kEndingStepMs = 20;

bool HasEnded(pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; }

}  // namespace

ChildProcess::~ChildProcess() {
  if (process_ == 0) return;
  const auto process = static_cast<pid_t>(process_);
  kill(process, SIGTERM);
  for (int step = 0; step < kEndingSteps; ++step) {
    if (HasEnded(process)) return;
    poll(nullptr, 0, kEndingStepMs);
  }
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
}

bool ChildProcess::Start(const std::string& program, const std::vector<std::string>& arguments, std::string& error) {
  std::vector<std::string> texts = {program};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  const int result = posix_spawn(&process, program.c_str(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (result != 0) {
    error = program + ": " + std::strerror(result);
    return false;
  }
  process_ = process;
  return true;
}

bool ChildProcess::Running() {
  if (process_ == 0) return false;
  if (!HasEnded(static_cast<pid_t>(process_))) return true;
  process_ = 0;
  return false;
}

bool HasPseudoTerminals() { return true; }

std::string ProgramFileName(const std::string& name) { return name; }

}  // namespace ostrel::platform
