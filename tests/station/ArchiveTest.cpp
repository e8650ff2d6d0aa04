// The archive on both engines: the same cases against a SQLite file and against a PostgreSQL server of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "station/archive/Schema.h"
#include "station/archive/Writer.h"
#include "station/collect/Completeness.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::station {
namespace {

/// The server refuses to run as root; Debian's package has a user for it.
std::string AsServer(const std::string& command) { return geteuid() == 0 ? "runuser -u postgres -- " + command : command; }

void Command(const std::string& command) {
  if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) throw std::runtime_error("failed: " + command);
}

/// A PostgreSQL server of the tests' own, on a socket in a temporary folder.
class PostgresServer {
 public:
  PostgresServer() {
    std::array<char, 32> name{"/tmp/ostrel-postgres-XXXXXX"};
    folder_ = mkdtemp(name.data());
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql"))
      binaries_ = (version.path() / "bin").string();
    if (geteuid() == 0) Command("chown postgres " + folder_);
    Command(AsServer(binaries_ + "/initdb -D " + folder_ + "/data -A trust -E UTF8 --no-sync"));
    Start();
  }
  ~PostgresServer() {
    try {
      Stop();
    } catch (const std::runtime_error&) {
      // It was stopped by the test.
    }
    std::filesystem::remove_all(folder_);
  }
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  void Start() { Control("-l " + folder_ + "/data/log -o '-c listen_addresses= -c fsync=off -k " + folder_ + "' start"); }
  void Stop() { Control("-m immediate stop"); }
  /// An empty database's address.
  [[nodiscard]] std::string NewDatabase() {
    const std::string name = "t" + std::to_string(++databases_);
    const std::string user = geteuid() == 0 ? "postgres" : std::getenv("USER");
    Command(AsServer(binaries_ + "/createdb -h " + folder_ + " -U " + user + " " + name));
    return "postgresql:///" + name + "?host=" + folder_ + "&user=" + user;
  }

 private:
  void Control(const std::string& what) const { Command(AsServer(binaries_ + "/pg_ctl -D " + folder_ + "/data -w " + what)); }

  std::string folder_;
  std::string binaries_;
  int databases_ = 0;
};

class ArchiveTest : public testing::TestWithParam<const char*> {
 protected:
  static PostgresServer& Server() {
    static PostgresServer server;
    return server;
  }
  [[nodiscard]] bool OnServer() const { return std::string(GetParam()) == "postgres"; }
  [[nodiscard]] std::string Where() { return OnServer() ? Server().NewDatabase() : folder_.File("archive.db"); }

  [[nodiscard]] std::unique_ptr<Database> Migrated() {
    auto base = OpenDatabase(Where());
    Migrate(*base);
    return base;
  }

  static MeterRow Row(const std::string& serial, const std::string& name = "feeder") {
    MeterRow row;
    row.place = {.station = "north", .channel = "COM1", .name = name};
    row.serial = serial;
    row.since = 1000;
    return row;
  }

  test::TemporaryFolder folder_;
};

struct Delivery {
  RecordState state;
  std::optional<double> value;
  bool news;                   // it was kept
  std::optional<double> then;  // what stands there afterwards
};

TEST_P(ArchiveTest, ASecondDeliveryChangesNothingAndAGoodRecordReplacesABadOne) {
  const auto base = Migrated();
  Archive archive(*base);
  const MeterKey key = archive.Enter(Row("1"));
  const Delivery deliveries[] = {{RecordState::Lost, {}, true, {}},   {RecordState::Bad, {}, true, {}},
                                 {RecordState::Good, 0.1, true, 0.1}, {RecordState::Good, 0.2, false, 0.1},
                                 {RecordState::Bad, {}, false, 0.1},  {RecordState::Lost, {}, false, 0.1}};
  for (const Delivery& delivery : deliveries) {
    EXPECT_EQ(delivery.news,
              archive.Put(key, 40108, {.time = 1800, .utc = 1800, .value = delivery.value, .state = delivery.state}));
    const std::vector<StoredRecord> stored = archive.Records(key, 40108, 0, 1801);
    ASSERT_EQ(1U, stored.size());
    EXPECT_EQ(delivery.then, stored[0].value);
  }
  EXPECT_TRUE(archive.Records(key, 40108, 0, 1800).empty()) << "the end is left out";
}

TEST_P(ArchiveTest, AMeterIsItsSerialNumberAtAPlace) {
  const auto base = Migrated();
  Archive archive(*base);
  const MeterKey first = archive.Enter(Row("1"));
  EXPECT_EQ(first, archive.Enter(Row("1")));
  const MeterKey second = archive.Enter(Row("2"));
  EXPECT_NE(first, second);
  EXPECT_EQ("2", archive.MeterAt(Row("").place)->serial);
  EXPECT_EQ(first, archive.Enter(Row("1"))) << "it came back";
  EXPECT_NE(first, archive.Enter(Row("1", "other")));
  int ended = 0;
  for (const MeterRow& meter : archive.Meters()) ended += meter.until.has_value() ? 1 : 0;
  EXPECT_EQ(1, ended);
}

