// What the archive holds, asked without any meter: completeness, records, and whether they prove each other.
#include <fmt/format.h>

#include <cstdio>
#include <filesystem>

#include "host/session/HistoryInterval.h"
#include "host/session/TagSelection.h"
#include "station/archive/Schema.h"
#include "station/collect/Completeness.h"
#include "station/passing/Json.h"
#include "station/program/Commands.h"

namespace ostrel::station {
namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kUsualDays = 31;

Span SpanOf(const PeriodOptions& options) {
  const std::int64_t now = host::ComputersWallTime();
  Span span{.from = now / kDay * kDay - kUsualDays * kDay, .to = now};
  if (!options.to.empty()) span.to = host::ParseWallTime("--to", options.to);
  if (!options.from.empty()) span.from = host::ParseWallTime("--from", options.from);
  if (span.from > span.to) throw host::Failure(host::kExitUsage, "--from is later than --to");
  return span;
}

std::unique_ptr<Database> OpenExisting(const ArchiveSettings& settings) {
  try {
    if (!IsServer(settings.database) && !std::filesystem::exists(settings.database)) {
      throw host::Failure(host::kExitUsage, settings.database + ": is not there");
    }
    auto database = OpenDatabase(settings.database);
    Migrate(*database);
    return database;
  } catch (const DatabaseError& error) {
    throw host::Failure(host::kExitUsage, error.what());
  }
}

/// The meters of this station that a command is about, also those that were exchanged.
std::vector<MeterRow> MetersOf(Archive& archive, const PeriodOptions& options, const std::string& station) {
  std::vector<MeterRow> meters;
  for (MeterRow& meter : archive.Meters()) {
    if (meter.place.station == station && (options.meter.empty() || meter.place.name == options.meter))
      meters.push_back(std::move(meter));
  }
  if (meters.empty())
    throw host::Failure(host::kExitUsage,
                        "the archive holds no meter" + (options.meter.empty() ? "" : " \"" + options.meter + "\""));
  return meters;
}

bool Wanted(const PeriodOptions& options, std::int64_t tag, const std::string& name) {
  return options.tag.empty() || options.tag == std::to_string(tag) || host::WildcardMatches(options.tag, name);
}

std::string Csv(const std::string& text) { return "\"" + Replaced(text, "\"", "\"\"") + "\""; }

void PrintDay(const PeriodOptions& options, const MeterRow& meter, const std::string& tag, const DayCount& day) {
  const std::string date = WallText(day.day).substr(0, 10);
  if (options.format == "json") {
    Json json{{"event", "completeness"},
              {"meter", meter.place.name},
              {"serial", meter.serial},
              {"id", day.tag},
              {"tag", tag},
              {"day", date},
              {"expected", day.expected},
              {"stored", day.stored},
              {"bad", day.bad},
              {"lost", day.lost},
              {"missing", day.Missing()}};
    fmt::print("{}\n", Dumped(json));
  } else if (options.format == "csv") {
    fmt::print("{},{},{},{},{},{},{},{},{},{}\n", Csv(meter.place.name), Csv(meter.serial), day.tag, Csv(tag), date, day.expected,
               day.stored, day.bad, day.lost, day.Missing());
  } else {
    fmt::print("{:<16} {:<12} {:<34} {} {:>6} {:>6} {:>5} {:>5} {:>7}\n", meter.place.name, meter.serial, tag, date, day.expected,
               day.stored, day.bad, day.lost, day.Missing());
  }
}

void PrintReportHead(const std::string& format) {
  if (format == "csv") fmt::print("meter,serial,id,tag,day,expected,stored,bad,lost,missing\n");
  if (format == "table") {
    fmt::print("{:<16} {:<12} {:<34} {:<10} {:>6} {:>6} {:>5} {:>5} {:>7}\n", "meter", "serial", "tag", "day", "expect", "stored",
               "bad", "lost", "missing");
  }
}

host::ExitCode Report(Archive& archive, const PeriodOptions& options, const std::string& station) {
  PrintReportHead(options.format);
  std::vector<DayCount> all;
  for (const MeterRow& meter : MetersOf(archive, options, station)) {
    for (const DayCount& day : CountDays(archive, meter, SpanOf(options))) {
      const std::string name = NameOf(archive, meter.key, day.tag).name;
      if (!Wanted(options, day.tag, name)) continue;
      all.push_back(day);
      PrintDay(options, meter, name, day);
    }
  }
  bool whole = true;
  for (const DayCount& day : all) whole = whole && day.Missing() == 0 && day.lost == 0;
  fmt::print(stderr, "complete: {:.3f} %\n", Share(all) * 100);
  return whole ? host::kExitDone : host::kExitUnanswered;
}

host::ExitCode Export(Archive& archive, const PeriodOptions& options, const std::string& station) {
  fmt::print("meter,serial,id,tag,time,utc,value,unit,quality\n");
  const Span span = SpanOf(options);
  for (const MeterRow& meter : MetersOf(archive, options, station)) {
    for (const std::int64_t tag : RecordTags(archive, meter.key)) {
      const TagName name = NameOf(archive, meter.key, tag);
      if (!Wanted(options, tag, name.name)) continue;
      for (const StoredRecord& record : archive.Records(meter.key, tag, span.from, span.to)) {
        const Json value = NumberOrNull(record.value);
        fmt::print("{},{},{},{},{},{},{},{},{}\n", Csv(meter.place.name), Csv(meter.serial), tag, Csv(name.name),
                   WallText(record.time), UtcText(record.utc * 1000), value.is_null() ? "" : Dumped(value), name.unit,
                   RecordStateText(record.state));
      }
    }
  }
  return host::kExitDone;
}

host::ExitCode Check(Archive& archive, const PeriodOptions& options, const std::string& station) {
  std::size_t days = 0;
  std::size_t wrong = 0;
  for (const MeterRow& meter : MetersOf(archive, options, station)) {
    for (const Proof& proof : ProveDays(archive, meter, SpanOf(options))) {
      ++days;
      if (proof.Holds()) continue;
      ++wrong;
      fmt::print("{} {} {} {}: the profile sums up to {:.6g}, the day's energy is {:.6g}\n", meter.place.name, meter.serial,
                 NameOf(archive, meter.key, proof.tag).name, WallText(proof.day).substr(0, 10), proof.profile, proof.energy);
    }
  }
  fmt::print(stderr, "{} of {} days differ by more than a pulse per record\n", wrong, days);
  return wrong == 0 ? host::kExitDone : host::kExitUnanswered;
}

using ArchiveCommand = host::ExitCode (*)(Archive&, const PeriodOptions&, const std::string& station);

host::ExitCode WithArchive(const PeriodOptions& options, ArchiveCommand command) {
  const StationSettings settings = ReadSettings(options.common.config);
  const auto database = OpenExisting(settings.archive);
  try {
    Archive archive(*database);
    return command(archive, options, settings.archive.station);
  } catch (const DatabaseError& error) {
    throw host::Failure(host::kExitUsage, error.what());
  }
}

}  // namespace

host::ExitCode CommandReport(const PeriodOptions& options) { return WithArchive(options, Report); }
host::ExitCode CommandExport(const PeriodOptions& options) { return WithArchive(options, Export); }
host::ExitCode CommandCheck(const PeriodOptions& options) { return WithArchive(options, Check); }

host::ExitCode CommandBackup(const BackupOptions& options) {
  const StationSettings settings = ReadSettings(options.common.config);
  const auto database = OpenExisting(settings.archive);
  try {
    database->BackupTo(options.file);
  } catch (const DatabaseError& error) {
    throw host::Failure(host::kExitUsage, error.what());
  }
  return host::kExitDone;
}

}  // namespace ostrel::station
