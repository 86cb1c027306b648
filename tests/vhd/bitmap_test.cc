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
using Testing::Areas;
using Testing::Recorder;

Bytes DataOf(const DataOwningBitmap& b) { return Bytes(b.GetData(), b.GetData() + b.GetDataSize()); }

std::shared_ptr<DataOwningBitmap> WithBytes(std::uint64_t size, const Bytes& bytes, bool reversed = false) {
  auto b = CreateBitmap(size, false, reversed);
  std::copy(bytes.begin(), bytes.end(), b->GetData());
  return b;
}

// The bits of a direct bitmap's buffer, padding included.
std::vector<bool> BitsOf(const DataOwningBitmap& b) {
  std::vector<bool> bits(b.GetDataSize() * 8);
  for (std::size_t i = 0; i < bits.size(); ++i) bits[i] = (b.GetData()[i >> 3] >> (i & 7)) & 1;
  return bits;
}

// The search as documented: a plain bit loop, then the tail limit that
// applies to a match found past the first byte. Positions count in the
// owning bitmap, whose bytes and tail rule the search.
std::uint64_t ReferenceFindNext(const std::vector<bool>& bits, std::uint64_t start, std::uint64_t count,
                                bool value) {
  const std::uint64_t end = start + count;
  std::uint64_t i = start;
  while (i < end && bits[i] != value) ++i;
  if (i == end || (i >> 3) == (start >> 3)) return i;
  const std::uint64_t limit = (end & 7) ? (end & 7) : 8;
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
  std::uint8_t* data = b.GetData();
  double density = 0;
  for (std::size_t i = 0; i < b.GetDataSize() * 8; ++i) {
    if (i % 97 == 0) density = densities[rng() % 5];
    const bool set = std::uniform_real_distribution<>(0, 1)(rng) < density;
    data[i >> 3] = static_cast<std::uint8_t>((data[i >> 3] & ~(1u << (i & 7))) | (set << (i & 7)));
  }
}

const std::uint64_t kSizes[] = {1, 7, 8, 9, 63, 64, 65, 127, 200, 517, 1029, 4096};

TEST(ByteOperationsTest, PlaceBitsInTheirOrder) {
  const DirectByteOperations direct;
  const ReversedByteOperations reversed;
  struct Case { unsigned start, count; std::uint8_t direct, reversed; };
  const Case masks[] = {{0, 1, 0x01, 0x80}, {7, 1, 0x80, 0x01}, {0, 8, 0xFF, 0xFF},
                        {2, 3, 0x1C, 0x38}, {5, 3, 0xE0, 0x07}, {3, 0, 0x00, 0x00}};
  for (const Case& c : masks) {
    EXPECT_EQ(direct.GetMask(c.start, c.count), c.direct) << c.start << "," << c.count;
    EXPECT_EQ(reversed.GetMask(c.start, c.count), c.reversed) << c.start << "," << c.count;
  }
  EXPECT_EQ(direct.GetBit(13), 0x20);
  EXPECT_EQ(reversed.GetBit(13), 0x04);

  struct Search { std::uint8_t byte; bool value; unsigned from, to, direct, reversed; };
  const Search searches[] = {
      {0x10, true, 0, 8, 4, 3}, {0x10, true, 5, 8, 8, 8}, {0xEF, false, 0, 8, 4, 3},
      {0xFF, false, 2, 6, 6, 6}, {0x81, true, 6, 3, 6, 6},  // from not below to gives from
  };
  for (const Search& s : searches) {
    EXPECT_EQ(direct.Find(s.byte, s.value, s.from, s.to), s.direct) << int(s.byte) << " from " << s.from;
    EXPECT_EQ(reversed.Find(s.byte, s.value, s.from, s.to), s.reversed) << int(s.byte) << " from " << s.from;
  }
}

TEST(BitmapTest, BoundsAreCheckedBeforeAnyBitChanges) {
  using Op = std::function<void(Bitmap&)>;
  const Op failing[] = {
      [](Bitmap& b) { b.Get(20); },
      [](Bitmap& b) { b.Set(20, true); },
      [](Bitmap& b) { b.Set(15, 6, true); },
      [](Bitmap& b) { b.Set(5, ~std::uint64_t{0}, true); },  // the end wraps round
      [](Bitmap& b) { b.Set(20, 0, true); },
      [](Bitmap& b) { b.FindNext(5, 16, true); },
      [](Bitmap& b) { b.FindNext(21, true); },
      [](Bitmap& b) { b.GetSubBitmap(10, 11); },
      [](Bitmap& b) { b.GetSubBitmap(4, 10)->Set(8, 3, true); },  // the view's own bound
      [](Bitmap& b) { b.GetSubBitmap(4, 10)->Get(10); },
  };
  for (std::size_t i = 0; i < std::size(failing); ++i) {
    auto b = CreateBitmap(20, false);
    try {
      failing[i](*b);
      ADD_FAILURE() << "case " << i << " raised nothing";
    } catch (const Common::Error& e) {
      EXPECT_EQ(e.Code(), 0x3C0017u) << i;
      EXPECT_EQ(e.GetText(), u"Bitmap index is out of bounds.") << i;
    }
    EXPECT_EQ(DataOf(*b), Bytes(3, 0)) << i;
  }
}

