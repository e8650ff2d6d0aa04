// Reads an asio stream with a time limit: one read is kept under way, and its bytes are handed out when it ends.
#pragma once

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ostrel::sim {

/// The stream is closed and its reader reset before the two are destroyed.
class StreamReader {
 public:
  /// Bytes that came within the time. `failed` is set when the stream has ended.
  template <typename Stream>
  std::size_t Read(asio::io_context& context, Stream& stream, std::span<std::uint8_t> buffer, std::chrono::microseconds limit,
                   bool& failed) {
    if (!reading_ && from_ == to_) Start(stream);
    context.restart();
    if (from_ == to_) context.run_one_for(limit);
    failed = failed_;
    const std::size_t count = std::min(buffer.size(), to_ - from_);
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(from_), count, buffer.begin());
    from_ += count;
    return count;
  }

  /// Ends the read under way, after the stream was closed, and forgets what it brought.
  void Reset(asio::io_context& context) {
    context.restart();
    while (reading_ && context.run_one() != 0) continue;
    from_ = to_ = 0;
    failed_ = false;
  }

 private:
  template <typename Stream>
  void Start(Stream& stream) {
    reading_ = true;
    stream.async_read_some(asio::buffer(bytes_), [this](const auto& error, std::size_t count) {
      reading_ = false;
      failed_ = static_cast<bool>(error);
      from_ = 0;
      to_ = error ? 0 : count;
    });
  }

  std::array<std::uint8_t, 512> bytes_{};
  std::size_t from_ = 0;
  std::size_t to_ = 0;
  bool reading_ = false;
  bool failed_ = false;
};

}  // namespace ostrel::sim
