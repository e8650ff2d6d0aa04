// Write commands and their answers as they pass the port. The plug-in clears a client's write whatever became of it; the
// frames tell.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace ostrel::host {

/// What a meter said to a write command.
struct WriteAnswer {
  bool sent = false;                   // a command went out
  std::optional<std::uint8_t> status;  // the last status byte; nothing after silence
};

class WriteFrames {
 public:
  /// Called for every exchange, on the thread that makes it.
  void Observe(std::span<const std::uint8_t> request, std::span<const std::uint8_t> answer);
  /// Starts to watch afresh, and stops.
  void Begin();
  void End();
  /// What became of the command for a parameter since Begin: repeats count until a final answer.
  [[nodiscard]] WriteAnswer Outcome(std::uint8_t address, std::uint8_t parameter) const;

 private:
  struct Seen {
    std::uint8_t address;
    std::uint8_t parameter;
    std::optional<std::uint8_t> status;
  };

  mutable std::mutex mutex_;
  bool watching_ = false;
  std::vector<Seen> seen_;
};

}  // namespace ostrel::host
