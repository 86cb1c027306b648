#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "processor/singleton.h"
#include "processor/weak.h"
#include "test_objects.h"

namespace Processor {
namespace {

using testing::IAlpha;
using testing::IBeta;
using testing::IGamma;
using testing::Triple;

TEST(RefTest, ThreeInterfacesShareOneCountAndUnknownOnesGiveTheNullPair) {
  std::atomic<int> destroyed{0};
  AutoRef<IAlpha> alpha = MakeRef<IAlpha, Triple>(&destroyed);
  InterfaceRef ref;
  static_cast<Interface*>(alpha.Get())->GetInterface(ref, IBeta::InterfaceId);
  ASSERT_NE(ref.Pointer, nullptr);
  EXPECT_EQ(ref.Meta, InterfaceMetaClass<IBeta>::Instance());
  EXPECT_EQ(static_cast<IBeta*>(ref.Pointer)->Beta(), 2);
  ref.Meta->Release(ref.Pointer);
  InterfaceRef none{reinterpret_cast<void*>(1), nullptr};
  static_cast<Interface*>(alpha.Get())->GetInterface(none, 0x12345678);
  EXPECT_TRUE(none.Pointer == nullptr && none.Meta == nullptr);

  AutoRef<IBeta> beta = QueryInterface<IBeta>(alpha);
  AutoRef<IGamma> gamma = QueryInterface<IGamma>(beta);
  EXPECT_EQ(alpha->RefCount.load(), 3);
  alpha.Reset();
  beta.Reset();
  EXPECT_EQ(destroyed, 0);  // the reference through IGamma keeps all alive
  EXPECT_EQ(gamma->Gamma(), 3);
  gamma.Reset();
  EXPECT_EQ(destroyed, 1);
}

TEST(RefTest, MetaClassCastsCountsAndRefusesNull) {
  MetaClass* meta = InterfaceMetaClass<IAlpha>::Instance();
  EXPECT_FALSE(meta->IsWeak());
  AutoRef<IAlpha> alpha = MakeRef<IAlpha, Triple>();
  void* raw = alpha.Get();
  InterfaceRef out;
  meta->Cast(out, IGamma::InterfaceId, raw);  // asks the object
  ASSERT_NE(out.Pointer, nullptr);
  EXPECT_EQ(out.Meta->GetId(), IGamma::InterfaceId);
  out.Meta->Release(out.Pointer);
  meta->Cast(out, IAlpha::InterfaceId, raw);  // its own: same pointer, counted
  EXPECT_EQ(out.Pointer, raw);
  EXPECT_EQ(alpha->RefCount.load(), 2);
  meta->Release(out.Pointer);
  meta->Cast(out, IAlpha::InterfaceId, nullptr);
  EXPECT_EQ(out.Pointer, nullptr);
  meta->CastRaw(out, IBeta::InterfaceId, raw);
  EXPECT_EQ(out.Meta, nullptr);
  meta->CastRaw(out, IAlpha::InterfaceId, raw);
  EXPECT_EQ(out.Meta, meta);
  meta->Release(raw);
  EXPECT_FALSE(meta->TryAddRef(nullptr));
  meta->AddRef(nullptr);
  meta->Release(nullptr);
  EXPECT_EQ(alpha->RefCount.load(), 1);
}

// An object whose last release does not free it.
struct Lingering final : RefObject {
  void OnLastRelease() override { released = true; }
  bool released = false;
};

TEST(RefTest, TryAddRefFailsOnceTheCountReachedZero) {
  Lingering object;
  EXPECT_TRUE(TryAddRef(&object));
  Release(&object);
  Release(&object);
  EXPECT_TRUE(object.released);
  EXPECT_FALSE(TryAddRef(&object));
  EXPECT_EQ(object.RefCount.load(), 0);
}

TEST(RefTest, HoldersCopyMoveAdoptAndRefuseNull) {
  std::atomic<int> destroyed{0};
  AutoRef<IAlpha> a = MakeRef<IAlpha, Triple>(&destroyed);
  AutoRef<IAlpha> b = a;
  AutoRef<IAlpha> c = std::move(b);
  EXPECT_FALSE(b);
  c = a;  // self-same target
  EXPECT_EQ(a->RefCount.load(), 2);
  AutoRef<IAlpha> adopted = AutoRef<IAlpha>::Adopt(c.Detach());
  EXPECT_FALSE(c);
  a = AutoRef<IAlpha>();
  AutoRef<IAlpha>& alias = adopted;  // self-move on purpose, through a name the compiler does not flag
  adopted = std::move(alias);
  EXPECT_EQ(destroyed, 0);
  adopted.Reset();
  EXPECT_EQ(destroyed, 1);
  try {
    adopted->Alpha();
    FAIL() << "no throw";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "Attempt to use null reference.");
  }
  EXPECT_THROW(QueryInterface<IBeta>(adopted), std::invalid_argument);
}

constexpr int kAlive = 0x600D;

struct Counted final : Singleton<Counted> {
  Counted() { ++made; }
  ~Counted() override {
    alive = 0;
    ++gone;
  }
  int alive = kAlive;
  static inline std::atomic<int> made{0};
  static inline std::atomic<int> gone{0};
};

TEST(SingletonTest, OneInstanceWhileHeldAndANewOneAfterItDied) {
  AutoRef<Counted> a = Counted::Instance();
  AutoRef<Counted> b = Counted::Instance();
  EXPECT_EQ(a.Get(), b.Get());
  const int gone = Counted::gone;
  a.Reset();
  b.Reset();
  EXPECT_EQ(Counted::gone, gone + 1);
  EXPECT_EQ(Counted::Peek(), nullptr);
  AutoRef<Counted> c = Counted::Instance();
  EXPECT_EQ(c->alive, kAlive);
  EXPECT_TRUE(FrameworkStarted());
}

TEST(SingletonTest, ThreadsReleasingAndReacquiringNeverMeetADestroyedInstance) {
  std::vector<std::thread> threads;
  std::atomic<int> bad{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&bad] {
      for (int i = 0; i < 20000; ++i) {
        AutoRef<Counted> p = Counted::Instance();
        if (p->alive != kAlive) ++bad;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(bad, 0);
  EXPECT_EQ(Counted::made - Counted::gone, Counted::Peek() ? 1 : 0);
}

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
    GcRef* watching = GcRefCreate(holder, kGcRefWatching, &target, [](void*, int, void*) {});
    EXPECT_EQ(watching->Proxy, proxy);
    EXPECT_EQ(proxy->GetRefCount(), 2);
    GcRefDestroy(watching);
    EXPECT_EQ(proxy->GetRefCount(), 1);
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
