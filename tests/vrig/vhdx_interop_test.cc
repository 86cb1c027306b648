// vrig vhdx against independent readers and writers of the format:
// qemu-img and qemu-io (Debian qemu-utils) and vhdiinfo (libvhdi-utils),
// run as black boxes. Files made by one side are read by the other, and
// both are held against images the tests keep themselves.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vrig_run.h"

namespace {

using HostTest::Have;
using HostTest::Outcome;
using HostTest::Shell;

using HostTest::ReadBytes;
using HostTest::WriteBytes;
using VrigTest::ExpectRun;

constexpr std::uint64_t kMiB = 1 << 20;

Outcome Vrig(const std::string& arguments) { return Shell("env LANGUAGE=en " VRIG_PATH " vhdx " + arguments); }

bool SameFiles(const std::string& a, const std::string& b) { return Shell("cmp " + a + " " + b).status == 0; }

// The value after `key` on its line of `text`, "" if absent.
std::string Field(const std::string& text, const std::string& key) {
  const std::size_t at = text.find(key);
  if (at == std::string::npos) return "";
  const std::size_t start = at + key.size();
  return text.substr(start, text.find('\n', start) - start);
}

// A field of `vrig vhdx info --json`, read back by jq.
std::string InfoField(const std::string& vhdx, const std::string& field) {
  const Outcome run = Shell("env LANGUAGE=en " VRIG_PATH " vhdx info --json " + vhdx + " | jq -r ." + field);
  EXPECT_EQ(run.status, 0) << run.output;
  return run.output.empty() ? run.output : run.output.substr(0, run.output.size() - 1);
}

// The data write GUID in the small letters vhdiinfo shows it in.
std::string LowerGuid(const std::string& vhdx) {
  std::string guid = InfoField(vhdx, "data_write_guid");
  std::transform(guid.begin(), guid.end(), guid.begin(), [](unsigned char ch) { return std::tolower(ch); });
  return guid;
}

std::string RandomBytes(std::mt19937_64& random, std::size_t size) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

void WriteAt(const std::string& path, std::uint64_t offset, const std::string& bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0) << path;
  EXPECT_EQ(::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)),
            static_cast<ssize_t>(bytes.size()));
  ::close(fd);
}

class VhdxInteropTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Have("qemu-img") || !Have("qemu-io"))
      GTEST_SKIP() << "qemu-img and qemu-io are missing (Debian qemu-utils; scripts/install-deps.sh)";
  }

  void Run(const std::string& command) {
    const Outcome run = Shell(command);
    ASSERT_EQ(run.status, 0) << command << "\n" << run.output;
  }

  // qemu-img finds nothing wrong with the container.
  void ExpectQemuCheck(const std::string& vhdx) {
    ExpectRun(Shell("qemu-img check -f vhdx " + vhdx), 0, "No errors were found");
  }

  // Writes `pattern` (zeros by -z when negative) through qemu-io and into
  // the expected image alike.
  void QemuWrite(const std::string& path, const char* format, std::string& expected, std::uint64_t offset,
                 std::uint64_t length, int pattern) {
    Run("qemu-io -f " + std::string(format) + " -c 'write -q " + (pattern < 0 ? "-z" : "-P " + std::to_string(pattern)) +
        " " + std::to_string(offset) + " " + std::to_string(length) + "' " + path);
    std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(offset), length, static_cast<char>(std::max(pattern, 0)));
  }

  // vrig's export and qemu's conversion of `path` both equal `expected`.
  void ExpectBothRead(const std::string& path, const std::string& expectedFile, bool qemuReadsIt = true) {
    const std::string ours = dir.Join("ours.raw"), theirs = dir.Join("theirs.raw");
    std::remove(ours.c_str());
    Run(VRIG_PATH " vhdx export " + path + " " + ours);
    EXPECT_TRUE(SameFiles(ours, expectedFile)) << "vrig's export of " << path;
    if (!qemuReadsIt) return;
    Run("qemu-img convert -f vhdx -O raw " + path + " " + theirs);
    EXPECT_TRUE(SameFiles(theirs, expectedFile)) << "qemu's conversion of " << path;
  }

  HostTest::TempDir dir;
};

