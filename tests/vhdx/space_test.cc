#include <functional>

#include <gtest/gtest.h>

#include "vhdx/metadata/aligning_space_manager.h"
#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/test_files.h"
#include "vhdx/file/writeable_file.h"

namespace {

using Vhdx::Area;
using VhdxTest::CodeOf;

constexpr std::uint32_t kNotFound = 0x3C0033;
constexpr std::uint32_t kBounds = 0x3C0034;
constexpr std::uint32_t kOccupied = 0x3C0035;
constexpr Area kFull{0, 0};  // an empty area: no room, and no error

// Each allocation in turn, on one manager.
void ExpectAllocations(Vhdx::AligningSpaceManager& space, std::initializer_list<std::pair<std::uint32_t, Area>> steps) {
  for (const auto& [size, area] : steps) {
    const Area got = space.Allocate(size);
    EXPECT_EQ(area.Size ? got : (Area{0, got.Size}), area) << "Allocate(" << size << ")";
  }
}

TEST(AligningSpaceManagerTest, AllocatesFirstFitBehindTheFirstAreaRoundingOffsetsAndSizesUp) {
  Vhdx::AligningSpaceManager gaps(1000, 0, 1, 1);
  gaps.Occupy({0, 100});
  gaps.Occupy({200, 100});
  // The hole is too small, then filled; up to the bound, then full.
  ExpectAllocations(gaps, {{101, {300, 101}}, {100, {100, 100}}, {599, {401, 599}}, {1, kFull}});

  Vhdx::AligningSpaceManager late(1000, 0, 1, 1);
  late.Occupy({500, 100});
  ExpectAllocations(late, {{10, {600, 10}}, {391, kFull}});  // the room in front stays unused
  late.SetBound(900);  // only ever raised
  EXPECT_EQ(late.GetBound(), 1000u);
  late.SetBound(1001);
  ExpectAllocations(late, {{391, {610, 391}}});

  Vhdx::AligningSpaceManager aligned(1000, 0, 64, 16);
  ExpectAllocations(aligned, {{10, {0, 16}}, {17, {64, 32}}});
  aligned.Occupy({100, 3});
  // The holes 16..64 and 96..100 have no aligned room; behind 103 comes 128.
  // Behind 144 the next aligned place is 192; 880 bytes from there are too many.
  ExpectAllocations(aligned, {{1, {128, 16}}, {878, kFull}, {800, {192, 800}}, {0, kFull}});
  // An unaligned start: the bytes skipped to the first multiple count.
  Vhdx::AligningSpaceManager shifted(100, 10, 32, 1);
  ExpectAllocations(shifted, {{79, kFull}, {78, {32, 78}}});
}

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
