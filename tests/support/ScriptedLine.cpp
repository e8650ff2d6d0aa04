#include "tests/support/ScriptedLine.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/clock.h"

namespace ostrel::test {
namespace {

using Guard = std::lock_guard<std::mutex>;

std::string WithoutCheck(const Bytes& frame) {
  const std::size_t kept = frame.size() < 2 ? 0 : frame.size() - 2;
  return ToHex(std::span(frame).first(kept));
}

}  // namespace

// --- ScriptedLine: the script

ScriptedLine::~ScriptedLine() {
  for (std::size_t i = next_; i < script_.size(); ++i) {
    ADD_FAILURE() << "never requested: " << WithoutCheck(script_[i].request_) << " (" << script_[i].left_ << " left)";
  }
}

Expectation& ScriptedLine::Expect(std::string_view hexWithoutCheck) {
  const Guard guard(mutex_);
  return script_.emplace_back(Frame(hexWithoutCheck));
}

void ScriptedLine::OnRequest(Handler handler) { Set(handler_, std::move(handler)); }
void ScriptedLine::CutAnswers(std::size_t bytes) { Set(cut_, bytes); }
void ScriptedLine::FailOpen(HRESULT result) { Set(open_, result); }
void ScriptedLine::FailWrite(HRESULT result) { Set(write_, result); }
void ScriptedLine::FailPurge(HRESULT result) { Set(purge_, result); }
void ScriptedLine::FailDrain(HRESULT result) { Set(drain_, result); }
void ScriptedLine::FailRead(HRESULT result) { Set(read_, result); }
void ScriptedLine::SetState(std::uint32_t state) { Set(state_, state); }
void ScriptedLine::OfferNoPort(bool none) { Set(noPort_, none); }
void ScriptedLine::OfferNoIo(bool none) { Set(noIo_, none); }

// --- ScriptedLine: the records

std::vector<SentRequest> ScriptedLine::Requests() const {
  const Guard guard(mutex_);
  return requests_;
}

std::vector<std::string> ScriptedLine::RequestTexts() const {
  std::vector<std::string> texts;
  for (const SentRequest& request : Requests()) texts.push_back(WithoutCheck(request.bytes));
  return texts;
}

std::size_t ScriptedLine::RequestCount() const {
  const Guard guard(mutex_);
  return requestCount_;
}

std::vector<std::string> ScriptedLine::Calls() const {
  const Guard guard(mutex_);
  return calls_;
}

void ScriptedLine::ClearRecords() {
  const Guard guard(mutex_);
  requests_.clear();
  calls_.clear();
  requestCount_ = 0;
}

void ScriptedLine::KeepRecords(bool keep) {
  const Guard guard(mutex_);
  keepRecords_ = keep;
}

int ScriptedLine::Unreleased() const {
  const Guard guard(mutex_);
  return portReferences_ + ioReferences_ + static_cast<int>(cookies_.size());
}

void ScriptedLine::Record(std::string call) {
  if (keepRecords_) calls_.push_back(std::move(call));
}

// --- ScriptedLine: bytes

HRESULT ScriptedLine::Purge() {
  const Guard guard(mutex_);
  Record("Purge");
  if (FAILED(purge_)) return purge_;
  input_.clear();
  return S_OK;
}

HRESULT ScriptedLine::Drain() {
  const Guard guard(mutex_);
  Record("Drain");
  return drain_;
}

HRESULT ScriptedLine::Send(std::span<const std::uint8_t> request) {
  Handler handler;
  {
    const Guard guard(mutex_);
    Record("Write " + std::to_string(request.size()));
    if (FAILED(write_)) return write_;
    ++requestCount_;
    if (keepRecords_) requests_.push_back({Bytes(request.begin(), request.end()), platform::TickCount()});
    if (TakeExpectation(request)) return S_OK;
    handler = handler_;
  }
  if (!handler) {
    ADD_FAILURE() << "unexpected request: " << WithoutCheck(Bytes(request.begin(), request.end()));
    return S_OK;
  }
  Bytes answer = handler(request);
  const Guard guard(mutex_);
  Queue(std::move(answer));
  return S_OK;
}

bool ScriptedLine::TakeExpectation(std::span<const std::uint8_t> request) {
  if (next_ == script_.size()) return false;
  Expectation& expected = script_[next_];
  if (!std::ranges::equal(expected.request_, request)) {
    if (handler_) return false;
    ADD_FAILURE() << "request " << ToHex(request) << "\nexpected " << ToHex(expected.request_);
  }
  input_.insert(input_.end(), expected.pieces_.begin(), expected.pieces_.end());
  nextRead_ = expected.readResult_;
  if (expected.changesState_) state_ = expected.state_;
  if (--expected.left_ <= 0) ++next_;
  return true;
}

void ScriptedLine::Queue(Bytes answer) {
  if (answer.empty()) return;
  const std::size_t step = cut_ == 0 ? answer.size() : cut_;
  for (std::size_t start = 0; start < answer.size(); start += step) {
    const std::size_t end = std::min(start + step, answer.size());
    input_.emplace_back(answer.begin() + static_cast<std::ptrdiff_t>(start), answer.begin() + static_cast<std::ptrdiff_t>(end));
  }
}

HRESULT ScriptedLine::Receive(std::uint8_t* buffer, std::uint32_t* length) {
  std::unique_lock<std::mutex> guard(mutex_);
  const std::uint32_t wanted = *length;
  std::uint32_t got = 0;
  const HRESULT result = FAILED(nextRead_) ? nextRead_ : read_;
  nextRead_ = S_OK;
  if (SUCCEEDED(result) && wanted != 0 && !input_.empty()) {
    Bytes& piece = input_.front();
    got = std::min(wanted, static_cast<std::uint32_t>(piece.size()));
    std::copy_n(piece.begin(), got, buffer);
    piece.erase(piece.begin(), piece.begin() + got);
    if (piece.empty()) input_.pop_front();
  }
  Record("Read " + std::to_string(wanted) + " -> " + (FAILED(result) ? "failure" : std::to_string(got)));
  if (FAILED(result)) return result;
  *length = got;
  const std::uint32_t pause = got != 0 ? readPause_ : wanted != 0 ? answerTimeout_ : 0;
  guard.unlock();
  if (pause != 0) platform::Sleep(pause);
  return S_OK;
}

}  // namespace ostrel::test