TEST_P(ArchiveTest, TheOutboxGivesNoNumberTwice) {
  const auto base = Migrated();
  Archive archive(*base);
  archive.Post("north", "t", "1");
  archive.Post("south", "t", "2");
  const std::int64_t first = archive.Waiting("north", 0, 10).at(0).number;
  archive.Delivered("north", first);
  EXPECT_EQ(0, archive.CountWaiting("north"));
  archive.Post("north", "t", "3");
  EXPECT_LT(first, archive.Waiting("north", 0, 10).at(0).number);
  EXPECT_EQ("2", archive.Waiting("south", 0, 10).at(0).payload);
}

TEST_P(ArchiveTest, AStationForgetsItsOwnOnly) {
  const auto base = Migrated();
  Archive archive(*base);
  MeterRow south = Row("1");
  south.place.station = "south";
  const MeterKey keys[] = {archive.Enter(Row("1")), archive.Enter(south)};
  for (const MeterKey key : keys) {
    for (const std::int64_t ms : {1'000, 500'000, 1'000'000})
      archive.Put(key, 1, CurrentValue{.utcMs = ms, .number = 1, .text = {}, .quality = 192});
  }
  const auto count = [&](MeterKey key) {
    std::int64_t rows = 0;
    base->Run("SELECT count(*) FROM current WHERE meter = $1", {key}, [&](const station::Row& row) { rows = WholeAt(row, 0); });
    return rows;
  };
  archive.ForgetOldestCurrent("north");
  EXPECT_EQ(2, count(keys[0]));
  archive.Forget("north", 900, 900);
  EXPECT_EQ(1, count(keys[0]));
  EXPECT_EQ(3, count(keys[1]));
}

TEST_P(ArchiveTest, ANewerSchemaIsLeftAlone) {
  const std::string where = Where();
  const auto base = OpenDatabase(where);
  Migrate(*base);
  Migrate(*base);
  EXPECT_EQ(NewestSchema(), SchemaVersion(*base));
  base->Run("INSERT INTO schema_version VALUES (99)");
  EXPECT_THROW(Migrate(*base), DatabaseError);
}

TEST_P(ArchiveTest, WhatCannotBeKeptNowIsKeptWhenItCan) {
  const std::string where = Where();
  std::vector<std::string> problems;
  {
    Writer writer(where, [&](const std::string& problem) { problems.push_back(problem); });
    writer.Add([](Archive& archive) { (void)archive.Enter(Row("1")); });
    ASSERT_TRUE(writer.Flush(20'000));
    if (OnServer()) Server().Stop();
    // A lock of another's stands for a full disk: both pass by themselves.
    const auto other = OnServer() ? nullptr : OpenDatabase(where);
    if (other) other->Run("BEGIN EXCLUSIVE");
    writer.Add(
        [](Archive& archive) { archive.Put(1, 40108, {.time = 1800, .utc = 1800, .value = 1.0, .state = RecordState::Good}); });
    EXPECT_FALSE(writer.Flush(300));
    if (other) other->Run("COMMIT");
    if (OnServer()) Server().Start();
    EXPECT_TRUE(writer.Flush(30'000));
    // One that is wrong for ever takes no other with it.
    writer.Add([](Archive& archive) { archive.Base().Run("INSERT INTO nowhere VALUES (1)"); });
    writer.Add(
        [](Archive& archive) { archive.Put(1, 40108, {.time = 3600, .utc = 3600, .value = 2.0, .state = RecordState::Good}); });
    EXPECT_TRUE(writer.Flush(20'000));
    EXPECT_EQ(1U, writer.State().dropped);
  }
  const auto base = OpenDatabase(where);
  EXPECT_EQ(2U, Archive(*base).Records(1, 40108, 0, 9999).size());
  EXPECT_FALSE(problems.empty());
}

INSTANTIATE_TEST_SUITE_P(Engines, ArchiveTest, testing::Values("sqlite", "postgres"));

TEST(EmbeddedArchive, AForeignFileIsRefusedAndLeftAsItIs) {
  const test::TemporaryFolder folder;
  const std::string text = folder.File("letter.db");
  test::WriteBytes(text, std::string(5000, 'x'));
  EXPECT_THROW((void)OpenDatabase(text), DatabaseError);
  EXPECT_EQ(std::string(5000, 'x'), test::ReadBytes(text));
  const std::string other = folder.File("other.db");
  ASSERT_EQ(0, std::system(("sqlite3 " + other + " 'create table t(a)'").c_str()));
  EXPECT_THROW((void)OpenDatabase(other), DatabaseError);
}

TEST(EmbeddedArchive, ABackupIsMadeWhileAWriterIsAtWork) {
  const test::TemporaryFolder folder;
  const auto base = OpenDatabase(folder.File("a.db"));
  Migrate(*base);
  Archive archive(*base);
  const MeterKey key = archive.Enter({});
  archive.Put(key, 1, StoredRecord{.time = 1, .utc = 1, .value = 1.0, .state = RecordState::Good});
  const auto reader = OpenDatabase(folder.File("a.db"));
  reader->BackupTo(folder.File("b.db"));
  EXPECT_THROW(reader->BackupTo(folder.File("b.db")), DatabaseError);
  const auto copy = OpenDatabase(folder.File("b.db"));
  EXPECT_EQ("", copy->Damage());
  EXPECT_EQ(1U, Archive(*copy).Records(key, 1, 0, 2).size());
}

}  // namespace
}  // namespace ostrel::station
