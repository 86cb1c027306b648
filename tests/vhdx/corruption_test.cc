// Containers damaged or crafted behind the engine's back, or cut off in the
// middle of a write: reads must show what the tables say, writes must not
// destroy what other entries name, and the checker must find each damage,
// repair what it may, and say so through vrig's exit statuses.
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "common/site.h"
#include "host/shell.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/check/check.h"
#include "vhdx/check/repair.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/format/region_table_writer.h"

namespace VhdxTest {
namespace {

using Vhdx::FindingClass;
using Vhdx::FindingKind;
namespace Format = Vhdx::Format;

constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kBlock = 0x400000;
constexpr std::uint64_t kBlockSectors = kBlock / kSector;
constexpr std::uint64_t kLog = 0x100000;
// The entry of chunk 0's bitmap.
constexpr std::uint64_t kBitmapEntry = 1024;

// Public: the damage table below works through it.
class CorruptionTest : public DiskFixture {
 public:
  using DiskFixture::Bytes;
  using DiskFixture::CreateDisk;
  using DiskFixture::dir;
  using DiskFixture::EntryOf;
  using DiskFixture::Patch;
  using DiskFixture::PatchEntry;
  // A dynamic file written with `data` from sector 0.
  void CreateDisk(const std::string& name, std::uint64_t size, const std::string& written) {
    DiskFixture::CreateDisk(name, size);
    Write(name, 0, written);
  }
  // Both region table copies, the BAT's entry changed by `edit`.
  void EditBatRegion(const std::string& name, const std::function<void(Vhdx::RegionTableEntry&)>& edit) {
    std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenReadWrite);
    Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
    Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    for (Vhdx::RegionTableEntry& region : regions)
      if (region.Guid == Format::kBatRegionGuid) edit(region);
    Vhdx::RegionTableWriter::Write(file, regions);
  }
  // A required item this engine does not know, as a newer writer may add.
  void AddUnknownRequiredItem(const std::string& name) {
    std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenReadWrite);
    Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
    const std::uint8_t value[8] = {1};
    ModifyMetadata(file, [&](Vhdx::MetadataModifier& m) {
      m.Set({TestGuid(5), Format::kMetadataIsRequired}, value, sizeof value);
    });
  }
  // The header in force with `guid` as its log, both copies.
  void SetLogGuid(const std::string& name, const Common::Guid& guid) {
    std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenReadWrite);
    Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
    Vhdx::HeaderInfo info = Vhdx::HeaderReader::Read(file);
    info.LogGuid = guid;
    Vhdx::HeaderWriter::Write(file, info);
  }
  // A log entry that changes nothing, as a writer stopped after its log
  // write leaves it.
  std::string LogEntry(const std::string& name) {
    const std::uint64_t size = std::filesystem::file_size(dir.Join(name));
    return VhdxTest::LogEntry{1, 0, {}, log, size, size}.Bytes();
  }
  Vhdx::CheckReport Check(const std::string& name) {
    std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenRead);
    return Vhdx::CheckContainer(dynamic_cast<ri_file&>(*host));
  }
  // A dynamic disk with data in blocks 0 and 1, or a child with one sector
  // of its own over such a parent.
  std::string MakeDisk(bool child) {
    CreateDisk("parent.vhdx", 8 * kBlock, data);
    if (!child) return "parent.vhdx";
    CreateChild("child.vhdx", "parent.vhdx", 8 * kBlock);
    Write("child.vhdx", 0, Pattern(1, 7));
    return "child.vhdx";
  }

  const std::string data = Pattern(2 * kBlockSectors, 3);
  const Common::Guid log = TestGuid(9);
};

