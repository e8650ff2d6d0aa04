// ostrel-meter: simulated meters on a pseudo-terminal, a TCP port or a serial device.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/console.h"
#include "simulator/Line.h"
#include "simulator/MeterSpec.h"
#include "simulator/program/FaultFile.h"
#include "simulator/program/MeterPort.h"
#include "simulator/program/MeterServer.h"

namespace {

using namespace ostrel::sim;

constexpr int kDone = 0;
constexpr int kWrongUsage = 2;
constexpr int kNoLine = 4;
constexpr int kInternal = 70;

struct Options {
  std::vector<std::string> lines;
  std::uint32_t baud = 9600;
  std::string parity = "none";
  bool pace = false;
  bool uart = false;
  std::uint64_t seed = 1;
  std::string faults;
  std::vector<std::string> meters;
};

void Describe(CLI::App& app, Options& options) {
  app.add_option("--line", options.lines,
                 "where to listen: pty:PATH, tcp:PORT (this computer only) or serial:DEVICE; given again, the same meters on "
                 "another line")
      ->required()
      ->allow_extra_args(false);
  app.add_option("--baud", options.baud, "speed of the line")->check(CLI::Range(50, 4000000))->capture_default_str();
  app.add_option("--parity", options.parity, "a bit more for each byte")
      ->check(CLI::IsMember({"none", "even", "odd"}))
      ->capture_default_str();
  app.add_flag("--pace", options.pace, "take as long as the line would at this speed");
  app.add_flag("--uart", options.uart, "who talks at another speed or parity is not understood, and hears garbage (pty)");
  app.add_option("--seed", options.seed, "what the meters show and how faults fall")->capture_default_str();
  app.add_option("--faults", options.faults, "file of faults (TOML)");
  app.set_version_flag("--version", "ostrel-meter " OSTREL_VERSION);
  app.footer("Exit codes: 0 done, 2 wrong usage, 4 no line, 70 an error of the program itself.\n\nKeys of a meter:\n" +
             DescribeMeterKeys());
  app.add_option("METER", options.meters, "address:type[:key=value...]")->required();
}

int Fail(int code, const std::string& message) {
  std::fprintf(stderr, "ostrel-meter: %s\n", message.c_str());
  return code;
}

/// The registers of all days up to now are summed before the first request comes, so that it need not wait.
void Prepare(Meter& meter) {
  const MeterView view = meter.View(ostrel::platform::UtcMilliseconds());
  static_cast<void>(view.model.Energy().At(0, view.now));
}

bool MakeMeters(const Options& options, std::vector<Meter>& meters, std::string& error) {
  std::set<std::uint32_t> addresses;
  for (const std::string& text : options.meters) {
    MeterSpec spec;
    if (!ParseMeterSpec(text, spec, error)) {
      error = text + ": " + error;
      return false;
    }
    if (!addresses.insert(spec.address).second) {
      error = text + ": address: another meter has it";
      return false;
    }
    meters.emplace_back(spec, options.seed);
    Prepare(meters.back());
  }
  return true;
}

/// A line and the port that it is served through, on a thread of its own.
struct Served {
  std::unique_ptr<IMeterPort> port;
  Line line;
  std::thread thread{};
};

SerialMode ModeOf(const Options& options) {
  if (options.parity == "none") return {.baud = options.baud, .parity = Parity::None};
  return {.baud = options.baud, .parity = options.parity == "even" ? Parity::Even : Parity::Odd};
}

Pace PaceOf(const Options& options) {
  if (!options.pace) return {};
  return {.baud = options.baud, .bitsPerByte = options.parity == "none" ? kBitsPerByte : kBitsPerByteWithParity};
}

/// Opens every port before the first is served, so that a line that fails leaves nobody half connected.
int OpenLines(const Options& options, const std::vector<Meter>& meters, const FaultPlan& plan, std::vector<Served>& served) {
  std::string error;
  for (const std::string& text : options.lines) {
    auto port = MakePort(text, ModeOf(options), error);
    if (!port) return Fail(kWrongUsage, "--line: " + error);
    served.push_back({.port = std::move(port), .line = Line(meters, plan, PaceOf(options))});
  }
  for (Served& each : served) {
    if (!each.port->Open(error)) return Fail(kNoLine, error);
  }
  return kDone;
}

void ServeOne(Served& served, const Options& options) {
  MeterServer server(served.line, *served.port);
  if (options.uart) server.MindMode(ModeOf(options));
  server.Run(ostrel::platform::Interrupted);
}

void Serve(std::vector<Served>& served, const Options& options) {
  for (Served& each : served) std::printf("ready %s\n", each.port->Name().c_str());
  std::fflush(stdout);
  for (Served& each : served) {
    each.thread = std::thread([&each, &options] { ServeOne(each, options); });
  }
  for (Served& each : served) each.thread.join();
}

int Run(const Options& options) {
  std::string error;
  std::vector<Meter> meters;
  if (!MakeMeters(options, meters, error)) return Fail(kWrongUsage, error);
  FaultPlan plan{.seed = options.seed, .faults = {}};
  if (!options.faults.empty() && !LoadFaultFile(options.faults, plan, error)) return Fail(kWrongUsage, error);
  std::vector<Served> served;
  const int result = OpenLines(options, meters, plan, served);
  if (result == kDone) Serve(served, options);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Simulated electricity meters on a line.", "ostrel-meter");
  Describe(app, options);
  std::vector<std::string> arguments = ostrel::platform::Arguments(argc, argv);
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(std::move(arguments));
    ostrel::platform::CatchInterrupt();
    return Run(options);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUsage;
  } catch (const std::exception& error) {
    return Fail(kInternal, std::string("an error of the program itself: ") + error.what());
  }
}
