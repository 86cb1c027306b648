#include <gtest/gtest.h>

#include <random>

#include "vhd/collecting_disk_area_intersection.h"
#include "vhd/interval.h"
#include "vhd/union.h"
#include "vhd/recorder.h"

namespace Vhd {

namespace {

using Testing::Areas;
using Testing::Recorder;

Areas Contents(DiskAreaUnion& u, std::size_t stopAfter = SIZE_MAX, bool goesOn = true) {
  Recorder<DiskArea> r(stopAfter);
  EXPECT_EQ(u.Enumerate(r), goesOn);
  return r.values;
}

TEST(IntervalTest, UniteJoinsOverlappingAndTouchingRangesAndRefusesDisjointOnes) {
  struct Case { DiskArea a, b, united; };
  for (const Case& c : {Case{{15, 5}, {10, 5}, {10, 10}}, Case{{0, 10}, {3, 2}, {0, 10}},  // touching, inside
                        Case{{10, 0}, {10, 5}, {10, 5}}, Case{{15, 0}, {10, 5}, {10, 5}},  // empty at either end
                        Case{{7, 0}, {7, 0}, {7, 0}}})
    EXPECT_EQ(c.a.Unite(c.b), c.united) << c.a.Offset << "+" << c.b.Offset;
  const std::pair<DiskArea, DiskArea> disjoint[] = {{{10, 5}, {16, 5}}, {{16, 5}, {10, 5}}, {{0, 0}, {1, 0}}};
  for (const auto& [a, b] : disjoint)  // clang 14 cannot capture a structured binding by [&]
    EXPECT_EQ(Testing::CodeOf([&a = a, &b = b] { a.Unite(b); }), 0x3C003Cu) << a.Offset;
}

TEST(UnionTest, KeepsRunsSortedAndMergesAcrossThem) {
  struct Case { Areas input, held; };
  const Case cases[] = {
      {{{20, 5}, {0, 5}, {10, 5}}, {{0, 5}, {10, 5}, {20, 5}}}, {{{10, 5}, {0, 5}, {5, 5}}, {{0, 15}}},
      {{{0, 2}, {4, 2}, {8, 2}, {1, 8}}, {{0, 10}}},  // spans three
      {{{0, 2}, {4, 2}, {8, 2}, {12, 1}, {2, 2}}, {{0, 6}, {8, 2}, {12, 1}}},
      {{{0, 5}, {5, 0}}, {{0, 5}}}, {{{0, 5}, {3, 0}}, {{0, 5}}},  // empty, touching or inside
      {{{0, 5}, {20, 0}}, {{0, 5}, {20, 0}}}, {{{20, 0}, {15, 5}}, {{15, 5}}},
  };
  for (const Case& c : cases) {
    DiskAreaUnion u;
    for (const DiskArea& a : c.input) EXPECT_TRUE(u.Collect(a));
    EXPECT_EQ(Contents(u), c.held) << &c - cases;
  }
  DiskAreaUnion u;
  EXPECT_TRUE(Contents(u, 1).empty());
  for (const DiskArea& a : Areas{{0, 1}, {5, 1}, {9, 1}}) u.Collect(a);
  EXPECT_EQ(Contents(u, 2, false), (Areas{{0, 1}, {5, 1}}));  // stops at the first false
}

TEST(UnionTest, MatchesTheCoverageOfRandomIntervals) {
  std::mt19937 rng(7);
  for (int round = 0; round < 200; ++round) {
    std::vector<bool> covered(120);
    DiskAreaUnion u;
    for (int i = 0; i < 12; ++i) {
      const DiskArea a{rng() % 100, 1 + rng() % 15};
      for (std::uint64_t x = a.Offset; x < a.End(); ++x) covered[x] = true;
      u.Collect(a);
    }
    Areas expected;
    for (std::uint64_t x = 0; x < covered.size(); ++x) {
      if (!covered[x]) continue;
      if (!expected.empty() && expected.back().End() == x) ++expected.back().Size;
      else expected.push_back({x, 1});
    }
    ASSERT_EQ(Contents(u), expected) << "round " << round;
  }
}

TEST(CollectingDiskAreaIntersectionTest, SendsTheStoredPartsInsideTheArea) {
  CollectingDiskAreaIntersection in;
  for (const DiskArea& a : Areas{{0, 10}, {20, 10}, {5, 10}}) EXPECT_TRUE(in.Collect(a));  // {5, 10} overlaps: dropped
  struct Case { DiskArea area; Areas sent; };
  for (const Case& c : {Case{{5, 20}, {{5, 5}, {20, 5}}}, Case{{10, 10}, {}},  // touching is no overlap
                        Case{{30, 5}, {}}, Case{{9, 12}, {{9, 1}, {20, 1}}}, Case{{0, 100}, {{0, 10}, {20, 10}}},
                        Case{{25, 100}, {{25, 5}}}, Case{{5, 0}, {}}}) {
    Recorder<DiskArea> r;
    EXPECT_TRUE(in.Intersect(c.area, r));
    EXPECT_EQ(r.values, c.sent) << c.area.Offset << "," << c.area.Size;
  }
  Recorder<DiskArea> first(1);
  EXPECT_FALSE(in.Intersect({0, 100}, first));
  EXPECT_EQ(first.values, (Areas{{0, 10}}));
}

}  // namespace
}  // namespace Vhd
