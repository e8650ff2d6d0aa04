#include <gtest/gtest.h>

#include <string>

#include "platform/shared_file.h"
#include "platform/text.h"
#include "tests/support/TemporaryFolder.h"

namespace ostrel::platform {
namespace {

class SharedFileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.File(name); }
  OleString WidePath(const std::string& name) const { return Utf8ToOle(Path(name)); }

 private:
  test::TemporaryFolder folder_;
};

TEST_F(SharedFileTest, TwoHandlesAppendBehindEachOther) {
  const FileHandle first = OpenSharedFile(Path("log").c_str());
  const FileHandle second = OpenSharedFile(WidePath("log").c_str());
  ASSERT_NE(first, kNoFile);
  ASSERT_NE(second, kNoFile);
  EXPECT_EQ(SharedFileSize(first), 0);
  EXPECT_TRUE(AppendToSharedFile(first, "one\r\n"));
  EXPECT_TRUE(AppendToSharedFile(second, "two\r\n"));
  EXPECT_TRUE(AppendToSharedFile(first, {"\0x", 2}));
  EXPECT_TRUE(AppendToSharedFile(first, {}));
  EXPECT_EQ(SharedFileSize(second), 12);
  CloseSharedFile(first);
  CloseSharedFile(second);
  EXPECT_EQ(test::ReadBytes(Path("log")), std::string("one\r\ntwo\r\n\0x", 12));
}

TEST_F(SharedFileTest, ADeletedFileIsCreatedAnew) {
  const FileHandle old = OpenSharedFile(Path("log").c_str());
  EXPECT_TRUE(AppendToSharedFile(old, "old"));
  CloseSharedFile(old);
  EXPECT_TRUE(DeleteSharedFile(Path("log").c_str()));
  EXPECT_FALSE(DeleteSharedFile(Path("log").c_str()));
  const FileHandle fresh = OpenSharedFile(Path("log").c_str());
  EXPECT_EQ(SharedFileSize(fresh), 0);
  CloseSharedFile(fresh);
}

TEST_F(SharedFileTest, RenamingReplacesAnOlderFile) {
  test::WriteBytes(Path("trace"), "new");
  test::WriteBytes(Path("trace_reserv"), "older");
  EXPECT_TRUE(RenameSharedFile(WidePath("trace").c_str(), WidePath("trace_reserv").c_str()));
  EXPECT_EQ(test::ReadBytes(Path("trace_reserv")), "new");
  EXPECT_FALSE(RenameSharedFile(WidePath("trace").c_str(), WidePath("trace_reserv").c_str()));
  EXPECT_TRUE(DeleteSharedFile(WidePath("trace_reserv").c_str()));
}

TEST_F(SharedFileTest, FailuresAreTold) {
  EXPECT_EQ(OpenSharedFile(Path("no/such/folder").c_str()), kNoFile);
  EXPECT_EQ(OpenSharedFile(Path("").c_str()), kNoFile);
  EXPECT_EQ(OpenSharedFile(static_cast<const char*>(nullptr)), kNoFile);
  EXPECT_EQ(OpenSharedFile(static_cast<const OLECHAR*>(nullptr)), kNoFile);
  EXPECT_EQ(SharedFileSize(kNoFile), -1);
  EXPECT_FALSE(AppendToSharedFile(kNoFile, "x"));
  CloseSharedFile(kNoFile);
}

}  // namespace
}  // namespace ostrel::platform
