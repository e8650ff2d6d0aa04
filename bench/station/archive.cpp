// How quick the station's archive and page are: values kept per second, a month of one meter's profile out of ten million
// records, and what a page asks for with 800,000 tags behind it.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>

#include "station/archive/Schema.h"
#include "station/archive/Writer.h"
#include "station/web/Api.h"

namespace ostrel::station {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::int64_t kMeters = 140;
constexpr std::int64_t kRecordsPerTag = 17'900;  // a year of half hours
constexpr std::int64_t kTags = 4;
constexpr std::int64_t kPeriod = 1800;

double Milliseconds(SteadyClock::time_point since) {
  return std::chrono::duration<double, std::milli>(SteadyClock::now() - since).count();
}

/// As a channel does: a job for each pass of sixteen meters with fifty changed values each.
void KeepValues(const std::string& file) {
  constexpr int kJobs = 500;
  constexpr int kValues = 16 * 50;
  const auto start = SteadyClock::now();
  Writer writer(file, [](const std::string& problem) { fmt::print(stderr, "{}\n", problem); });
  for (int job = 0; job < kJobs; ++job) {
    writer.Add([job](Archive& archive) {
      for (int value = 0; value < kValues; ++value) {
        archive.Put(value / 50, 20000 + value % 50,
                    CurrentValue{.utcMs = job * 5000, .number = job + value, .text = {}, .quality = 192});
      }
    });
  }
  (void)writer.Flush(600'000);
  fmt::print("current values kept per second: {:.0f}\n", kJobs * kValues / Milliseconds(start) * 1000);
}

void KeepRecords(const std::string& file) {
  const auto base = OpenDatabase(file);
  Migrate(*base);
  Archive archive(*base);
  const auto start = SteadyClock::now();
  for (std::int64_t meter = 1; meter <= kMeters; ++meter) {
    Transaction transaction(*base);
    for (std::int64_t i = 0; i < kTags * kRecordsPerTag; ++i) {
      const std::int64_t time = i % kRecordsPerTag * kPeriod;
      archive.Put(meter, 40108 + i / kRecordsPerTag,
                  StoredRecord{.time = time, .utc = time, .value = 1.0 * i, .state = RecordState::Good});
    }
    transaction.Commit();
  }
  const auto count = static_cast<double>(kMeters * kTags * kRecordsPerTag);
  fmt::print("bytes of a record on the disk: {:.1f}\n", static_cast<double>(base->SizeBytes()) / count);
  fmt::print("records kept per second: {:.0f} (of {:.1f} million)\n", count / Milliseconds(start) * 1000, count / 1e6);
}

/// False when it takes longer than promised.
bool ReadMonth(const std::string& file) {
  const auto base = OpenDatabase(file);
  Archive archive(*base);
  constexpr std::int64_t kMonth = 31 * 86400;
  const auto start = SteadyClock::now();
  const std::size_t count = archive.Records(kMeters / 2, 40110, 6 * kMonth, 7 * kMonth).size();
  const double took = Milliseconds(start);
  fmt::print("a month of a profile, {} records: {:.2f} ms (bound 50)\n", count, took);
  return took < 50 && count == kMonth / kPeriod;
}

bool AskForPage(const std::string& file) {
  LiveState live;
  for (int meter = 0; meter < 4096; ++meter) {
    LiveMeter made{.channel = fmt::format("COM{}", meter / 16),
                   .name = fmt::format("m{}", meter),
                   .type = "t",
                   .serial = "1",
                   .tags = {},
                   .fill = {},
                   .figures = {}};
    for (std::uint32_t tag = 0; tag < 196; ++tag)
      made.tags.push_back(
          {.id = 20000 + tag, .name = "tag", .unit = "V", .reading = {.value = 1.0F, .quality = 192, .timestamp = {}}});
    live.SetMeter(std::move(made));
  }
  Readers readers(file);
  Writer writer(file, [](const std::string&) {});
  WebParts parts{.station = "s",
                 .live = live,
                 .readers = readers,
                 .writer = writer,
                 .alive = [] { return true; },
                 .brokerConnected = []() -> std::optional<bool> { return std::nullopt; },
                 .write = {}};
  const auto start = SteadyClock::now();
  std::size_t bytes = 0;
  for (const ApiRow& row : ApiRows()) {
    const std::string path = row.path;
    if (path != "/api/meters" && path != "/api/values" && path != "/api/events") continue;
    bytes += Dumped(row.answer(parts, [](const char* key) { return std::string(key) == "meter" ? "m77" : ""; })).size();
  }
  const double took = Milliseconds(start);
  fmt::print("what a page asks for, of 4096 meters and 802,816 tags: {:.1f} ms, {} kB (bound 100)\n", took, bytes / 1000);
  return took < 100;
}

}  // namespace
}  // namespace ostrel::station

int main() {
  using namespace ostrel::station;
  const auto folder = std::filesystem::temp_directory_path() / "ostrel-bench-station";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  const std::string file = (folder / "archive.db").string();
  KeepValues(file);
  KeepRecords(file);
  const bool quick = ReadMonth(file) & AskForPage(file);
  std::filesystem::remove_all(folder);
  return quick ? 0 : 1;
}
