#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vhdx/log/non_persistent_file.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/test_files.h"

namespace {

using VhdxTest::Raised;

// Kind: 'W' write of Size bytes of Fill, 'Z' zeroing, 'E' expansion to Offset.
struct Op { char Kind; std::uint64_t Offset, Size; char Fill; };

// The overlay over a file of `below`, and the bytes a reader should see.
struct Fixture {
  explicit Fixture(const std::string& below) : Model(below) { Raw.Load(below); }
  void Apply(const Op& op) {
    const std::string data(op.Kind == 'E' ? 0 : op.Size, op.Kind == 'W' ? op.Fill : '\0');
    if (op.Kind == 'E') File.Expand(op.Offset);
    if (op.Kind == 'W') File.Write(op.Offset, data.size(), data.data());
    if (op.Kind == 'Z') File.WriteZero(op.Offset, op.Size);
    Model.resize(std::max<std::uint64_t>(Model.size(), op.Offset + data.size()), '\0');
    Model.replace(op.Offset, data.size(), data);
  }
  std::string Read(std::uint64_t offset, std::size_t size) {
    std::string out(size, '?');
    File.Read(offset, size, out.data());
    return out;
  }
  std::string Model;
  VhdxTest::ScriptedFile Raw;
  Vhdx::ReadOnlyFile Below{Raw};
  VhdxTest::LoggingFile Logged{Below};
  Vhdx::NonPersistentFile File{Logged};
};

// Offset, size, and 'Z' or 'M' for the kind of each stored range.
std::vector<std::string> Layout(const Vhdx::NonPersistentFile& file) {
  std::vector<std::string> out;
  for (const auto& [key, range] : file.Ranges()) {
    EXPECT_EQ(key, (Vhd::FileRegion{range->GetOffset(), range->GetSize()}));
    const char kind = dynamic_cast<const Vhdx::ZeroDataRange*>(range.get()) ? 'Z' : 'M';
    out.push_back(std::to_string(key.Offset) + "+" + std::to_string(key.Size) + kind);
  }
  return out;
}

TEST(NonPersistentFileTest, MergesOverlapsKeepsTouchingRangesApartAndOnlyGrows) {
  const struct {
    std::vector<Op> ops;
    std::vector<std::string> layout;
  } cases[] = {
      {{{'W', 10, 10, 'a'}, {'Z', 0, 100, 0}}, {"0+100Z"}},
      {{{'Z', 0, 100, 0}, {'W', 10, 10, 'a'}}, {"0+100M"}},
      {{{'W', 0, 10, 'a'}, {'Z', 5, 10, 0}}, {"0+15M"}},
      {{{'Z', 0, 10, 0}, {'Z', 5, 10, 0}}, {"0+15Z"}},
      {{{'W', 0, 10, 'a'}, {'W', 10, 5, 'b'}}, {"0+10M", "10+5M"}},
      {{{'W', 0, 4, 'a'}, {'Z', 6, 4, 0}, {'W', 12, 4, 'c'}, {'W', 2, 12, 'd'}, {'W', 16, 1, 'e'}},
       {"0+16M", "16+1M"}},
      {{{'W', 0, 0, 'a'}, {'Z', 5, 0, 0}}, {}},
      {{{'E', 10100, 0, 0}, {'E', 50, 0, 0}}, {"100+4096Z", "4196+4096Z", "8292+1808Z"}},
  };
  for (const auto& c : cases) {
    Fixture f(std::string(100, 'u'));
    for (const Op& op : c.ops) f.Apply(op);
    EXPECT_EQ(Layout(f.File), c.layout);
    EXPECT_EQ(f.File.GetSize(), f.Model.size());
    EXPECT_EQ(f.Read(0, f.Model.size()), f.Model);
  }
}

TEST(NonPersistentFileTest, ReadsLikeAByteArrayAndNeverChangesTheFileBelow) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 rng(seed);
    auto pick = [&](std::uint64_t low, std::uint64_t high) {
      return std::uniform_int_distribution<std::uint64_t>(low, high)(rng);
    };
    std::string below(pick(0, 3000), '\0');
    for (char& c : below) c = static_cast<char>(pick(1, 255));
    Fixture f(below);
    for (int step = 0; step < 150; ++step) {
      // Nothing starts beyond the end, so every byte has a source.
      const std::uint64_t size = f.Model.size();
      const char kind = "WWWZZE"[pick(0, 5)];
      f.Apply({kind, kind == 'E' ? size + pick(0, 9000) : pick(0, size), pick(1, 700),
               static_cast<char>(pick(1, 255))});
      ASSERT_EQ(f.File.GetSize(), f.Model.size()) << seed;
      const std::uint64_t at = pick(0, f.Model.size());
      const std::uint64_t length = pick(0, f.Model.size() - at);
      ASSERT_EQ(f.Read(at, length), f.Model.substr(at, length)) << seed << " " << step;
    }
    EXPECT_EQ(f.Read(0, f.Model.size()), f.Model);
    f.File.Flush();
    EXPECT_TRUE(f.Logged.Log.empty());
    EXPECT_EQ(f.Raw.Bytes(0, below.size() + 1), below);
  }
}

TEST(NonPersistentFileTest, RaisesItsOwnFaultsAndPassesTheFileBelowThrough) {
  const Vhdx::InMemoryDataRange bytes(10, std::vector<std::uint8_t>(20, 7));
  const Vhdx::ZeroDataRange zeros(30, 5);
  char buffer[64];
  Fixture f(std::string(100, 'u'));
  f.Apply({'W', 100, 10, 'a'});
  const struct {
    std::function<void()> fn;
    std::uint32_t code;
    std::u16string text;
  } cases[] = {
      {[&] { bytes.Read(25, 6, buffer); }, 0x3C003E,
       u"Internal error: An attempt to read from data range beyond its bounds. Data range Offset = 10, "
       u"Size = 20, read request Offset = 25, Size = 6."},
      {[&] { zeros.Read(29, 1, buffer); }, 0x3C003E, {}},
      {[&] { zeros.Read(36, 0, buffer); }, 0x3C003E, {}},
      {[&] { bytes.Merge(zeros); }, 0x3C003D,
       u"Internal error: An attempt to merge non-intersected data ranges, first with Offset = 10, Size = 20, "
       u"second with Offset = 30, Size = 5."},
      {[&] { f.Read(105, 10); }, FileError::EndOfFile, u"The end of the file has been reached."},
      {[&] { f.File.WriteZero(UINT64_MAX - 4, 10); }, FileError::Seek, {}},
  };
  for (const auto& c : cases) {
    const Common::Error error = Raised(c.fn);
    EXPECT_EQ(error.Code(), c.code);
    if (!c.text.empty()) {
      EXPECT_EQ(error.GetText(), c.text);
    }
  }
}

}  // namespace
