#include "tests/campaign/Scheduler.h"

#include <ucontext.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "tests/campaign/System.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__clang__)
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#include <sanitizer/common_interface_defs.h>
#define CAMPAIGN_SWITCHING(save, bottom, size) __sanitizer_start_switch_fiber(save, bottom, size)
#define CAMPAIGN_SWITCHED(saved) __sanitizer_finish_switch_fiber(saved, nullptr, nullptr)
#endif
#endif
#if !defined(CAMPAIGN_SWITCHING)
#define CAMPAIGN_SWITCHING(save, bottom, size) static_cast<void>(save)
#define CAMPAIGN_SWITCHED(saved) static_cast<void>(saved)
#endif

namespace __cxxabiv1 {
struct __cxa_eh_globals;
extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept;
}  // namespace __cxxabiv1

namespace ostrel::campaign {

struct Fibre {
  enum class State : std::uint8_t { Ready, Sleeping, Blocked, Ended };

  std::uint32_t id;
  std::string name;
  Scheduler::Body body;
  State state = State::Ready;
  std::int64_t wakesAt = 0;
  Fibre* joiner = nullptr;
  const void* awaits = nullptr;  // lock or fibre
  ucontext_t context{};
  char* stack = nullptr;
  void* sanitizerStack = nullptr;
  int ownWork = 0;
  std::uint64_t exceptions[2] = {};  // the run-time keeps those in flight by system thread
};

namespace {

constexpr std::size_t kStackBytes = 512 * 1024;
constexpr std::uint32_t kMostLooks = 3'000'000;
/// One in so many chances to go on at once is given to somebody else.
constexpr std::uint64_t kPauseOneIn = 8;

/// Kept for the next fibre; not counted as memory of the programs.
constexpr std::size_t kMostSpare = 64;
char* spareStacks[kMostSpare];
std::size_t spare = 0;

char* TakeStack() { return spare > 0 ? spareStacks[--spare] : static_cast<char*>(std::malloc(kStackBytes)); }

void GiveStack(char* stack) {
  if (spare == kMostSpare) return std::free(stack);
  spareStacks[spare++] = stack;
}

}  // namespace

Scheduler::Scheduler(std::uint64_t seed, std::int64_t startUtcMs, std::uint32_t startTick)
    : random_(seed), startUtcMs_(startUtcMs), startTick_(startTick) {
  fibres_.push_back(std::make_unique<Fibre>(Fibre{.id = ++lastId_, .name = "host", .body = {}}));
  running_ = fibres_.back().get();
  scheduler = this;
  platform::ReplaceClock(this);
}

Scheduler::~Scheduler() {
  platform::ReplaceClock(nullptr);
  scheduler = nullptr;
}

std::uint32_t Scheduler::Self() const { return running_->id; }
int& Scheduler::OwnWorkDepth() { return running_->ownWork; }

void Scheduler::Run(unsigned low, unsigned high) {
  CAMPAIGN_SWITCHED(nullptr);
  auto* const self = reinterpret_cast<Scheduler*>(std::uintptr_t{high} << 32 | low);
  Fibre& fibre = *self->running_;
  fibre.body();
  fibre.body = nullptr;
  fibre.state = Fibre::State::Ended;
  if (fibre.joiner != nullptr) fibre.joiner->state = Fibre::State::Ready;
  self->SwitchToNext();
}

Fibre* Scheduler::Start(std::string name, Body body) {
  fibres_.push_back(std::make_unique<Fibre>(Fibre{.id = ++lastId_, .name = std::move(name), .body = std::move(body)}));
  Fibre* const fibre = fibres_.back().get();
  fibre->stack = TakeStack();
  getcontext(&fibre->context);
  fibre->context.uc_stack.ss_sp = fibre->stack;
  fibre->context.uc_stack.ss_size = kStackBytes;
  const auto address = reinterpret_cast<std::uintptr_t>(this);
  makecontext(&fibre->context, reinterpret_cast<void (*)()>(&Scheduler::Run), 2, static_cast<unsigned>(address),
              static_cast<unsigned>(address >> 32));
  Pause();
  return fibre;
}

void Scheduler::Join(Fibre* fibre) {
  if (fibre->state != Fibre::State::Ended) {
    fibre->joiner = running_;
    Block(fibre);
  }
  const auto at = std::ranges::find(fibres_, fibre, [](const auto& each) { return each.get(); });
  if (at == fibres_.end()) Violate("no crash", "a thread was joined twice");
  GiveStack(fibre->stack);
  fibres_.erase(at);
}

void Scheduler::Wait(std::int64_t milliseconds) {
  running_->state = Fibre::State::Sleeping;
  running_->wakesAt = elapsed_ + milliseconds;
  SwitchToNext();
}

void Scheduler::Suspend(std::int64_t milliseconds) {
  elapsed_ += milliseconds;
  suspended_ += milliseconds;
}

void Scheduler::Block(const void* awaits) {
  running_->state = Fibre::State::Blocked;
  running_->awaits = awaits;
  SwitchToNext();
}

/// Somebody else may go on here.
void Scheduler::Pause() {
  if (fibres_.size() > 1 && random_.Below(kPauseOneIn) == 0) SwitchToNext();
}

/// Whoever does nothing but look at the clock for ever hangs.
void Scheduler::Look() {
  if (++looks_ > kMostLooks) Violate("no hang", "no time passes: {} runs for ever", running_->name);
}

std::uint32_t Scheduler::TickCount() {
  Look();
  return startTick_ + static_cast<std::uint32_t>(elapsed_ + (Planted("wall-clock-deadline") ? wrongByMs : 0));
}

// Who sleeps until a time that has come is ready too. Time passes only when nobody is.
Fibre* Scheduler::Choose() {
  for (;;) {
    std::uint64_t ready = 0;
    Fibre* chosen = nullptr;
    std::int64_t next = std::numeric_limits<std::int64_t>::max();
    for (const auto& fibre : fibres_) {
      const bool sleeps = fibre->state == Fibre::State::Sleeping;
      if (fibre->state == Fibre::State::Ready || (sleeps && fibre->wakesAt <= elapsed_)) {
        if (++ready == 1 || random_.Below(ready) == 0) chosen = fibre.get();
      } else if (sleeps) {
        next = std::min(next, fibre->wakesAt);
      }
    }
    if (chosen != nullptr) return chosen;
    if (next == std::numeric_limits<std::int64_t>::max()) Violate("no hang", "no next event: {}", DescribeWaits());
    elapsed_ = next;
    looks_ = 0;
  }
}

std::string Scheduler::DescribeWaits() {
  std::string text;
  for (const auto& fibre : fibres_) {
    if (fibre->state != Fibre::State::Blocked) continue;
    const Held* const held = Find(fibre->awaits);
    text += fibre->name + (held != nullptr ? " waits for a lock of " + held->owner->name : " waits for a thread") + "; ";
  }
  return text;
}

void Scheduler::SwitchToNext() {
  Look();
  Fibre* const from = running_;
  Fibre* const to = Choose();
  to->state = Fibre::State::Ready;
  if (to == from) return;
  Note(to->id);
  running_ = to;
  auto* const globals = __cxxabiv1::__cxa_get_globals();
  std::memcpy(from->exceptions, globals, sizeof from->exceptions);
  std::memcpy(static_cast<void*>(globals), to->exceptions, sizeof to->exceptions);
  CAMPAIGN_SWITCHING(from->state == Fibre::State::Ended ? nullptr : &from->sanitizerStack, to->context.uc_stack.ss_sp,
                     to->context.uc_stack.ss_size);
  swapcontext(&from->context, &to->context);
  CAMPAIGN_SWITCHED(from->sanitizerStack);
}

Scheduler::Held* Scheduler::Find(const void* lock) {
  const auto found = std::ranges::find(held_, lock, &Held::lock);
  return found == held_.end() ? nullptr : &*found;
}

void Scheduler::Enter(const void* lock) {
  Pause();
  Held* const held = Find(lock);
  if (held != nullptr && held->owner == running_) {
    ++held->depth;
    return;
  }
  {
    const OwnWork own;
    if (held == nullptr) return held_.push_back({.lock = lock, .owner = running_, .depth = 1, .waiters = {}});
    held->waiters.push_back(running_);
  }
  Block(lock);
}

void Scheduler::Leave(const void* lock) {
  if (!Holds(lock)) return;
  if (Find(lock)->depth == 1) {
    for (const auto& [watched, leaving] : watches_) {
      if (watched == lock) leaving();
    }
  }
  Held* const held = Find(lock);
  if (--held->depth > 0) return;
  if (held->waiters.empty()) {
    *held = std::move(held_.back());
    held_.pop_back();
  } else {
    held->owner = held->waiters.front();
    held->depth = 1;
    held->waiters.erase(held->waiters.begin());
    if (!Planted("lost-wake-up", 20)) held->owner->state = Fibre::State::Ready;
  }
  Pause();
}

bool Scheduler::Holds(const void* lock) {
  const Held* const held = Find(lock);
  return held != nullptr && held->owner == running_;
}

std::uint64_t Scheduler::Waiters(const void* lock) {
  const Held* const held = Find(lock);
  return held == nullptr ? 0 : held->waiters.size();
}

}  // namespace ostrel::campaign
