#include <pthread.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "common/crc32.h"
#include "common/delay_load.h"
#include "common/guid.h"
#include "common/mutex.h"
#include "common/random.h"
#include "common/stack_walk.h"
#include "common/tls.h"

namespace Common {
namespace {

TEST(MutexTest, SameThreadReentersOtherThreadsWaitAndCannotUnlock) {
  Mutex m;
  m.Lock();
  m.Lock();
  bool otherGotIt = true;
  std::thread([&] { otherGotIt = m.TryLock(); }).join();
  EXPECT_FALSE(otherGotIt);
  m.Unlock();
  EXPECT_TRUE(m.HeldByThisThread());
  testing::internal::CaptureStderr();
  std::thread([&] { m.Unlock(); }).join();
  const std::string report = testing::internal::GetCapturedStderr();
  EXPECT_NE(report.find("Assertion failed: *reinterpret_cast<DWORD*>(&MUTEX_DATA.OwningThread)"),
            std::string::npos)
      << report;
  EXPECT_TRUE(m.HeldByThisThread());
  m.Unlock();
  std::thread([&] {
    otherGotIt = m.TryLock();
    if (otherGotIt) m.Unlock();
  }).join();
  EXPECT_TRUE(otherGotIt);
}

TEST(TlsTest, SlotsAreSeparatePerThreadAndTheCallbackRunsAtThreadEnd) {
  static std::atomic<int> seen{0};
  const std::uint32_t key = Tls::Alloc([](void* value) { seen += *static_cast<int*>(value); });
  ASSERT_NE(key, Tls::OUT_OF_INDEXES);
  int mine = 1;
  ASSERT_TRUE(Tls::Set(key, &mine));
  std::thread([key] {
    EXPECT_EQ(Tls::Get(key), nullptr);
    static int theirs = 41;
    Tls::Set(key, &theirs);
  }).join();
  EXPECT_EQ(seen, 41);
  EXPECT_EQ(Tls::Get(key), &mine);
  std::thread([key] { Tls::Get(key); }).join();  // a null value calls nothing
  EXPECT_EQ(seen, 41);

  // Freeing the callback's slot forgets the callback.
  Tls::Free(key);
  const std::uint32_t plain = Tls::Alloc();
  std::thread([plain] {
    static int ignored = 100;
    Tls::Set(plain, &ignored);
  }).join();
  EXPECT_EQ(seen, 41);
  Tls::Free(plain);
}

TEST(GuidTest, RandomGuidsAreVersionFourAndDiffer) {
  std::set<std::string> seen;
  for (int i = 0; i < 200; ++i) {
    Guid g{};
    ASSERT_TRUE(CreateRandomGuid(g));
    EXPECT_EQ(g.Data3 >> 12, 4);
    EXPECT_EQ(g.Data4[0] >> 6, 2);
    seen.insert(GuidToString(g));
  }
  EXPECT_EQ(seen.size(), 200u);
  Guid g{};
  testing::internal::CaptureStderr();
  EXPECT_FALSE(CreateRandomGuid(g, 1));
  testing::internal::GetCapturedStderr();
}

TEST(GuidTest, TextFormRoundTripsAndNeedsAllFields) {
  // The on-disk byte order of the fields is little-endian.
  const std::uint8_t bytes[16] = {0x37, 0x67, 0xA1, 0xCA, 0x36, 0xFA, 0x43, 0x4D,
                                  0xB3, 0xB6, 0x33, 0xF0, 0xAA, 0x44, 0xE7, 0x6B};
  Guid g;
  std::memcpy(&g, bytes, 16);
  EXPECT_EQ(GuidToString(g), "CAA16737-FA36-4D43-B3B6-33F0AA44E76B");
  Guid back{};
  ASSERT_TRUE(GuidFromString(back, "caa16737-fa36-4d43-b3b6-33f0aa44e76b"));
  EXPECT_EQ(back, g);
  for (const char* bad : {"CAA16737-FA36-4D43-B3B6-33F0AA44E7", "{CAA16737-FA36-4D43-B3B6-33F0AA44E76B}", ""})
    EXPECT_FALSE(GuidFromString(back, bad)) << bad;
  EXPECT_TRUE(Guid{}.IsZero() && !g.IsZero());
}

TEST(RandomTest, FillsWholeBuffers) {
  unsigned char a[4096] = {};
  ASSERT_TRUE(GetRandomBytes(a, sizeof a, true));
  int zeros = 0;
  for (unsigned char c : a) zeros += c == 0;
  EXPECT_LT(zeros, 64);  // 16 expected; a buffer left unfilled would be all zeros
}

TEST(Crc32Test, ChainsWithoutFinalInversion) {
  const char text[] = "123456789";
  // The usual CRC-32 of the check string is 0xCBF43926, with inversion on
  // both ends; here the caller does the inverting.
  EXPECT_EQ(~Crc32(text, 9, 0xFFFFFFFFu), 0xCBF43926u);
  EXPECT_EQ(Crc32(text + 4, 5, Crc32(text, 4, 7)), Crc32(text, 9, 7));
  EXPECT_EQ(Crc32(text, 0, 0x1234), 0x1234u);
}

TEST(StackWalkTest, ReportsFramesUntilTheCallbackStops) {
  struct Seen {
    int frames = 0;
  } seen;
  WalkStack(
      [](int frame, const char* text, void* user) {
        EXPECT_NE(text, nullptr);
        static_cast<Seen*>(user)->frames = frame + 1;
        return frame < 2;
      },
      &seen, 32);
  EXPECT_EQ(seen.frames, 3);
  WalkStack(nullptr, &seen, 32);  // no callback: nothing happens
}

Error Thrown(const std::function<void()>& call) {
  try {
    call();
  } catch (const Error& e) {
    return e;
  }
  return Error();
}

TEST(DelayLoadTest, MissingLibraryAndFunctionRaiseTheirErrors) {
  DelayLoadedLibrary missing("libvellumrig-no-such-library.so.9");
  const Error library = Thrown([&] { missing.Load(); });
  EXPECT_EQ(library.Code(), 0x140FA1u);
  EXPECT_STREQ(library.GetNarrowString("path"), "libvellumrig-no-such-library.so.9");
  EXPECT_EQ(library.Site().Line, 72u);
  EXPECT_EQ(library.Reason().Code(), 0xFFF0u);
  EXPECT_NE(library.Reason().GetNumber("code"), 0u);

  DelayLoadedLibrary libc("libc.so.6");
  EXPECT_NE(libc.Function("strlen"), nullptr);
  const Error function = Thrown([&] { libc.Function("vellumrig_no_such_function"); });
  EXPECT_EQ(function.Code(), 0x140FA2u);
  EXPECT_STREQ(function.GetNarrowString("function"), "vellumrig_no_such_function");
  EXPECT_STREQ(function.GetNarrowString("path"), "libc.so.6");
  const Error byOrdinal = DelayLoadError(DelayLoadFailure::Function, "x.so", nullptr, 12, 2);
  EXPECT_EQ(byOrdinal.Code(), 0x140FA3u);
  EXPECT_EQ(byOrdinal.GetNumber("function"), 12u);
  EXPECT_EQ(byOrdinal.Reason().GetNumber("code"), 0x80070002u);
}

}  // namespace
}  // namespace Common
