#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "vhdx/disk/container_recipe.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/file/writeable_file.h"
#include "vhdx/test_files.h"

namespace VhdxTest {
namespace {

using Recipe = Vhdx::ContainerRecipe;
using Kind = Recipe::Kind;

class ContainerRecipeTest : public DiskFixture {
 protected:
  void Make(const std::string& name, const Recipe& recipe) {
    std::unique_ptr<rio_file> host = Folder()->CreateFile(Common::FromUtf8(name), 0, 0);
    ASSERT_TRUE(host);
    Vhdx::WriteableFile file(*host);
    Vhdx::WriteContainer(file, recipe);
  }
};

// 4097 blocks of 1 MiB cross a chunk: the BAT's sector bitmap entry sits
// between block 4095 and 4096, and must not shift the blocks after it.
TEST_F(ContainerRecipeTest, FixedHoldsEveryBlockInPlace) {
  Recipe recipe{Kind::Fixed, 4097ull << 20, 512, 4096, 1u << 20, {}};
  Make("fixed.vhdx", recipe);
  const std::uint64_t size = Vhdx::FixedFileSize(recipe);
  EXPECT_EQ(std::filesystem::file_size(dir.Join("fixed.vhdx")), size);

  const Vhdx::BlockCensus census = Open("fixed.vhdx")->GetTop().CountBlocks();
  EXPECT_EQ(census.FullyPresent, 4097u);
  EXPECT_EQ(census.Blocks, 4097u);
  EXPECT_EQ(Read("fixed.vhdx", 0, 2), std::string(1024, '\0'));

  const std::string data = Pattern(2, 9);
  Write("fixed.vhdx", 4096ull * 2048, data);  // the first sectors of block 4096
  EXPECT_EQ(Read("fixed.vhdx", 4096ull * 2048, 2), data);
  EXPECT_EQ(std::filesystem::file_size(dir.Join("fixed.vhdx")), size);  // nothing allocated anew
  std::string onDisk(data.size(), '\0');
  const std::uint64_t lastBlock = size - (1u << 20);
  std::ifstream(dir.Join("fixed.vhdx"), std::ios::binary).seekg(static_cast<std::streamoff>(lastBlock)).read(
      onDisk.data(), static_cast<std::streamsize>(onDisk.size()));
  EXPECT_EQ(onDisk, data);
}

TEST_F(ContainerRecipeTest, ChildTakesItsParentsShapeAndReadsThroughIt) {
  CreateDisk("base.vhdx", 8 << 20);
  const std::string base = Pattern(16, 3);
  Write("base.vhdx", 0, base);
  ASSERT_EQ(::mkdir(dir.Join("sub").c_str(), 0755), 0);
  const Common::Guid linkage = DataWriteGuid("base.vhdx");

  Recipe recipe = Vhdx::ChildOf(*Folder(), u"base.vhdx", u"sub/child.vhdx", 1u << 20);
  EXPECT_EQ(recipe.Type, Kind::Differencing);
  EXPECT_EQ(recipe.VirtualSize, 8u << 20);
  EXPECT_EQ(recipe.BlockSize, 1u << 20);
  std::u16string absolute = dir.Wide() + u"/base.vhdx";
  std::replace(absolute.begin(), absolute.end(), u'/', u'\\');
  ASSERT_EQ(recipe.ParentLocator.size(), 3u);
  EXPECT_EQ(Vhdx::ParseParentLinkage(recipe.ParentLocator[0].Value), linkage);
  EXPECT_EQ(recipe.ParentLocator[1].Value, u"..\\base.vhdx");
  EXPECT_EQ(recipe.ParentLocator[2].Value, absolute);
  Make("sub/child.vhdx", recipe);
  EXPECT_EQ(Vhdx::ChildOf(*Folder(), u"base.vhdx", u"other.vhdx").BlockSize, 4u << 20);  // the parent's

  EXPECT_EQ(Read("sub/child.vhdx", 0, 16), base);
  const std::string mine = Pattern(2, 40);
  Write("sub/child.vhdx", 4, mine);
  EXPECT_EQ(Read("sub/child.vhdx", 0, 16), base.substr(0, 2048) + mine + base.substr(3072));
  EXPECT_EQ(Read("base.vhdx", 0, 16), base);
  EXPECT_EQ(DataWriteGuid("base.vhdx"), linkage);
}

// 130945 blocks fill the table's first MiB exactly; the sector bitmap entry
// of the last, incomplete chunk lies behind it and must still have room.
TEST_F(ContainerRecipeTest, AChildsLastChunkHasRoomForItsBitmapEntry) {
  CreateDisk("base.vhdx", 130945ull << 22);
  Make("child.vhdx", Vhdx::ChildOf(*Folder(), u"base.vhdx", u"child.vhdx"));
  const std::uint64_t last = (130945ull << 22) / 512 - 1;
  Write("child.vhdx", last, Pattern(1, 5));
  EXPECT_EQ(Read("child.vhdx", last, 1), Pattern(1, 5));
}

TEST_F(ContainerRecipeTest, RefusesWhatTheFormatCannotHold) {
  struct Case {
    const char* what;
    Recipe recipe;
    const char16_t* says;
  } cases[] = {
      {"block not a power of two", {Kind::Dynamic, 1 << 30, 512, 4096, 3u << 20, {}}, u"block size 3145728"},
      {"block too large", {Kind::Fixed, 1 << 30, 512, 4096, 512u << 20, {}}, u"block size"},
      {"logical sector", {Kind::Dynamic, 1 << 30, 1024, 4096, 1u << 20, {}}, u"sector size 1024"},
      {"physical sector", {Kind::Dynamic, 1 << 30, 512, 2048, 1u << 20, {}}, u"sector size 2048"},
      {"empty", {Kind::Dynamic, 0, 512, 4096, 1u << 20, {}}, u"virtual size 0"},
      {"part of a sector", {Kind::Dynamic, 4096 + 512, 4096, 4096, 1u << 20, {}}, u"virtual size 4608"},
      {"past 64 TiB", {Kind::Dynamic, (64ull << 40) + 4096, 4096, 4096, 1u << 20, {}}, u"at most 64 TB"},
      {"child without locator", {Kind::Differencing, 1 << 30, 512, 4096, 1u << 20, {}}, u"Invalid arguments"},
  };
  for (const Case& c : cases) {
    const Common::Error error = Raised([&] { Vhdx::CheckRecipe(c.recipe); });
    EXPECT_EQ(error.Code(), 0x3C0001u) << c.what;
    EXPECT_NE(Common::FullText(error).find(c.says), std::u16string::npos) << c.what;
  }

  EXPECT_EQ(CodeOf([&] { Vhdx::ChildOf(*Folder(), u"missing.vhdx", u"child.vhdx"); }), 0x3C002Cu);
}

}  // namespace
}  // namespace VhdxTest