TEST_F(VhdxInteropTest, FilesQemuMadeExportAsQemuReadsThem) {
  struct Shape {
    const char* name;
    const char* options;
    std::uint64_t size;  // not a multiple of the block size
    std::uint64_t blockSize;
    const char* type;
    bool converted;  // made by qemu-img convert from a raw image
  };
  const Shape shapes[] = {
      {"default", "", 21 * kMiB + 1536, 8 * kMiB, "dynamic", false},
      {"block1m", "-o block_size=1M", 13 * kMiB + 4096, kMiB, "dynamic", false},
      {"block256m", "-o block_size=256M", 300 * kMiB, 256 * kMiB, "dynamic", false},
      {"fixed", "-o subformat=fixed", 9 * kMiB + 1024, 8 * kMiB, "fixed", false},
      {"converted1m", "-o block_size=1M", 11 * kMiB + 512, kMiB, "dynamic", true},
      {"convertedfixed", "-o subformat=fixed", 10 * kMiB + 2048, 8 * kMiB, "fixed", true},
      {"empty", "", 0, 8 * kMiB, "dynamic", false},
  };
  for (const Shape& shape : shapes) {
    SCOPED_TRACE(shape.name);
    const std::string vhdx = dir.Join(std::string(shape.name) + ".vhdx");
    const std::string image = dir.Join(std::string(shape.name) + ".raw");
    std::string expected(shape.size, '\0');
    // Data at the start with zeros written into it, across the first block
    // boundary, inside a later block, and in the last sector.
    const std::string target = shape.converted ? image : vhdx;
    const char* format = shape.converted ? "raw" : "vhdx";
    if (shape.converted) {
      WriteBytes(image, std::string());
      ASSERT_EQ(::truncate(image.c_str(), static_cast<off_t>(shape.size)), 0);
    } else {
      Run("qemu-img create -q -f vhdx " + std::string(shape.options) + " " + vhdx + " " + std::to_string(shape.size));
    }
    if (shape.size) {
      QemuWrite(target, format, expected, 0, 4096, 0x11);
      QemuWrite(target, format, expected, 1024, 2048, -1);
      QemuWrite(target, format, expected, std::min(shape.blockSize, shape.size / 2) - 1536, 5120, 0x22);
      QemuWrite(target, format, expected, shape.size / 3 / 512 * 512 + 3584, 7 * 512, 0x33);
      QemuWrite(target, format, expected, shape.size - 512, 512, 0x44);
    }
    if (shape.converted)
      Run("qemu-img convert -f raw -O vhdx " + std::string(shape.options) + " " + image + " " + vhdx);
    WriteBytes(image, expected);
    ExpectBothRead(vhdx, image);

    EXPECT_EQ(InfoField(vhdx, "type"), shape.type);
    EXPECT_EQ(InfoField(vhdx, "virtual_size"), std::to_string(shape.size));
    EXPECT_EQ(InfoField(vhdx, "block_size"), std::to_string(shape.blockSize));
    EXPECT_EQ(InfoField(vhdx, "log_replayed"), "false");
  }
}

