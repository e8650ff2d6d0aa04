#include "Protocol/history/ProfileWalk.h"

#include <optional>

#include "Protocol/history/HistoryState.h"
#include "Protocol/history/HistoryTime.h"
#include "Protocol/history/ProfileRecordRead.h"
#include "Protocol/history/ProfileRows.h"
#include "Protocol/history/ProfileSearch.h"
#include "Protocol/history/ProfileStoreIndex.h"
#include "Protocol/history/ProfileTimes.h"
#include "Protocol/meter/Meters.h"
#include "Protocol/model/Guarded.h"

namespace ostrel {
namespace {

/// What every search of the plug-in asks for.
constexpr std::uint8_t kSearchFlag = 0;
constexpr std::uint32_t kHeaderBytes = 8;

class Walk {
 public:
  Walk(Meters& meters, HistoryState& kept, const ProfileInterval& interval, TimestampList& list)
      : meters_(meters), kept_(kept), interval_(interval), row_(RowOf(interval.profile)), list_(list), time_(interval.start) {}

  std::uint32_t Run();

 private:
  enum class Step : std::uint8_t { Next, Done, Failed };

  static Step StepOf(TimeOutcome outcome) { return ResultOf(outcome) != 0 ? Step::Done : Step::Failed; }

  void EmptyCache();
  bool OpenStore();
  Step ServeTime();
  Step ServeStored(bool& served);
  Step ServeFromMeter(const RecordPosition& position);
  HourSearch FindHour(const SYSTEMTIME& hour);
  bool StillThere();
  Step Keep(const PowerRecords& records);
  bool KeepInStore(HostVector<ProfileRecord>& store, const ProfileRecord& record);
  Step List();
  Step MoveBy(TimeSpan span);
  HostVector<ProfileRecord>* Store();

