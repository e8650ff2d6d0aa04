#include "host/program/DoctorReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/show/JsonLines.h"
#include "host/show/Output.h"
#include "platform/console.h"

namespace ostrel::host {

void DoctorReport::Print(const ChannelConfig& channel, const MeterConfig* meter, const Diagnosis& diagnosis) {
  const std::string who =
      meter == nullptr ? channel.port : fmt::format("{} {} address {}", channel.port, meter->name, meter->address);
  host::Print((json_ ? DoctorJson(channel.port, meter, diagnosis) : who + ": " + Sentence(diagnosis)) + '\n');
  const ExitCode code = IsOfPort(diagnosis.finding) ? kExitPort : IsUsable(diagnosis.finding) ? kExitDone : kExitUnanswered;
  result_ = std::max(result_, code);
}

void DoctorReport::Examine(const ChannelConfig& channel, const std::vector<MeterType>& types, Depth depth) {
  LineDoctor doctor(channel, types);
  const Diagnosis line = doctor.DiagnoseLine();
  if (line.finding != Finding::Good) return Print(channel, nullptr, line);
  for (const MeterConfig& meter : channel.meters) {
    if (platform::Interrupted()) {
      result_ = kExitInterrupted;
      return;
    }
    Print(channel, &meter, doctor.DiagnoseMeter(meter, depth));
  }
  if (!channel.meters.empty()) return;
  host::Print(json_ ? std::string() : channel.port + ": the port opens and the line is quiet; it has no meters\n");
}

}  // namespace ostrel::host
