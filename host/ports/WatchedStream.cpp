#include "host/ports/WatchedStream.h"

#include <utility>

namespace ostrel::host {
namespace {

class WatchedStream final : public ByteStream {
 public:
  WatchedStream(std::unique_ptr<ByteStream> stream, std::shared_ptr<StreamWatcher> watcher)
      : stream_(std::move(stream)), watcher_(std::move(watcher)) {}

  bool SetMode(const LineMode& mode) override { return stream_->SetMode(mode); }
  std::size_t Receive(std::uint8_t* buffer, std::size_t size, std::uint32_t waitMs) override {
    const std::size_t count = stream_->Receive(buffer, size, waitMs);
    if (count != 0) watcher_->Received({buffer, count});
    return count;
  }
  bool Send(const std::uint8_t* bytes, std::size_t size) override {
    const bool sent = stream_->Send(bytes, size);
    if (sent) watcher_->Sent({bytes, size});
    return sent;
  }
  bool Failed() const override { return stream_->Failed(); }
  std::uint32_t OwnGapMs() const override { return stream_->OwnGapMs(); }

 private:
  std::unique_ptr<ByteStream> stream_;
  std::shared_ptr<StreamWatcher> watcher_;
};

}  // namespace

StreamOpener WatchedOpener(StreamOpener open, std::shared_ptr<StreamWatcher> watcher) {
  return [open = std::move(open), watcher = std::move(watcher)](std::string& error) -> std::unique_ptr<ByteStream> {
    std::unique_ptr<ByteStream> stream = open(error);
    if (stream == nullptr) return nullptr;
    return std::make_unique<WatchedStream>(std::move(stream), watcher);
  };
}

}  // namespace ostrel::host