TEST_F(VhdxInteropTest, WritesThroughVrigAreWhatQemuAndVrigReadBack) {
  struct Case {
    const char* name;
    std::uint64_t size;
    std::uint32_t sectorSize;
    std::uint64_t blockSize;
    bool qemuMade;  // else vrig made it
  };
  // qemu opens only files of 512-byte sectors: the 4096 one is checked
  // against the expected image alone.
  const Case cases[] = {{"qemu1m", 20 * kMiB + 1536, 512, kMiB, true},
                        {"vrig512", 18 * kMiB + 2560, 512, 4 * kMiB, false},
                        {"vrig4096", 14 * kMiB + 8192, 4096, 4 * kMiB, false}};
  std::mt19937_64 random(20261121);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string vhdx = dir.Join(std::string(c.name) + ".vhdx");
    std::string expected(c.size, '\0');
    if (c.qemuMade) {
      Run("qemu-img create -q -f vhdx -o block_size=1M " + vhdx + " " + std::to_string(c.size));
      QemuWrite(vhdx, "vhdx", expected, 2 * kMiB, 64 * 1024, 0x5A);
    } else {
      Run(VRIG_PATH " vhdx create " + vhdx + " " + std::to_string(c.size) + " --sector-size " +
          std::to_string(c.sectorSize));
    }
    const std::uint64_t sectors = c.size / c.sectorSize;
    const std::uint64_t perBlock = c.blockSize / c.sectorSize;
    const std::uint64_t blocks = (sectors + perBlock - 1) / perBlock;
    auto upTo = [&](std::uint64_t n) { return random() % n; };
    for (int i = 0; i < 15; ++i) {
      std::uint64_t first = 0, count = 1;
      switch (i % 5) {
        case 0:  // somewhere, often in a block nothing was written to yet
          first = upTo(sectors);
          count = 1 + upTo(std::min<std::uint64_t>(64, sectors - first));
          break;
        case 1:  // inside a block written before, mostly the same block
          first = (i - 1) < 5 ? 2 * kMiB / c.sectorSize + upTo(16) : upTo(sectors / 2);
          count = 1 + upTo(8);
          break;
        case 2: {  // across a block boundary
          const std::uint64_t boundary = (1 + upTo(blocks - 1)) * perBlock;
          first = boundary - 1 - upTo(8);
          count = std::min(sectors - first, boundary - first + 1 + upTo(8));
          break;
        }
        case 3:  // over several blocks, from the middle of one
          first = upTo(sectors / 4);
          count = std::min(sectors - first, 2 * perBlock + upTo(perBlock));
          break;
        default:  // the last sectors
          count = 1 + upTo(3);
          first = sectors - count;
      }
      const std::string data = RandomBytes(random, count * c.sectorSize);
      WriteBytes(dir.Join("input"), data);
      Run(VRIG_PATH " vhdx write " + vhdx + " " + std::to_string(first) + " < " + dir.Join("input"));
      expected.replace(first * c.sectorSize, data.size(), data);
    }
    const std::string expectedFile = dir.Join(std::string(c.name) + ".expected");
    WriteBytes(expectedFile, expected);
    if (c.sectorSize == 512) ExpectQemuCheck(vhdx);
    ExpectBothRead(vhdx, expectedFile, c.sectorSize == 512);

    // A read that starts and ends inside blocks gives those bytes alone.
    const std::uint64_t first = perBlock - 3, count = perBlock + 6;
    EXPECT_TRUE(Vrig("read " + vhdx + " " + std::to_string(first) + " " + std::to_string(count)).output ==
                expected.substr(first * c.sectorSize, count * c.sectorSize));
  }
}

TEST_F(VhdxInteropTest, FilesVrigMadeSatisfyQemuAndVhdiinfo) {
  const bool haveVhdiinfo = Have("vhdiinfo");
  struct Case {
    std::string size;
    std::uint64_t bytes;
    std::uint32_t sectorSize;
  };
  const Case cases[] = {{"10M", 10 * kMiB, 512},
                        {"4198912", 4 * kMiB + 4608, 512},  // one sector past four blocks and a bit
                        {"64M", 64 * kMiB, 4096},
                        {"12292K", 12 * kMiB + 4096, 4096}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size + " " + std::to_string(c.sectorSize));
    const std::string vhdx = dir.Join(c.size + "-" + std::to_string(c.sectorSize) + ".vhdx");
    Run(VRIG_PATH " vhdx create " + vhdx + " " + c.size + " --sector-size " + std::to_string(c.sectorSize));
    EXPECT_EQ(InfoField(vhdx, "virtual_size"), std::to_string(c.bytes));
    EXPECT_EQ(InfoField(vhdx, "logical_sector_size"), std::to_string(c.sectorSize));

    if (c.sectorSize == 512) {
      ExpectQemuCheck(vhdx);
      const Outcome qinfo = Shell("qemu-img info -f vhdx --output=json " + vhdx);
      EXPECT_EQ(Field(qinfo.output, "\"virtual-size\": "), std::to_string(c.bytes) + ",") << qinfo.output;
      EXPECT_EQ(Field(qinfo.output, "\"cluster-size\": "), "4194304,") << qinfo.output;
    }
    if (!haveVhdiinfo) continue;
    // This vhdiinfo shows no block size; qemu's cluster size stands for it.
    const Outcome theirs = Shell("vhdiinfo " + vhdx);
    ASSERT_EQ(theirs.status, 0) << theirs.output;
    EXPECT_EQ(Field(theirs.output, "Disk type\t\t: "), "Dynamic");
    EXPECT_NE(Field(theirs.output, "Media size\t\t: ").find(std::string("(").append(std::to_string(c.bytes)).append(" bytes)")),
              std::string::npos) << theirs.output;
    EXPECT_EQ(Field(theirs.output, "Bytes per sector\t: "), std::to_string(c.sectorSize) + " bytes");
    EXPECT_EQ(Field(theirs.output, "Identifier\t\t: "), LowerGuid(vhdx));
  }
}

