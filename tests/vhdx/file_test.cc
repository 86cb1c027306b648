// The file layer below the container structures: whole transfers over a
// host file, read-only and change-tracking decorators, bounded and growing
// regions, and the space managers that place them.
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "common/file_errors.h"
#include "common/site.h"
#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/file/change_tracking_file.h"
#include "vhdx/file/expandable_file_region.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/file/write_protected_file.h"
#include "vhdx/metadata/aligning_space_manager.h"
#include "vhdx/test_files.h"

namespace {

using VhdxTest::CodeOf;
using VhdxTest::ScriptedFile;
using Log = std::vector<std::string>;

TEST(WriteableFileTest, TransfersCompleteAcrossShortCallsAndZeroesInMiBPieces) {
  ScriptedFile raw;
  raw.Step = 3;
  Vhdx::WriteableFile file(raw);
  file.Write(5, 11, "eleven byte");
  EXPECT_EQ(raw.Writes.size(), 4u);
  std::string back(11, '\0');
  file.Read(5, back.size(), back.data());
  EXPECT_EQ(back, "eleven byte");
  raw.Step = SIZE_MAX;
  file.Write(0, 12000, std::string(12000, '\x01').data());
  raw.Writes.clear();
  file.WriteZero(100, 10000);
  EXPECT_EQ(raw.Writes, (std::vector<std::size_t>{10000}));
  EXPECT_EQ(raw.Bytes(99, 10002), "\x01" + std::string(10000, '\0') + "\x01");
  EXPECT_EQ(file.GetSize(), 12000u);
  raw.Writes.clear();
  file.WriteZero(11999, (1 << 20) + 2);
  EXPECT_EQ(raw.Writes, (std::vector<std::size_t>{1 << 20, 2}));
  EXPECT_EQ(raw.Bytes(11998, (1 << 20) + 3), "\x01" + std::string((1 << 20) + 2, '\0'));
  EXPECT_EQ(file.GetSize(), 11999u + (1 << 20) + 2);
}

TEST(WriteableFileTest, RaisesEndOfFileAFullMediumUnnamableOffsetsAndWhatTheFileObjectHolds) {
  ScriptedFile raw;
  raw.WriteLimit = 10;
  Vhdx::WriteableFile file(raw);
  char buffer[8] = {};
  const Common::Error eof = VhdxTest::Raised([&] { file.Read(0, 1, buffer); });
  EXPECT_EQ(eof.Code(), 0x40002u);
  EXPECT_EQ(eof.GetText(), u"The end of the file has been reached.");
  EXPECT_EQ(CodeOf([&] { file.Write(6, 8, "abcdefgh"); }), 0x40004u);
  // What fitted went in, and the file object took no failure: it goes on.
  EXPECT_FALSE(raw.Failed());
  file.Read(6, 4, buffer);
  EXPECT_EQ(std::string(buffer, 4), "abcd");
  raw.Writes.clear();
  EXPECT_EQ(CodeOf([&] { file.Read(UINT64_MAX - 1, 1, buffer); }), FileError::Seek);
  EXPECT_EQ(CodeOf([&] { file.Write(INT64_MAX, 1, buffer); }), FileError::Seek);
  EXPECT_TRUE(raw.Writes.empty());
  raw.Fail(Common::FileErrorOf(VR_SITE, FileError::Read));
  const std::function<void()> calls[] = {[&] { file.Read(0, 1, buffer); }, [&] { file.Write(0, 1, "x"); },
                                         [&] { file.GetSize(); }, [&] { file.Expand(1); }, [&] { file.Flush(); }};
  for (const auto& call : calls) EXPECT_EQ(CodeOf(call), FileError::Read);
}

// Both refuse every change, the raw one above the file object and the
// decorator above a file that could change.
TEST(ReadOnlyFileTest, ReadOnlyAndWriteProtectedFilesReadAndRefuseChanges) {
  ScriptedFile raw;
  Vhdx::WriteableFile writable(raw);
  writable.Write(0, 7, "content");
  Vhdx::ReadOnlyFile readOnly(raw);
  Vhdx::WriteProtectedFile protectedFile(writable);
  for (Vhdx::File* file : std::vector<Vhdx::File*>{&readOnly, &protectedFile}) {
    char buffer[4];
    file->Read(3, 4, buffer);
    EXPECT_EQ(std::string(buffer, 4), "tent");
    EXPECT_EQ(file->GetSize(), 7u);
    EXPECT_EQ(VhdxTest::Raised([&] { file->Write(0, 1, "x"); }).GetText(), u"The file is read-only.");
    const std::function<void()> changes[] = {[&] { file->WriteZero(0, 1); }, [&] { file->Expand(100); },
                                             [&] { file->Flush(); }};
    for (const auto& change : changes) EXPECT_EQ(CodeOf(change), 0x4000Cu);
  }
  EXPECT_EQ(raw.Writes.size(), 1u);
  EXPECT_EQ(raw.Store->Size(), 7u);
}

struct LoggingObserver : Vhdx::Observer {
  LoggingObserver(Log& l, std::string n, bool r = false) : log(l), name(std::move(n)), raise(r) {}
  void Notify() override {
    log.push_back(name);
    if (raise) throw Common::Error(VR_SITE, 0x3C0000);
  }
  Log& log;
  std::string name;
  bool raise;
};

// The observers log into the list of the file below: the order shows. An
// observer that raises stops the change, and the observers after it.
TEST(ChangeTrackingFileTest, ChangesNotifyEveryObserverInOrderBeforeTheyHappen) {
  ScriptedFile raw;
  Vhdx::WriteableFile writable(raw);
  VhdxTest::LoggingFile below(writable);
  Vhdx::ChangeTrackingFile file(below);
  file.Add(std::make_shared<LoggingObserver>(below.Log, "1"));
  file.Add(std::make_shared<LoggingObserver>(below.Log, "2"));
  file.Write(0, 4, "abcd");
  file.WriteZero(0, 2);
  file.Expand(4);  // the size stays, the notice comes all the same
  char buffer[4];
  file.Read(0, 4, buffer);
  EXPECT_EQ(file.GetSize(), 4u);
  file.Flush();
  EXPECT_EQ(below.Log, (Log{"1", "2", "W 0 4", "1", "2", "Z 0 2", "1", "2", "E 4", "F"}));

  Vhdx::ChangeTrackingFile refusing(below);
  below.Log.clear();
  refusing.Add(std::make_shared<LoggingObserver>(below.Log, "refusing", true));
  refusing.Add(std::make_shared<LoggingObserver>(below.Log, "later"));
  EXPECT_EQ(CodeOf([&] { refusing.Write(0, 1, "x"); }), 0x3C0000u);
  EXPECT_EQ(CodeOf([&] { refusing.Expand(10); }), 0x3C0000u);
  EXPECT_EQ(below.Log, (Log{"refusing", "refusing"}));
}

using Vhdx::Area;

constexpr std::uint32_t kRegionBounds = 0x3C0036;

class FileRegionTest : public VhdxTest::MemoryFileTest {
 protected:
  FileRegionTest() { raw.Load("ABCDEFGHIJKLMNOPQRSTUVWXYZ"); }
};

// The bound check lets one byte past the region through, on purpose; this
// pins the quirk so that it cannot be "fixed" unnoticed.
TEST_F(FileRegionTest, TheBoundCheckLetsOneBytePastTheRegionThrough) {
  Vhdx::ReadOnlyFileRegionImpl region(file, {10, 8});  // "KLMNOPQR"
  char buffer[9] = {};
  region.Read({8, 0}, buffer);  // empty, at the length
  region.Read({0, 9}, buffer);  // up to the byte behind the region
  EXPECT_EQ(std::string(buffer, 9), "KLMNOPQRS");
  // Far offsets fail instead of wrapping around.
  for (const Area a : {Area{9, 0}, Area{0, 10}, Area{7, 3}, Area{UINT64_MAX - 2, 4}})
    EXPECT_EQ(CodeOf([&] { region.Read(a, buffer); }), kRegionBounds) << a.Offset;
  Vhdx::ReadOnlyFileRegionImpl farRegion(file, {UINT64_MAX - 1, 8});
  EXPECT_EQ(CodeOf([&] { farRegion.Read({4, 1}, buffer); }), kRegionBounds);
}

TEST_F(FileRegionTest, WritableAndThrowingRegionsWriteAtTheirPlaceWithinTheSameBound) {
  Vhdx::ThrowingExpandableFileRegion region(std::make_unique<Vhdx::WritableFileRegionImpl>(file, Area{20, 4}));
  region.Write({1, 2}, "xy");
  region.Write({4, 1}, "z");  // the quirk holds for writes too
  EXPECT_EQ(CodeOf([&] { region.Write({3, 3}, "abc"); }), kRegionBounds);
  EXPECT_EQ(raw.Bytes(19, 7), "TUxyXzZ");
  char buffer[3];
  region.Read({0, 3}, buffer);
  EXPECT_EQ(std::string(buffer, 3), "Uxy");
  EXPECT_EQ(CodeOf([&] { region.Expand(5); }), 0x3C0000u);
  EXPECT_EQ(region.GetLocation(), (Area{20, 4}));
}

struct RecordingMonitor : Vhdx::ExpansionMonitor {
  explicit RecordingMonitor(VhdxTest::ScriptedFile& r) : raw(r) {}
  void OnExpanded(const Area& oldArea, const Area& newArea) override {
    calls.emplace_back(oldArea, newArea);
    contentSeen = raw.Bytes(newArea.Offset, oldArea.Size);
  }
  VhdxTest::ScriptedFile& raw;
  std::vector<std::pair<Area, Area>> calls;
  std::string contentSeen;
};

TEST_F(FileRegionTest, AFailedOrImpossibleMoveLeavesTheOldRegionInForceAndUntold) {
  struct FixedAllocator : Vhdx::Allocator {
    Area Allocate(const Area& request) override {
      requests.push_back(request);
      return answer;
    }
    Area answer{};
    std::vector<Area> requests;
  };
  auto allocator = std::make_shared<FixedAllocator>();
  auto monitor = std::make_shared<RecordingMonitor>(raw);
  Vhdx::ExpandableFileRegionImpl region(file, {0, 10}, allocator, monitor);
  struct Case { Area answer; std::uint64_t writeLimit; std::uint32_t code; };
  for (const Case& c : {Case{{5, 20}, UINT64_MAX, 0x3C0032},  // overlaps the old place
                        Case{{30, 15}, UINT64_MAX, 0x3C0000},  // less than asked
                        Case{{30, 20}, 35, 0x40004}}) {        // the medium fills up during the copy
    allocator->answer = c.answer;
    raw.WriteLimit = c.writeLimit;
    raw.Writes.clear();
    EXPECT_EQ(CodeOf([&] { region.Expand(20); }), c.code);
    EXPECT_EQ(raw.Writes.empty(), c.writeLimit == UINT64_MAX);  // refused before any copy
    EXPECT_EQ(allocator->requests.back(), (Area{0, 20}));  // the present offset goes along
    EXPECT_TRUE(monitor->calls.empty());
    EXPECT_EQ(region.GetLocation(), (Area{0, 10}));
  }
  allocator->answer = {0, 30};  // grown in place: nothing to copy
  raw.Writes.clear();
  region.Expand(30);
  EXPECT_TRUE(raw.Writes.empty());
  EXPECT_EQ(monitor->calls.size(), 1u);
  EXPECT_EQ(region.GetLocation(), (Area{0, 30}));
}

constexpr std::uint32_t kNotFound = 0x3C0033;
constexpr std::uint32_t kBounds = 0x3C0034;
constexpr std::uint32_t kOccupied = 0x3C0035;

TEST(AligningSpaceManagerTest, OccupyFreeAndExpandCheckBoundsOverlapsAndExactStarts) {
  Vhdx::AligningSpaceManager space(100, 50, 1, 1);
  space.Occupy({50, 10});
  space.Occupy({60, 10});   // touching is fine
  space.Occupy({140, 10});  // up to start + bound
  struct Case { std::function<void()> call; std::uint32_t code; };
  const Case refused[] = {
      {[&] { space.Occupy({50, 10}); }, kOccupied}, {[&] { space.Occupy({69, 2}); }, kOccupied},
      {[&] { space.Occupy({49, 1}); }, kBounds}, {[&] { space.Occupy({141, 10}); }, kBounds},
      {[&] { space.Occupy({UINT64_MAX - 5, 10}); }, kBounds}, {[&] { space.Free(55); }, kNotFound},
      {[&] { space.Free(UINT64_MAX); }, kNotFound}, {[&] { space.Expand({55, 10}); }, kNotFound},
  };
  for (const Case& c : refused) EXPECT_EQ(CodeOf(c.call), c.code) << &c - refused;
  space.Free(60);
  EXPECT_EQ(CodeOf([&] { space.Free(60); }), kNotFound);
  space.Occupy({60, 15});

  Vhdx::AligningSpaceManager grow(1000, 0, 1, 1);
  grow.Occupy({100, 50});
  grow.Occupy({200, 10});
  EXPECT_EQ(grow.Expand({100, 80}), (Area{100, 80}));
  EXPECT_EQ(grow.Expand({100, 120}).Size, 0u);  // would reach into {200, 10}
  EXPECT_EQ(CodeOf([&] { grow.Occupy({179, 1}); }), kOccupied);  // still {100, 80}
  EXPECT_EQ(grow.Expand({100, 60}), (Area{100, 60}));  // shrinking is growing less
  grow.Occupy({160, 40});
  EXPECT_EQ(grow.Expand({200, 800}), (Area{200, 800}));  // the last: up to the bound
  EXPECT_EQ(grow.Expand({200, 801}).Size, 0u);
}

TEST(AtEndOfFileAllocatorTest, AppendsWholeAlignedPiecesAndGrowsTheFile) {
  VhdxTest::ScriptedFile raw;
  Vhdx::WriteableFile file(raw);
  constexpr std::uint64_t kMiB = 0x100000;
  file.Expand(5 * kMiB + 1);
  Vhdx::AtEndOfFileAllocator allocator(file, kMiB, kMiB);
  EXPECT_EQ(allocator.Allocate({0, 1}), (Area{6 * kMiB, kMiB}));
  EXPECT_EQ(allocator.Allocate({6 * kMiB, kMiB + 1}), (Area{7 * kMiB, 2 * kMiB}));
  EXPECT_EQ(file.GetSize(), 9 * kMiB);
  EXPECT_EQ(Vhdx::AtEndOfFileAllocator(file, 0, 0).Allocate({0, 7}), (Area{9 * kMiB, 7}));
  // A size that no longer fits an area is refused before the file grows.
  EXPECT_EQ(CodeOf([&] { allocator.Allocate({0, UINT32_MAX}); }), kBounds);
  EXPECT_EQ(file.GetSize(), 9 * kMiB + 7);
}

}  // namespace
