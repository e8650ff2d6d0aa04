#include "platform/pseudo_terminal.h"
#include "simulator/program/MeterPort.h"

namespace ostrel::sim {
namespace {

class PtyPort final : public IMeterPort {
 public:
  explicit PtyPort(std::string path) : path_(std::move(path)) {}

  bool Open(std::string& error) override { return terminal_.Open(path_, error); }
  void Close() override { terminal_.Close(); }
  [[nodiscard]] std::string Name() const override { return path_; }
  std::size_t Read(std::span<std::uint8_t> buffer, std::chrono::microseconds limit) override {
    return terminal_.Read(buffer, limit);
  }
  void Write(std::span<const std::uint8_t> bytes) override { terminal_.Write(bytes); }
  [[nodiscard]] std::optional<SerialMode> OtherEnd() const override {
    const auto settings = terminal_.OtherEnd();
    if (!settings) return std::nullopt;
    const Parity parity = settings->odd ? Parity::Odd : Parity::Even;
    return SerialMode{.baud = settings->baud, .parity = settings->parity ? parity : Parity::None};
  }

 private:
  std::string path_;
  platform::PseudoTerminal terminal_;
};

}  // namespace

std::unique_ptr<IMeterPort> MakePtyPort(std::string path) { return std::make_unique<PtyPort>(std::move(path)); }

}  // namespace ostrel::sim