// Cut off in the middle of block 1: the block written next must not land
// where block 1's entry still points, and qemu must agree with the result.
TEST_F(CorruptionTest, ANewBlockGoesBehindEveryBlockAFileWithACutOffEndNames) {
  const std::string a = Pattern(kBlockSectors, 1), b = Pattern(kBlockSectors, 2), c = Pattern(kBlockSectors, 3);
  CreateDisk("cut.vhdx", 8 * kBlock, a + b);
  ASSERT_EQ(Vhdx::BatEntry(EntryOf("cut.vhdx", 1)).GetFileOffset(), 2 * kBlock);
  std::filesystem::resize_file(dir.Join("cut.vhdx"), 2 * kBlock + kBlock / 2);

  Write("cut.vhdx", 2 * kBlockSectors, c);
  EXPECT_GE(Vhdx::BatEntry(EntryOf("cut.vhdx", 2)).GetFileOffset(), 3 * kBlock);
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
  EditBatRegion("short.vhdx", [](Vhdx::RegionTableEntry& bat) { bat.Length = 8; });  // block 0's entry only
  EXPECT_TRUE(Read("short.vhdx", 0, 2 * kBlockSectors) == data);

  const std::string before = Bytes("short.vhdx");
  const Common::Error refused = Raised([&] { Write("short.vhdx", kBlockSectors, Pattern(1, 5)); });
  EXPECT_EQ(refused.Code(), 0x3C0008u);
  EXPECT_NE(Common::FullText(refused).find(u"shorter than the disk's table"), std::u16string::npos);
  EXPECT_TRUE(Bytes("short.vhdx") == before);
}

// A BAT that shares bytes with the metadata table, the log or the headers
// would have table updates overwrite them: such files are refused at open,
// read-only too, and keep every byte.
TEST_F(CorruptionTest, RegionsThatShareBytesAreRefused) {
  CreateDisk("shared.vhdx", 2 * kBlock, Pattern(1, 6));
  // The recipe's metadata region is at 2 MiB, its log at 1 MiB.
  for (const std::uint64_t batOffset : {std::uint64_t{0x200000 + 0x1000 - 1}, kLog + 8, std::uint64_t{4096}}) {
    SCOPED_TRACE(batOffset);
    EditBatRegion("shared.vhdx", [&](Vhdx::RegionTableEntry& bat) { bat.FileOffset = batOffset; });
    const std::string before = Bytes("shared.vhdx");
    for (const bool writable : {false, true})
      EXPECT_EQ(Raised([&] { Open("shared.vhdx", writable); }).Code(), 0x3C0011u) << writable;
    EXPECT_TRUE(Bytes("shared.vhdx") == before);
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
  const Vhdx::BatEntry bitmap(EntryOf("child.vhdx", kBitmapEntry));
  ASSERT_EQ(bitmap.GetState(), 6u);  // the format's number, which the engine's own name would not check
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
    PatchEntry(name, 0, state);
    ASSERT_TRUE(Read(name, 0, kBlockSectors) == std::string(kBlock, '\0'));

    Write(name, 7, Pattern(1, 10));
    EXPECT_TRUE(Read(name, 0, kBlockSectors) == std::string(kBlock, '\0').replace(7 * kSector, kSector, Pattern(1, 10)));
  }
}

struct Damage {
  const char* what;
  bool child;
  std::function<void(CorruptionTest&, const std::string&)> apply;
  FindingKind kind;
  FindingClass cls;
};

