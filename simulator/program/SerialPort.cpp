#include <asio/serial_port.hpp>
#include <asio/write.hpp>

#include "platform/clock.h"
#include "simulator/program/MeterPort.h"
#include "simulator/program/StreamReader.h"

namespace ostrel::sim {
namespace {

asio::serial_port_base::parity ParityOption(Parity parity) {
  using Option = asio::serial_port_base::parity;
  if (parity == Parity::None) return Option(Option::none);
  return Option(parity == Parity::Even ? Option::even : Option::odd);
}

class SerialPort final : public IMeterPort {
 public:
  SerialPort(std::string device, SerialMode mode) : device_(std::move(device)), mode_(mode) {}
  ~SerialPort() override { SerialPort::Close(); }

  bool Open(std::string& error) override {
    asio::error_code failure;
    port_.open(device_, failure);
    const auto set = [&](const auto& option) {
      if (!failure) port_.set_option(option, failure);
    };
    set(asio::serial_port_base::baud_rate(mode_.baud));
    set(asio::serial_port_base::character_size(8));
    set(ParityOption(mode_.parity));
    set(asio::serial_port_base::stop_bits(asio::serial_port_base::stop_bits::one));
    set(asio::serial_port_base::flow_control(asio::serial_port_base::flow_control::none));
    if (!failure) return true;
    error = device_ + ": " + failure.message();
    Close();
    return false;
  }

  void Close() override {
    asio::error_code ignored;
    port_.close(ignored);
    reader_.Reset(context_);
  }

  [[nodiscard]] std::string Name() const override { return device_; }

  std::size_t Read(std::span<std::uint8_t> buffer, std::chrono::microseconds limit) override {
    if (!port_.is_open()) return Reopen(limit);
    bool failed = false;
    const std::size_t count = reader_.Read(context_, port_, buffer, limit, failed);
    if (failed) Close();
    return count;
  }

  void Write(std::span<const std::uint8_t> bytes) override {
    if (!port_.is_open()) return;
    asio::error_code failure;
    asio::write(port_, asio::buffer(bytes.data(), bytes.size()), failure);
    if (failure) Close();
  }

 private:
  /// A device that was pulled out is looked for again, without haste.
  std::size_t Reopen(std::chrono::microseconds limit) {
    std::string ignored;
    if (!Open(ignored)) platform::Sleep(static_cast<std::uint32_t>(std::chrono::ceil<std::chrono::milliseconds>(limit).count()));
    return 0;
  }

  std::string device_;
  SerialMode mode_;
  asio::io_context context_;
  asio::serial_port port_{context_};
  StreamReader reader_;
};

}  // namespace

std::unique_ptr<IMeterPort> MakeSerialPort(std::string device, SerialMode mode) {
  return std::make_unique<SerialPort>(std::move(device), mode);
}

}  // namespace ostrel::sim
