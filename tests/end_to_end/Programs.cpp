#include "tests/end_to_end/Programs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace ostrel::test {
namespace {

constexpr int kStepMs = 10;
constexpr int kPatienceSteps = 3000;

void Redirect(const std::string& path, int descriptor) {
  const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
  dup2(file, descriptor);
}

pid_t Launch(const std::string& program, const std::vector<std::string>& arguments, const std::string& output) {
  std::vector<std::string> all = {std::filesystem::path(OSTREL_PROGRAMS) / program};
  all.insert(all.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& argument : all) pointers.push_back(argument.data());
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

void AddTag(HostRun& run, const nlohmann::json& event) {
  run.tags[{event["meter"], event["id"]}] = {event["value"], event["quality"]};
}

}  // namespace

Background::Background(const std::string& program, const std::vector<std::string>& arguments, const std::string& outputFile)
    : output_(outputFile), process_(Launch(program, arguments, outputFile)) {}

Background::~Background() {
  int code = 0;
  if (Ended(code)) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

bool Background::Ended(int& exitCode) {
  int status = 0;
  if (!ended_ && waitpid(process_, &status, WNOHANG) == process_) {
    ended_ = true;
    exit_code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  exitCode = exit_code_;
  return ended_;
}

bool Background::WaitUntil(const std::function<bool(const std::string&)>& wanted) {
  int code = 0;
  for (int step = 0; step < kPatienceSteps; ++step) {
    const bool ended = Ended(code);
    if (wanted(Output())) return true;
    if (ended) return false;
    usleep(kStepMs * 1000);
  }
  return false;
}

bool Background::WaitFor(const std::string& text) {
  return WaitUntil([&](const std::string& output) { return output.find(text) != std::string::npos; });
}

int Background::Wait(int seconds) {
  int code = 0;
  for (int step = 0; step < seconds * 1000 / kStepMs; ++step) {
    if (Ended(code)) return code;
    usleep(kStepMs * 1000);
  }
  ADD_FAILURE() << "does not end within " << seconds << " s";
  return -1;
}

void Background::Signal(int signal) { kill(process_, signal); }
std::string Background::Output() const { return FileText(output_); }
std::string Background::Errors() const { return FileText(output_ + ".err"); }

void Bench::StartMeters(const std::vector<std::string>& meters, const std::string& faults) {
  std::vector<std::string> arguments = {"--line", "pty:" + File("line"), "--seed", "1"};
  if (!faults.empty()) {
    std::ofstream(File("faults.toml")) << faults;
    arguments.insert(arguments.end(), {"--faults", File("faults.toml")});
  }
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
  std::ofstream(File("host.toml")) << "log = { file = \"" << File("events.log") << "\" }\n"
                                   << topKeys << "\n[[channel]]\nport = \"COM1\"\ndevice = \"" << File("line") << "\"\n"
                                   << channelKeys << "\n"
                                   << meters;
}

std::vector<std::string> Bench::WithConfig(std::vector<std::string> arguments) const {
  arguments.insert(arguments.end(), {"--config", File("host.toml")});
  return arguments;
}

std::unique_ptr<Background> Bench::StartHost(const std::vector<std::string>& arguments) {
  return std::make_unique<Background>("ostrel-host", WithConfig(arguments), File("host.out"));
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

std::string MeterTable(const std::string& name, std::uint32_t address, std::uint32_t type, const std::string& more) {
  return "[[channel.meter]]\nname = \"" + name + "\"\naddress = " + std::to_string(address) + "\ntype = " + std::to_string(type) +
         "\n" + more + "\n";
}

std::string MeterText(std::uint32_t address, std::uint32_t type, const std::string& settings) {
  const bool singlePhase = type == 2 || type == 12;
  return std::to_string(address) + ":" + std::to_string(type) + ":" + settings + (singlePhase ? "" : ":ku=100:ki=20");
}

HostRun Bench::Read(int exitCode, const std::string& output, const std::string& errors) {
  HostRun run{.exitCode = exitCode, .errors = errors, .tags = {}, .log = {}, .events = {}};
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const auto event = nlohmann::json::parse(line, nullptr, false);
    if (event.is_discarded()) continue;
    if (event["event"] == "tag") AddTag(run, event);
    if (event["event"] == "log") run.log.push_back(event["text"].get<std::string>().substr(sizeof "[ 22/11/2026 20:00:01.204 ]"));
    run.events.push_back(event);
  }
  return run;
}

}  // namespace ostrel::test
