// The tags of current data beside the meters' documents: which request reads each, how long request and answer are, and
// what a client's write sends. Rows that differ by a rule (tariff, phase, log number, archive) are expanded from it.
#include "Protocol/model/TagCatalogue.h"

#include <algorithm>

#include "platform/variant.h"

namespace ostrel {
namespace {

/// Neighbouring tags with one row.
struct CatalogueRun {
  std::uint32_t first;
  std::uint32_t last;
  TagDescriptor row;
  TagKind kind = TagKind::Reading;
};

// clang-format off
constexpr CatalogueRun kCatalogue[] = {
    //              type     code param sub req acc wlen wparam aux answer   kind, where not Reading
    // Identity and parameters of the meter.
    {20000, 20001, {VT_BSTR, 8,   0,   0,   5,  1,  0,   0,     1,  10}},
    {20002, 20002, {VT_R4,   8,   5,   0,   5,  1,  0,   0,     1,  5}},
    {20003, 20003, {VT_BSTR, 8,   3,   0,   5,  1,  0,   0,     1,  6}},
    {20004, 20005, {VT_R4,   8,   18,  0,   5,  1,  0,   0,     1,  6}},
    {20006, 20006, {VT_R4,   8,   2,   0,   5,  3,  9,   27,    2,  13}},
    {20007, 20007, {VT_R4,   8,   2,   0,   5,  3,  9,   28,    2,  13}},
    {20008, 20008, {VT_R4,   8,   2,   0,   5,  1,  9,   29,    2,  13}},  // has a write length, yet clients may only read
    // Energy by the current tariff.
    {20045, 20048, {VT_R4,   8,   13,  0,   5,  1,  0,   0,     1,  19}},
    // Frequency and quality of supply.
    {20075, 20075, {VT_R4,   4,   0,   0,   6,  1,  0,   0,     1,  6}},
    {20082, 20082, {VT_R4,   10,  2,   0,   6,  1,  0,   0,     1,  6}},
    {20086, 20086, {VT_R4,   1,   2,   0,   6,  1,  0,   0,     1,  6}},
    {20087, 20087, {VT_R4,   9,   0,   0,   6,  1,  0,   0,     1,  6}},
    // Flags, texts and commands of the meter.
    {20094, 20094, {VT_R4,   8,   18,  0,   5,  1,  0,   0,     1,  6}},
    {20095, 20095, {VT_BSTR, 8,   9,   0,   5,  1,  0,   0,     1,  0}},
    {20096, 20096, {VT_BSTR, 8,   11,  0,   5,  1,  0,   0,     1,  0}},
    {20097, 20097, {VT_R4,   3,   11,  0,   5,  3,  8,   13,    1,  0}, TagKind::TimeCorrection},
    {20098, 20098, {VT_R4,   4,   0,   0,   5,  3,  13,  12,    2,  0}, TagKind::TimeSetup},
    {20099, 20099, {VT_R4,   0,   0,   0,   0,  3,  6,   7,     1,  0}, TagKind::IndicationPeriod},
    {20100, 20100, {VT_R4,   8,   9,   0,   5,  3,  6,   24,    2,  0}, TagKind::ZeroCommand},
    {20101, 20101, {VT_R4,   0,   0,   0,   0,  0,  0,   0,     0,  0}},   // reserved
    {20102, 20102, {VT_R4,   4,   254, 254, 6,  3,  0,   0,     1,  0}, TagKind::LogNumber},
    {20183, 20183, {VT_BSTR, 8,   18,  0,   5,  1,  0,   0,     1,  6}},
    {20184, 20184, {VT_BSTR, 8,   9,   0,   5,  1,  0,   0,     1,  0}},
    {20185, 20185, {VT_R4,   8,   9,   0,   5,  3,  6,   24,    2,  0}, TagKind::ZeroCommand},
    // The link itself.
    {20210, 20210, {VT_BOOL, 0,   1,   2,   4,  1,  4,   0,     0,  0}, TagKind::ConnectionState},
    {20211, 20211, {VT_BOOL, 0,   1,   1,   1,  3,  0,   0,     0,  0}, TagKind::Exchange},
    // Load control and limits of energy and power.
    {20212, 20212, {VT_UI1,  8,   32,  0,   7,  3,  6,   47,    1,  0}, TagKind::Limit},
    {20213, 20213, {VT_UI1,  8,   32,  8,   7,  3,  11,  47,    1,  0}, TagKind::Limit},
    {20214, 20218, {VT_R4,   8,   32,  4,   7,  3,  11,  47,    1,  0}, TagKind::Limit},
    {20219, 20222, {VT_R4,   8,   32,  9,   7,  3,  11,  47,    1,  0}, TagKind::Limit},
    {20223, 20242, {VT_R4,   8,   32,  4,   7,  3,  11,  47,    1,  0}, TagKind::Limit},
    {20243, 20243, {VT_I1,   8,   1,   0,   5,  1,  0,   0,     1,  5}},
};
// clang-format on

constexpr std::uint32_t kKinds = 4;  // A+, A-, R+, R-
constexpr std::uint32_t kTariffs = 8;

/// Energies from reset by kind: tariffs 1 to 8, then their sum.
constexpr std::uint32_t kFirstEnergyId = 20009;
constexpr std::uint32_t kSumTariff = 9;

/// Instantaneous values of a phase in id order, for the phases 1, 2, 3; the sum has the first five.
constexpr std::uint32_t kFirstPhaseId = 20049;
struct PhaseQuantity {
  std::uint32_t code;
  std::uint32_t param;
  bool requested;
  TagKind kind = TagKind::Reading;
};
constexpr PhaseQuantity kPhaseQuantities[] = {
    {.code = 0, .param = 0, .requested = true, .kind = TagKind::PowerReading},  // P
    {.code = 0, .param = 1, .requested = true},                                 // Q
    {.code = 0, .param = 2, .requested = true},                                 // S
    {.code = 3, .param = 0, .requested = true},                                 // power coefficient
    {.code = 0, .param = 0, .requested = false},                                // angle, reserved
    {.code = 1, .param = 0, .requested = true},                                 // voltage
    {.code = 2, .param = 0, .requested = true},                                 // current
};
constexpr std::uint32_t kPhases = 3;
constexpr std::uint32_t kSumQuantities = 5;

/// Runs of three tags, one for each phase or pair of phases.
struct PhaseTriple {
  std::uint32_t first;
  std::uint32_t code;
  std::uint32_t param;
};
constexpr PhaseTriple kPhaseTriples[] = {
    {.first = 20076, .code = 10, .param = 0},  // averaged phase voltage
    {.first = 20079, .code = 10, .param = 1},  // averaged interfacial voltage
    {.first = 20083, .code = 1, .param = 1},   // interfacial voltage
    {.first = 20088, .code = 8, .param = 0},   // distortion of the phase voltage
    {.first = 20091, .code = 8, .param = 1},   // distortion of the interfacial voltage, reserved
};

/// Event logs: each of the twenty records holds two events, each with date and time.
constexpr std::uint32_t kFirstLogId = 20103;
constexpr std::uint32_t kLogs = 20;
constexpr std::uint32_t kTagsPerLog = 4;

/// Sums over tariffs by kind for the current and the previous day, month and year: codes of the archives.
constexpr std::uint32_t kFirstPeriodId = 20186;
constexpr std::uint32_t kPeriodArchives[] = {64, 80, 48, 49, 16, 32};

constexpr TagDescriptor NumberRow(std::uint32_t code, std::uint32_t param, std::uint32_t subParam, std::uint32_t answer) {
  return {.DataType = VT_R4,
          .Code = code,
          .Param = param,
          .SubParam = subParam,
          .RequestLength = 6,
          .Access = 1,
          .WriteLength = 0,
          .WriteParam = 0,
          .Aux = 1,
          .ExpectedLength = answer};
}

constexpr TagDescriptor EnergyRow(std::uint32_t param, std::uint32_t subParam, std::uint32_t answer) {
  return NumberRow(5, param, subParam, answer);
}

constexpr TagDescriptor MeasuredRow(std::uint32_t code, std::uint32_t param, std::uint32_t subParam) {
  return NumberRow(code, param, subParam, 6);
}

constexpr TagDescriptor LogRow(std::uint32_t log, std::uint32_t record) {
  return {.DataType = VT_BSTR,
          .Code = 9,
          .Param = 0,
          .SubParam = log,
          .RequestLength = 6,
          .Access = 1,
          .WriteLength = 0,
          .WriteParam = record,
          .Aux = 1,
          .ExpectedLength = 0};
}

constexpr TagDescriptor PhaseRow(const PhaseQuantity& quantity, std::uint32_t phase) {
  TagDescriptor row = MeasuredRow(quantity.code, quantity.param, quantity.requested ? phase : 0);
  if (!quantity.requested) row.RequestLength = 0;
  return row;
}

/// The table while it is made, with how often each row was given.
struct Expansion {
  std::array<TagDescriptor, kDaTagCount> rows{};
  std::array<TagKind, kDaTagCount> kinds{};
  std::array<int, kDaTagCount> given{};

