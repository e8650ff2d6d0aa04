#include "platform/critical_section.h"

namespace ostrel::platform {

CriticalSection::CriticalSection() = default;
CriticalSection::~CriticalSection() = default;

void CriticalSection::Enter() {
  const auto self = std::this_thread::get_id();
  std::unique_lock lock(state_.mutex);
  if (state_.depth > 0 && state_.owner == self) {
    ++state_.depth;
    return;
  }
  const std::uint64_t ticket = state_.nextTicket++;
  state_.turn.wait(lock, [&] { return state_.served == ticket; });
  state_.owner = self;
  state_.depth = 1;
}

void CriticalSection::Leave() {
  const std::lock_guard lock(state_.mutex);
  if (state_.depth == 0 || state_.owner != std::this_thread::get_id()) return;
  if (--state_.depth > 0) return;
  state_.owner = {};
  ++state_.served;
  if (state_.served != state_.nextTicket) state_.turn.notify_all();
}

}  // namespace ostrel::platform
