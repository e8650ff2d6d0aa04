// A serial line in the test's own process: object provider, port object and port in one, with simulated meters on it. A test
// puts replies of its own in the place of a meter's:
//
//   line.Reply("0C 05 00 00", {"", "0C 00 00 0F A0"});  // silence, which costs the first time-out; an answer; then the meter's
//   line.Reply("0C 08 02", {"0C 00 | 64 00 | 0A 00"});  // one piece a Read
//   line.ReplyAlways("0C 05", "!0C 05 00 00");          // as it stands, to every request that begins so
//
// Requests and replies are written without their checks, replies that begin with "!" with theirs; "fail" is a Read that
// fails, "*" the meter's own answer. All may be called at any time.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Protocol/link/PortInterfaces.h"
#include "simulator/Meter.h"
#include "tests/support/Hex.h"

namespace ostrel::test {

/// A meter's settings from their text; a mistake in it fails the test.
[[nodiscard]] sim::MeterSpec Spec(std::string_view text);

struct SentRequest {
  std::string text;  // without its check
  std::uint32_t tick;
};

class SimulatedLine final : public IObjectProvider {
 public:
  SimulatedLine();
  SimulatedLine(const SimulatedLine&) = delete;
  SimulatedLine& operator=(const SimulatedLine&) = delete;
  ~SimulatedLine();

  /// A meter with its access channel open, if it keeps it open.
  void Add(std::string_view meter);
  [[nodiscard]] sim::Meter& Meter(std::uint8_t address) { return meters_.at(address); }

  void Reply(std::string_view request, const std::vector<std::string>& replies);
  void ReplyAlways(std::string_view request, const std::string& reply);
  /// Called on the exchanging thread with each request before it is answered.
  void OnRequest(std::function<void(const std::string&)> watcher) { Set(watcher_, std::move(watcher)); }
  /// Whole answers come in pieces of this many bytes; 0 for whole.
  void CutAnswers(std::size_t bytes) { Set(cut_, bytes); }
  /// What every Read takes that brings bytes.
  void PauseReads(std::uint32_t milliseconds) { Set(readPause_, milliseconds); }
  /// The result of a call ("Open", "Purge", "Write", "QueryIo", "GetState", …) until it is set back.
  void Returns(const std::string& call, HRESULT result) { Set(results_[call], result); }

  [[nodiscard]] std::vector<SentRequest> Requests() const { return Get(requests_); }
  [[nodiscard]] std::vector<std::string> RequestTexts() const;
  [[nodiscard]] std::size_t RequestCount() const { return Get(requestCount_); }
  /// Every call on the three interfaces with its arguments: "Open \\.\COM3", "SetTimeouts 500 5", "Read 20 -> 10", "Purge", …
  [[nodiscard]] std::vector<std::string> Calls() const { return Get(calls_); }
  void ClearRecords();
  /// Long runs count requests but keep no records.
  std::atomic<bool> keepsRecords = true;
  /// References and cookies that were handed out and not given back.
  [[nodiscard]] int Unreleased() const;

  // IObjectProvider
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) override;
  HRESULT STDMETHODCALLTYPE ReleasePortObject(std::uint32_t cookie) override;

 private:
  class Port;
  class Io;
  using Guard = std::lock_guard<std::mutex>;

  template <class Field>
  void Set(Field& field, std::type_identity_t<Field> value) {
    const Guard guard(mutex_);
    field = std::move(value);
  }
  template <class Field>
  [[nodiscard]] Field Get(const Field& field) const {
    const Guard guard(mutex_);
    return field;
  }
  HRESULT Call(std::string_view name, std::initializer_list<std::uint32_t> numbers = {}, std::string_view text = {});
  HRESULT Send(std::span<const std::uint8_t> request);
  HRESULT Receive(std::uint8_t* buffer, std::uint32_t* length);
  void Answer(std::span<const std::uint8_t> request, const std::string& text);
  [[nodiscard]] std::string TakeReply(const std::string& request);
  void Queue(const std::string& reply);

  mutable std::mutex mutex_;
  std::unique_ptr<Port> port_;
  std::unique_ptr<Io> io_;
  std::map<std::uint8_t, sim::Meter> meters_;
  std::map<std::string, std::deque<std::string>> scripts_;  // replies by request, which come first
  std::vector<std::pair<std::string, std::string>> rules_;  // by the beginning of requests, the newest first
  std::function<void(const std::string&)> watcher_;
  std::map<std::string, HRESULT, std::less<>> results_;
  std::deque<Bytes> input_;
  bool readFails_ = false;
  std::size_t cut_ = 0;
  std::uint32_t readPause_ = 0;
  std::uint32_t answerTimeout_ = 0;
  std::uint32_t lastCookie_ = 0;
  std::vector<std::uint32_t> cookies_;
  int references_ = 0;
  std::size_t requestCount_ = 0;
  std::vector<SentRequest> requests_;
  std::vector<std::string> calls_;
};

}  // namespace ostrel::test
