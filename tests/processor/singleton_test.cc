#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "processor/singleton.h"

namespace Processor {
namespace {

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

}  // namespace
}  // namespace Processor