  constexpr void Put(std::uint32_t id, const TagDescriptor& row, TagKind kind = TagKind::Reading) {
    rows[id - kFirstDaId] = row;
    kinds[id - kFirstDaId] = kind;
    ++given[id - kFirstDaId];
  }

  constexpr void PutEnergies() {
    std::uint32_t id = kFirstEnergyId;
    for (std::uint32_t kind = 0; kind < kKinds; ++kind) {
      for (std::uint32_t tariff = 1; tariff <= kTariffs; ++tariff) Put(id++, EnergyRow(tariff, tariff, 19));
      Put(id++, EnergyRow(kSumTariff, 0, 19));
    }
  }

  constexpr void PutPhases() {
    std::uint32_t id = kFirstPhaseId;
    for (std::uint32_t phase = 1; phase <= kPhases; ++phase) {
      for (const PhaseQuantity& quantity : kPhaseQuantities) Put(id++, PhaseRow(quantity, phase), quantity.kind);
    }
    for (std::uint32_t i = 0; i < kSumQuantities; ++i) Put(id++, PhaseRow(kPhaseQuantities[i], 0), kPhaseQuantities[i].kind);
    for (const PhaseTriple& triple : kPhaseTriples) {
      for (std::uint32_t phase = 1; phase <= kPhases; ++phase) {
        Put(triple.first + phase - 1, MeasuredRow(triple.code, triple.param, phase));
      }
    }
  }

