#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/file/expandable_file_region.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/test_files.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/file/writeable_file.h"

namespace {

using Vhdx::Area;
using VhdxTest::CodeOf;

constexpr std::uint32_t kRegionBounds = 0x3C0036;

class FileRegionTest : public ::testing::Test {
 protected:
  FileRegionTest() { raw.Load("ABCDEFGHIJKLMNOPQRSTUVWXYZ"); }
  VhdxTest::ScriptedFile raw;
  Vhdx::WriteableFile file{raw};
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

TEST_F(FileRegionTest, GrowingCopiesTheContentBeforeTheMonitorIsTold) {
  const std::string content(5000, 'c');  // more than one copy piece
  file.Write(0x100000, content.size(), content.data());
  auto monitor = std::make_shared<RecordingMonitor>(raw);
  Vhdx::ExpandableFileRegionImpl region(
      file, {0x100000, 5000}, std::make_shared<Vhdx::AtEndOfFileAllocator>(file, 0x100000, 0x100000), monitor);
  region.Expand(5000);  // the present length: nothing at all
  EXPECT_EQ(file.GetSize(), 0x100000u + 5000);
  region.Expand(6000);
  const Area moved{0x200000, 0x100000};
  EXPECT_EQ(monitor->calls, (decltype(monitor->calls){{{0x100000, 5000}, moved}}));
  EXPECT_EQ(monitor->contentSeen, content);
  EXPECT_EQ(region.GetLocation(), moved);
  region.Write({5000, 3}, "new");
  EXPECT_EQ(raw.Bytes(0x200000 + 4999, 4), "cnew");
  EXPECT_EQ(raw.Bytes(0x100000, 5000), content);  // the old place stays as it was
}

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

}  // namespace
