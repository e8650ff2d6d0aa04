// ostrel-host read: one pass for one meter, then the values.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "host/program/Commands.h"
#include "host/program/Frame.h"
#include "host/session/Session.h"
#include "host/session/TagQuestion.h"
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

// The exchange that this tag's value came from: the last answered one of its request.
const RecordedExchange* SourceOf(const std::vector<RecordedExchange>& exchanges, const TagDefinition& tag) {
  const auto fits = [&tag](const RecordedExchange& each) { return IsRequestOf(tag, each.request) && !each.answer.empty(); };
  const auto found = std::find_if(exchanges.rbegin(), exchanges.rend(), fits);
  return found == exchanges.rend() ? nullptr : &*found;
}

std::string FactorText(const DeviceEntry& entry) {
  return fmt::format("meter constant {}, voltage coefficient {}, current coefficient {}, power scale {}", entry.MeterConstant,
                     entry.VoltageFactor, entry.CurrentFactor, entry.PowerScale);
}

const char* Reason(const TagQuestion& question, const RecordedExchange* source, std::uint16_t quality) {
  if (source == nullptr && quality == kQualityGood && question.requestBytes != 0) return "no event log is configured (event_log)";
  if (question.requestBytes == 0) return "the plug-in answers this tag by itself, without the meter";
  if (source == nullptr) return "the meter did not answer this request";
  return quality == kQualityGood ? "a valid answer to this request" : "the answer was too short, or refused";
}

WhyReport Explain(Channel& channel, const Meter& meter, const TagDefinition& tag, const TagReading& reading) {
  const std::vector<RecordedExchange> exchanges = channel.Link().Kept();
  const TagQuestion question = QuestionOf(tag);
  const RecordedExchange* const source = SourceOf(exchanges, tag);
  const PollGuard guard(channel.Protocol());
  WhyReport why{.request = {},
                .answer = {},
                .bytes = question.bytes,
                .formula = question.formula,
                .factors = FactorText(channel.Record(meter)),
                .reason = Reason(question, source, reading.quality)};
  if (source == nullptr) return why;
  why.request = HexText(source->request);
  why.answer = HexText(source->answer);
  return why;
}

void PrintWhy(const ReadOptions& options, const TagDefinition& tag, const WhyReport& why) {
  if (options.common.json) return Print(WhyJson(options.meter, tag, why) + '\n');
  if (!why.request.empty()) {
    Print(fmt::format("  request   {}\n  answer    {}\n  bytes     {} (the address is byte 0)\n  formula   {}\n  factors   {}\n",
                      why.request, why.answer, why.bytes, why.formula, why.factors));
  }
  Print(fmt::format("  quality   {}\n", why.reason));
}

}  // namespace

ExitCode CommandRead(const ReadOptions& options) {
  const Config config = ConfigFor(options);
  const Plugin plugin = Plugin::Load(options.common.module);
  Session session(plugin, config, Session::Clocks::LeaveAlone);
  if (options.why) session.Channels().front()->Link().Keep();
  bool allGood = true;
  session.Start(
      [&](Channel& channel, const PassReport& report) {
        const MeterReadings& meter = report.meters.front();
        for (std::size_t i = 0; i < meter.tags.size(); ++i) {
          allGood = allGood && meter.readings[i].quality == kQualityGood;
          const TagDefinition& tag = meter.meter->tags[meter.tags[i]].definition;
          PrintReading(options, channel.Config().port, *meter.meter, tag, meter.readings[i]);
          if (options.why) PrintWhy(options, tag, Explain(channel, *meter.meter, tag, meter.readings[i]));
        }
        return true;
      },
      1);
  const bool finished = session.WaitUntilDone();
  session.Stop();
  for (const LogLine& line : session.Events().TakeNew()) fmt::print(stderr, "{}\n", line.text);
  const std::string problem = session.Services().PortProblem(config.channels.front().port);
  if (!problem.empty()) throw Failure(kExitPort, config.channels.front().port + ": " + problem);
  if (!finished) return kExitInterrupted;
  return allGood ? kExitDone : kExitUnanswered;
}

}  // namespace ostrel::host
