// The checker on containers damaged one way each, the repair of what it may
// repair, and vrig's exit statuses for both.
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/check/check.h"
#include "vhdx/check/repair.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/test_files.h"

namespace VhdxTest {
namespace {

using Vhdx::FindingClass;
using Vhdx::FindingKind;
constexpr std::uint64_t kBlock = 0x400000, kBlockSectors = kBlock / 512;
constexpr std::uint64_t kBat = 0x300000, kLog = 0x100000;

// Public: the damage table below works through it.
class CheckTest : public DiskFixture {
 public:
  using DiskFixture::Bytes;
  using DiskFixture::dir;
  void Patch(const std::string& name, std::uint64_t offset, const std::string& bytes) {
    std::fstream file(dir.Join(name), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    ASSERT_TRUE(file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
  }
  void PatchEntry(const std::string& name, std::uint64_t index, std::uint64_t raw) {
    std::string bytes(8, '\0');
    Vhdx::StoreLe64(reinterpret_cast<std::uint8_t*>(bytes.data()), raw);
    Patch(name, kBat + 8 * index, bytes);
  }
  std::uint64_t EntryOf(const std::string& name, std::uint64_t index) {
    return Vhdx::LoadLe64(reinterpret_cast<const std::uint8_t*>(Bytes(name).substr(kBat + 8 * index, 8).data()));
  }
  // The header in force with `guid` as its log, both copies.
  void SetLogGuid(const std::string& name, const Common::Guid& guid) {
    std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenReadWrite);
    Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
    Vhdx::HeaderInfo info = Vhdx::HeaderReader::Read(file);
    info.LogGuid = guid;
    Vhdx::HeaderWriter::Write(file, info);
  }
  // A log entry of one sector that changes nothing, as a writer stopped
  // after its log write leaves it.
  std::string LogEntry(const Common::Guid& guid, std::uint64_t fileSize) {
    std::string sector(4096, '\0');
    auto* p = reinterpret_cast<std::uint8_t*>(sector.data());
    std::memcpy(p, "loge", 4);
    Vhdx::StoreLe32(p + 8, 4096);
    Vhdx::StoreLe64(p + 16, 1);
    Vhdx::StoreGuid(p + 32, guid);
    Vhdx::StoreLe64(p + 48, fileSize);
    Vhdx::StoreLe64(p + 56, fileSize);
    Vhdx::StoreLe32(p + 4, Vhdx::Crc32c(p, sector.size()));
    return sector;
  }
  Vhdx::CheckReport Check(const std::string& name) {
    std::unique_ptr<i_file> host = Folder()->OpenFile(Common::FromUtf8(name), kOpenRead);
    return Vhdx::CheckContainer(dynamic_cast<ri_file&>(*host));
  }
  // A dynamic disk with data in blocks 0 and 1, or a child with one sector
  // of its own over such a parent.
  std::string MakeDisk(bool child) {
    CreateDisk("parent.vhdx", 8 * kBlock);
    Write("parent.vhdx", 0, data);
    if (!child) return "parent.vhdx";
    CreateChild("child.vhdx", "parent.vhdx", 8 * kBlock);
    Write("child.vhdx", 0, Pattern(1, 7));
    return "child.vhdx";
  }

  const std::string data = Pattern(2 * kBlockSectors, 3);
  const Common::Guid log = TestGuid(9);
};

struct Damage {
  const char* what;
  bool child;
  std::function<void(CheckTest&, const std::string&)> apply;
  FindingKind kind;
  FindingClass cls;
};

const Damage kDamages[] = {
    {"header copy", false, [](CheckTest& t, const std::string& n) { t.Patch(n, 0x20000 + 200, "x"); },
     FindingKind::HeaderInvalid, FindingClass::Repairable},
    {"both headers", false,
     [](CheckTest& t, const std::string& n) { t.Patch(n, 0x10000 + 200, "x"), t.Patch(n, 0x20000 + 200, "x"); },
     FindingKind::NoValidHeader, FindingClass::Corruption},
    {"header tie", false,
     [](CheckTest& t, const std::string& n) {
       std::string bytes = t.Bytes(n).substr(0, Vhdx::Format::kMiB);
       Vhdx::HeaderImages images;
       std::memcpy(images[0].data(), bytes.data() + 0x10000, 4096);
       PutHeader(bytes, 1, {Vhdx::DecodeHeaderInfo(images[0]).FileWriteGuid, TestGuid(4), {}, 0, 1, kLog, 0x100000}, 0);
       t.Patch(n, 0x20000, bytes.substr(0x20000, 4096));
     },
     FindingKind::HeaderTie, FindingClass::Repairable},
    {"region table copy", false, [](CheckTest& t, const std::string& n) { t.Patch(n, 0x40000 + 100, "x"); },
     FindingKind::RegionTableInvalid, FindingClass::Repairable},
    {"metadata", false, [](CheckTest& t, const std::string& n) { t.Patch(n, 0x200000, "x"); },
     FindingKind::Unopenable, FindingClass::Corruption},
    {"block past end", false, [](CheckTest& t, const std::string& n) { t.PatchEntry(n, 2, (1024ull << 20) | 6); },
     FindingKind::BlockPastEnd, FindingClass::Corruption},
    {"block over the metadata", false, [](CheckTest& t, const std::string& n) { t.PatchEntry(n, 2, (2ull << 20) | 6); },
     FindingKind::BlockOverStructures, FindingClass::Corruption},
    {"blocks sharing bytes", false,
     [](CheckTest& t, const std::string& n) { t.PatchEntry(n, 2, t.EntryOf(n, 0) + kBlock / 2); },
     FindingKind::BlocksShareBytes, FindingClass::Corruption},
    {"no state", false, [](CheckTest& t, const std::string& n) { t.PatchEntry(n, 2, 4); },
     FindingKind::BadBlockState, FindingClass::Corruption},
    {"pending log", false,
     [](CheckTest& t, const std::string& n) {
       t.Patch(n, kLog, t.LogEntry(t.log, std::filesystem::file_size(t.dir.Join(n))));
       t.SetLogGuid(n, t.log);
     },
     FindingKind::LogPending, FindingClass::Repairable},
    {"orphan log GUID", false, [](CheckTest& t, const std::string& n) { t.SetLogGuid(n, t.log); },
     FindingKind::LogOrphanGuid, FindingClass::Repairable},
    {"damaged log", false,
     [](CheckTest& t, const std::string& n) {
       std::string entry = t.LogEntry(t.log, std::filesystem::file_size(t.dir.Join(n)));
       entry[100] ^= 1;  // its checksum no longer holds
       t.Patch(n, kLog, entry);
       t.SetLogGuid(n, t.log);
     },
     FindingKind::LogDamaged, FindingClass::Corruption},
    {"stale bits", true,
     [](CheckTest& t, const std::string& n) {
       const Vhdx::BatEntry bitmap(t.EntryOf(n, 1024));  // chunk 0's sector bitmap
       t.Patch(n, bitmap.GetFileOffset() + kBlockSectors / 8 + 3, "\x81");
     },
     FindingKind::StaleBitmapBits, FindingClass::Repairable},
    {"partly present without bitmap", true,
     [](CheckTest& t, const std::string& n) {
       t.PatchEntry(n, 1024, 0);
       t.PatchEntry(n, 0, (t.EntryOf(n, 0) & ~7ull) | 7);
     },
     FindingKind::BitmapMissing, FindingClass::Corruption},
};

TEST_F(CheckTest, EachDamageIsFoundAndClassedWithoutChangingAByte) {
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

TEST_F(CheckTest, RepairFixesWhatIsSafeAndKeepsEveryByteOfData) {
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
TEST_F(CheckTest, VrigReportsDamageAndRepairsWhatItMay) {
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

}  // namespace
}  // namespace VhdxTest
