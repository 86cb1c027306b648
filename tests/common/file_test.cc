#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/file_errors.h"
#include "common/memory_file.h"

namespace Common {
namespace {

TEST(MemoryFileTest, GapsLeftByWritesAndTruncationReadAsZeros) {
  auto file = MemoryFile::Create();
  EXPECT_EQ(file->GetData(), nullptr);
  file->Seek(4);
  EXPECT_EQ(file->Write("ab", 2), 2u);
  ASSERT_EQ(file->Size(), 6u);
  EXPECT_EQ(std::memcmp(file->GetData(), "\0\0\0\0ab", 6), 0);
  file->Rewind();
  char buffer[8] = {};
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 6u);
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 0u);

  // Truncation keeps the position, and bytes it cut off do not come back.
  file->Rewind();
  file->Write("abcdef", 6);
  file->Truncate(2);
  EXPECT_EQ(file->Size(), 2u);
  EXPECT_EQ(file->SeekCurrent(0), 6);
  file->Truncate(4);
  EXPECT_EQ(std::memcmp(file->GetData(), "ab\0\0", 4), 0);
}

TEST(MemoryFileTest, WritesAreClampedAtTheLimit) {
  auto file = MemoryFile::Create();
  file->Seek(0x3FFFFFFC);
  EXPECT_EQ(file->Write("0123456789", 10), 4u);
  EXPECT_EQ(file->Size(), 0x40000000u);
  file->Seek(0x40000000);
  EXPECT_EQ(file->Write("x", 1), 0u);  // past the limit: nothing, no failure
  EXPECT_FALSE(file->Failed());
  file->Truncate(0x40000001);
  EXPECT_EQ(file->Status.Code(), 0x40003u);
  EXPECT_EQ(file->Status.GetText(), u"Error occurred while writing to the file.");
}

TEST(MemoryFileTest, NegativePositionsReadAsTheEnd) {
  auto file = MemoryFile::Create();
  file->Write("abc", 3);
  EXPECT_EQ(file->SeekCurrent(-10), -7);
  char c;
  EXPECT_EQ(file->Read(&c, 1), 0u);
  EXPECT_FALSE(file->Failed());
  EXPECT_EQ(file->SeekEnd(-1), 2);
  EXPECT_EQ(file->Read(&c, 1), 1u);
  EXPECT_EQ(c, 'c');
}

TEST(FileStatusTest, FirstFailureStaysAndStopsLaterWork) {
  auto file = MemoryFile::Create();
  file->Write("abc", 3);
  file->LockShared();  // not supported by a memory file
  EXPECT_EQ(file->Status.Code(), 0x4000Eu);
  EXPECT_EQ(file->Status.GetText(), u"The operation is not supported.");
  EXPECT_STREQ(file->Status.Site().Function, "ri_file::LockShared");
  file->Rewind();
  char buffer[3];
  EXPECT_EQ(file->Read(buffer, 3), 0u);
  EXPECT_EQ(file->Write("x", 1), 0u);
  file->Truncate(99);
  EXPECT_STREQ(file->Status.Site().Function, "ri_file::LockShared");
  EXPECT_EQ(file->TakeError().Code(), 0x4000Eu);
  EXPECT_FALSE(file->Failed());
}

TEST(FileStatusTest, ReadExactReportsAShortRead) {
  auto file = MemoryFile::Create();
  file->Write("abc", 3);
  file->Rewind();
  char buffer[8];
  EXPECT_EQ(ReadExact(*file, buffer, 8), 3u);
  EXPECT_EQ(file->Status.Code(), 0x40002u);
  EXPECT_EQ(file->Status.GetText(), u"End of file has been encountered.");
  EXPECT_STREQ(file->Status.Site().Function, "i_file::Read");
}

TEST(FileStatusTest, EveryFileCodeHasItsTextAndOthersHaveNone) {
  EXPECT_EQ(FileErrorText(0x40004), u"Disk is full.");
  EXPECT_EQ(FileErrorText(0x40011), u"Specified file does not exist.");
  EXPECT_EQ(FileErrorText(0x4001A), u"Failed to recover the file (folder).");
  EXPECT_EQ(FileErrorText(0x530004), u"");
  for (std::uint32_t code = 0x40000; code <= 0x4001B; ++code)
    EXPECT_EQ(FileErrorText(code).empty(), code == 0x40000 || code == 0x40018 || code == 0x4001B)
        << std::hex << code;
}

}  // namespace
}  // namespace Common
