#include "tests/support/SimulatedLine.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/clock.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/TableFile.h"

namespace ostrel::test {
namespace {

std::string WithoutCheck(std::span<const std::uint8_t> frame) { return ToHex(frame.first(frame.size() - 2)); }

}  // namespace

sim::MeterSpec Spec(std::string_view text) {
  sim::MeterSpec spec;
  std::string error;
  EXPECT_TRUE(sim::ParseMeterSpec(text, spec, error)) << error;
  return spec;
}

// --- the interfaces

class SimulatedLine::Port final : public IPortObject {
 public:
  explicit Port(SimulatedLine& line) : line_(line) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++line_.references_); }
  ULONG STDMETHODCALLTYPE Release() override {
    line_.Call("ReleasePort");
    return static_cast<ULONG>(--line_.references_);
  }
  HRESULT STDMETHODCALLTYPE Open(const char* deviceName) override { return line_.Call("Open", {}, deviceName); }
  HRESULT STDMETHODCALLTYPE ReservedSlot4() override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE SetMode(const char* mode) override { return line_.Call("SetMode", {}, mode); }
  HRESULT STDMETHODCALLTYPE SetBuffers(std::uint32_t input, std::uint32_t output) override {
    return line_.Call("SetBuffers", {input, output});
  }

 private:
  SimulatedLine& line_;
};

class SimulatedLine::Io final : public IPortIo {
 public:
  explicit Io(SimulatedLine& line) : line_(line) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++line_.references_); }
  ULONG STDMETHODCALLTYPE Release() override {
    line_.Call("ReleaseIo");
    return static_cast<ULONG>(--line_.references_);
  }
  HRESULT STDMETHODCALLTYPE Write(const std::uint8_t* bytes, std::uint32_t* length) override {
    return bytes == nullptr && length == nullptr ? line_.Call("Drain") : line_.Send({bytes, *length});
  }
  HRESULT STDMETHODCALLTYPE Read(std::uint8_t* buffer, std::uint32_t* length) override {
    if (buffer != nullptr || length != nullptr) return line_.Receive(buffer, length);
    const HRESULT result = line_.Call("Purge");
    const Guard guard(line_.mutex_);
    if (SUCCEEDED(result)) line_.input_.clear();
    return result;
  }
  HRESULT STDMETHODCALLTYPE SetTimeouts(std::uint32_t answer, std::uint32_t quiet) override {
    line_.answerTimeout_ = answer;
    return line_.Call("SetTimeouts", {answer, quiet});
  }
  HRESULT STDMETHODCALLTYPE ReservedSlot6() override { return E_FAIL; }
  std::uint32_t STDMETHODCALLTYPE GetState() override { return static_cast<std::uint32_t>(line_.Call("GetState")); }

 private:
  SimulatedLine& line_;
};

HRESULT SimulatedLine::Port::QueryInterface(REFIID iid, void** object) {
  *object = nullptr;
  EXPECT_TRUE(platform::SameGuid(iid, IID_IPortIo));
  if (FAILED(line_.Call("QueryIo"))) return E_NOINTERFACE;
  *object = static_cast<IPortIo*>(line_.io_.get());
  line_.io_->AddRef();
  return S_OK;
}

HRESULT SimulatedLine::QueryInterface(REFIID iid, void** object) {
  *object = platform::SameGuid(iid, IID_IUnknown) ? this : nullptr;
  return *object != nullptr ? S_OK : E_NOINTERFACE;
}

HRESULT SimulatedLine::CreatePortObject(std::uint32_t kind, REFIID iid, std::uint32_t* cookie, void** object) {
  const SparedMemory spared;
  *object = nullptr;
  EXPECT_TRUE(platform::SameGuid(iid, IID_IPortObject));
  const HRESULT result = Call("CreatePortObject", {kind});
  if (FAILED(result)) return result;
  {
    const Guard guard(mutex_);
    *cookie = ++lastCookie_;
    cookies_.push_back(lastCookie_);
  }
  port_->AddRef();
  *object = static_cast<IPortObject*>(port_.get());
  return S_OK;
}

HRESULT SimulatedLine::ReleasePortObject(std::uint32_t cookie) {
  const HRESULT result = Call("ReleasePortObject", {cookie});
  const Guard guard(mutex_);
  EXPECT_EQ(1U, std::erase(cookies_, cookie)) << "cookie given back twice or never handed out: " << cookie;
  return result;
}

// --- the script

SimulatedLine::SimulatedLine() : port_(std::make_unique<Port>(*this)), io_(std::make_unique<Io>(*this)) {}

SimulatedLine::~SimulatedLine() = default;

void SimulatedLine::Add(std::string_view meter) {
  const sim::MeterSpec spec = Spec(meter);
  const Guard guard(mutex_);
  const auto address = static_cast<std::uint8_t>(spec.address);
  sim::Meter& added = meters_.insert_or_assign(address, sim::Meter(spec, 1)).first->second;
  Bytes open = Hex("00 01 30 30 30 30 30 30");
  open[0] = address;
  added.Answer(WithCheck(open), platform::UtcMilliseconds());
}

