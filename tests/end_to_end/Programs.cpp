#include "tests/end_to_end/Programs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

namespace ostrel::test {
namespace {

constexpr int kStepMs = 10;
constexpr int kPatienceSeconds = 30;

void Redirect(const std::string& path, int descriptor) {
  dup2(open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600), descriptor);
}

pid_t Launch(const std::string& program, std::vector<std::string>& arguments, const std::string& output) {
  arguments.insert(arguments.begin(), std::filesystem::path(OSTREL_PROGRAMS) / program);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const pid_t process = fork();
  if (process != 0) return process;
  Redirect(output, STDOUT_FILENO);
  // What is registered on this computer is none of a test's business.
  setenv("OSTREL_REGISTRY", (std::filesystem::path(output).parent_path() / "registry").c_str(), 1);
  Redirect(output + ".err", STDERR_FILENO);
  execv(pointers[0], pointers.data());
  _exit(127);
}

/// Until the condition holds, for so long at most.
template <class Condition>
bool Await(int seconds, const Condition& condition) {
  for (int step = 0; step < seconds * 1000 / kStepMs; ++step) {
    if (condition()) return true;
    usleep(kStepMs * 1000);
  }
  return false;
}

}  // namespace

Background::Background(const std::string& program, std::vector<std::string> arguments, const std::string& outputFile)
    : output_(outputFile), process_(Launch(program, arguments, outputFile)) {}

Background::~Background() {
  if (Ended()) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

bool Background::Ended() {
  int status = 0;
  if (!ended_ && waitpid(process_, &status, WNOHANG) == process_) {
    ended_ = true;
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return ended_;
}

bool Background::WaitUntil(const std::function<bool(const std::string&)>& wanted) {
  bool good = false;
  (void)Await(kPatienceSeconds, [&] {
    const bool ended = Ended();
    good = wanted(Output());
    return good || ended;
  });
  return good;
}

bool Background::WaitFor(const std::string& text) {
  return WaitUntil([&](const std::string& output) { return output.find(text) != std::string::npos; });
}

int Background::Wait(int seconds) {
  EXPECT_TRUE(Await(seconds, [&] { return Ended(); })) << "does not end within " << seconds << " s";
  return exit_code_;
}

void Background::Signal(int signal) { kill(process_, signal); }

void Bench::StartMeters(const std::vector<std::string>& meters, const std::string& faults) {
  std::vector<std::string> arguments = {"--line", "pty:" + File("line"), "--seed", "1", "--faults", File("faults.toml")};
  WriteBytes(File("faults.toml"), faults);
  arguments.insert(arguments.end(), meters.begin(), meters.end());
  meters_ = std::make_unique<Background>("ostrel-meter", arguments, File("meters.out"));
  ASSERT_TRUE(meters_->WaitFor("ready")) << meters_->Errors();
}

void Bench::StopMeters() {
  meters_->Signal(SIGTERM);
  EXPECT_EQ(0, meters_->Wait(10));
  meters_.reset();
}

void Bench::Configure(const std::string& channelKeys, const std::string& meters, const std::string& topKeys) {
  WriteBytes(File("host.toml"), "log = { file = \"" + File("events.log") + "\" }\n" + topKeys +
                                    "\n[[channel]]\nport = \"COM1\"\ndevice = \"" + File("line") + "\"\n" + channelKeys + "\n" +
                                    meters);
}

std::unique_ptr<Background> Bench::StartHost(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--config", File("host.toml")});
  return std::make_unique<Background>("ostrel-host", arguments, File("host.out"));
}

HostRun Bench::Run(const std::vector<std::string>& arguments, int seconds) {
  const auto host = StartHost(arguments);
  const int code = host->Wait(seconds);
  return Read(code, host->Output(), host->Errors());
}

HostRun Bench::RunPlain(const std::vector<std::string>& arguments, int seconds) {
  Background host("ostrel-host", arguments, File("host.out"));
  const int code = host.Wait(seconds);
  return Read(code, host.Output(), host.Errors());
}

HostRun Bench::Read(int exitCode, const std::string& output, const std::string& errors) {
  HostRun run{.exitCode = exitCode, .errors = errors};
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const auto event = nlohmann::json::parse(line, nullptr, false);
    if (event.is_discarded()) continue;
    if (event["event"] == "tag") run.tags[{event["meter"], event["id"]}] = {event["value"], event["quality"]};
    if (event["event"] == "log") run.log.push_back(event["text"].get<std::string>().substr(sizeof "[ 22/11/2026 20:00:01.204 ]"));
    run.events.push_back(event);
  }
  return run;
}

std::string MeterTable(const std::string& name, std::uint32_t address, std::uint32_t type, const std::string& more) {
  return "[[channel.meter]]\nname = \"" + name + "\"\naddress = " + std::to_string(address) + "\ntype = " + std::to_string(type) +
         "\n" + more + "\n";
}

std::string MeterText(std::uint32_t address, std::uint32_t type, const std::string& settings) {
  const bool singlePhase = type == 2 || type == 12;
  return std::to_string(address) + ":" + std::to_string(type) + ":" + settings + (singlePhase ? "" : ":ku=100:ki=20");
}

}  // namespace ostrel::test
