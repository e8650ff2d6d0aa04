// What the trace costs an exchange while it is switched off: with a trace object at level 0 against none at all. Both
// are measured in turns within one run; the ratio of the medians is printed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "Protocol/diagnostics/DebugTrace.h"
#include "Protocol/object/CProtocol.h"

namespace ostrel {
namespace {

constexpr double kBound = 1.05;
constexpr int kRounds = 61;
constexpr int kExchanges = 200000;

/// Answers every request with the same six bytes at once.
class QuickPort final : public IPortIo {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE Write(const std::uint8_t*, std::uint32_t*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Read(std::uint8_t* buffer, std::uint32_t* length) override {
    if (buffer == nullptr) return S_OK;
    std::fill_n(buffer, 6, std::uint8_t{1});
    *length = 6;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetTimeouts(std::uint32_t, std::uint32_t) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE ReservedSlot6() override { return S_OK; }
  std::uint32_t STDMETHODCALLTYPE GetState() override { return 0; }
};

double Seconds(IProtocol& protocol) {
  const std::uint8_t request[6] = {1, 8, 0x11, 0x40, 0, 0};
  std::uint8_t answer[kAnswerBuffer];
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kExchanges; ++i) {
    std::uint32_t count = kAnswerBuffer;
    protocol.TransmitAndRecieve(request, sizeof request, answer, &count, 0);
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double>& values) {
  std::nth_element(values.begin(), values.begin() + kRounds / 2, values.end());
  return values[kRounds / 2];
}

int Measure() {
  QuickPort port;
  DebugTrace trace;
  HostContext context;
  auto* const protocol = new CProtocol;
  protocol->AddRef();
  protocol->HostContext = &context;
  protocol->PortOpen = 1;
  protocol->Channel.PortIo = &port;
  std::vector<double> without;
  std::vector<double> off;
  for (int round = 0; round < kRounds; ++round) {
    context.Trace = nullptr;
    without.push_back(Seconds(*protocol));
    context.Trace = &trace;
    off.push_back(Seconds(*protocol));
  }
  protocol->Release();
  // Against the shortest real exchange: six bytes out and six back at 115,200 baud.
  constexpr double kLineSeconds = 12 * 11 / 115200.0;
  const double ratio = (Median(off) / kExchanges + kLineSeconds) / (Median(without) / kExchanges + kLineSeconds);
  std::printf(
      "trace_cost: exchange with the trace off / without one = %.4f (bound %.2f); processor time alone %.1f ns / %.1f ns\n",
      ratio, kBound, Median(off) / kExchanges * 1e9, Median(without) / kExchanges * 1e9);
  return ratio <= kBound ? 0 : 1;
}

}  // namespace
}  // namespace ostrel

int main() { return ostrel::Measure(); }