// A fixed container takes its whole size now and holds data where qemu
// looks for it; a child records its parent so that vhdiinfo names it and
// our chain reads through it, and still shows what it can when the parent
// is gone.
TEST_F(VhdxInteropTest, FixedAndDifferencingContainersFromVrig) {
  std::mt19937_64 random(7);
  const std::string fixed = dir.Join("fixed.vhdx"), raw = dir.Join("fixed.raw");
  Run(VRIG_PATH " vhdx create " + fixed + " 24M --fixed --block-size 1M");
  EXPECT_GE(std::filesystem::file_size(fixed), 24 * kMiB);
  struct stat st{};
  ASSERT_EQ(::stat(fixed.c_str(), &st), 0);
  EXPECT_GE(static_cast<std::uint64_t>(st.st_blocks) * 512, 24 * kMiB);  // reserved, not sparse
  std::string expected(24 * kMiB, '\0');
  const std::string data = RandomBytes(random, 3 * kMiB);
  expected.replace(100 * 512, data.size(), data);
  WriteBytes(dir.Join("data"), data);
  Run(VRIG_PATH " vhdx write " + fixed + " 100 < " + dir.Join("data"));
  ExpectQemuCheck(fixed);
  Run("qemu-img convert -f vhdx -O raw " + fixed + " " + raw);
  EXPECT_TRUE(ReadBytes(raw) == expected);

  const std::string base = dir.Join("base.vhdx"), child = dir.Join("sub/child.vhdx");
  Run(VRIG_PATH " vhdx import " + raw + " " + base);
  ASSERT_EQ(::mkdir(dir.Join("sub").c_str(), 0755), 0);
  Run(VRIG_PATH " vhdx create --parent " + base + " " + child);
  const std::string mine = RandomBytes(random, 8192);
  expected.replace(2 * kMiB, mine.size(), mine);
  WriteBytes(dir.Join("mine"), mine);
  Run(VRIG_PATH " vhdx write " + child + " " + std::to_string(2 * kMiB / 512) + " < " + dir.Join("mine"));
  Run(VRIG_PATH " vhdx export " + child + " " + dir.Join("child.raw"));
  EXPECT_TRUE(ReadBytes(dir.Join("child.raw")) == expected);
  EXPECT_EQ(InfoField(child, "parent_locator.relative_path"), "..\\base.vhdx");
  if (Have("vhdiinfo")) {
    const Outcome theirs = Shell("vhdiinfo " + child);
    ASSERT_EQ(theirs.status, 0) << theirs.output;
    EXPECT_EQ(Field(theirs.output, "Disk type\t\t: "), "Differential");
    EXPECT_EQ(Field(theirs.output, "Parent identifier\t: "), LowerGuid(base)) << theirs.output;
  }

  ASSERT_EQ(::rename(base.c_str(), dir.Join("moved.vhdx").c_str()), 0);
  const Outcome orphan = Vrig("info " + child);
  ExpectRun(orphan, 0, "type: differencing");
  EXPECT_NE(orphan.output.find("parent missing: "), std::string::npos) << orphan.output;
  EXPECT_NE(InfoField(child, "parent_missing"), "null");

  // rm --chain takes the parents with the child, and nothing else.
  ASSERT_EQ(::rename(dir.Join("moved.vhdx").c_str(), base.c_str()), 0);
  EXPECT_EQ(Vrig("rm --chain " + child).status, 0);
  EXPECT_FALSE(HostTest::Exists(child));
  EXPECT_FALSE(HostTest::Exists(base));
  EXPECT_TRUE(HostTest::Exists(fixed));
}

