// ostrel-host read: one pass for one meter, then the values.
#include <fmt/format.h>

#include <cstdio>

#include "host/program/Commands.h"
#include "host/session/Session.h"
#include "host/show/JsonLines.h"
#include "host/show/Output.h"

namespace ostrel::host {
namespace {

Config ConfigFor(const ReadOptions& options) {
  Config config = OnlyMeter(ReadConfig(options.common.config), options.meter);
  MeterConfig& meter = config.channels.front().meters.front();
  meter.tags.clear();
  for (const std::string& tag : options.tags) meter.tags.push_back({.text = tag, .place = {}});
  // Somebody who asks for values wants the meter to be asked.
  meter.exchange = true;
  return config;
}

void PrintReading(const ReadOptions& options, const std::string& channel, const Meter& meter, const TagDefinition& tag,
                  const TagReading& reading) {
  if (options.common.json) {
    Print(TagJson(channel, meter.config, tag, reading) + '\n');
  } else {
    Print(fmt::format("{} = {} ({})\n", tag.name, ValueText(reading.value), QualityWithAge(reading)));
  }
}

}  // namespace

ExitCode CommandRead(const ReadOptions& options) {
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.common.module);
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  bool allGood = true;
  session.Start(
      [&](Channel& channel, const PassReport& report) {
        const MeterReadings& meter = report.meters.front();
        for (std::size_t i = 0; i < meter.tags.size(); ++i) {
          allGood = allGood && meter.readings[i].quality == kQualityGood;
          PrintReading(options, channel.Config().port, *meter.meter, meter.meter->tags[meter.tags[i]].definition,
                       meter.readings[i]);
        }
        return true;
      },
      1);
  const bool finished = session.WaitUntilDone();
  session.Stop();
  for (const LogLine& line : session.Events().TakeNew()) fmt::print(stderr, "{}\n", line.text);
  const std::string problem = session.Services().PortProblem(config.channels.front().port);
  if (!problem.empty()) throw Failure(kExitPort, config.channels.front().port + ": " + problem);
  return finished && allGood ? kExitDone : kExitUnanswered;
}

}  // namespace ostrel::host