TEST(BitmapTest, SearchesFromTheEndOrWithoutCountAnswerWithoutChecks) {
  auto b = CreateBitmap(20, true);
  EXPECT_EQ(b->FindNext(20, true), 20u);
  EXPECT_EQ(b->FindNext(20, 1000, false), 20u);
  EXPECT_EQ(b->FindNext(7, 0, true), 7u);
  EXPECT_EQ(b->GetSubBitmap(4, 10)->FindNext(10, false), 10u);

  auto empty = CreateBitmap(0, true);
  EXPECT_EQ(empty->GetDataSize(), 0u);
  EXPECT_EQ(empty->FindNext(0, true), 0u);
  EXPECT_EQ(empty->Find(false), 0u);
  EXPECT_THROW(empty->Get(0), Common::Error);
}

TEST(BitmapTest, SetAppliesMasksInBitOrder) {
  struct Case { bool reversed; std::uint64_t start, count; Bytes after; };
  const Case cases[] = {
      {false, 7, 2, {0x80, 0x01}}, {true, 7, 2, {0x01, 0x80}},
      {false, 0, 1, {0x01, 0x00}}, {true, 0, 1, {0x80, 0x00}},
  };
  for (const Case& c : cases) {
    auto b = CreateBitmap(16, false, c.reversed);
    b->Set(c.start, c.count, true);
    EXPECT_EQ(DataOf(*b), c.after);
  }
}

// Clearing by XOR is kept as it stands: the engine only clears bits it
// knows to be set, and nothing may be cleaned up here.
TEST(BitmapTest, ClearingTogglesPartialBytesAndZeroesWholeOnes) {
  struct Case { Bytes before; std::function<void(Bitmap&)> op; Bytes after; };
  const Case cases[] = {
      {{0, 0, 0}, [](Bitmap& b) { b.Set(3, 1, false); }, {0x08, 0, 0}},
      {{0, 0, 0}, [](Bitmap& b) { b.Set(3, false); }, {0x08, 0, 0}},
      {{0x0F, 0xFF, 0xFF}, [](Bitmap& b) { b.Set(0, 24, false); }, {0xF0, 0, 0}},
      {{0x0F, 0xFF, 0xFF}, [](Bitmap& b) { b.SetAll(false); }, {0xF0, 0, 0}},
      {{0xFF, 0xFF, 0xFF}, [](Bitmap& b) { b.SetAll(false); }, {0, 0, 0}},
      {{0, 0xFF, 0}, [](Bitmap& b) { b.Set(4, 14, false); }, {0xF0, 0, 0x03}},
      {{0xFF, 0, 0}, [](Bitmap& b) { b.SetAll(true); }, {0xFF, 0xFF, 0xFF}},
  };
  for (const Case& c : cases) {
    auto b = WithBytes(24, c.before);
    c.op(*b);
    EXPECT_EQ(DataOf(*b), c.after);
  }
}

TEST(BitmapTest, RangeSetsMatchTheReferenceModel) {
  std::mt19937 rng(11);
  for (std::uint64_t size : kSizes) {
    auto b = CreateBitmap(size, rng() & 1);
    Randomize(*b, rng);
    std::vector<bool> expected = BitsOf(*b);
    for (int i = 0; i < 60; ++i) {
      const std::uint64_t start = rng() % size;
      const std::uint64_t count = rng() % (size - start + 1);
      const bool value = rng() & 1;
      b->Set(start, count, value);
      ReferenceSet(expected, start, count, value);
      ASSERT_EQ(BitsOf(*b), expected) << "size " << size << " Set(" << start << ", " << count << ")";
    }
  }
}

