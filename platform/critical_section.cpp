#include "platform/critical_section.h"

namespace ostrel::platform {

void FairSection::Enter() {
  const auto self = std::this_thread::get_id();
  std::unique_lock lock(mutex_);
  if (depth_ == 0) {
    owner_ = self;
  } else if (owner_ != self) {
    Waiter waiter{.thread = self};
    Append(waiter);
    waiter.turn.wait(lock, [&] { return owner_ == self; });
    return;
  }
  ++depth_;
}

void FairSection::Append(Waiter& waiter) {
  (last_ == nullptr ? first_ : last_->next) = &waiter;
  last_ = &waiter;
  ++waiting_;
}

// The section is never free while somebody waits, so nobody can come in between. The waiter is woken under the mutex: once it
// is let go, the waiter may be gone.
void FairSection::Leave() {
  const std::lock_guard lock(mutex_);
  if (depth_ == 0 || owner_ != std::this_thread::get_id()) return;
  if (--depth_ > 0) return;
  owner_ = {};
  if (first_ == nullptr) return;
  Waiter& next = *first_;
  first_ = next.next;
  if (first_ == nullptr) last_ = nullptr;
  --waiting_;
  owner_ = next.thread;
  depth_ = 1;
  next.turn.notify_one();
}

std::uint64_t FairSection::Waiters() {
  const std::lock_guard lock(mutex_);
  return waiting_;
}

}  // namespace ostrel::platform
