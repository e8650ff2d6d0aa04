// What the doctor finds on the channels of a configuration, printed as it is found.
#pragma once

#include <vector>

#include "host/session/Failure.h"
#include "host/session/LineDoctor.h"

namespace ostrel::host {

class DoctorReport {
 public:
  explicit DoctorReport(bool json) : json_(json) {}

  /// The line, then each meter of it. The channel's port is not open elsewhere.
  void Examine(const ChannelConfig& channel, const std::vector<MeterType>& types, Depth depth);
  [[nodiscard]] ExitCode Result() const { return result_; }

 private:
  void Print(const ChannelConfig& channel, const MeterConfig* meter, const Diagnosis& diagnosis);

  bool json_;
  ExitCode result_ = kExitDone;
};

}  // namespace ostrel::host
