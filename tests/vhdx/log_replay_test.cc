// The log: which entries a scan takes as the active sequence and how a
// replay plays them, how the entry reader counts descriptor sectors, what
// zeroing entries clear, the refusal of scans that would not end, and the
// in-memory overlay a read-only open replays into. Replays of whole files,
// qemu's among them, are in qemu_test.cc and corruption_test.cc.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vhdx/format/header_reader.h"
#include "vhdx/log/invalid_log_entry.h"
#include "vhdx/log/log_entry_reader.h"
#include "vhdx/log/log_scanner.h"
#include "vhdx/log/non_persistent_file.h"
#include "vhdx/log/play_log.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/test_files.h"
#include "vhdx/log/zeroing_data_operation.h"

namespace {

using VhdxTest::CodeOf;
using VhdxTest::Raised;

constexpr std::uint64_t kSector = 4096;
constexpr std::uint64_t kLogOffset = Vhdx::Format::kMiB;
constexpr std::uint32_t kLogLength = Vhdx::Format::kMiB;
constexpr std::uint64_t kPayload = 2 * Vhdx::Format::kMiB;  // where entries write
constexpr std::uint64_t kFileSize = 3 * Vhdx::Format::kMiB;
const Common::Guid kGuid = VhdxTest::TestGuid(7);  // the entries' default

std::uint8_t* At(std::string& bytes, std::size_t offset) {
  return reinterpret_cast<std::uint8_t*>(bytes.data()) + offset;
}

using Change = VhdxTest::LogChange;
using Entry = VhdxTest::LogEntry;

// A sector whose edges differ from its middle, so that a lost edge shows.
std::string Sector(char fill) {
  std::string s(kSector, fill);
  s.replace(0, 8, "LEADING!");
  s.replace(4092, 4, "TAIL");
  return s;
}

// Counts the reads that touch the log region.
class LogReadCounter : public Vhdx::FileDecorator {
 public:
  using FileDecorator::FileDecorator;
  int LogReads = 0;
  void Read(std::uint64_t offset, std::size_t size, void* buffer) override {
    LogReads += offset < kLogOffset + kLogLength && offset + size > kLogOffset;
    FileDecorator::Read(offset, size, buffer);
  }
};

// A container of 3 MiB: headers naming a log at 1 MiB (or none), the log,
// and 1 MiB of 0xEE bytes that the entries change.
class LogReplayTest : public VhdxTest::MemoryFileTest {
 protected:
  LogReplayTest() { Reset(); }
  void Reset() {
    bytes = VhdxTest::EmptyFirstMegabyte();
    bytes.resize(kFileSize, '\0');
    std::memset(bytes.data() + kPayload, 0xEE, kFileSize - kPayload);
    SetHeader(kGuid);
  }
  void SetHeader(const Common::Guid& logGuid, std::uint64_t logOffset = kLogOffset,
                 std::uint32_t logLength = kLogLength) {
    Vhdx::HeaderInfo info = VhdxTest::TestHeaderInfo(1);
    info.LogGuid = logGuid;
    info.LogOffset = logOffset;
    info.LogLength = logLength;
    VhdxTest::PutHeader(bytes, 0, info, 1);
  }
  void Put(std::uint32_t logOffset, const Entry& entry) {
    const std::string e = entry.Bytes();
    bytes.replace(kLogOffset + logOffset, e.size(), e);
  }
  // Loads the bytes into the file and replays.
  bool Play() {
    raw.Load(bytes);
    logged.Log.clear();
    return Vhdx::PlayLog(logged);
  }
  // "offset:sequence" of each entry of the active sequence.
  std::vector<std::string> Scan() {
    raw.Load(bytes);
    std::vector<std::string> out;
    for (const auto& e : Vhdx::LogScanner(file, kLogOffset, kLogLength).Scan(kGuid))
      out.push_back(std::to_string(e->GetOffset()) + ":" + std::to_string(e->GetSequenceNumber()));
    return out;
  }