const Damage kDamages[] = {
    {"header copy", false, [](CorruptionTest& t, const std::string& n) { t.Patch(n, 0x20000 + 200, "x"); },
     FindingKind::HeaderInvalid, FindingClass::Repairable},
    {"both headers", false,
     [](CorruptionTest& t, const std::string& n) { t.Patch(n, 0x10000 + 200, "x"), t.Patch(n, 0x20000 + 200, "x"); },
     FindingKind::NoValidHeader, FindingClass::Corruption},
    {"header tie", false,
     [](CorruptionTest& t, const std::string& n) {
       std::string bytes = t.Bytes(n).substr(0, Vhdx::Format::kMiB);
       Vhdx::HeaderImages images;
       std::memcpy(images[0].data(), bytes.data() + 0x10000, 4096);
       PutHeader(bytes, 1, {Vhdx::DecodeHeaderInfo(images[0]).FileWriteGuid, TestGuid(4), {}, 0, 1, kLog, 0x100000}, 0);
       t.Patch(n, 0x20000, bytes.substr(0x20000, 4096));
     },
     FindingKind::HeaderTie, FindingClass::Repairable},
    {"region table copy", false, [](CorruptionTest& t, const std::string& n) { t.Patch(n, 0x40000 + 100, "x"); },
     FindingKind::RegionTableInvalid, FindingClass::Repairable},
    {"metadata", false, [](CorruptionTest& t, const std::string& n) { t.Patch(n, 0x200000, "x"); },
     FindingKind::Unopenable, FindingClass::Corruption},
    {"block past end", false, [](CorruptionTest& t, const std::string& n) { t.PatchEntry(n, 2, (1024ull << 20) | 6); },
     FindingKind::BlockPastEnd, FindingClass::Corruption},
    {"block over the metadata", false, [](CorruptionTest& t, const std::string& n) { t.PatchEntry(n, 2, (2ull << 20) | 6); },
     FindingKind::BlockOverStructures, FindingClass::Corruption},
    {"blocks sharing bytes", false,
     [](CorruptionTest& t, const std::string& n) { t.PatchEntry(n, 2, t.EntryOf(n, 0) + kBlock / 2); },
     FindingKind::BlocksShareBytes, FindingClass::Corruption},
    {"no state", false, [](CorruptionTest& t, const std::string& n) { t.PatchEntry(n, 2, 4); },
     FindingKind::BadBlockState, FindingClass::Corruption},
    {"pending log", false,
     [](CorruptionTest& t, const std::string& n) {
       t.Patch(n, kLog, t.LogEntry(n));
       t.SetLogGuid(n, t.log);
     },
     FindingKind::LogPending, FindingClass::Repairable},
    {"unknown required item", false,
     [](CorruptionTest& t, const std::string& n) { t.AddUnknownRequiredItem(n); },
     FindingKind::Unopenable, FindingClass::Corruption},
    {"orphan log GUID", false, [](CorruptionTest& t, const std::string& n) { t.SetLogGuid(n, t.log); },
     FindingKind::LogOrphanGuid, FindingClass::Repairable},
    {"damaged log", false,
     [](CorruptionTest& t, const std::string& n) {
       std::string entry = t.LogEntry(n);
       entry[100] ^= 1;  // its checksum no longer holds
       t.Patch(n, kLog, entry);
       t.SetLogGuid(n, t.log);
     },
     FindingKind::LogDamaged, FindingClass::Corruption},
    {"stale bits", true,
     [](CorruptionTest& t, const std::string& n) {
       const Vhdx::BatEntry bitmap(t.EntryOf(n, 1024));  // chunk 0's sector bitmap
       t.Patch(n, bitmap.GetFileOffset() + kBlockSectors / 8 + 3, "\x81");
     },
     FindingKind::StaleBitmapBits, FindingClass::Repairable},
    {"partly present without bitmap", true,
     [](CorruptionTest& t, const std::string& n) {
       t.PatchEntry(n, 1024, 0);
       t.PatchEntry(n, 0, (t.EntryOf(n, 0) & ~7ull) | 7);
     },
     FindingKind::BitmapMissing, FindingClass::Corruption},
};

TEST_F(CorruptionTest, EachDamageIsFoundAndClassedWithoutChangingAByte) {
  EXPECT_TRUE(Check(MakeDisk(false)).Findings.empty());
  EXPECT_TRUE(Check(MakeDisk(true)).Findings.empty());
  for (const Damage& d : kDamages) {
    SCOPED_TRACE(d.what);
    std::filesystem::remove_all(dir.Path()), std::filesystem::create_directory(dir.Path());
    const std::string name = MakeDisk(d.child);
    d.apply(*this, name);
    const std::string before = Bytes(name);
    const Vhdx::CheckReport report = Check(name);
    EXPECT_TRUE(Bytes(name) == before);
    ASSERT_FALSE(report.Findings.empty());
    EXPECT_EQ(report.Findings[0].Kind, d.kind) << report.Findings[0].Text;
    EXPECT_EQ(report.Findings[0].Class, d.cls) << report.Findings[0].Text;
  }
}

