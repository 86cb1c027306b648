#include <thread>

#include <gtest/gtest.h>

#include "processor/weak.h"
#include "test_objects.h"

namespace Processor {
namespace {

using testing::IAlpha;
using testing::Triple;

TEST(WeakTest, ReadGivesACountedReferenceWhileTheObjectLives) {
  std::atomic<int> destroyed{0};
  auto* object = new Triple(&destroyed);
  WeakRef<Triple> weak(object);
  {
    AutoRef<Triple> strong = weak.Lock();
    ASSERT_TRUE(strong);
    EXPECT_EQ(object->RefCount.load(), 2);
  }
  EXPECT_EQ(object->RefCount.load(), 1);
  Release(object);
  EXPECT_EQ(destroyed, 1);
  // After the last release the read leaves its argument empty.
  EXPECT_FALSE(weak.Lock());
}

TEST(WeakTest, ReassignedAndClearedSlotsFollowTheirNewTarget) {
  AutoRef<Triple> first = MakeRef<Triple, Triple>();
  AutoRef<Triple> second = MakeRef<Triple, Triple>();
  WeakRef<Triple> weak(first.Get());
  weak.Assign(second.Get());
  EXPECT_EQ(weak.Lock().Get(), second.Get());
  first.Reset();  // the old target's death does not touch the slot
  EXPECT_EQ(weak.Lock().Get(), second.Get());
  weak.Clear();
  EXPECT_FALSE(weak.Lock());
  weak.Assign(nullptr);
  EXPECT_FALSE(weak.Lock());
}

TEST(WeakTest, ProxyCountsItsHolderAndEachWatchingSlot) {
  AutoRef<Triple> object = MakeRef<Triple, Triple>();
  GcHolder* holder = GetGcData(object.Get());
  ASSERT_EQ(holder, GetGcData(object.Get()));
  EXPECT_EQ(GetGcData(nullptr), nullptr);
  RefProxy* proxy = GetProxy(holder);
  EXPECT_EQ(proxy->GetRefCount(), 1);
  {
    WeakRef<Triple> a(object.Get());
    WeakRef<Triple> b(object.Get());
    EXPECT_EQ(proxy->GetRefCount(), 3);
  }
  EXPECT_EQ(proxy->GetRefCount(), 1);

  // A plain slot never takes the proxy.
  int target = 0;
  GcRef* plain = GcRefCreate(holder, kGcRefPlain, &target, [](void*, int, void*) {});
  EXPECT_EQ(plain->Proxy, nullptr);
  GcRefAssign(plain, holder, nullptr);
  EXPECT_EQ(plain->Proxy, nullptr);
  GcRefDestroy(plain);
}

TEST(WeakTest, SlotOutlivingTheObjectKeepsTheProxyUntilItGoes) {
  auto weak = std::make_unique<WeakRef<Triple>>();
  {
    AutoRef<Triple> object = MakeRef<Triple, Triple>();
    weak->Assign(object.Get());
  }
  EXPECT_FALSE(weak->Lock());
  weak.reset();  // frees the dead proxy; the leak checker sees the rest
}

// Readers race the last release of each object: a read either gets a live
// object or nothing, never a dying one.
TEST(WeakTest, ReadRacingTheLastReleaseNeverSeesADeadObject) {
  constexpr int kRounds = 3000;
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<int> destroyed{0};
    auto* object = new Triple(&destroyed);
    WeakRef<Triple> weak(object);
    std::atomic<bool> go{false};
    std::thread reader([&] {
      while (!go.load()) {
      }
      for (int i = 0; i < 4; ++i) {
        AutoRef<Triple> strong = weak.Lock();
        if (strong) {
          EXPECT_EQ(destroyed.load(), 0);
          EXPECT_EQ(strong->Gamma(), 3);
        }
      }
    });
    go = true;
    Release(object);
    reader.join();
    EXPECT_EQ(destroyed.load(), 1);
    EXPECT_FALSE(weak.Lock());
  }
}

}  // namespace
}  // namespace Processor
