#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "vhd/collecting_disk_area_intersection.h"
#include "vhd/interval.h"
#include "vhd/union.h"
#include "vhd/recorder.h"

namespace Vhd {

namespace {

using Testing::Areas;
using Testing::Recorder;

Areas Contents(DiskAreaUnion& u) {
  Recorder<DiskArea> r;
  EXPECT_TRUE(u.Enumerate(r));
  return r.values;
}

TEST(IntervalTest, UniteJoinsOverlappingAndTouchingRanges) {
  struct Case { DiskArea a, b, united; };
  const Case cases[] = {
      {{10, 5}, {15, 5}, {10, 10}},  // touching
      {{15, 5}, {10, 5}, {10, 10}},
      {{0, 10}, {3, 2}, {0, 10}},    // contained
      {{0, 10}, {8, 10}, {0, 18}},
      {{10, 0}, {10, 5}, {10, 5}},   // empty at the start
      {{15, 0}, {10, 5}, {10, 5}},   // empty at the end
      {{7, 0}, {7, 0}, {7, 0}},
  };
  for (const Case& c : cases) EXPECT_EQ(c.a.Unite(c.b), c.united) << c.a.Offset << "+" << c.b.Offset;
}

TEST(IntervalTest, UniteOfDisjointRangesRaisesTheInternalError) {
  const std::pair<DiskArea, DiskArea> cases[] = {{{10, 5}, {16, 5}}, {{16, 5}, {10, 5}}, {{0, 0}, {1, 0}}};
  for (const auto& [a, b] : cases) {
    try {
      a.Unite(b);
      ADD_FAILURE() << "no error for " << a.Offset << "+" << b.Offset;
    } catch (const Common::Error& e) {
      EXPECT_EQ(e.Code(), 0x3C003Cu);
      EXPECT_EQ(e.GetText(), u"Internal error: An attempt to unite disjoint intervals.");
    }
  }
}

TEST(UnionTest, MergesInAnyOrder) {
  Areas input{{0, 5}, {5, 5}, {10, 5}};
  do {
    DiskAreaUnion u;
    for (const DiskArea& a : input) EXPECT_TRUE(u.Collect(a));
    EXPECT_EQ(Contents(u), (Areas{{0, 15}}));
  } while (std::next_permutation(input.begin(), input.end(),
                                 [](const DiskArea& a, const DiskArea& b) { return a.Offset < b.Offset; }));
}

TEST(UnionTest, KeepsRunsSortedAndMergesAcrossThem) {
  struct Case { Areas input, held; };
  const Case cases[] = {
      {{{20, 5}, {0, 5}, {10, 5}}, {{0, 5}, {10, 5}, {20, 5}}},
      {{{0, 2}, {4, 2}, {8, 2}, {1, 8}}, {{0, 10}}},            // spans three
      {{{0, 2}, {4, 2}, {8, 2}, {12, 1}, {2, 2}}, {{0, 6}, {8, 2}, {12, 1}}},
      {{{0, 5}, {5, 0}}, {{0, 5}}},                             // empty, touching
      {{{0, 5}, {3, 0}}, {{0, 5}}},                             // empty, inside
      {{{0, 5}, {20, 0}}, {{0, 5}, {20, 0}}},                   // empty, alone
      {{{20, 0}, {15, 5}}, {{15, 5}}},
  };
  for (const Case& c : cases) {
    DiskAreaUnion u;
    for (const DiskArea& a : c.input) u.Collect(a);
    EXPECT_EQ(Contents(u), c.held);
  }
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

TEST(UnionTest, EnumerationStopsAtTheFirstFalse) {
  DiskAreaUnion u;
  Recorder<DiskArea> none(1);
  EXPECT_TRUE(u.Enumerate(none));
  EXPECT_TRUE(none.values.empty());

  for (const DiskArea& a : Areas{{0, 1}, {5, 1}, {9, 1}}) u.Collect(a);
  Recorder<DiskArea> second(2);
  EXPECT_FALSE(u.Enumerate(second));
  EXPECT_EQ(second.values, (Areas{{0, 1}, {5, 1}}));
}

TEST(CollectingDiskAreaIntersectionTest, SendsTheStoredPartsInsideTheArea) {
  struct Case { DiskArea area; Areas sent; };
  const Case cases[] = {
      {{5, 20}, {{5, 5}, {20, 5}}},
      {{10, 5}, {}},                      // touching is no overlap
      {{10, 10}, {}},
      {{30, 5}, {}},
      {{9, 12}, {{9, 1}, {20, 1}}},
      {{0, 100}, {{0, 10}, {20, 10}}},
      {{25, 100}, {{25, 5}}},
      {{5, 0}, {}},
  };
  CollectingDiskAreaIntersection in;
  EXPECT_TRUE(in.Collect({0, 10}));
  EXPECT_TRUE(in.Collect({20, 10}));
  EXPECT_TRUE(in.Collect({5, 10}));  // overlaps {0, 10}: dropped, not merged
  for (const Case& c : cases) {
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