  constexpr void PutLogs() {
    for (std::uint32_t i = 0; i < kLogs * kTagsPerLog; ++i) {
      Put(kFirstLogId + i, LogRow(i / kTagsPerLog, i % kTagsPerLog / 2),
          i < kTagsPerLog ? TagKind::FirstLogRecord : TagKind::LogRecord);
    }
  }

  constexpr void PutPeriods() {
    std::uint32_t id = kFirstPeriodId;
    for (std::uint32_t kind = 0; kind < kKinds; ++kind) {
      for (const std::uint32_t archive : kPeriodArchives) Put(id++, EnergyRow(archive, 0, 0));
    }
  }
};

constexpr Expansion Expand() {
  Expansion expansion;
  for (const CatalogueRun& run : kCatalogue) {
    for (std::uint32_t id = run.first; id <= run.last; ++id) expansion.Put(id, run.row, run.kind);
  }
  expansion.PutEnergies();
  expansion.PutPhases();
  expansion.PutLogs();
  expansion.PutPeriods();
  return expansion;
}

constexpr Expansion kExpansion = Expand();

constexpr bool PlausibleType(const TagDescriptor& row) {
  return row.DataType == VT_R4 || row.DataType == VT_BSTR || row.DataType == VT_BOOL || row.DataType == VT_I1 ||
         row.DataType == VT_UI1;
}

/// A frame is address, code and check at least; the two tags of the link use the lengths for other things.
constexpr bool PlausibleLengths(const TagDescriptor& row) {
  if (row.DataType == VT_BOOL) return true;
  const bool request = row.RequestLength == 0 || (row.RequestLength >= 5 && row.RequestLength <= 7);
  const bool write = row.WriteLength == 0 || (row.WriteLength >= 6 && row.WriteLength <= 13);
  return request && write && (row.ExpectedLength == 0 || (row.ExpectedLength >= 5 && row.ExpectedLength <= 19));
}

constexpr bool PlausibleAccess(const TagDescriptor& row) { return row.Access == 0 || row.Access == 1 || row.Access == 3; }

static_assert(std::ranges::all_of(kExpansion.given, [](int times) { return times == 1; }), "every tag has exactly one row");
static_assert(std::ranges::all_of(kExpansion.rows, PlausibleType));
static_assert(std::ranges::all_of(kExpansion.rows, PlausibleLengths));
static_assert(std::ranges::all_of(kExpansion.rows, PlausibleAccess));
static_assert(std::ranges::count(kExpansion.rows, 3U, &TagDescriptor::Access) == 40, "writable tags");

}  // namespace

const std::array<TagDescriptor, kDaTagCount>& TagDescriptors() { return kExpansion.rows; }

TagKind KindOf(std::uint32_t tagNumber) { return tagNumber < kDaTagCount ? kExpansion.kinds[tagNumber] : TagKind::Reading; }

}  // namespace ostrel
