// A history listing beside the poll thread's first cycles: both need the meter's factors, and only one reads them. The listing
// starts at each request of the poll thread in turn, and each of its own answers is lost in turn.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Protocol/model/TagCatalogue.h"
#include "tests/history/HistoryChannel.h"

namespace ostrel::test {
namespace {

constexpr int kPolledRequests = 24;  // three cycles
constexpr int kCases = 1000;

struct Interleaving {
  int startsAt;       // poll thread's request at which the listing begins; from 0 down: listing's at which the poll thread does
  int loses;          // number of the listing's request that is not answered; 0: none
  std::uint32_t tag;  // what is listed
};

class Race {
 public:
  explicit Race(const Interleaving& how) : how_(how) {
    channel_.Line().keepsRecords = false;
    channel_.Line().ReplyAlways("01 05", std::string("01 ").append(kEnergies));
    channel_.Line().OnRequest([this](const std::string& request) { Watch(request); });
    device_ = channel_.AddMeter(1, 1, {.simulated = "searchpolls=0:ku=20:ki=100:at=2026-11-22T20:00:00"});
    for (const std::uint32_t number : {9U, 19U, 29U, 39U}) tags_.push_back(channel_.AddTag(device_, number));
  }

  /// Values that were scaled by other factors than the meter's.
  int Run() {
    CProtocol& protocol = channel_.Protocol();
    if (how_.startsAt <= 0) {
      StartListing();
      Await([&] { return pollingDue_.load(); });
    }
    EXPECT_EQ(1U, protocol.Start());
    Await([&] { return polled_ >= kPolledRequests; });
    protocol.Stop();
    listing_.join();
    CountWrong();
    for (const CDeviceTag* tag : tags_) EXPECT_EQ(kQualityGood, tag->Quality) << tag->TagNumber;
    return wrong_;
  }

 private:
  void Watch(const std::string& request) {
    if (std::this_thread::get_id() == listing_.get_id()) return WatchListing(request);
    CountWrong();
    const bool begins = ++polled_ == how_.startsAt;
    if (begins) {
      StartListing();
      AwaitWaiter();
    }
  }

  void WatchListing(const std::string& request) {
    if (++listed_ == 1 - how_.startsAt) {
      pollingDue_ = true;
      AwaitWaiter();
    }
    if (listed_ == how_.loses) channel_.Line().Reply(request, {""});
  }

  /// Not std::atomic's own wait: on Windows the library wakes without its lock, so that a wake-up can be lost.
  template <typename Condition>
  static void Await(Condition condition) {
    while (!condition()) std::this_thread::yield();
  }

  /// The other thread stands in line behind this request.
  void AwaitWaiter() {
    Await([&] { return channel_.Protocol().ExchangeLock.Waiters() != 0; });
  }

  void StartListing() {
    listing_ = std::thread([this] {
      Await([&] { return started_.load(); });
      TimestampList list{};
      ListTimes(channel_.Protocol(), how_.tag, device_, "2026-11-22 08:30", "2026-11-22 09:30", list);
      pollingDue_ = true;
    });
    started_ = true;
  }

  /// 20000 impulses at 5000 per kWh, counted twice each, times 20 and 100: 2 * 2000, and so on through the four kinds.
  void CountWrong() {
    float kind = 1;
    for (const CDeviceTag* tag : tags_) {
      const float expected = 4000.0F * kind++;
      if (tag->Quality == kQualityGood && tag->Value.fltVal != expected) ++wrong_;
    }
  }

  const Interleaving how_;
  SimulatedChannel channel_{{.retries = 1, .pollPeriodSeconds = 1}};
  std::uint32_t device_ = 0;
  std::vector<CDeviceTag*> tags_;
  std::thread listing_;
  std::atomic<bool> started_{false};
  std::atomic<bool> pollingDue_{false};
  std::atomic<int> polled_{0};
  std::atomic<int> listed_{0};
  int wrong_ = 0;
};

TEST(ListingRace, NoValueIsScaledByFactorsThatTheOtherIsReading) {
  int done = 0;
  for (int loses = 0; loses <= 16; ++loses) {
    for (int startsAt = -3; startsAt <= kPolledRequests - 7; ++startsAt) {
      for (const std::uint32_t tag : {kMain, 40000U, 40036U}) {
        EXPECT_EQ(0, Race({startsAt, loses, tag}).Run()) << startsAt << " " << loses << " " << tag;
        ++done;
      }
    }
  }
  EXPECT_GE(done, kCases);
}

}  // namespace
}  // namespace ostrel::test
