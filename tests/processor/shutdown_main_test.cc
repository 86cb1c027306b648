// The shutdown routine changes process-wide state for good, so it has a test
// program of its own.
#include <gtest/gtest.h>

#include "common/trace.h"
#include "processor/shutdown.h"
#include "processor/singleton.h"
#include "test_objects.h"

namespace Processor {
namespace {

struct Held final : SingletonShutdown<Held> {
  ~Held() override { ++gone; }
  static inline int gone = 0;
};

struct AlsoHeld final : SingletonShutdown<AlsoHeld> {
  ~AlsoHeld() override { ++gone; }
  static inline int gone = 0;
};

TEST(ShutdownTest, DestroysListedSingletonsAndMetaClassesOnce) {
  Held::Instance();
  ASSERT_NE(Held::Peek(), nullptr);  // the list holds it beyond its last user
  AutoRef<AlsoHeld> stillUsed = AlsoHeld::Instance();
  EXPECT_EQ(FirstSingleton(), static_cast<RefObject*>(Held::Peek()));
  ASSERT_NE(InterfaceMetaClass<testing::IAlpha>::Instance(), nullptr);

  Shutdown();
  EXPECT_EQ(Common::GetTraceLevel(), 6);
  EXPECT_EQ(Held::gone, 1);
  EXPECT_EQ(Held::Peek(), nullptr);
  // A singleton still in use survives, now without the list's reference.
  EXPECT_EQ(AlsoHeld::gone, 0);
  EXPECT_EQ(stillUsed->RefCount.load(), 1);
  EXPECT_FALSE(FrameworkStarted());

  // After shutdown a new singleton is not linked: it dies with its users.
  Held::Instance();
  EXPECT_EQ(Held::gone, 2);
  stillUsed.Reset();
  EXPECT_EQ(AlsoHeld::gone, 1);

  // Meta-classes are made again on demand.
  EXPECT_EQ(InterfaceMetaClass<testing::IAlpha>::Instance()->GetId(), testing::IAlpha::InterfaceId);
  Shutdown();  // a second run finds nothing to do
  EXPECT_EQ(Held::gone, 2);
}

}  // namespace
}  // namespace Processor
