#include <gtest/gtest.h>

#include "vhd/collector_delegate.h"
#include "vhd/fixed_value_reporting_collector.h"
#include "vhd/intersected_interval_collector.h"
#include "vhd/recorder.h"
#include "vhd/saturation_checking.h"
#include "vhd/saturation_preserver.h"
#include "vhd/single_value_collector.h"
#include "vhd/threshould_checking_collector.h"
#include "vhd/union.h"

namespace Vhdx {
namespace {

using Vhd::DiskArea;
using Vhd::Testing::Areas;
using Vhd::Testing::Recorder;

// The goal of the differencing walk: false (saturated) once one interval
// covers the whole threshold.
bool FallsShort(const DiskArea& value, const DiskArea& threshold) {
  return value.Offset > threshold.Offset || value.End() < threshold.End();
}

TEST(SaturationPreserverTest, KeepsTheTargetsStopForGood) {
  Recorder<DiskArea> target(2);
  Vhd::SaturationPreserver<DiskArea> preserver(target);
  EXPECT_TRUE(preserver.Collect({0, 1}));
  EXPECT_FALSE(preserver.IsSaturated());
  EXPECT_FALSE(preserver.Collect({1, 1}));
  EXPECT_FALSE(preserver.Collect({2, 1}));
  EXPECT_FALSE(preserver.Collect({3, 1}));
  EXPECT_TRUE(preserver.IsSaturated());
  EXPECT_EQ(target.values, (Areas{{0, 1}, {1, 1}}));
}

// The plain collector and the saturable one pass on the first value only
// and always say stop; only the target's own stop counts as saturation.
TEST(SingleValueCollectorTest, PassesTheFirstValueOnlyAndAlwaysSaysStop) {
  struct Case { std::size_t stopAfter; bool saturated; };
  for (const Case c : {Case{1, true}, Case{100, false}}) {
    Recorder<DiskArea> plainTarget(c.stopAfter), target(c.stopAfter);
    SingleValueCollector<DiskArea> plain(plainTarget);
    const auto collector = SingleValueSaturableCollectorFactory<DiskArea>(target).Create();
    EXPECT_FALSE(collector->IsSaturated());
    for (const DiskArea a : {DiskArea{5, 1}, DiskArea{6, 1}, DiskArea{7, 1}}) {
      EXPECT_FALSE(plain.Collect(a));
      EXPECT_FALSE(collector->Collect(a));
    }
    EXPECT_EQ(collector->IsSaturated(), c.saturated);
    EXPECT_EQ(plainTarget.values, (Areas{{5, 1}}));
    EXPECT_EQ(target.values, (Areas{{5, 1}}));
  }
}

TEST(EnumeratorSaturationCheckerTest, JudgesByTheLowestIntervalOfAUnion) {
  struct Case { Areas input; bool saturated; };
  const Case cases[] = {
      {{}, false},  // nothing reaches the target
      {{{0, 100}}, true},
      {{{0, 120}}, true},
      {{{0, 50}}, false},
      {{{10, 90}}, false},
      {{{0, 50}, {50, 50}}, true},
      {{{0, 50}, {60, 40}}, false},
  };
  for (const Case& c : cases) {
    Vhd::DiskAreaUnion u;
    for (const DiskArea& a : c.input) u.Collect(a);
    ThreshouldCheckingCollector<DiskArea> goal({0, 100}, &FallsShort);
    SingleValueSaturableCollectorFactory<DiskArea> factory(goal);
    EnumeratorSaturationChecker<DiskArea> checker(u, factory);
    EXPECT_EQ(checker.IsSaturated(), c.saturated) << c.input.size();
  }
}

TEST(SaturationCheckingCollectorTest, AsksTheCheckerAroundEachValue) {
  struct Scripted : Vhd::Saturable {
    bool IsSaturated() const override { return answers[asked++]; }
    bool answers[2];
    mutable int asked = 0;
  };
  struct Case { bool before, targetGoesOn, after, result; int asked; std::size_t forwarded; };
  const Case cases[] = {
      {true, true, false, false, 1, 0},
      {false, false, false, false, 1, 1},
      {false, true, true, false, 2, 1},
      {false, true, false, true, 2, 1},
  };
  for (const Case& c : cases) {
    Scripted checker;
    checker.answers[0] = c.before;
    checker.answers[1] = c.after;
    auto target = std::make_shared<Recorder<DiskArea>>(c.targetGoesOn ? 100 : 1);
    SaturationCheckingCollector<DiskArea> collector(checker, target);
    EXPECT_EQ(collector.Collect({0, 1}), c.result);
    EXPECT_EQ(checker.asked, c.asked);
    EXPECT_EQ(target->values.size(), c.forwarded);
  }
}

TEST(SaturationCheckingCollectorTest, TheWholeAssemblyStopsOnceTheDiskIsCovered) {
  Vhd::DiskAreaUnion changed;
  ThreshouldCheckingCollector<DiskArea> goal({0, 100}, &FallsShort);
  SingleValueSaturableCollectorFactory<DiskArea> factory(goal);
  EnumeratorSaturationChecker<DiskArea> checker(changed, factory);
  SaturationCheckingCollector<DiskArea> checking(checker,
                                                 std::make_shared<Vhd::CollectorDelegate<DiskArea>>(changed));
  Vhd::SaturationPreserver<DiskArea> outer(checking);

  EXPECT_TRUE(outer.Collect({0, 40}));
  EXPECT_TRUE(outer.Collect({60, 40}));
  EXPECT_FALSE(outer.IsSaturated());
  EXPECT_FALSE(outer.Collect({40, 20}));
  EXPECT_TRUE(outer.IsSaturated());
  EXPECT_FALSE(outer.Collect({200, 5}));  // not forwarded any more

  Recorder<DiskArea> held;
  changed.Enumerate(held);
  EXPECT_EQ(held.values, (Areas{{0, 100}}));
}

TEST(IntersectedIntervalCollectorTest, PassesOnlyThePartInsideTheLimit) {
  struct Case { DiskArea value; Areas sent; };
  const Case cases[] = {
      {{0, 5}, {}}, {{25, 5}, {}}, {{0, 10}, {}}, {{20, 5}, {}},  // outside or touching
      {{5, 10}, {{10, 5}}}, {{15, 10}, {{15, 5}}}, {{0, 100}, {{10, 10}}}, {{12, 3}, {{12, 3}}},
  };
  for (const Case& c : cases) {
    Recorder<DiskArea> target(1);  // a value that reaches the target stops
    IntersectedIntervalCollector<DiskArea> collector({10, 10}, target);
    EXPECT_EQ(collector.Collect(c.value), c.sent.empty()) << c.value.Offset;
    EXPECT_EQ(target.values, c.sent) << c.value.Offset;
  }
}

TEST(FixedValueReportingCollectorTest, ReportsItsValueForEachIncomingOne) {
  Recorder<DiskArea> target(2);
  FixedValueReportingCollector<Vhd::RegionArea, DiskArea> collector({7, 3}, target);
  EXPECT_TRUE(collector.Collect({0, 1}));
  EXPECT_FALSE(collector.Collect({100, 20}));
  EXPECT_EQ(target.values, (Areas{{7, 3}, {7, 3}}));
}

}  // namespace
}  // namespace Vhdx
