#include <gtest/gtest.h>

#include "vhdx/aligning_space_manager.h"
#include "vhdx/at_end_of_file_allocator.h"
#include "vhdx/test_files.h"
#include "vhdx/writeable_file.h"

namespace {

using Vhdx::Area;
using VhdxTest::CodeOf;

constexpr std::uint32_t kNotFound = 0x3C0033;
constexpr std::uint32_t kBounds = 0x3C0034;
constexpr std::uint32_t kOccupied = 0x3C0035;

Vhdx::AligningSpaceManager Plain(std::uint32_t bound) { return {bound, 0, 1, 1}; }

TEST(AligningSpaceManagerTest, AllocatesFirstFitBehindTheFirstArea) {
  EXPECT_EQ(Plain(1000).Allocate(100), (Area{0, 100}));

  auto gaps = Plain(1000);
  gaps.Occupy({0, 100});
  gaps.Occupy({200, 100});
  EXPECT_EQ(gaps.Allocate(101), (Area{300, 101}));  // the hole is too small
  EXPECT_EQ(gaps.Allocate(100), (Area{100, 100}));  // and now filled
  EXPECT_EQ(gaps.Allocate(599), (Area{401, 599}));  // up to the bound
  EXPECT_EQ(gaps.Allocate(1).Size, 0u);             // full: empty, no error

  auto late = Plain(1000);
  late.Occupy({500, 100});
  EXPECT_EQ(late.Allocate(10), (Area{600, 10}));  // the room in front stays unused
  EXPECT_EQ(late.Allocate(391).Size, 0u);
  late.SetBound(900);  // only ever raised
  EXPECT_EQ(late.GetBound(), 1000u);
  late.SetBound(1001);
  EXPECT_EQ(late.Allocate(391), (Area{610, 391}));
}

TEST(AligningSpaceManagerTest, AllocationRoundsOffsetsAndSizesUp) {
  Vhdx::AligningSpaceManager space(1000, 0, 64, 16);
  EXPECT_EQ(space.Allocate(10), (Area{0, 16}));
  EXPECT_EQ(space.Allocate(17), (Area{64, 32}));
  space.Occupy({100, 3});
  // The holes 16..64 and 96..100 have no aligned room; behind 103 comes 128.
  EXPECT_EQ(space.Allocate(1), (Area{128, 16}));
  // Behind 144 the next aligned place is 192; 880 bytes from there are too many.
  EXPECT_EQ(space.Allocate(878).Size, 0u);
  EXPECT_EQ(space.Allocate(800), (Area{192, 800}));
  EXPECT_EQ(space.Allocate(0).Size, 0u);

  // An unaligned start: the bytes skipped to the first multiple count.
  Vhdx::AligningSpaceManager shifted(100, 10, 32, 1);
  EXPECT_EQ(shifted.Allocate(79).Size, 0u);
  EXPECT_EQ(shifted.Allocate(78), (Area{32, 78}));
}

TEST(AligningSpaceManagerTest, OccupyAndFreeCheckBoundsOverlapsAndExactStarts) {
  Vhdx::AligningSpaceManager space(100, 50, 1, 1);
  space.Occupy({50, 10});
  space.Occupy({60, 10});  // touching is fine
  space.Occupy({140, 10});  // up to start + bound
  EXPECT_EQ(CodeOf([&] { space.Occupy({50, 10}); }), kOccupied);
  EXPECT_EQ(CodeOf([&] { space.Occupy({69, 2}); }), kOccupied);
  EXPECT_EQ(CodeOf([&] { space.Occupy({49, 1}); }), kBounds);
  EXPECT_EQ(CodeOf([&] { space.Occupy({141, 10}); }), kBounds);
  EXPECT_EQ(CodeOf([&] { space.Occupy({UINT64_MAX - 5, 10}); }), kBounds);
  EXPECT_EQ(CodeOf([&] { space.Free(55); }), kNotFound);
  EXPECT_EQ(CodeOf([&] { space.Free(70); }), kNotFound);
  EXPECT_EQ(CodeOf([&] { space.Free(UINT64_MAX); }), kNotFound);
  space.Free(60);
  EXPECT_EQ(CodeOf([&] { space.Free(60); }), kNotFound);
  space.Occupy({60, 15});
}

TEST(AligningSpaceManagerTest, ExpandGrowsInPlaceUpToTheNextAreaOrTheBound) {
  auto space = Plain(1000);
  space.Occupy({100, 50});
  space.Occupy({200, 10});
  EXPECT_EQ(space.Expand({100, 80}), (Area{100, 80}));
  EXPECT_EQ(space.Expand({100, 120}).Size, 0u);  // would reach into {200, 10}
  EXPECT_EQ(CodeOf([&] { space.Occupy({179, 1}); }), kOccupied);  // still {100, 80}
  EXPECT_EQ(space.Expand({100, 60}), (Area{100, 60}));  // shrinking is growing less
  space.Occupy({160, 40});
  EXPECT_EQ(space.Expand({200, 800}), (Area{200, 800}));  // the last: up to the bound
  EXPECT_EQ(space.Expand({200, 801}).Size, 0u);
  EXPECT_EQ(CodeOf([&] { space.Expand({150, 10}); }), kNotFound);
}

TEST(AtEndOfFileAllocatorTest, AppendsWholeAlignedPiecesAndGrowsTheFile) {
  VhdxTest::ScriptedFile raw;
  Vhdx::WriteableFile file(raw);
  constexpr std::uint64_t kMiB = 0x100000;
  file.Expand(5 * kMiB + 1);
  Vhdx::AtEndOfFileAllocator allocator(file, kMiB, kMiB);
  EXPECT_EQ(allocator.Allocate({0, 1}), (Area{6 * kMiB, kMiB}));
  EXPECT_EQ(file.GetSize(), 7 * kMiB);
  EXPECT_EQ(allocator.Allocate({6 * kMiB, kMiB + 1}), (Area{7 * kMiB, 2 * kMiB}));
  EXPECT_EQ(file.GetSize(), 9 * kMiB);
  EXPECT_EQ(Vhdx::AtEndOfFileAllocator(file, 0, 0).Allocate({0, 7}), (Area{9 * kMiB, 7}));
  // A size that no longer fits an area is refused before the file grows.
  EXPECT_EQ(CodeOf([&] { allocator.Allocate({0, UINT32_MAX}); }), kBounds);
  EXPECT_EQ(file.GetSize(), 9 * kMiB + 7);
}

}  // namespace
