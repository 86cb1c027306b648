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

TEST(SaturationPreserverTest, KeepsTheTargetsStopForGood) {
  Recorder<DiskArea> target(2);
  Vhd::SaturationPreserver<DiskArea> preserver(target);
  for (std::uint64_t i = 0; i < 4; ++i) {
    EXPECT_EQ(preserver.Collect({i, 1}), i == 0);
    EXPECT_EQ(preserver.IsSaturated(), i > 0);
  }
  EXPECT_EQ(target.values, (Areas{{0, 1}, {1, 1}}));
}

// The saturable single-value collector passes on the first value only and
// always says stop; only the target's own stop counts as saturation.
TEST(SingleValueCollectorTest, PassesTheFirstValueOnlyAndAlwaysSaysStop) {
  for (const std::size_t stopAfter : {1, 100}) {
    Recorder<DiskArea> target(stopAfter);
    const auto collector = SingleValueSaturableCollectorFactory<DiskArea>(target).Create();
    for (const DiskArea a : {DiskArea{5, 1}, DiskArea{6, 1}, DiskArea{7, 1}}) EXPECT_FALSE(collector->Collect(a));
    EXPECT_EQ(collector->IsSaturated(), stopAfter == 1);
    EXPECT_EQ(target.values, (Areas{{5, 1}}));
  }
}

TEST(SaturationCheckingCollectorTest, AsksTheCheckerAroundEachValue) {
  struct Scripted : Vhd::Saturable {
    Scripted(bool before, bool after) : answers{before, after} {}
    bool IsSaturated() const override { return answers[asked++]; }
    bool answers[2];
    mutable int asked = 0;
  };
  struct Case { bool before, targetGoesOn, after, result; int asked; std::size_t forwarded; };
  for (const Case& c : {Case{true, true, false, false, 1, 0}, Case{false, false, false, false, 1, 1},
                        Case{false, true, true, false, 2, 1}, Case{false, true, false, true, 2, 1}}) {
    Scripted checker(c.before, c.after);
    auto target = std::make_shared<Recorder<DiskArea>>(c.targetGoesOn ? 100 : 1);
    SaturationCheckingCollector<DiskArea> collector(checker, target);
    EXPECT_EQ(collector.Collect({0, 1}), c.result);
    EXPECT_EQ(checker.asked, c.asked);
    EXPECT_EQ(target->values.size(), c.forwarded);
  }
}

// The enumerator's checker judges by the lowest interval of the union only.
TEST(SaturationCheckingCollectorTest, TheWholeAssemblyStopsOnceTheDiskIsCovered) {
  Vhd::DiskAreaUnion changed;
  ThreshouldCheckingCollector<DiskArea> goal({0, 100}, &FallsShort);
  SingleValueSaturableCollectorFactory<DiskArea> factory(goal);
  EnumeratorSaturationChecker<DiskArea> checker(changed, factory);
  SaturationCheckingCollector<DiskArea> checking(checker, std::make_shared<Vhd::CollectorDelegate<DiskArea>>(changed));
  Vhd::SaturationPreserver<DiskArea> outer(checking);
  EXPECT_TRUE(outer.Collect({10, 90}));
  EXPECT_TRUE(outer.Collect({0, 5}));
  EXPECT_FALSE(outer.IsSaturated());
  EXPECT_FALSE(outer.Collect({5, 5}));
  EXPECT_TRUE(outer.IsSaturated());
  EXPECT_FALSE(outer.Collect({200, 5}));  // not forwarded any more
  Recorder<DiskArea> held;
  changed.Enumerate(held);
  EXPECT_EQ(held.values, (Areas{{0, 100}}));
}

TEST(IntersectedIntervalCollectorTest, PassesOnlyThePartInsideTheLimit) {
  struct Case { DiskArea value; Areas sent; };
  for (const Case& c : {Case{{25, 5}, {}}, Case{{0, 10}, {}}, Case{{5, 10}, {{10, 5}}}, Case{{15, 10}, {{15, 5}}},
                        Case{{0, 100}, {{10, 10}}}}) {  // outside or touching: nothing, and go on
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
