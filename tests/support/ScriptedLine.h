// A serial line in the test's own process: object provider, port object and port in one, with the answers in a script.
//
//   ScriptedLine line;
//   line.Expect("0C 05 00 00").Answer("0C 00 00 0F A0");                     // checks are appended
//   line.Expect("0C 08 02").AnswerInPieces({"0C 00", "64 00", "0A 00"});     // one piece a Read
//   line.Expect("0C 08 12").Silence();                                       // costs the first time-out
//   line.OnRequest([&](auto request) { return meter.Answer(request); });     // for every other request; {} is silence
//
// Expectations are met in their order. A request that does not fit, and an expectation that is left, fail the test. Write the
// script before another thread uses the line; everything else may be called at any time.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Protocol/link/PortInterfaces.h"
#include "tests/support/Expectation.h"
#include "tests/support/Hex.h"

namespace ostrel::test {

struct SentRequest {
  Bytes bytes;
  std::uint32_t tick;
};

class ScriptedLine final : public IObjectProvider {
 public:
  using Handler = std::function<Bytes(std::span<const std::uint8_t> request)>;

  ScriptedLine() = default;
  ScriptedLine(const ScriptedLine&) = delete;
  ScriptedLine& operator=(const ScriptedLine&) = delete;
  ~ScriptedLine();

  Expectation& Expect(std::string_view hexWithoutCheck);
  /// Answers every request that is not the next expected one: the whole answer frame, or nothing for silence. Called on the
  /// exchanging thread.
  void OnRequest(Handler handler);
  /// Answers of the handler come in pieces of this many bytes; 0 for whole.
  void CutAnswers(std::size_t bytes);

  /// Every read that brings bytes takes so long.
  void PauseReads(std::uint32_t ms) { Set(readPause_, ms); }

  // Failures, until they are set back.
  void FailOpen(HRESULT result);
  void FailWrite(HRESULT result);
  void FailPurge(HRESULT result);
  void FailDrain(HRESULT result);
  void FailRead(HRESULT result);
  void SetState(std::uint32_t state);
  /// CreatePortObject leaves null.
  void OfferNoPort(bool none);
  /// The port object does not know its I/O interface.
  void OfferNoIo(bool none);

  [[nodiscard]] std::vector<SentRequest> Requests() const;
  /// Requests as hexadecimal text, without their checks.
  [[nodiscard]] std::vector<std::string> RequestTexts() const;
  [[nodiscard]] std::size_t RequestCount() const;
  /// Every call on the three interfaces: "CreatePortObject 10", "QueryIo", "Open \\.\COM3", "SetMode baud=…", "SetTimeouts 500
  /// 5", "SetBuffers 2000 2000", "Purge", "Drain", "Write 6", "Read 20 -> 10", "GetState", "ReleaseIo", "ReleasePort",
  /// "ReleasePortObject 1".
  [[nodiscard]] std::vector<std::string> Calls() const;
  void ClearRecords();
  /// Long runs count requests but keep no records.
  void KeepRecords(bool keep);

  /// References and cookies that were handed out and not given back.
  [[nodiscard]] int Unreleased() const;

  // IObjectProvider
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) override;
  HRESULT STDMETHODCALLTYPE ReleasePortObject(std::uint32_t cookie) override;

 private:
  class Port final : public IPortObject {
   public:
    explicit Port(ScriptedLine& line) : line_(line) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE Open(const char* deviceName) override;
    HRESULT STDMETHODCALLTYPE ReservedSlot4() override { return E_FAIL; }
    HRESULT STDMETHODCALLTYPE SetMode(const char* mode) override;
    HRESULT STDMETHODCALLTYPE SetBuffers(std::uint32_t input, std::uint32_t output) override;

   private:
    ScriptedLine& line_;
  };

  class Io final : public IPortIo {
   public:
    explicit Io(ScriptedLine& line) : line_(line) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE Write(const std::uint8_t* bytes, std::uint32_t* length) override;
    HRESULT STDMETHODCALLTYPE Read(std::uint8_t* buffer, std::uint32_t* length) override;
    HRESULT STDMETHODCALLTYPE SetTimeouts(std::uint32_t answer, std::uint32_t quiet) override;
    HRESULT STDMETHODCALLTYPE ReservedSlot6() override { return E_FAIL; }
    std::uint32_t STDMETHODCALLTYPE GetState() override;

   private:
    ScriptedLine& line_;
  };

  HRESULT Purge();
  HRESULT Drain();
  HRESULT Send(std::span<const std::uint8_t> request);
  HRESULT Receive(std::uint8_t* buffer, std::uint32_t* length);
  bool TakeExpectation(std::span<const std::uint8_t> request);
  void Queue(Bytes answer);
  void Record(std::string call);

  template <class Field>
  void Set(Field& field, std::type_identity_t<Field> value) {
    const std::lock_guard<std::mutex> guard(mutex_);
    field = std::move(value);
  }

  mutable std::mutex mutex_;
  Port port_{*this};
  Io io_{*this};
  std::deque<Expectation> script_;
  std::size_t next_ = 0;
  Handler handler_;
  std::size_t cut_ = 0;
  std::uint32_t readPause_ = 0;
  std::deque<Bytes> input_;
  HRESULT nextRead_ = S_OK;
  HRESULT open_ = S_OK;
  HRESULT write_ = S_OK;
  HRESULT purge_ = S_OK;
  HRESULT drain_ = S_OK;
  HRESULT read_ = S_OK;
  std::uint32_t state_ = 0;
  bool noPort_ = false;
  bool noIo_ = false;
  std::uint32_t answerTimeout_ = 0;
  std::uint32_t lastCookie_ = 0;
  std::vector<std::uint32_t> cookies_;
  int portReferences_ = 0;
  int ioReferences_ = 0;
  bool keepRecords_ = true;
  std::size_t requestCount_ = 0;
  std::vector<SentRequest> requests_;
  std::vector<std::string> calls_;
};

}  // namespace ostrel::test
