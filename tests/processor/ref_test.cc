#include <stdexcept>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace Processor