TEST_F(VhdxInteropTest, RawImagesRoundTripThroughImportAndExport) {
  // Data at places no hole or zero run is aligned to, a run of data longer
  // than one transfer, and a partial last sector, which the container pads
  // with zeros.
  const std::string raw = dir.Join("disk.raw");
  const std::uint64_t size = 26 * kMiB + 1000;
  WriteBytes(raw, std::string());
  ASSERT_EQ(::truncate(raw.c_str(), static_cast<off_t>(size)), 0);
  std::mt19937_64 random(7);
  std::string expected(size, '\0');
  for (const auto& [offset, length] : std::vector<std::pair<std::uint64_t, std::uint64_t>>{
           {0, 512}, {4096 * 37, 20000}, {4 * kMiB - 100, 300}, {5 * kMiB + 65536, 18 * kMiB}, {size - 700, 700}}) {
    const std::string data = RandomBytes(random, length);
    WriteAt(raw, offset, data);
    expected.replace(offset, length, data);
  }
  for (std::uint32_t sectorSize : {512u, 4096u}) {
    SCOPED_TRACE(sectorSize);
    const std::string vhdx = dir.Join("imported" + std::to_string(sectorSize) + ".vhdx");
    const std::string sectors = " --sector-size " + std::to_string(sectorSize);
    ExpectRun(Vrig("import " + raw + " " + vhdx + sectors), 0, "bytes/s)");
    const std::string padded = dir.Join("padded.raw");
    WriteBytes(padded, expected + std::string((sectorSize - size % sectorSize) % sectorSize, '\0'));
    ExpectBothRead(vhdx, padded, sectorSize == 512);
    if (sectorSize == 512) {
      ExpectQemuCheck(vhdx);
      // Through pipes both ways: standard input of a given size, standard output.
      const std::string piped = dir.Join("piped.vhdx");
      Run("cat " + raw + " | " VRIG_PATH " vhdx import - " + piped + " --size " + std::to_string(size));
      EXPECT_EQ(Shell(VRIG_PATH " vhdx export " + piped + " - 2>/dev/null | cmp - " + padded).status, 0);
      // Input past the size would be lost: the import fails and leaves nothing.
      const std::string cut = dir.Join("cut.vhdx");
      EXPECT_EQ(Shell("cat " + raw + " | " VRIG_PATH " vhdx import - " + cut + " --size 1M").status, 1);
      EXPECT_FALSE(HostTest::Exists(cut));
    }

    // Neither direction replaces a file that is there.
    EXPECT_EQ(Vrig("import " + raw + " " + vhdx).status, 1);
    EXPECT_EQ(Vrig("export " + vhdx + " " + raw).status, 1);
    EXPECT_TRUE(ReadBytes(raw) == expected);

    EXPECT_EQ(Vrig("rm " + vhdx).status, 0);
    EXPECT_FALSE(HostTest::Exists(vhdx));
  }
}

// The virtual size of a container may end inside a sector, which no read
// reaches: its bytes export as zeros, never as what a buffer held before.
TEST_F(VhdxInteropTest, ExportOfASizeInsideASectorEndsInZeros) {
  const std::string vhdx = dir.Join("odd.vhdx"), raw = dir.Join("odd.raw");
  ASSERT_EQ(Vrig("create " + vhdx + " 17M").status, 0);
  const std::string input = dir.Join("input");
  WriteBytes(input, std::string(4096, 'v'));
  ASSERT_EQ(Vrig("write " + vhdx + " 2048 < " + input).status, 0);  // at 1 MiB
  // The virtual disk size item, found through the region table (its GUIDs
  // as stored), made 300 bytes longer.
  const std::string file = ReadBytes(vhdx);
  const std::string metadataRegion("\x06\xa2\x7c\x8b\x90\x47\x9a\x4b\xb8\xfe\x57\x5f\x05\x0f\x88\x6e", 16);
  const std::string sizeItem("\x24\x42\xa5\x2f\x1b\xcd\x76\x48\xb2\x11\x5d\xbe\xd8\x3b\xf4\xb8", 16);
  const std::size_t region = file.find(metadataRegion, 192 * 1024), entry = file.find(sizeItem, kMiB);
  ASSERT_TRUE(region != std::string::npos && entry != std::string::npos);
  std::uint64_t metadata = 0;
  std::uint32_t itemOffset = 0;
  std::memcpy(&metadata, file.data() + region + 16, 8);
  std::memcpy(&itemOffset, file.data() + entry + 16, 4);
  const std::uint64_t size = 17 * kMiB + 300;
  WriteAt(vhdx, metadata + itemOffset, std::string(reinterpret_cast<const char*>(&size), 8));

  Run(VRIG_PATH " vhdx export " + vhdx + " " + raw);
  const std::string image = ReadBytes(raw);
  ASSERT_EQ(image.size(), size);
  EXPECT_EQ(image.substr(kMiB, 4096), std::string(4096, 'v'));
  EXPECT_EQ(image.substr(17 * kMiB), std::string(300, '\0'));
}

