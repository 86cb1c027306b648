#include <thread>

#include <gtest/gtest.h>

#include "processor/weak.h"
#include "test_objects.h"

namespace Processor {
namespace {

using testing::Triple;

TEST(WeakTest, ReadsCountWhileTheObjectLivesAndFollowReassignment) {
  std::atomic<int> destroyed{0};
  auto* object = new Triple(&destroyed);
  WeakRef<Triple> weak(object);
  EXPECT_EQ(weak.Lock()->RefCount.load(), 2);
  EXPECT_EQ(object->RefCount.load(), 1);
  AutoRef<Triple> second = MakeRef<Triple, Triple>();
  WeakRef<Triple> moved(object);
  moved.Assign(second.Get());
  Release(object);
  EXPECT_EQ(destroyed, 1);
  EXPECT_FALSE(weak.Lock());  // after the last release the read gives nothing
  EXPECT_EQ(moved.Lock().Get(), second.Get());  // the old target's death does not touch it
  moved.Clear();
  EXPECT_FALSE(moved.Lock());
}

TEST(WeakTest, ProxyCountsEachWatchingSlotAndOutlivesTheObject) {
  auto outliving = std::make_unique<WeakRef<Triple>>();
  {
    AutoRef<Triple> object = MakeRef<Triple, Triple>();
    GcHolder* holder = GetGcData(object.Get());
    ASSERT_EQ(holder, GetGcData(object.Get()));
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
    GcRefDestroy(plain);
    outliving->Assign(object.Get());
  }
  EXPECT_FALSE(outliving->Lock());
  outliving.reset();  // frees the dead proxy; the leak checker sees the rest
}

// Readers race the last release: a read gets a live object or nothing.
TEST(WeakTest, ReadRacingTheLastReleaseNeverSeesADeadObject) {
  for (int round = 0; round < 3000; ++round) {
    std::atomic<int> destroyed{0};
    auto* object = new Triple(&destroyed);
    WeakRef<Triple> weak(object);
    std::atomic<bool> go{false};
    std::thread reader([&] {
      while (!go.load()) {
      }
      for (int i = 0; i < 4; ++i) {
        AutoRef<Triple> strong = weak.Lock();
        EXPECT_TRUE(!strong || strong->Gamma() + destroyed.load() == 3);
      }
    });
    go = true;
    Release(object);
    reader.join();
    EXPECT_FALSE(weak.Lock());
  }
}

}  // namespace
}  // namespace Processor
