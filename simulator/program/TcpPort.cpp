// One client at a time on a port of this computer only; the next one waits until the first has gone.
#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>

#include "simulator/program/MeterPort.h"
#include "simulator/program/StreamReader.h"

namespace ostrel::sim {
namespace {

using asio::ip::tcp;

class TcpPort final : public IMeterPort {
 public:
  explicit TcpPort(std::uint16_t port) : port_(port) {}
  ~TcpPort() override { TcpPort::Close(); }

  bool Open(std::string& error) override {
    const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), port_);
    asio::error_code failure;
    acceptor_.open(endpoint.protocol(), failure);
    if (!failure) acceptor_.set_option(asio::socket_base::reuse_address(true), failure);
    if (!failure) acceptor_.bind(endpoint, failure);
    if (!failure) acceptor_.listen(asio::socket_base::max_listen_connections, failure);
    if (failure) {
      error = "port " + std::to_string(port_) + ": " + failure.message();
      Close();
      return false;
    }
    port_ = acceptor_.local_endpoint().port();
    return true;
  }

  void Close() override {
    asio::error_code ignored;
    acceptor_.close(ignored);
    HangUp();
    accepting_ = false;
  }

  [[nodiscard]] std::string Name() const override { return std::to_string(port_); }

  std::size_t Read(std::span<std::uint8_t> buffer, std::chrono::microseconds limit) override {
    if (!socket_.is_open() || accepting_) {
      Accept(limit);
      return 0;
    }
    bool failed = false;
    const std::size_t count = reader_.Read(context_, socket_, buffer, limit, failed);
    if (failed) HangUp();
    return count;
  }

  void Write(std::span<const std::uint8_t> bytes) override {
    if (!socket_.is_open() || accepting_) return;
    asio::error_code failure;
    asio::write(socket_, asio::buffer(bytes.data(), bytes.size()), failure);
    if (failure) HangUp();
  }

 private:
  void Accept(std::chrono::microseconds limit) {
    if (!accepting_) {
      accepting_ = true;
      acceptor_.async_accept(socket_, [this](const asio::error_code& failure) {
        accepting_ = false;
        asio::error_code ignored;
        if (!failure) socket_.set_option(tcp::no_delay(true), ignored);
      });
    }
    context_.restart();
    context_.run_one_for(limit);
  }

  void HangUp() {
    asio::error_code ignored;
    socket_.close(ignored);
    reader_.Reset(context_);
  }

  asio::io_context context_;
  tcp::acceptor acceptor_{context_};
  tcp::socket socket_{context_};
  StreamReader reader_;
  std::uint16_t port_;
  bool accepting_ = false;
};

}  // namespace

std::unique_ptr<IMeterPort> MakeTcpPort(std::uint16_t port) { return std::make_unique<TcpPort>(port); }

}  // namespace ostrel::sim
