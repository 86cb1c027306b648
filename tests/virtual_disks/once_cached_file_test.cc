#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <utility>
#include <vector>

#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "virtual_disks/once_cached_file.h"
#include "virtual_disks/vhdx_disk_impl.h"

namespace VirtualDisks {
namespace {

// A file in memory that notes each transfer as (offset, size).
struct CountingFile : rio_file {
  std::string Data = std::string(1 << 20, 'x');
  std::int64_t Position = 0;
  std::vector<std::pair<std::int64_t, std::size_t>> Reads, Writes;

  std::size_t Read(void* buffer, std::size_t size) override {
    Reads.emplace_back(Position, size);
    const std::size_t n = std::min(size, Data.size() - static_cast<std::size_t>(Position));
    std::memcpy(buffer, Data.data() + Position, n);
    Position += static_cast<std::int64_t>(n);
    return n;
  }
  std::size_t Write(const void* buffer, std::size_t size) override {
    Writes.emplace_back(Position, size);
    if (Data.size() < Position + size) Data.resize(Position + size);
    std::memcpy(Data.data() + Position, buffer, size);
    Position += static_cast<std::int64_t>(size);
    return size;
  }
  std::int64_t Seek(std::int64_t position) override { return Position = position; }
  std::int64_t SeekCurrent(std::int64_t delta) override { return Position += delta; }
  std::int64_t SeekEnd(std::int64_t delta) override {
    return Position = static_cast<std::int64_t>(Data.size()) + delta;
  }
  void Truncate(std::uint64_t size) override { Data.resize(size); }
};

using Transfers = std::vector<std::pair<std::int64_t, std::size_t>>;

struct Opened {
  CountingFile* File;
  std::unique_ptr<OnceCachedFileImpl> Cached;
};
Opened Open(bool writable) {
  auto file = std::make_unique<CountingFile>();
  CountingFile* raw = file.get();
  return {raw, std::make_unique<OnceCachedFileImpl>(std::move(file), writable)};
}

TEST(OnceCachedFileTest, NeighbouringSectorsMergeIntoRuns) {
  Opened o = Open(true);
  std::vector<char> buffer(200 * 512);
  for (int i = 0; i < 101; ++i) o.Cached->ReadSector(4096 + i * 512, buffer.data() + i * 512);
  o.Cached->FlushReads();
  o.Cached->FlushReads();  // nothing pending: no transfer
  EXPECT_EQ(o.File->Reads, (Transfers{{4096, 51200}, {4096 + 51200, 512}}));

  // A gap in the file or in memory ends a run.
  o.File->Reads.clear();
  o.Cached->ReadSector(0, buffer.data());
  o.Cached->ReadSector(1024, buffer.data() + 512);
  o.Cached->ReadSector(1536, buffer.data() + 2048);
  o.Cached->ReadSector(2048, buffer.data() + 2560);
  o.Cached->FlushReads();
  EXPECT_EQ(o.File->Reads, (Transfers{{0, 512}, {1024, 512}, {1536, 1024}}));

  const std::vector<char> data(1024, 'w');
  o.Cached->WriteSector(512, data.data());
  o.Cached->WriteSector(1024, data.data() + 512);
  o.Cached->FlushWrites();
  EXPECT_EQ(o.File->Writes, (Transfers{{512, 1024}}));
  EXPECT_EQ(o.File->Data.substr(0, 1536), std::string(512, 'x') + std::string(1024, 'w'));
  EXPECT_TRUE(o.Cached->IsOk());
}

TEST(OnceCachedFileTest, FirstErrorSticksUntilTaken) {
  Opened o = Open(false);
  EXPECT_FALSE(o.Cached->CanWrite());
  char sector[512] = {};
  Common::Error error;
  EXPECT_EQ(o.Cached->Write(0, sector, 512, &error), 0u);
  EXPECT_EQ(error.Code(), FileError::Write);
  EXPECT_EQ(error.GetText(), u"Error occurred while writing to the file.");
  // Nothing reaches the file while the error is stored.
  EXPECT_EQ(o.Cached->Read(0, sector, 512, nullptr), 0u);
  o.Cached->ReadSector(0, sector);
  o.Cached->FlushReads();
  EXPECT_TRUE(o.File->Reads.empty());
  EXPECT_TRUE(o.Cached->HasError());
  EXPECT_EQ(o.Cached->TakeError().Code(), FileError::Write);
  EXPECT_TRUE(o.Cached->TakeError().IsEmpty());
  // The run held back by the error goes out once it is taken.
  o.Cached->FlushReads();
  EXPECT_EQ(o.File->Reads, (Transfers{{0, 512}}));

  // A read past the end stores the end of file; with `error` a short
  // count stands instead.
  EXPECT_EQ(o.Cached->Read((1 << 20) - 100, sector, 512, &error), 100u);
  EXPECT_TRUE(error.IsEmpty());
  o.Cached->Read((1 << 20) - 100, sector, 512, nullptr);
  EXPECT_EQ(o.Cached->TakeError().Code(), FileError::EndOfFile);
}

TEST(OnceCachedFileTest, ZeroWritesPiecesOf64K) {
  Opened o = Open(true);
  o.Cached->Zero(100, 0x10001);
  o.Cached->Zero(0, 0);
  EXPECT_EQ(o.File->Writes, (Transfers{{100, 0x10000}, {100 + 0x10000, 1}}));
  EXPECT_EQ(o.File->Data.substr(99, 0x10003), "x" + std::string(0x10001, '\0') + "x");
}

// An engine that asks for the once-cached file.
struct SectorEngine : VirtualDiskImpl {
  SectorEngine(rio_dir* dir, const std::u16string& name) { Initialize(dir, dir, name, true); }
  Common::Error Read(std::uint64_t, std::uint64_t, void*) override { return {}; }
  Common::Error Write(std::uint64_t, std::uint64_t, const void*) override { return {}; }
  std::uint32_t GetSectorSize() override { return 512; }
  std::uint64_t GetLastSector() override { return 0; }
  Fdisk::Geometry GetGeometry() override { return {}; }
  std::uint32_t GetDiskType() override { return 0; }
  bool HasFile() const { return file_ != nullptr; }
};

// A folder that refuses writing falls back to reading; an engine asks for
// the file on request and keeps the failure to open it.
TEST(OnceCachedFileTest, OpensForWritingWhereTheFolderAllowsAndOnTheEnginesRequest) {
  HostTest::TempDir dir;
  std::ofstream(dir.Join("f")) << std::string(1024, 'f');
  auto writable = Host::OpenFolder(dir.Wide());
  auto readOnly = Host::OpenFolder(dir.Wide(), true);
  EXPECT_TRUE(OpenOnceCachedFile(writable.get(), writable.get(), u"f")->CanWrite());
  auto cached = OpenOnceCachedFile(readOnly.get(), readOnly.get(), u"f");
  ASSERT_TRUE(cached);
  EXPECT_FALSE(cached->CanWrite());
  char sector[512];
  cached->Read(512, sector, 512, nullptr);
  EXPECT_TRUE(cached->IsOk());
  EXPECT_EQ(sector[511], 'f');
  EXPECT_FALSE(OpenOnceCachedFile(writable.get(), nullptr, u"missing"));

  EXPECT_TRUE(SectorEngine(writable.get(), u"f").HasFile());
  SectorEngine missing(writable.get(), u"missing");
  EXPECT_EQ(missing.LastError().Code(), 0x3C0002u);
  EXPECT_EQ(missing.LastError().GetText(), u"Failed to open the virtual disk.");
}

}  // namespace
}  // namespace VirtualDisks
