// Which device serves each port name, and what became of it when it was opened last. Port objects find their device here,
// from whatever thread opens them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "host/ports/ByteStream.h"
#include "host/ports/PortLine.h"

namespace ostrel::host {

/// Opens a device anew; null with a reason when it cannot be opened.
using StreamOpener = std::function<std::unique_ptr<ByteStream>(std::string& error)>;
using StreamWrapper = std::function<std::unique_ptr<ByteStream>(std::unique_ptr<ByteStream> stream)>;
/// Told of every answer read: the request it belongs to and what came, nothing after silence. Called on the reading thread.
using ExchangeObserver = std::function<void(std::span<const std::uint8_t> request, std::span<const std::uint8_t> answer)>;

struct PortEntry {
  StreamOpener open;
  LineOptions line;
  ExchangeObserver observer;
  LateListener late{};
  /// Lasts as long as the entry: answers that are owed when a port is closed come when it is open again. Made by Set.
  std::shared_ptr<OwedAnswers> owed{};
};

class PortDirectory {
 public:
  void Set(const std::string& port, PortEntry entry);
  [[nodiscard]] std::optional<PortEntry> Find(const std::string& port) const;

  void SetProblem(const std::string& port, const std::string& problem);
  /// Why the port could not be used when it was opened last; empty when it could.
  [[nodiscard]] std::string Problem(const std::string& port) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, PortEntry> entries_;
  std::map<std::string, std::string> problems_;
};

}  // namespace ostrel::host
