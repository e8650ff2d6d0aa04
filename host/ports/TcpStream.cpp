#include "host/ports/TcpStream.h"

#include <asio/connect.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <utility>

namespace ostrel::host {
namespace {

using asio::ip::tcp;

constexpr std::chrono::milliseconds kConnectLimit{3000};
constexpr std::chrono::milliseconds kSendLimit{3000};

class TcpStream final : public ByteStream {
 public:
  bool Connect(const std::string& host, const std::string& port, std::string& error);

  // Speed and parity are set at the gateway.
  bool SetMode(const LineMode&) override { return true; }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override;
  bool Send(const std::uint8_t* bytes, std::size_t size) override;
  bool Failed() const override { return failed_; }
  std::uint32_t OwnGapMs() const override { return kTcpGapMs; }

 private:
  /// Runs what was started for so long, then gives it up.
  void RunFor(std::chrono::milliseconds limit);
  std::size_t ReadQueued(std::uint8_t* buffer, std::size_t size);

  asio::io_context context_;
  tcp::socket socket_{context_};
  bool connected_ = false;
  bool failed_ = false;
};

void TcpStream::RunFor(std::chrono::milliseconds limit) {
  context_.restart();
  context_.run_for(limit);
  if (context_.stopped()) return;
  std::error_code ignored;
  // Cancelling alone would let a connection attempt go on with the host's next address.
  if (connected_) {
    socket_.cancel(ignored);
  } else {
    socket_.close(ignored);
  }
  context_.run();
}

bool TcpStream::Connect(const std::string& host, const std::string& port, std::string& error) {
  std::error_code result;
  tcp::resolver resolver(context_);
  const auto endpoints = resolver.resolve(host, port, result);
  if (!result) {
    result = asio::error::timed_out;
    asio::async_connect(socket_, endpoints, [&result](std::error_code outcome, const tcp::endpoint&) {
      if (outcome != asio::error::operation_aborted) result = outcome;
    });
    RunFor(kConnectLimit);
  }
  if (result) {
    error = "tcp:" + host + ":" + port + ": " + result.message();
    return false;
  }
  connected_ = true;
  std::error_code ignored;
  socket_.set_option(tcp::no_delay(true), ignored);
  socket_.set_option(asio::socket_base::keep_alive(true), ignored);
  socket_.non_blocking(true, ignored);
  return true;
}

// What has arrived already, so that a wait of nothing brings it too.
std::size_t TcpStream::ReadQueued(std::uint8_t* buffer, std::size_t size) {
  std::error_code result;
  const std::size_t count = socket_.read_some(asio::buffer(buffer, size), result);
  if (result && result != asio::error::would_block) failed_ = true;
  return result ? 0 : count;
}

std::size_t TcpStream::Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) {
  if (failed_) return 0;
  const std::size_t queued = ReadQueued(buffer, size);
  if (queued != 0 || failed_ || waitMs == 0) return queued;
  std::size_t count = 0;
  socket_.async_read_some(asio::buffer(buffer, size), [&](std::error_code result, std::size_t received) {
    if (result && result != asio::error::operation_aborted) failed_ = true;
    count = received;
  });
  RunFor(std::chrono::milliseconds(waitMs));
  return count;
}

bool TcpStream::Send(const std::uint8_t* bytes, std::size_t size) {
  if (failed_) return false;
  std::error_code result = asio::error::timed_out;
  asio::async_write(socket_, asio::buffer(bytes, size), [&result](std::error_code outcome, std::size_t) { result = outcome; });
  RunFor(kSendLimit);
  if (result) failed_ = true;
  return !failed_;
}

}  // namespace

std::unique_ptr<ByteStream> OpenTcp(const std::string& host, const std::string& port, std::string& error) {
  auto stream = std::make_unique<TcpStream>();
  if (!stream->Connect(host, port, error)) return nullptr;
  return stream;
}

}  // namespace ostrel::host