TEST_F(CorruptionTest, RepairFixesWhatIsSafeAndKeepsEveryByteOfData) {
  for (const Damage& d : kDamages) {
    if (d.cls != FindingClass::Repairable) continue;
    SCOPED_TRACE(d.what);
    std::filesystem::remove_all(dir.Path()), std::filesystem::create_directory(dir.Path());
    const std::string name = MakeDisk(d.child);
    const std::string disk = Read(name, 0, 3 * kBlockSectors);
    d.apply(*this, name);
    const Vhdx::CheckReport found = Check(name);
    {
      std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenReadWrite);
      EXPECT_FALSE(Vhdx::RepairContainer(dynamic_cast<rio_file&>(*host), found).empty());
    }
    const Vhdx::CheckReport after = Check(name);
    EXPECT_TRUE(after.Findings.empty()) << after.Findings[0].Text;
    EXPECT_TRUE(Read(name, 0, 3 * kBlockSectors) == disk);
    // Children are beyond qemu; the rest must satisfy it.
    if (!d.child && HostTest::Have("qemu-img")) {
      const HostTest::Outcome qemu = HostTest::Shell("qemu-img check -f vhdx " + dir.Join(name));
      EXPECT_EQ(qemu.status, 0) << qemu.output;
    }
  }
}

// What a user sees: a report and the statuses the README promises.
TEST_F(CorruptionTest, VrigReportsDamageAndRepairsWhatItMay) {
  const std::string name = MakeDisk(false), path = dir.Join(name);
  const std::string vrig = std::string(VRIG_PATH) + " vhdx check ";
  HostTest::Outcome run = HostTest::Shell(vrig + path);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("No errors were found on the image.\n2/8 = 25.00% allocated"), std::string::npos)
      << run.output;

  SetLogGuid(name, log);
  run = HostTest::Shell(vrig + path);
  EXPECT_EQ(run.status, 3) << run.output;
  EXPECT_NE(run.output.find("Repairable: the header names log"), std::string::npos) << run.output;
  run = HostTest::Shell(vrig + path + " --repair");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("Repaired: cleared the log GUID"), std::string::npos) << run.output;

  std::filesystem::resize_file(path, std::filesystem::file_size(path) - kBlock / 2);
  run = HostTest::Shell(vrig + path + " --repair");
  EXPECT_EQ(run.status, 2) << run.output;
  EXPECT_NE(run.output.find("ERROR: 1 blocks lie past the end"), std::string::npos) << run.output;
  run = HostTest::Shell(std::string(VRIG_PATH) + " vhdx info " + path);
  EXPECT_NE(run.output.find("blocks past the end of the file: 1 "), std::string::npos) << run.output;
  EXPECT_EQ(HostTest::Shell(vrig + dir.Join("none.vhdx")).status, 1);
}

// A write cut off after each of its file changes in turn: the file must
// open afterwards, show either the old or the new data in every sector, and
// (for the files qemu reads) satisfy qemu-img check.
constexpr std::uint64_t kSize = 12 << 20;  // three blocks

// A host file that fails once it has taken a given number of changes
// (writes and size changes): the crash of a writer at every step of an
// operation.
class FailingFile : public rio_file {
 public:
  // `budget` changes pass; the next one and all later fail. Counts either way.
  FailingFile(std::unique_ptr<rio_file> inner, std::uint64_t budget) : inner_(std::move(inner)), budget_(budget) {}

  std::uint64_t Changes() const { return changes_; }

  std::size_t Read(void* buffer, std::size_t size) override { return inner_->Read(buffer, size); }
  std::size_t Write(const void* buffer, std::size_t size) override {
    if (!Allow()) return 0;
    return inner_->Write(buffer, size);
  }
  void Truncate(std::uint64_t size) override {
    if (Allow()) inner_->Truncate(size);
  }
  void Flush() override { inner_->Flush(); }
  std::int64_t Seek(std::int64_t position) override { return inner_->Seek(position); }
  std::int64_t SeekCurrent(std::int64_t delta) override { return inner_->SeekCurrent(delta); }
  std::int64_t SeekEnd(std::int64_t delta) override { return inner_->SeekEnd(delta); }

 private:
  bool Allow() {
    if (changes_++ < budget_) return true;
    Fail(Common::Error(VR_SITE, FileError::Write));
    return false;
  }

  std::unique_ptr<rio_file> inner_;
  std::uint64_t budget_;
  std::uint64_t changes_ = 0;
};

