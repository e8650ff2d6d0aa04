// Looks at a channel with the plug-in out of the way: who talks unasked, what each meter answers, and why the plug-in cannot
// read it. Only requests that ask are sent, and each password once: some meters lock themselves after a few wrong ones.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "host/session/Catalogue.h"
#include "host/session/LineFinding.h"

namespace ostrel::host {

enum class Depth { Cause, Measure };  // the second asks a good meter fifty times

class LineDoctor {
 public:
  /// The channel's port is not open elsewhere. Types as the plug-in lists them.
  LineDoctor(const ChannelConfig& channel, const std::vector<MeterType>& types);
  ~LineDoctor();

  /// What is wrong with the line itself: its port, or somebody who talks unasked. Good when nothing is. To be asked first.
  [[nodiscard]] Diagnosis DiagnoseLine();
  [[nodiscard]] Diagnosis DiagnoseMeter(const MeterConfig& meter, Depth depth);

 private:
  using Bytes = std::vector<std::uint8_t>;

  [[nodiscard]] Heard AskPatiently(const Bytes& request);
  [[nodiscard]] Bytes Ask(const Bytes& request);
  [[nodiscard]] bool OpenChannel(std::uint8_t address, const std::string& password);
  [[nodiscard]] Finding OpenAccess(const MeterConfig& meter);
  [[nodiscard]] Finding CheckType(const MeterConfig& meter, Diagnosis& found);
  void ReadSerialAndClock(std::uint8_t address, Diagnosis& found);
  void Measure(const Bytes& request, Diagnosis& found);

  ChannelConfig channel_;
  const std::vector<MeterType>& types_;
  std::unique_ptr<Wire> wire_;
};

}  // namespace ostrel::host
