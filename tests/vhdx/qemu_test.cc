// Cross-checks against files made by qemu-img, which the project's install
// script installs; vhdiinfo, where present, gives a second opinion. Both are
// black boxes: run, and their output read.
#include <sys/wait.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/file_validator.h"
#include "vhdx/header_reader.h"
#include "vhdx/header_writer.h"
#include "vhdx/region_table_reader.h"
#include "vhdx/region_table_writer.h"
#include "vhdx/test_files.h"
#include "vhdx/write_guid.h"
#include "vhdx/writeable_file.h"

namespace {

namespace Format = Vhdx::Format;

struct Outcome {
  int status = -1;
  std::string output;
};

Outcome RunCommand(const std::string& command) {
  Outcome run;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.output.append(buffer, n);
  const int status = ::pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

bool HaveProgram(const std::string& name) {
  return RunCommand("command -v " + name + " >/dev/null").status == 0;
}

// The number after "name": in qemu-img's JSON; UINT64_MAX if absent.
std::uint64_t JsonNumber(const std::string& json, const std::string& name) {
  const std::size_t at = json.find("\"" + name + "\":");
  return at == std::string::npos ? UINT64_MAX
                                 : std::strtoull(json.c_str() + at + name.size() + 3, nullptr, 10);
}

// The value after "label:" in vhdiinfo's report.
std::string VhdiField(const std::string& report, const std::string& label) {
  std::size_t at = report.find(label);
  if (at == std::string::npos) return {};
  at = report.find_first_not_of(" \t", report.find(':', at) + 1);
  return report.substr(at, report.find('\n', at) - at);
}

std::string LowerGuid(const Common::Guid& guid) {
  std::string text = Common::GuidToString(guid);
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

struct Shape {
  const char* name;
  const char* options;
  const char* size;
};

const Shape kShapes[] = {{"dynamic", "", "64M"},
                         {"block1m", "-o block_size=1M", "64M"},
                         {"block256m", "-o block_size=256M", "1G"},
                         {"fixed", "-o subformat=fixed", "8M"},
                         {"empty", "", "0"}};

class QemuImageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveProgram("qemu-img"))
      GTEST_SKIP() << "qemu-img is not installed (Debian package qemu-utils; "
                      "scripts/install-deps.sh installs it)";
  }
  std::string Create(const Shape& shape) {
    const std::string path = dir.Join(std::string(shape.name) + ".vhdx");
    const Outcome run = RunCommand("qemu-img create -q -f vhdx " + std::string(shape.options) +
                                   " " + path + " " + shape.size);
    EXPECT_EQ(run.status, 0) << run.output;
    return path;
  }
  std::string Info(const std::string& path) {
    const Outcome run = RunCommand("qemu-img info --output=json " + path);
    EXPECT_EQ(run.status, 0) << run.output;
    return run.output;
  }
  // The file as the module gets it from a host; kOpenReadWrite gives an rio_file.
  std::unique_ptr<i_file> Open(const std::string& path, std::uint32_t mode) {
    auto file = folder->OpenFile(Common::FromUtf8(std::filesystem::path(path).filename().string()), mode);
    if (!file) throw std::runtime_error("cannot open " + path);
    return file;
  }

  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
};

TEST_F(QemuImageTest, HeadersAndRegionTablesAreFoundAndAgreeWithQemu) {
  const bool vhdi = HaveProgram("vhdiinfo");
  for (const Shape& shape : kShapes) {
    SCOPED_TRACE(shape.name);
    const std::string path = Create(shape);
    const std::string info = Info(path);
    ASSERT_NE(info.find("\"format\": \"vhdx\""), std::string::npos) << info;
    auto raw = Open(path, kOpenRead);
    Vhdx::ReadOnlyFile file(dynamic_cast<ri_file&>(*raw));
    Vhdx::FileValidator::CheckVersion(file);
    const Vhdx::HeaderInfo header = Vhdx::HeaderReader::Read(file);
    EXPECT_EQ(header.Version, 1);
    EXPECT_TRUE(header.LogGuid.IsZero());
    EXPECT_EQ(header.LogOffset % Format::kMiB, 0u);

    const Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    const auto bat = Vhdx::GetRegionEntryById(regions, Format::kBatRegionGuid);
    const auto metadata = Vhdx::GetRegionEntryById(regions, Format::kMetadataRegionGuid);
    for (const auto& region : {bat, metadata}) {
      EXPECT_EQ(region.FileOffset % Format::kMiB, 0u);
      EXPECT_GE(region.FileOffset, Format::kMiB);
      EXPECT_LE(region.FileOffset + region.Length, std::filesystem::file_size(path));
    }
    EXPECT_FALSE(Vhdx::Overlap({bat.FileOffset, bat.Length}, {metadata.FileOffset, metadata.Length}));

    // The BAT holds an entry for every block of the size qemu reports, and a
    // sector bitmap entry per full chunk (of 512-byte sectors, qemu's default).
    const std::uint64_t virtualSize = JsonNumber(info, "virtual-size");
    const std::uint64_t blockSize = JsonNumber(info, "cluster-size");
    ASSERT_LT(blockSize, UINT64_MAX);
    const std::uint64_t chunkRatio = (std::uint64_t{1} << 23) * 512 / blockSize;
    const std::uint64_t blocks = (virtualSize + blockSize - 1) / blockSize;
    EXPECT_GE(bat.Length, 8 * (blocks == 0 ? 0 : blocks + (blocks - 1) / chunkRatio));

    // vhdiinfo names the DataWriteGuid "Identifier"; it refuses empty disks.
    if (vhdi && virtualSize != 0) {
      const Outcome run = RunCommand("vhdiinfo " + path);
      EXPECT_EQ(VhdiField(run.output, "Format version"), "1") << run.output;
      EXPECT_EQ(VhdiField(run.output, "Identifier"), LowerGuid(header.DataWriteGuid));
    }
  }
}