class WriteRecoveryTest : public DiskFixture {
 protected:
  std::string ReadAll(const std::string& name) { return Read(name, 0, kSize / kSector); }
  // Runs the write of `data` at `sector` on a copy of `name` whose file
  // takes only `budget` changes; gives how many it asked for.
  std::uint64_t CutWrite(const std::string& name, const std::string& copy, std::uint64_t budget,
                         std::uint64_t sector, const std::string& data) {
    std::filesystem::copy_file(dir.Join(name), dir.Join(copy), std::filesystem::copy_options::overwrite_existing);
    auto host = Folder()->OpenFile(Common::FromUtf8(copy), kOpenReadWrite);
    FailingFile file(std::unique_ptr<rio_file>(dynamic_cast<rio_file*>(host.release())), budget);
    try {
      auto disk = Vhdx::OpenWritableDiskFile(file, consumer);
      disk->Write(sector, data.size() / kSector, data.data());
    } catch (const Common::Error&) {
      EXPECT_LE(budget, file.Changes());
    }
    return file.Changes();
  }
  // Every sector of `copy` is that of `before` or of `after`, and at least
  // one of each kind appears only when `budget` allows.
  void ExpectOldOrNew(const std::string& copy, const std::string& before, const std::string& after) {
    const std::string now = ReadAll(copy);
    for (std::size_t s = 0; s < kSize / kSector; ++s) {
      const auto at = s * kSector;
      const bool old = now.compare(at, kSector, before, at, kSector) == 0;
      const bool fresh = now.compare(at, kSector, after, at, kSector) == 0;
      ASSERT_TRUE(old || fresh) << "sector " << s;
    }
  }

  // A write from the middle of block 1 into the middle of block 2, both
  // unallocated, the first block holding data of its own.
  void RunEveryCut(const std::string& name, bool qemuReads) {
    const std::uint64_t sector = kBlockSectors + kBlockSectors / 2;
    const std::string data = Pattern(kBlockSectors, 0x40);
    const std::string before = ReadAll(name);
    std::string after = before;
    after.replace(sector * kSector, data.size(), data);

    const std::uint64_t changes = CutWrite(name, "whole.vhdx", UINT64_MAX, sector, data);
    EXPECT_EQ(ReadAll("whole.vhdx"), after);
    ASSERT_GE(changes, 5u);  // headers, two blocks with their expansions, BAT
    for (std::uint64_t k = 0; k <= changes; ++k) {
      SCOPED_TRACE("cut after " + std::to_string(k) + " of " + std::to_string(changes));
      const std::string copy = "cut" + std::to_string(k) + ".vhdx";
      CutWrite(name, copy, k, sector, data);
      ExpectOldOrNew(copy, before, after);
      if (k == changes) {
        EXPECT_EQ(ReadAll(copy), after);
      }
      if (qemuReads && haveQemu) {
        // Both header copies carry sequence number 0, as this engine always
        // writes them. Cut between the two copies of the write-GUID renewal,
        // the file holds two valid headers with equal numbers and different
        // GUIDs: this engine takes index 0 (the old header, so the old
        // data), while qemu refuses to choose. Every other cut must satisfy
        // qemu.
        const HostTest::Outcome check = HostTest::Shell("qemu-img check -f vhdx " + dir.Join(copy));
        if (k == 1) {
          EXPECT_NE(check.output.find("No valid VHDX header"), std::string::npos) << check.output;
        } else {
          EXPECT_EQ(check.status, 0) << check.output;
        }
      }
    }
  }

  const bool haveQemu = HostTest::Have("qemu-img");
};

TEST_F(WriteRecoveryTest, DynamicFileShowsOldOrNewDataAfterEveryCut) {
  CreateDisk("dynamic.vhdx", kSize);
  Write("dynamic.vhdx", 0, Pattern(kBlockSectors, 0x10));
  RunEveryCut("dynamic.vhdx", true);
}

// The same write into a differencing file also makes the chunk's sector
// bitmap; the parent's data shows through where the child has none.
TEST_F(WriteRecoveryTest, DifferencingFileShowsOldOrNewDataAfterEveryCut) {
  CreateDisk("parent.vhdx", kSize);
  Write("parent.vhdx", 0, Pattern(3 * kBlockSectors, 0x20));
  CreateChild("child.vhdx", "parent.vhdx", kSize);
  Write("child.vhdx", 5, Pattern(10, 0x30));
  RunEveryCut("child.vhdx", false);
}

}  // namespace
}  // namespace VhdxTest
