#include <algorithm>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "vhdx/file/change_tracking_file.h"
#include "vhdx/file/file_modification_observer.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/test_files.h"
#include "vhdx/format/write_field_modifier.h"
#include "vhdx/file/writeable_file.h"

namespace {

using Vhdx::HeaderInfo;

// Wired as a writable open wires it: the modifier works on the raw file, the
// structure and payload files report to it.
class WriteFieldModifierTest : public ::testing::Test {
 protected:
  WriteFieldModifierTest() {
    std::string bytes = VhdxTest::EmptyFirstMegabyte();
    VhdxTest::PutHeader(bytes, 0, original, 3);
    raw.Load(bytes);
    using Observer = Vhdx::DataModificationsObserver;
    structure.Add(std::make_shared<Vhdx::FileModificationObserver>(modifier, &Observer::OnFileModified));
    data.Add(std::make_shared<Vhdx::FileModificationObserver>(modifier, &Observer::OnDataModified));
  }
  HeaderInfo Current() { return Vhdx::HeaderReader::Read(file); }
  std::size_t HeaderWrites() const {
    return std::ranges::count_if(logged.Log, [](const std::string& e) { return e.ends_with(" 4096"); });
  }

  const HeaderInfo original = VhdxTest::TestHeaderInfo(1);
  VhdxTest::ScriptedFile raw;
  Vhdx::WriteableFile file{raw};
  VhdxTest::LoggingFile logged{file};
  Vhdx::WriteFieldModifier modifier{logged};
  Vhdx::ChangeTrackingFile structure{logged};
  Vhdx::ChangeTrackingFile data{logged};
};

TEST_F(WriteFieldModifierTest, AStructureChangeThenAPayloadChangeRenewEachGuidOnce) {
  char buffer[4];
  structure.Read(0x10000, 4, buffer);  // reads give no notice
  data.Read(0x10000, 4, buffer);
  EXPECT_TRUE(logged.Log.empty());
  structure.Write(0x200000, 4, "meta");
  // The header was renewed before the change reached the file.
  EXPECT_EQ(logged.Log, (std::vector<std::string>{"W 131072 4096", "W 65536 4096", "W 2097152 4"}));
  const HeaderInfo afterStructure = Current();
  EXPECT_NE(afterStructure.FileWriteGuid, original.FileWriteGuid);
  EXPECT_EQ(afterStructure.DataWriteGuid, original.DataWriteGuid);
  structure.WriteZero(0x200000, 4);
  structure.Expand(0x400000);
  EXPECT_EQ(HeaderWrites(), 2u);
  data.Write(0x300000, 4, "data");
  data.Write(0x300000, 4, "more");
  structure.Write(0x200000, 4, "meta");
  EXPECT_EQ(HeaderWrites(), 4u);
  HeaderInfo expected = afterStructure;
  expected.DataWriteGuid = Current().DataWriteGuid;
  EXPECT_NE(expected.DataWriteGuid, original.DataWriteGuid);
  EXPECT_EQ(Current(), expected);  // all else as it was
}

// A payload change first renews both in one rewrite; one that fails to
// renew them does not happen, and the next change tries again.
TEST_F(WriteFieldModifierTest, APayloadChangeFirstRenewsBothInOneRewriteAndAFailedOneIsTriedAgain) {
  raw.WriteLimit = 0x10000;  // no header can be written
  EXPECT_THROW(data.Write(0x300000, 4, "data"), Common::Error);
  EXPECT_EQ(raw.Store->Size(), Vhdx::Format::kMiB);
  raw.WriteLimit = UINT64_MAX;
  logged.Log.clear();
  data.WriteZero(0x300000, 10);
  EXPECT_EQ(HeaderWrites(), 2u);
  const HeaderInfo after = Current();
  EXPECT_NE(after.FileWriteGuid, original.FileWriteGuid);
  EXPECT_NE(after.DataWriteGuid, original.DataWriteGuid);
  structure.Write(0x200000, 1, "x");
  data.Expand(0x500000);
  EXPECT_EQ(HeaderWrites(), 2u);
}

}  // namespace