TEST_F(QemuImageTest, DamagedCopiesFallBackAndDamagedSingletonsAreRefused) {
  const std::string original = Create(kShapes[0]);
  Vhdx::HeaderInfo header;
  Vhdx::RegionList regions;
  {
    auto raw = Open(original, kOpenRead);
    Vhdx::ReadOnlyFile file(dynamic_cast<ri_file&>(*raw));
    header = Vhdx::HeaderReader::Read(file);
    regions = Vhdx::RegionTableReader::Read(file);
  }
  struct Case {
    const char* name;
    std::vector<std::uint64_t> bytes;  // one bit flipped in each
    std::uint32_t versionCode, headerCode, tableCode;  // 0: reads as before
  };
  const std::uint64_t h0 = 0x10000 + 900, h1 = 0x20000 + 37, t0 = 0x30000 + 5000, t1 = 0x40000 + 1;
  const Case cases[] = {
      {"identifier", {2}, 0x3C0003, 0, 0},   {"header0", {h0}, 0, 0, 0},
      {"header1", {h1}, 0, 0, 0},            {"headers", {h0, h1}, 0x3C0010, 0x3C0010, 0},
      {"table0", {t0}, 0, 0, 0},             {"table1", {t1}, 0, 0, 0},
      {"tables", {t0, t1}, 0, 0, 0x3C0011},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes = HostTest::ReadBytes(original);
    for (const std::uint64_t at : c.bytes) bytes[at] ^= 0x08;
    const std::string path = dir.Join(std::string(c.name) + ".vhdx");
    HostTest::WriteBytes(path, bytes);
    auto raw = Open(path, kOpenRead);
    Vhdx::ReadOnlyFile file(dynamic_cast<ri_file&>(*raw));
    using VhdxTest::CodeOf;
    EXPECT_EQ(CodeOf([&] { Vhdx::FileValidator::CheckVersion(file); }), c.versionCode);
    EXPECT_EQ(CodeOf([&] { EXPECT_EQ(Vhdx::HeaderReader::Read(file), header); }), c.headerCode);
    EXPECT_EQ(CodeOf([&] { EXPECT_EQ(Vhdx::RegionTableReader::Read(file), regions); }),
              c.tableCode);
  }
}

TEST_F(QemuImageTest, RewrittenHeadersAndRegionTablesStillSatisfyQemu) {
  for (const Shape& shape : {kShapes[0], kShapes[3]}) {
    SCOPED_TRACE(shape.name);
    const std::string path = Create(shape);
    const std::uint64_t virtualSize = JsonNumber(Info(path), "virtual-size");
    Vhdx::HeaderInfo header;
    {
      auto raw = Open(path, kOpenReadWrite);
      Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*raw));
      header = Vhdx::HeaderReader::Read(file);
      header.FileWriteGuid = Vhdx::NewWriteGuid();
      header.DataWriteGuid = Vhdx::NewWriteGuid();
      Vhdx::HeaderWriter::Write(file, header);
      Vhdx::RegionTableWriter::Write(file, Vhdx::RegionTableReader::Read(file));
      file.Flush();
    }
    const std::string bytes = HostTest::ReadBytes(path);
    EXPECT_EQ(bytes.substr(0x10000, 4096), bytes.substr(0x20000, 4096));
    EXPECT_EQ(bytes.substr(0x30000, 65536), bytes.substr(0x40000, 65536));

    const Outcome check = RunCommand("qemu-img check " + path);
    EXPECT_EQ(check.status, 0) << check.output;
    EXPECT_NE(check.output.find("No errors"), std::string::npos) << check.output;
    EXPECT_EQ(JsonNumber(Info(path), "virtual-size"), virtualSize);
    // qemu finds its way to the data through the rewritten tables as well.
    const Outcome read = RunCommand("qemu-io -f vhdx -r -c 'read -P 0 0 64k' " + path);
    EXPECT_EQ(read.status, 0) << read.output;
    if (HaveProgram("vhdiinfo")) {
      EXPECT_EQ(VhdiField(RunCommand("vhdiinfo " + path).output, "Identifier"),
                LowerGuid(header.DataWriteGuid));
    }
  }
}

}  // namespace