// The first matching byte past the first is searched only up to the tail
// of the range: kept as it stands, a search whose end is a multiple of 8
// never sees it.
TEST(BitmapTest, FindNextStopsAtTheTailInAMiddleByte) {
  auto odd = WithBytes(20, {0x00, 0x40, 0x00});  // bit 14 only
  EXPECT_EQ(odd->Find(true), 12u);
  EXPECT_EQ(odd->FindNext(3, 17, true), 12u);
  EXPECT_EQ(odd->FindNext(9, 11, true), 14u);  // starts in byte 1: a true search
  EXPECT_EQ(odd->FindNext(3, 13, true), 14u);  // ends in byte 1

  auto whole = WithBytes(24, {0x00, 0x40, 0x00});
  EXPECT_EQ(whole->Find(true), 14u);
  // A view counts the tail where its parent does.
  EXPECT_EQ(whole->GetSubBitmap(2, 16)->Find(true), 8u);
  EXPECT_EQ(whole->GetSubBitmap(2, 22)->Find(true), 12u);
}

TEST(BitmapTest, SearchesMatchTheReferenceAcrossWordsAndViews) {
  std::mt19937 rng(5);
  for (std::uint64_t size : kSizes) {
    for (int round = 0; round < 4; ++round) {
      auto b = CreateBitmap(size, false);
      Randomize(*b, rng);
      const std::vector<bool> bits = BitsOf(*b);
      for (int i = 0; i < 200; ++i) {
        const std::uint64_t start = rng() % size;
        const std::uint64_t count = 1 + rng() % (size - start);
        const bool value = rng() & 1;
        ASSERT_EQ(b->FindNext(start, count, value), ReferenceFindNext(bits, start, count, value))
            << "size " << size << " FindNext(" << start << ", " << count << ", " << value << ")";

        const std::uint64_t viewStart = rng() % size;
        const std::uint64_t viewSize = 1 + rng() % (size - viewStart);
        const auto view = b->GetSubBitmap(viewStart, viewSize);
        const std::uint64_t from = rng() % viewSize;
        ASSERT_EQ(view->FindNext(from, value), ReferenceFindNext(bits, viewStart + from, viewSize - from, value) - viewStart)
            << "size " << size << " view(" << viewStart << ", " << viewSize << ").FindNext(" << from << ")";
        ASSERT_EQ(view->Get(from), bits[viewStart + from]);
      }
    }
  }
}

TEST(SubBitmapTest, SharesItsBitsWithTheParent) {
  auto parent = CreateBitmap(40, false);
  auto view = parent->GetSubBitmap(5, 20);
  EXPECT_EQ(view->GetSize(), 20u);
  view->SetAll(true);
  EXPECT_EQ(DataOf(*parent), (Bytes{0xE0, 0xFF, 0xFF, 0x01, 0x00}));

  auto inner = view->GetSubBitmap(3, 10);  // parent bits 8 to 17
  inner->Set(0, 8, false);
  EXPECT_EQ(DataOf(*parent), (Bytes{0xE0, 0x00, 0xFF, 0x01, 0x00}));
  parent->Set(16, false);
  EXPECT_FALSE(inner->Get(8));
  EXPECT_TRUE(inner->Get(9));
  EXPECT_EQ(inner->Find(true), 9u);

  parent.reset();  // the views keep the bits alive
  inner->Set(1, true);
  EXPECT_TRUE(view->Get(4));
}

TEST(PresentBitmapEnumeratorTest, SendsRunsOfSetBits) {
  struct Case { std::uint64_t size; Bytes bytes; std::uint64_t offset; Areas sent; };
  const Case cases[] = {
      {24, {0, 0, 0}, 0, {}},
      {24, {0xFF, 0xFF, 0xFF}, 7, {{7, 24}}},
      {16, {0x07, 0x01}, 100, {{100, 3}, {108, 1}}},
      {16, {0x80, 0x01}, 0, {{7, 2}}},  // a run across bytes is one run
  };
  for (const Case& c : cases) {
    Recorder<DiskArea> r;
    PresentBitmapEnumerator e(c.offset, WithBytes(c.size, c.bytes));
    EXPECT_TRUE(e.Enumerate(r));
    EXPECT_EQ(r.values, c.sent);
  }
  Recorder<DiskArea> first(1);
  EXPECT_FALSE(PresentBitmapEnumeratorFactory().Create(0, WithBytes(16, {0x07, 0x01}))->Enumerate(first));
  EXPECT_EQ(first.values, (Areas{{0, 3}}));
}

TEST(PresentBitmapEnumeratorTest, MatchesTheReferenceRunsOfRandomBitmaps) {
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
  auto source = std::make_shared<Source>();
  Vhdx::CachingBitmapArray cache(source);
  const auto first = cache.Get(3);
  EXPECT_EQ(cache.Get(3), first);
  EXPECT_EQ(source->loads, (std::vector<std::uint32_t>{3}));
  cache.Get(4);
  cache.Get(3);
  cache.Get(4);
  EXPECT_EQ(source->loads, (std::vector<std::uint32_t>{3, 4, 3, 4}));
}

}  // namespace
}  // namespace Vhd