void SimulatedLine::Reply(std::string_view request, const std::vector<std::string>& replies) {
  const Guard guard(mutex_);
  std::ranges::copy(replies, std::back_inserter(scripts_[std::string(request)]));
}

void SimulatedLine::ReplyAlways(std::string_view request, const std::string& reply) {
  const Guard guard(mutex_);
  rules_.emplace(rules_.begin(), request, reply);
}

// --- the records

std::vector<std::string> SimulatedLine::RequestTexts() const {
  std::vector<std::string> texts;
  for (const SentRequest& request : Requests()) texts.push_back(request.text);
  return texts;
}

void SimulatedLine::ClearRecords() {
  const Guard guard(mutex_);
  requests_.clear();
  calls_.clear();
  requestCount_ = 0;
}

int SimulatedLine::Unreleased() const { return references_ + static_cast<int>(Get(cookies_).size()); }

HRESULT SimulatedLine::Call(std::string_view name, std::initializer_list<std::uint32_t> numbers, std::string_view text) {
  const SparedMemory spared;
  const Guard guard(mutex_);
  if (keepsRecords) {
    std::string& call = calls_.emplace_back(name);
    for (const std::uint32_t number : numbers) call += " " + std::to_string(number);
    if (!text.empty()) call.append(" ").append(text);
  }
  const auto result = results_.find(name);
  return result == results_.end() ? S_OK : result->second;
}

// --- bytes

HRESULT SimulatedLine::Send(std::span<const std::uint8_t> request) {
  const SparedMemory spared;
  if (const HRESULT result = Call("Write", {static_cast<std::uint32_t>(request.size())}); FAILED(result)) return result;
  EXPECT_EQ(WithCheck(Bytes(request.begin(), request.end() - 2)), Bytes(request.begin(), request.end()));
  const std::string text = WithoutCheck(request);
  std::function<void(const std::string&)> watcher;
  {
    const Guard guard(mutex_);
    ++requestCount_;
    if (keepsRecords) requests_.push_back({text, platform::TickCount()});
    watcher = watcher_;
  }
  if (watcher) watcher(text);
  Answer(request, text);
  return S_OK;
}

void SimulatedLine::Answer(std::span<const std::uint8_t> request, const std::string& text) {
  const Guard guard(mutex_);
  const std::string reply = TakeReply(text);
  readFails_ = reply == "fail";
  if (readFails_) return;
  if (reply != "*") return Queue(reply);
  const auto meter = meters_.find(request[0]);
  if (meter == meters_.end()) return;
  const Bytes answer = meter->second.Answer(request, platform::UtcMilliseconds());
  const std::size_t step = cut_ == 0 ? std::max<std::size_t>(answer.size(), 1) : cut_;
  for (std::size_t at = 0; at < answer.size(); at += step) {
    const auto begin = answer.begin() + static_cast<std::ptrdiff_t>(at);
    input_.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(std::min(step, answer.size() - at)));
  }
}

std::string SimulatedLine::TakeReply(const std::string& request) {
  if (const auto script = scripts_.find(request); script != scripts_.end() && !script->second.empty()) {
    std::string reply = std::move(script->second.front());
    script->second.pop_front();
    return reply;
  }
  const auto rule = std::ranges::find_if(rules_, [&](const auto& row) { return request.starts_with(row.first); });
  return rule == rules_.end() ? "*" : rule->second;
}

void SimulatedLine::Queue(const std::string& reply) {
  if (reply.empty()) return;
  const bool raw = reply.starts_with('!');
  Bytes whole;
  for (const std::string& piece : Split(reply.substr(raw ? 1 : 0), '|')) {
    input_.push_back(Hex(piece));
    whole.insert(whole.end(), input_.back().begin(), input_.back().end());
  }
  if (raw) return;
  const Bytes checked = WithCheck(whole);
  input_.back().insert(input_.back().end(), checked.end() - 2, checked.end());
}

HRESULT SimulatedLine::Receive(std::uint8_t* buffer, std::uint32_t* length) {
  const std::uint32_t wanted = *length;
  std::uint32_t got = 0;
  bool fails = false;
  {
    const Guard guard(mutex_);
    fails = std::exchange(readFails_, false);
    if (!fails && wanted != 0 && !input_.empty()) {
      Bytes& piece = input_.front();
      got = std::min(wanted, static_cast<std::uint32_t>(piece.size()));
      std::copy_n(piece.begin(), got, buffer);
      piece.erase(piece.begin(), piece.begin() + got);
      if (piece.empty()) input_.pop_front();
    }
  }
  if (fails) return Call("Read", {wanted}, "-> failure"), E_FAIL;
  Call("Read", {wanted}, keepsRecords ? "-> " + std::to_string(got) : "");
  *length = got;
  if (const std::uint32_t pause = got != 0 ? Get(readPause_) : wanted != 0 ? answerTimeout_.load() : 0; pause != 0)
    platform::Sleep(pause);
  return S_OK;
}

}  // namespace ostrel::test
