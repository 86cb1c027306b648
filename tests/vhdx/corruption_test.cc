// Containers damaged or crafted behind the engine's back. Reads must show
// what the tables say, writes must not destroy what other entries name.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/format/region_table_writer.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/file/writeable_file.h"
#include "vhdx/test_files.h"

namespace {

using VhdxTest::Raised;
namespace Format = Vhdx::Format;

constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kBlock = 0x400000;
constexpr std::uint64_t kBlockSectors = kBlock / kSector;
// Where the engine's recipe puts the BAT, and the entry of chunk 0's bitmap.
constexpr std::uint64_t kBatOffset = 0x300000;
constexpr std::uint64_t kBitmapEntry = 1024;

using VhdxTest::Pattern;

class CorruptionTest : public VhdxTest::DiskFixture {
 protected:
  // A dynamic file written with `data` from sector 0.
  void CreateDisk(const std::string& name, std::uint64_t size, const std::string& data) {
    DiskFixture::CreateDisk(name, size);
    Write(name, 0, data);
  }
  void Patch(const std::string& name, std::uint64_t offset, const std::string& bytes) {
    std::fstream file(dir.Join(name), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    ASSERT_TRUE(file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
  }
  Vhdx::BatEntry Entry(const std::string& name, std::uint64_t index) {
    const std::string bytes = Bytes(name).substr(kBatOffset + 8 * index, 8);
    return Vhdx::BatEntry(Vhdx::LoadLe64(reinterpret_cast<const std::uint8_t*>(bytes.data())));
  }
};

// Cut off in the middle of block 1: the block written next must not land
// where block 1's entry still points, and qemu must agree with the result.
TEST_F(CorruptionTest, ANewBlockGoesBehindEveryBlockAFileWithACutOffEndNames) {
  const std::string a = Pattern(kBlockSectors, 1), b = Pattern(kBlockSectors, 2), c = Pattern(kBlockSectors, 3);
  CreateDisk("cut.vhdx", 8 * kBlock, a + b);
  ASSERT_EQ(Entry("cut.vhdx", 1).GetFileOffset(), 2 * kBlock);
  std::filesystem::resize_file(dir.Join("cut.vhdx"), 2 * kBlock + kBlock / 2);

  Write("cut.vhdx", 2 * kBlockSectors, c);
  EXPECT_GE(Entry("cut.vhdx", 2).GetFileOffset(), 3 * kBlock);
  const std::string expected = a + b.substr(0, kBlock / 2) + std::string(kBlock / 2, '\0') + c;
  EXPECT_TRUE(Read("cut.vhdx", 0, 3 * kBlockSectors) == expected);
  if (!HostTest::Have("qemu-img")) return;
  const std::string path = dir.Join("cut.vhdx");
  const HostTest::Outcome check = HostTest::Shell("qemu-img check -f vhdx " + path + " && qemu-img convert -f vhdx -O raw " +
                                                  path + " " + path + ".raw");
  ASSERT_EQ(check.status, 0) << check.output;
  EXPECT_TRUE(HostTest::ReadBytes(path + ".raw").substr(0, 3 * kBlock) == expected);
}

// Entries behind the region's stated end still name data: reads take them
// where they lie, writes into them are refused for what they are.
TEST_F(CorruptionTest, AShortBatRegionReadsTheTableAndRefusesWritesBehindIt) {
  const std::string data = Pattern(2 * kBlockSectors, 4);
  CreateDisk("short.vhdx", 8 * kBlock, data);
  {
    std::unique_ptr<i_file> host = Folder()->OpenFile(u"short.vhdx", kOpenReadWrite);
    Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
    Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    for (Vhdx::RegionTableEntry& region : regions)
      if (region.Guid == Format::kBatRegionGuid) region.Length = 8;  // block 0's entry only
    Vhdx::RegionTableWriter::Write(file, regions);
  }
  EXPECT_TRUE(Read("short.vhdx", 0, 2 * kBlockSectors) == data);

  const std::string before = HostTest::ReadBytes(dir.Join("short.vhdx"));
  const Common::Error refused = Raised([&] { Write("short.vhdx", kBlockSectors, Pattern(1, 5)); });
  EXPECT_EQ(refused.Code(), 0x3C0008u);
  EXPECT_NE(Common::FullText(refused).find(u"shorter than the disk's table"), std::u16string::npos);
  EXPECT_TRUE(HostTest::ReadBytes(dir.Join("short.vhdx")) == before);
}

// A BAT that shares bytes with the metadata table, the log or the headers
// would have table updates overwrite them: such files are refused at open,
// read-only too, and keep every byte.
TEST_F(CorruptionTest, RegionsThatShareBytesAreRefused) {
  CreateDisk("shared.vhdx", 2 * kBlock, Pattern(1, 6));
  Vhdx::RegionList original;
  {
    std::unique_ptr<i_file> host = Folder()->OpenFile(u"shared.vhdx", kOpenRead);
    Vhdx::ReadOnlyFile file(*dynamic_cast<ri_file*>(host.get()));
    original = Vhdx::RegionTableReader::Read(file);
  }
  std::uint64_t metadata = 0, log = 0x100000;
  for (const Vhdx::RegionTableEntry& region : original)
    if (region.Guid == Format::kMetadataRegionGuid) metadata = region.FileOffset;
  for (const std::uint64_t batOffset : {metadata + 0x1000 - 1, log + 8, std::uint64_t{4096}}) {
    SCOPED_TRACE(batOffset);
    {
      std::unique_ptr<i_file> host = Folder()->OpenFile(u"shared.vhdx", kOpenReadWrite);
      Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
      Vhdx::RegionList regions = original;
      for (Vhdx::RegionTableEntry& region : regions)
        if (region.Guid == Format::kBatRegionGuid) region.FileOffset = batOffset;
      Vhdx::RegionTableWriter::Write(file, regions);
    }
    const std::string before = HostTest::ReadBytes(dir.Join("shared.vhdx"));
    for (const bool writable : {false, true})
      EXPECT_EQ(Raised([&] { Open("shared.vhdx", writable); }).Code(), 0x3C0011u) << writable;
    EXPECT_TRUE(HostTest::ReadBytes(dir.Join("shared.vhdx")) == before);
  }
}

// A write cut short before its BAT update leaves the block's bits set in
// the chunk's bitmap while the block stays absent; the next write into it
// must not take those bits for its own sectors.
TEST_F(CorruptionTest, StaleBitsOfAnAbsentBlockDoNotHideTheParent) {
  const std::string parent = Pattern(2 * kBlockSectors, 6);
  CreateDisk("parent.vhdx", 2 * kBlock, parent);
  CreateChild("child.vhdx", "parent.vhdx", 2 * kBlock);
  Write("child.vhdx", 0, Pattern(1, 7));  // gives chunk 0 its bitmap
  const Vhdx::BatEntry bitmap = Entry("child.vhdx", kBitmapEntry);
  ASSERT_EQ(bitmap.GetState(), Vhdx::SB_BLOCK_PRESENT);
  Patch("child.vhdx", bitmap.GetFileOffset() + kBlockSectors / 8, std::string(kBlockSectors / 8, '\xFF'));
  ASSERT_TRUE(Read("child.vhdx", kBlockSectors, kBlockSectors) == parent.substr(kBlock));

  Write("child.vhdx", kBlockSectors + 5, Pattern(1, 8));
  EXPECT_TRUE(Read("child.vhdx", kBlockSectors, kBlockSectors) ==
              parent.substr(kBlock).replace(5 * kSector, kSector, Pattern(1, 8)));
}

// A child's block that reads zeros goes on reading zeros around a write.
TEST_F(CorruptionTest, AZeroOrUnmappedBlockOfAChildStaysZeroWhereNotWritten) {
  CreateDisk("parent.vhdx", kBlock, Pattern(kBlockSectors, 9));
  for (const std::uint32_t state : {std::uint32_t{Vhdx::PAYLOAD_BLOCK_ZERO}, std::uint32_t{Vhdx::PAYLOAD_BLOCK_UNMAPPED}}) {
    SCOPED_TRACE(state);
    const std::string name = "child" + std::to_string(state) + ".vhdx";
    CreateChild(name, "parent.vhdx", kBlock);
    Patch(name, kBatOffset, std::string(1, static_cast<char>(state)) + std::string(7, '\0'));
    ASSERT_TRUE(Read(name, 0, kBlockSectors) == std::string(kBlock, '\0'));

    Write(name, 7, Pattern(1, 10));
    EXPECT_TRUE(Read(name, 0, kBlockSectors) == std::string(kBlock, '\0').replace(7 * kSector, kSector, Pattern(1, 10)));
  }
}

}  // namespace