  std::string bytes;
};

TEST_F(LogReplayTest, PlaysEveryEntryInOrderThenClearsLogGuidWithOneFlush) {
  // Data for the first entry, overwritten by the second; a zero range.
  Put(0, {5, 0, {{kPayload, Sector('a')}, {kPayload + 3 * kSector, "", 2 * kSector}}});
  Put(8192, {6, 0, {{kPayload, Sector('b')}, {kPayload + kSector, Sector('c')}}});
  ASSERT_TRUE(Play());
  EXPECT_EQ(raw.Bytes(kPayload, kSector), Sector('b'));
  EXPECT_EQ(raw.Bytes(kPayload + kSector, kSector), Sector('c'));
  EXPECT_EQ(raw.Bytes(kPayload + 2 * kSector, kSector), std::string(kSector, '\xEE'));
  EXPECT_EQ(raw.Bytes(kPayload + 3 * kSector, 2 * kSector), std::string(2 * kSector, '\0'));
  // Two pieces zeroed, so two bytes more.
  EXPECT_EQ(raw.Bytes(kPayload + 5 * kSector, 4), std::string("\0\0\xEE\xEE", 4));
  EXPECT_EQ(std::count(logged.Log.begin(), logged.Log.end(), "F"), 1);
  EXPECT_EQ(logged.Log.back(), "F");
  EXPECT_TRUE(Vhdx::HeaderReader::Read(file).LogGuid.IsZero());
  EXPECT_EQ(raw.Bytes(kLogOffset, kLogLength), bytes.substr(kLogOffset, kLogLength));  // log left as it was
  logged.Log.clear();
  EXPECT_FALSE(Vhdx::PlayLog(logged));
  EXPECT_TRUE(logged.Log.empty());
}

TEST_F(LogReplayTest, ScanChoosesTheUsableSequenceWithTheGreatestLastNumber) {
  const std::uint32_t kFar = 0x10000, kEnd = kLogLength - 8192;
  const std::vector<Change> one{{kPayload, Sector('x')}};
  Entry foreign{11, 0, one, VhdxTest::TestGuid(9)};
  const struct {
    const char* name;
    std::vector<std::pair<std::uint32_t, Entry>> entries;
    std::vector<std::string> active;
    bool flipSecond = false;
  } cases[] = {
      {"later and greater wins", {{0, {10, 0, one}}, {8192, {11, 0, one}}, {kFar, {20, kFar, one}}}, {"65536:20"}},
      {"earlier and greater wins", {{0, {30, 0, one}}, {8192, {31, 0, one}}, {kFar, {20, kFar, one}}},
       {"0:30", "8192:31"}},
      {"a tie keeps the first", {{0, {7, 0, one}}, {kFar, {7, kFar, one}}}, {"0:7"}},
      {"tail outside its sequence", {{0, {10, 0, one}}, {kFar, {50, 0, one}}}, {"0:10"}},
      {"only a tail outside", {{kFar, {50, 0, one}}}, {}},
      {"a gap ends the candidate", {{0, {10, 0, one}}, {8192, {12, 0, one}}}, {"0:10"}},
      {"a flipped data bit ends it", {{0, {10, 0, one}}, {8192, {11, 0, one}}}, {"0:10"}, true},
      {"a stale descriptor ends it", {{0, {10, 0, one}}, {8192, {11, 0, {{kPayload, "", kSector, 10}}}}}, {"0:10"}},
      {"a stale data sector ends it",
       {{0, {10, 0, one}}, {8192, {11, 0, {{kPayload, Sector('x'), 0, 0, 11 + (1ull << 32)}}}}}, {"0:10"}},
      {"another log's entry ends it", {{0, {10, 0, one}}, {8192, foreign}}, {"0:10"}},
      {"wraps at the end of the log", {{kEnd, {1, kEnd, one}}, {0, {2, kEnd, one}}},
       {std::to_string(kEnd) + ":1", "0:2"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Reset();
    for (const auto& [offset, entry] : c.entries) Put(offset, entry);
    if (c.flipSecond) bytes[kLogOffset + 8192 + kSector + 100] ^= 0x10;  // in its data sector
    EXPECT_EQ(Scan(), c.active);
  }
}

TEST_F(LogReplayTest, EntryReaderKeepsTheDescriptorSectorRuleAndRefusesWhatTheFileCannotHold) {
  // Zero descriptors over single sectors of the payload, round; the last
  // one lies in the further descriptor sector.
  auto zeroes = [](std::size_t count) {
    std::vector<Change> changes;
    for (std::size_t i = 0; i < count; ++i) changes.push_back({kPayload + i % 256 * kSector, "", kSector});
    return changes;
  };
  auto read = [&](const Entry& entry) {
    Put(0, entry);
    raw.Load(bytes);
    return Vhdx::LogEntryReader::Read(file, kLogOffset, 0);
  };
  const auto whole = read({3, 0, zeroes(254)});
  ASSERT_TRUE(whole->IsValid());
  whole->Apply(file);
  EXPECT_EQ(raw.Bytes(kPayload + 253 * kSector, kSector), std::string(kSector, '\0'));
  EXPECT_EQ(raw.Bytes(kPayload + 254 * kSector + 1, 1), "\xEE");  // past the one byte the last piece adds
  EXPECT_FALSE(read({3, 0, zeroes(127)})->IsValid());
  // Two further sectors: each is read again when its turn comes.
  Reset();
  const auto twice = read({3, 0, zeroes(382)});
  ASSERT_TRUE(twice->IsValid());
  twice->Apply(file);
  EXPECT_EQ(raw.Bytes(kPayload, 256 * kSector), std::string(256 * kSector, '\0'));

  // Counts that would make the reader go past the end of the file.
  std::uint8_t* h = At(bytes, kLogOffset);
  Vhdx::StoreLe32(h + 24, 0xFFFFFFFF);
  raw.Load(bytes);
  LogReadCounter counter(file);
  EXPECT_FALSE(Vhdx::LogEntryReader::Read(counter, kLogOffset, 0)->IsValid());
  EXPECT_EQ(counter.LogReads, 1);
  Put(0, {3, 0, {{kPayload, Sector('d')}}});
  bytes.resize(kLogOffset + kSector);  // its data sector lies past the end
  raw.Load(bytes);
  EXPECT_FALSE(Vhdx::LogEntryReader::Read(file, kLogOffset, 0)->IsValid());
  EXPECT_FALSE(Vhdx::LogEntryReader::Read(file, kLogOffset, 100)->IsValid());

  const Vhdx::InvalidLogEntry invalid;
  EXPECT_EQ(CodeOf([&] { invalid.GetSequenceNumber(); }), 0x3C0029u);
  EXPECT_EQ(CodeOf([&] { invalid.GetTail(); }), 0x3C0029u);
}

TEST_F(LogReplayTest, ZeroingTakesItsTailLengthFromThePieceCount) {
  const struct {
    std::uint64_t length, zeroed;
  } cases[] = {{16 * kSector, 16 * kSector + 16}, {kSector + 100, kSector + 1}, {100, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.length);
    raw.Load(bytes);
    Vhdx::ZeroingDataOperation(kPayload, c.length).Apply(file);
    const std::string after = raw.Bytes(kPayload, kFileSize - kPayload);
    EXPECT_EQ(after.find_first_not_of('\0'), c.zeroed);
    EXPECT_EQ(after.find_first_not_of('\xEE', c.zeroed), std::string::npos);
  }
}

// Every sector of the log a header that claims all the file behind it:
// each try reads to the end of the file, which would make the scan of a
// large file quadratic. It is cut off with an error instead.
TEST_F(LogReplayTest, AScanThatWouldNotEndIsRefused) {
  for (std::uint64_t at = kLogOffset; at < kLogOffset + kLogLength; at += kSector) {
    std::uint8_t* h = At(bytes, at);
    std::memcpy(h, "loge", 4);
    const std::uint64_t room = (kFileSize - at) / kSector;
    Vhdx::StoreLe32(h + 24, static_cast<std::uint32_t>(126 + 128 * (room - 1)));
  }
  const Common::Error error = Raised([&] { Play(); });
  EXPECT_EQ(error.Code(), 0x3C002Bu);
  EXPECT_NE(error.GetText().find(u"sector reads"), std::u16string::npos);
  EXPECT_TRUE(logged.Log.empty());
}

// Kind: 'W' write of Size bytes of Fill, 'Z' zeroing, 'E' expansion to Offset.
struct Op { char Kind; std::uint64_t Offset, Size; char Fill; };

// The overlay over a file of `below`, and the bytes a reader should see.
struct Fixture {
  explicit Fixture(const std::string& below) : Model(below) { Raw.Load(below); }
  void Apply(const Op& op) {
    const std::string data(op.Kind == 'E' ? 0 : op.Size, op.Kind == 'W' ? op.Fill : '\0');
    if (op.Kind == 'E') File.Expand(op.Offset);
    if (op.Kind == 'W') File.Write(op.Offset, data.size(), data.data());
    if (op.Kind == 'Z') File.WriteZero(op.Offset, op.Size);
    Model.resize(std::max<std::uint64_t>(Model.size(), op.Offset + data.size()), '\0');
    Model.replace(op.Offset, data.size(), data);
  }
  std::string Read(std::uint64_t offset, std::size_t size) {
    std::string out(size, '?');
    File.Read(offset, size, out.data());
    return out;
  }
  std::string Model;
  VhdxTest::ScriptedFile Raw;
  Vhdx::ReadOnlyFile Below{Raw};
  VhdxTest::LoggingFile Logged{Below};
  Vhdx::NonPersistentFile File{Logged};
};

// Offset, size, and 'Z' or 'M' for the kind of each stored range.
std::vector<std::string> Layout(const Vhdx::NonPersistentFile& file) {
  std::vector<std::string> out;
  for (const auto& [key, range] : file.Ranges()) {
    EXPECT_EQ(key, (Vhd::FileRegion{range->GetOffset(), range->GetSize()}));
    const char kind = dynamic_cast<const Vhdx::ZeroDataRange*>(range.get()) ? 'Z' : 'M';
    out.push_back(std::to_string(key.Offset) + "+" + std::to_string(key.Size) + kind);
  }
  return out;
}

TEST(NonPersistentFileTest, MergesOverlapsKeepsTouchingRangesApartAndOnlyGrows) {
  const struct {
    std::vector<Op> ops;
    std::vector<std::string> layout;
  } cases[] = {
      {{{'W', 10, 10, 'a'}, {'Z', 0, 100, 0}}, {"0+100Z"}},
      {{{'Z', 0, 100, 0}, {'W', 10, 10, 'a'}}, {"0+100M"}},
      {{{'W', 0, 10, 'a'}, {'Z', 5, 10, 0}}, {"0+15M"}},
      {{{'Z', 0, 10, 0}, {'Z', 5, 10, 0}}, {"0+15Z"}},
      {{{'W', 0, 10, 'a'}, {'W', 10, 5, 'b'}}, {"0+10M", "10+5M"}},
      {{{'W', 10, 5, 'b'}, {'W', 0, 10, 'a'}}, {"0+10M", "10+5M"}},
      {{{'W', 0, 4, 'a'}, {'Z', 6, 4, 0}, {'W', 12, 4, 'c'}, {'W', 2, 12, 'd'}, {'W', 16, 1, 'e'}},
       {"0+16M", "16+1M"}},
      {{{'W', 0, 0, 'a'}, {'Z', 5, 0, 0}}, {}},
      {{{'E', 10100, 0, 0}, {'E', 50, 0, 0}}, {"100+4096Z", "4196+4096Z", "8292+1808Z"}},
      {{{'Z', 10, 5000, 0}}, {"10+4096Z", "4106+904Z"}},
  };
  for (const auto& c : cases) {
    Fixture f(std::string(100, 'u'));
    for (const Op& op : c.ops) f.Apply(op);
    EXPECT_EQ(Layout(f.File), c.layout);
    EXPECT_EQ(f.File.GetSize(), f.Model.size());
    EXPECT_EQ(f.Read(0, f.Model.size()), f.Model);
    // A read of one byte takes the same path as any other.
    for (std::size_t i = 0; i < f.Model.size(); ++i) ASSERT_EQ(f.Read(i, 1), f.Model.substr(i, 1)) << i;
  }
}

TEST(NonPersistentFileTest, RaisesItsOwnFaultsAndPassesTheFileBelowThrough) {
  const Vhdx::InMemoryDataRange bytes(10, std::vector<std::uint8_t>(20, 7));
  const Vhdx::ZeroDataRange zeros(30, 5);
  char buffer[64];
  Fixture f(std::string(100, 'u'));
  f.Apply({'W', 100, 10, 'a'});
  const struct {
    std::function<void()> fn;
    std::uint32_t code;
    std::u16string text;
  } cases[] = {
      {[&] { bytes.Read(25, 6, buffer); }, 0x3C003E,
       u"Internal error: An attempt to read from data range beyond its bounds. Data range Offset = 10, "
       u"Size = 20, read request Offset = 25, Size = 6."},
      {[&] { zeros.Read(29, 1, buffer); }, 0x3C003E, {}},
      {[&] { zeros.Read(36, 0, buffer); }, 0x3C003E, {}},
      {[&] { bytes.Merge(zeros); }, 0x3C003D,
       u"Internal error: An attempt to merge non-intersected data ranges, first with Offset = 10, Size = 20, "
       u"second with Offset = 30, Size = 5."},
      {[&] { f.Read(105, 10); }, FileError::EndOfFile, u"The end of the file has been reached."},
      {[&] { f.File.WriteZero(UINT64_MAX - 4, 10); }, FileError::Seek, {}},
      {[&] { f.File.Write(UINT64_MAX - 4, 10, buffer); }, FileError::Seek, {}},
  };
  for (const auto& c : cases) {
    const Common::Error error = Raised(c.fn);
    EXPECT_EQ(error.Code(), c.code);
    if (!c.text.empty()) {
      EXPECT_EQ(error.GetText(), c.text);
    }
  }
}

}  // namespace