  Meters& meters_;
  HistoryState& kept_;
  const ProfileInterval& interval_;
  const ProfileRow& row_;
  TimestampList& list_;
  FILETIME time_;
  TransformCoefficients coefficients_{};
  std::optional<ProfileStoreIndex> index_;
  std::uint32_t storeSize_ = 0;
  std::uint16_t header_ = 0;  // of the last search, where the next one starts
  std::optional<SYSTEMTIME> lastHour_;
};

std::uint32_t Walk::Run() {
  EmptyCache();
  const ProfileInterval& asked = interval_;
  if (ReadTransformCoefficients(meters_, asked.meter.device, asked.meterType, coefficients_) == 0) return 0;
  const TimeOutcome first = FirstRecord(time_, asked.period);
  if (first != TimeOutcome::Done) return ResultOf(first);
  if (!OpenStore()) return 0;
  Step step = Step::Next;
  while (step == Step::Next && Ticks(time_) < Ticks(asked.end)) step = ServeTime();
  return step == Step::Failed ? 0 : 1;
}

/// The cache belongs to this walk from here on, also when it brings nothing.
void Walk::EmptyCache() {
  const platform::CriticalSectionGuard guard(meters_.ProfileDataLock);
  kept_.ProfileCache.clear();
  kept_.ProfileCacheOwner = {.meter = interval_.meter, .tagId = interval_.tagId};
}

bool Walk::OpenStore() {
  const platform::CriticalSectionGuard guard(meters_.ProfileDataLock);
  DeviceEntry* const entry = FindMeter(meters_, interval_.meter);
  if (entry == nullptr) return false;
  const HostVector<ProfileRecord>& store = entry->*row_.store;
  index_.emplace(store, interval_.tagId);
  storeSize_ = store.Size();
  header_ = entry->ProfileHeaderAddress;
  return true;
}

/// The meter's store, or null when the meter that this walk began with is gone. A store that has another size than this
/// walk left it with belongs to a meter that was added anew. The caller holds ProfileDataLock.
HostVector<ProfileRecord>* Walk::Store() {
  DeviceEntry* const entry = FindMeter(meters_, interval_.meter);
  if (entry == nullptr) return nullptr;
  HostVector<ProfileRecord>* const store = &(entry->*row_.store);
  return store->Size() == storeSize_ ? store : nullptr;
}

Walk::Step Walk::ServeTime() {
  bool served = false;
  const Step step = ServeStored(served);
  if (step != Step::Next) return step;
  if (served) return MoveBy(TimeSpan(0, 0, interval_.period, 0));
  RecordPosition position;
  const TimeOutcome located = LocateRecord(time_, interval_.period, position);
  if (located != TimeOutcome::Done) return StepOf(located);
  return ServeFromMeter(position);
}

Walk::Step Walk::ServeStored(bool& served) {
  const auto position = index_->FindTime(time_);
  if (!position) return Step::Next;
  const platform::CriticalSectionGuard guard(meters_.ProfileDataLock);
  const HostVector<ProfileRecord>* const store = Store();
  if (store == nullptr) return Step::Failed;
  const ProfileRecord& record = (*store)[*position];
  // What this walk has read in its place since the index was made is a record of another time.
  if (Ticks(record.Time) != Ticks(time_)) return Step::Next;
  kept_.ProfileCache.push_back(record);
  served = true;
  return List();
}

Walk::Step Walk::ServeFromMeter(const RecordPosition& position) {
  const HourSearch search = FindHour(position.hour);
  if (search == HourSearch::Failed) return Step::Failed;
  if (search == HourSearch::Missing) return MoveBy(TimeSpan(0, 1, 0, 0));
  const RecordQuery query{.row = row_,
                          .address = static_cast<std::uint16_t>(header_ + position.slot * kProfileRecordBytes + kHeaderBytes),
                          .time = time_,
                          .period = interval_.period,
                          .coefficients = coefficients_};
  PowerRecords records;
  // A record that was not read, or is empty, ends the walk well with the records before it.
  if (!ReadProfileRecord(meters_, interval_.meter, query, records)) return StillThere() ? Step::Done : Step::Failed;
  const Step kept = Keep(records);
  lastHour_ = position.hour;
  return kept == Step::Next ? MoveBy(TimeSpan(0, 0, interval_.period, 0)) : kept;
}

/// One search serves all records of an hour.
HourSearch Walk::FindHour(const SYSTEMTIME& hour) {
  if (lastHour_ && SameHour(*lastHour_, hour)) return HourSearch::Found;
  const HourQuery query{
      .profile = row_.searchNumber, .hour = hour, .flag = kSearchFlag, .period = static_cast<std::uint8_t>(interval_.period)};
  return FindHourHeader(meters_, interval_.meter, query, header_);
}

bool Walk::StillThere() {
  const platform::CriticalSectionGuard guard(meters_.ProfileDataLock);
  return Store() != nullptr;
}

Walk::Step Walk::Keep(const PowerRecords& records) {
  const platform::CriticalSectionGuard guard(meters_.ProfileDataLock);
  HostVector<ProfileRecord>* const store = Store();
  if (store == nullptr) return Step::Failed;
  const Step listed = List();
  for (const ProfileRecord& record : records) {
    if (record.TagId == interval_.tagId) kept_.ProfileCache.push_back(record);
    if (!KeepInStore(*store, record)) return Step::Failed;
  }
  return listed;
}

/// The meter's memory is a ring: what now lies at an address takes the place of what lay there in an earlier walk.
bool Walk::KeepInStore(HostVector<ProfileRecord>& store, const ProfileRecord& record) {
  const auto position = index_->FindAddress(store, record.Address, record.TagId);
  if (!position) {
    if (!store.Append(record)) return false;
    ++storeSize_;
    return true;
  }
  ProfileRecord& known = store[*position];
  known.Time = record.Time;
  known.Value = record.Value;
  known.Quality = record.Quality;
  return true;
}

Walk::Step Walk::List() {
  if (!list_.Times.Append(time_)) return Step::Failed;
  ++list_.Count;
  list_.Period = interval_.period;
  return Step::Next;
}

/// Times only ever grow: the repeated hour at the end of summer time is taken once. A time-zone rule that brought one back
/// would let the walk run for ever, so it ends there.
Walk::Step Walk::MoveBy(TimeSpan span) {
  const std::uint64_t before = Ticks(time_);
  const TimeOutcome moved = MoveOn(time_, span);
  if (moved != TimeOutcome::Done) return StepOf(moved);
  return Ticks(time_) > before ? Step::Next : Step::Failed;
}

}  // namespace

std::uint32_t ProfileWalk(Meters& meters, HistoryState& kept, const ProfileInterval& interval, TimestampList& list) {
  const platform::CriticalSectionGuard guard(kept.ProfileWalkLock);
  // Of the records so far nothing is lost.
  return Guarded(0U, [&] { return Walk(meters, kept, interval, list).Run(); });
}

}  // namespace ostrel