// A create or import stopped half way leaves nothing under the target's
// name: a retry goes through, and the half-made file is plainly named.
TEST_F(VhdxInteropTest, StoppedCreationsLeaveNothingUnderTheTargetName) {
  const std::string raw = dir.Join("big.raw"), vhdx = dir.Join("big.vhdx");
  std::mt19937_64 random(3);
  WriteBytes(raw, RandomBytes(random, 96 * kMiB));
  const Outcome stopped = Shell("(" VRIG_PATH " vhdx import " + raw + " " + vhdx + " & pid=$!; sleep 0.2; kill -9 $pid; wait $pid; ls " +
                                dir.Path() + ")");
  // On a busy machine the kill may come before the first file or after
  // the last step; either way nothing half-made bears the target's name.
  if (stopped.output.find("big.vhdx.vrig-partial-") != std::string::npos) {
    EXPECT_FALSE(HostTest::Exists(vhdx)) << stopped.output;
  } else if (HostTest::Exists(vhdx)) {
    EXPECT_EQ(Shell("qemu-img check -q " + vhdx).status, 0) << "finished before it was stopped";
    std::remove(vhdx.c_str());
  }
  Run(VRIG_PATH " vhdx import " + raw + " " + vhdx);
  ExpectBothRead(vhdx, raw);
  // The leftover opens as nothing; rm removes it when forced.
  const auto leftovers = [&] {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path()))
      if (entry.path().string().find(".vrig-partial-") != std::string::npos) found.push_back(entry.path());
    return found;
  };
  for (const std::string& leftover : leftovers()) EXPECT_EQ(Vrig("rm --force " + leftover).status, 0);
  EXPECT_TRUE(leftovers().empty());
}

TEST_F(VhdxInteropTest, FailuresPrintTheErrorAndChangeNothing) {
  const std::string missing = dir.Join("missing.vhdx");
  const Outcome gone = Vrig("info " + missing);
  ExpectRun(gone, 1, "Specified file does not exist.");
  EXPECT_NE(gone.output.find("missing.vhdx"), std::string::npos) << gone.output;
  EXPECT_EQ(Vrig("rm " + missing).status, 1);

  const std::string text = dir.Join("notes.vhdx");
  WriteBytes(text, std::string(2 * kMiB, 'x'));
  ExpectRun(Vrig("export " + text + " " + dir.Join("out.raw")), 1, "Unknown format of the virtual disk.");
  EXPECT_FALSE(HostTest::Exists(dir.Join("out.raw")));
  // What does not open is deleted only when asked for by force.
  ExpectRun(Vrig("rm " + text), 1, "--force deletes");
  EXPECT_EQ(Vrig("rm --force " + text).status, 0);
  EXPECT_FALSE(HostTest::Exists(text));

  const std::string vhdx = dir.Join("small.vhdx");
  ASSERT_EQ(Vrig("create " + vhdx + " 1M").status, 0);
  EXPECT_EQ(Vrig("create " + dir.Join("odd.vhdx") + " 1000").status, 2);
  EXPECT_EQ(Vrig("create " + dir.Join("odd.vhdx") + " 6K --sector-size 4096").status, 2);
  EXPECT_FALSE(HostTest::Exists(dir.Join("odd.vhdx")));
  EXPECT_EQ(Vrig("create " + vhdx + " 2M").status, 1);

  // A FIFO is refused at once, not waited on; a closed standard input is
  // empty, never the container opened in its place.
  const std::string fifo = dir.Join("fifo.vhdx");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  ExpectRun(Shell("timeout 20 " VRIG_PATH " vhdx info " + fifo), 1, "Not a regular file");
  const std::string before = ReadBytes(vhdx);
  EXPECT_EQ(Shell(VRIG_PATH " vhdx write " + vhdx + " 0 <&-").status, 0);
  EXPECT_TRUE(ReadBytes(vhdx) == before);

  // Whole sectors are written, the partial one at the end is refused.
  const std::string input = dir.Join("input");
  WriteBytes(input, std::string(512, 'a') + std::string(100, 'b'));
  ExpectRun(Vrig("write " + vhdx + " 4 < " + input), 1, "100 bytes");
  // Past the end nothing is written.
  WriteBytes(input, std::string(1024, 'c'));
  EXPECT_EQ(Vrig("write " + vhdx + " 2047 < " + input).status, 1);
  EXPECT_EQ(Vrig("read " + vhdx + " 2047 2").status, 1);
  const std::string zeros(512, '\0');
  EXPECT_TRUE(Vrig("read " + vhdx + " 3 3").output == zeros + std::string(512, 'a') + zeros);
  EXPECT_TRUE(Vrig("read " + vhdx + " 2047 1").output == zeros);
  // All its data: the one block, cut to the disk; other IDs need a tracker.
  EXPECT_EQ(Vrig("changes " + vhdx + " '*'").output, "0 2048\ntotal 2048 sectors of 512 bytes\n");
  EXPECT_NE(Vrig("changes " + vhdx + " 1").output.find("The file tracker is not found."), std::string::npos);
}

}  // namespace

