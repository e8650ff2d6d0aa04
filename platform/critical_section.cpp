#include "platform/critical_section.h"

namespace ostrel::platform {

void FairSection::Enter() {
  const auto self = std::this_thread::get_id();
  std::unique_lock lock(mutex_);
  if (depth_ > 0 && owner_ == self) {
    ++depth_;
    return;
  }
  const std::uint64_t ticket = nextTicket_++;
  turn_.wait(lock, [&] { return served_ == ticket; });
  owner_ = self;
  depth_ = 1;
}

void FairSection::Leave() {
  const std::lock_guard lock(mutex_);
  if (depth_ == 0 || owner_ != std::this_thread::get_id()) return;
  if (--depth_ > 0) return;
  owner_ = {};
  ++served_;
  if (served_ != nextTicket_) turn_.notify_all();
}

std::uint64_t FairSection::Waiters() {
  const std::lock_guard lock(mutex_);
  return nextTicket_ - served_ - (depth_ > 0 ? 1 : 0);
}

}  // namespace ostrel::platform
