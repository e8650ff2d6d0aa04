// A copy of a debug trace that may be handed on. The trace shows every frame as it goes, and the frame that opens a meter's
// access channel carries the password as it is; its check would give a short one away too.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::host {

class TraceCopy {
 public:
  /// The next line of the trace as it may be shown: bytes that hold a password, or may hold one, stand as "**". Lines come in
  /// their order, those of several threads and processes mixed.
  [[nodiscard]] std::string Line(const std::string& line);

 private:
  using Bytes = std::vector<std::uint8_t>;
  struct Asked {
    bool secret = true;  // a trace that begins in the middle of an exchange may begin in one that opens a channel
    std::uint8_t address = 0;
  };

  [[nodiscard]] std::size_t OpenBytesOfWrite(const std::string& thread, const Bytes& frame);
  [[nodiscard]] std::size_t OpenBytesOfRead(const std::string& thread, const Bytes& bytes) const;

  std::map<std::string, Asked> asked_;  // last, by process and thread
  std::set<Bytes> secrets_;
};

}  // namespace ostrel::host