// Two writers on one container would each keep their own tables and lose
// the other's blocks. While vrig writes, a second vrig and qemu-io are kept
// out, and while qemu-io holds the file, vrig is; what each writer wrote
// stands afterwards.
TEST_F(VhdxInteropTest, WritersKeepEachOtherOutOfAContainer) {
  const std::string vhdx = dir.Join("held.vhdx"), fifo = dir.Join("input");
  ASSERT_EQ(Vrig("create " + vhdx + " 8M").status, 0);
  // Waits until a lock on the container shows, so that nothing races the holder.
  const std::string held = "ino=$(stat -c %i " + vhdx + "); for i in $(seq 200); do "
                           "grep -q \":$ino \" /proc/locks && break; sleep 0.05; done; ";
  const Outcome whileVrigWrites = Shell(
      "(mkfifo " + fifo + "; " VRIG_PATH " vhdx write " + vhdx + " 0 < " + fifo + " & pid=$!; exec 3>" + fifo +
      "; " + held + "echo second:; head -c 512 /dev/zero | env LANGUAGE=en " VRIG_PATH " vhdx write " + vhdx +
      " 8; echo status $?; echo qemu:; qemu-io -c 'write -P 7 1M 4k' " + vhdx +
      "; echo status $?; head -c 1024 /dev/zero | tr '\\0' 'v' >&3; exec 3>&-; wait $pid; echo first $?)");
  const std::string& out = whileVrigWrites.output;
  EXPECT_NE(out.find("held.vhdx"), std::string::npos) << out;
  EXPECT_NE(out.find("The file is in use by another program."), std::string::npos) << out;
  EXPECT_EQ(out.find("status 0"), std::string::npos) << out;
  EXPECT_NE(out.find("first 0"), std::string::npos) << out;

  const Outcome whileQemuWrites =
      Shell("(qemu-io -c 'write -P 9 2M 4k' -c 'sleep 10000' " + vhdx + " & pid=$!; " + held +
            "head -c 512 /dev/zero | env LANGUAGE=en " VRIG_PATH " vhdx write " + vhdx +
            " 8; echo status $?; kill $pid; wait $pid)");
  EXPECT_NE(whileQemuWrites.output.find("The file is in use by another program."), std::string::npos)
      << whileQemuWrites.output;
  EXPECT_NE(whileQemuWrites.output.find("status 1"), std::string::npos) << whileQemuWrites.output;

  Run("qemu-img check -q " + vhdx);
  EXPECT_EQ(Vrig("read " + vhdx + " 0 2").output, std::string(1024, 'v'));
  EXPECT_EQ(Vrig("read " + vhdx + " 8 1").output, std::string(512, '\0'));
  EXPECT_EQ(Vrig("read " + vhdx + " 2048 1").output, std::string(512, '\0')) << "qemu-io was kept out";
}
