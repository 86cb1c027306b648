#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "vhd/bitmap.h"
#include "vhd/byte_operations.h"
#include "vhd/caching_bitmap_array.h"
#include "vhd/present_bitmap_enumerator.h"
#include "vhd/recorder.h"

namespace Vhd {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Op = std::function<void(Bitmap&)>;
using Testing::Areas;
using Testing::Recorder;

Bytes DataOf(const DataOwningBitmap& b) { return Bytes(b.GetData(), b.GetData() + b.GetDataSize()); }

std::shared_ptr<DataOwningBitmap> WithBytes(std::uint64_t size, const Bytes& bytes, bool reversed = false) {
  auto b = CreateBitmap(size, false, reversed);
  std::copy(bytes.begin(), bytes.end(), b->GetData());
  return b;
}

// The bits of a bitmap's buffer in index order, padding included.
std::vector<bool> BitsOf(const DataOwningBitmap& b, bool reversed = false) {
  std::vector<bool> bits(b.GetDataSize() * 8);
  for (std::size_t i = 0; i < bits.size(); ++i) bits[i] = (b.GetData()[i >> 3] >> (reversed ? 7 - (i & 7) : i & 7)) & 1;
  return bits;
}

// The search as documented: a plain bit loop, then the tail limit that
// applies to a match found past the first byte. Positions count in the
// owning bitmap, whose bytes and tail rule the search.
std::uint64_t ReferenceFindNext(const std::vector<bool>& bits, std::uint64_t start, std::uint64_t count, bool value) {
  const std::uint64_t end = start + count, limit = (end & 7) ? (end & 7) : 8;
  std::uint64_t i = start;
  while (i < end && bits[i] != value) ++i;
  if (i == end || (i >> 3) == (start >> 3)) return i;
  return (i & 7) < limit ? i : (i & ~std::uint64_t{7}) + limit;
}

// Setting ORs; clearing zeroes the whole middle bytes and toggles the rest.
void ReferenceSet(std::vector<bool>& bits, std::uint64_t start, std::uint64_t count, bool value) {
  const std::uint64_t head = std::min<std::uint64_t>(count, 8 - (start & 7));
  const std::uint64_t wholeEnd = start + head + ((count - head) & ~std::uint64_t{7});
  for (std::uint64_t i = start; i < start + count; ++i)
    bits[i] = value || ((i < start + head || i >= wholeEnd) && !bits[i]);
}

// Random bits in stretches of mixed density, so that long all-clear and
// all-set stretches cross word boundaries.
void Randomize(DataOwningBitmap& b, std::mt19937& rng) {
  const double densities[] = {0.0, 0.01, 0.5, 0.99, 1.0};
  double density = 0;
  for (std::size_t i = 0; i < b.GetDataSize() * 8; ++i) {
    if (i % 97 == 0) density = densities[rng() % 5];
    const bool set = std::uniform_real_distribution<>(0, 1)(rng) < density;
    b.GetData()[i >> 3] = static_cast<std::uint8_t>((b.GetData()[i >> 3] & ~(1u << (i & 7))) | (set << (i & 7)));
  }
}

const std::uint64_t kSizes[] = {1, 7, 8, 9, 63, 64, 65, 127, 200, 517, 1029, 4096};

TEST(BitmapTest, BoundsAreCheckedBeforeAnyBitChanges) {
  const Op failing[] = {
      [](Bitmap& b) { b.Get(20); }, [](Bitmap& b) { b.Set(20, true); }, [](Bitmap& b) { b.Set(15, 6, true); },
      [](Bitmap& b) { b.Set(5, ~std::uint64_t{0}, true); },  // the end wraps round
      [](Bitmap& b) { b.Set(20, 0, true); }, [](Bitmap& b) { b.FindNext(5, 16, true); },
      [](Bitmap& b) { b.FindNext(21, true); }, [](Bitmap& b) { b.GetSubBitmap(10, 11); },
      [](Bitmap& b) { b.GetSubBitmap(4, 10)->Set(8, 3, true); },  // the view's own bound
      [](Bitmap& b) { b.GetSubBitmap(4, 10)->Get(10); },
  };
  for (std::size_t i = 0; i < std::size(failing); ++i) {
    auto b = CreateBitmap(20, false);
    EXPECT_EQ(Testing::CodeOf([&] { failing[i](*b); }), 0x3C0017u) << i;
    EXPECT_EQ(DataOf(*b), Bytes(3, 0)) << i;
  }
  // A search from the end answers without checks, whatever its count.
  auto b = CreateBitmap(20, true);
  EXPECT_EQ(b->FindNext(20, 1000, false), 20u);
  EXPECT_EQ(b->GetSubBitmap(4, 10)->FindNext(10, 5, false), 10u);
}

// The first matching byte past the first is searched only up to the tail
// of the range: kept as it stands, a search whose end is a multiple of 8
// never sees it. A view counts the tail where its parent does.
TEST(BitmapTest, FindNextStopsAtTheTailInAMiddleByte) {
  auto odd = WithBytes(20, {0x00, 0x40, 0x00}), whole = WithBytes(24, {0x00, 0x40, 0x00});  // bit 14 only
  EXPECT_EQ(odd->Find(true), 12u);
  EXPECT_EQ(odd->FindNext(9, 11, true), 14u);  // starts in byte 1: a true search
  EXPECT_EQ(odd->FindNext(3, 13, true), 14u);  // ends in byte 1
  EXPECT_EQ(whole->Find(true), 14u);
  EXPECT_EQ(whole->GetSubBitmap(2, 16)->Find(true), 8u);
  EXPECT_EQ(whole->GetSubBitmap(2, 22)->Find(true), 12u);
}

// Clearing by XOR is kept as it stands: the engine only clears bits it
// knows to be set, and nothing may be cleaned up here. Both bit orders,
// through the bitmap and through views, against models of indices only.
TEST(BitmapTest, SetsAndSearchesMatchTheReferenceModels) {
  auto pinned = WithBytes(24, {0x0F, 0xFF, 0xFF});
  pinned->SetAll(false);  // the first byte toggles even when whole
  pinned->Set(3, false);  // a clear bit becomes set
  EXPECT_EQ(DataOf(*pinned), (Bytes{0xF8, 0, 0}));
  std::mt19937 rng(11);
  for (std::uint64_t size : kSizes) {
    for (const bool reversed : {false, true}) {
      auto b = CreateBitmap(size, rng() & 1, reversed);
      Randomize(*b, rng);
      std::vector<bool> bits = BitsOf(*b, reversed);
      for (int i = 0; i < 300; ++i) {
        const std::uint64_t base = rng() % 2 ? 0 : rng() % size;
        const std::shared_ptr<Bitmap> view = base ? b->GetSubBitmap(base, 1 + rng() % (size - base)) : b;
        const std::uint64_t n = view->GetSize(), start = rng() % n, count = rng() % (n - start + 1);
        const bool value = rng() & 1;
        const int op = i % 5;
        ASSERT_EQ(view->FindNext(start, count, value), ReferenceFindNext(bits, base + start, count, value) - base)
            << "size " << size << " at " << base << "+" << start << ", " << count << ", " << value;
        ASSERT_EQ(view->Get(start), bits[base + start]);
        if (op == 0) view->Set(start, count, value);
        if (op == 1) view->Set(start, value);
        if (op == 2) view->SetAll(value);
        if (op > 2) continue;
        ReferenceSet(bits, base + (op == 2 ? 0 : start), op == 0 ? count : op == 1 ? 1 : n, value);
        ASSERT_EQ(BitsOf(*b, reversed), bits) << "size " << size << " op " << op << " at " << base << "+" << start;
      }
    }
  }
}

TEST(SubBitmapTest, NestedViewsShareTheBitsAndKeepThemAlive) {
  auto parent = CreateBitmap(40, false);
  auto view = parent->GetSubBitmap(5, 20);
  auto inner = view->GetSubBitmap(3, 10);  // parent bits 8 to 17
  parent.reset();
  inner->Set(9, true);
  EXPECT_TRUE(view->Get(12));
  EXPECT_EQ(inner->Find(true), 9u);
  EXPECT_EQ(inner->GetSize(), 10u);
}

TEST(PresentBitmapEnumeratorTest, SendsRunsOfSetBitsLikeTheReference) {
  Recorder<DiskArea> first(1);
  EXPECT_FALSE(PresentBitmapEnumeratorFactory().Create(100, WithBytes(16, {0x07, 0x01}))->Enumerate(first));
  EXPECT_EQ(first.values, (Areas{{100, 3}}));
  std::mt19937 rng(3);
  for (std::uint64_t size : {8, 64, 72, 1024, 4096}) {
    auto b = CreateBitmap(size + 8, false);
    Randomize(*b, rng);
    // A view that ends on a byte boundary of its parent, as block views do.
    const std::uint64_t viewStart = 8 - rng() % 8;
    const std::vector<bool> bits = BitsOf(*b);
    Areas expected;
    for (std::uint64_t i = viewStart; i < size + 8; ++i) {
      if (!bits[i]) continue;
      if (!expected.empty() && expected.back().End() == 50 + i - viewStart) ++expected.back().Size;
      else expected.push_back({50 + i - viewStart, 1});
    }
    Recorder<DiskArea> r;
    EXPECT_TRUE(PresentBitmapEnumerator(50, b->GetSubBitmap(viewStart, size + 8 - viewStart)).Enumerate(r));
    EXPECT_EQ(r.values, expected) << size;
  }
}

TEST(BitmapArrayTest, CachingArrayLoadsOnlyOnAChangeOfChunk) {
  struct Source : BitmapArray {
    std::shared_ptr<Bitmap> Get(std::uint32_t chunk) override {
      loads.push_back(chunk);
      return CreateBitmap(8, false);
    }
    std::vector<std::uint32_t> loads;
  };
  const auto source = std::make_shared<Source>();
  Vhdx::CachingBitmapArray cache(source);
  for (std::uint32_t chunk : {3, 3, 4, 3, 4}) cache.Get(chunk);
  EXPECT_EQ(source->loads, (std::vector<std::uint32_t>{3, 4, 3, 4}));
}

}  // namespace
}  // namespace Vhd
