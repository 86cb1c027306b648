// One container file: what its open requires of the metadata, how the file
// type is derived, and the metadata operations with their two filter levels
// and the growth of the metadata region.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/memory_file.h"
#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/test_files.h"
#include "vhdx/metadata/well_known_items.h"
#include "vhdx/file/writeable_file.h"

namespace {

using VhdxTest::CodeOf;
using VhdxTest::Raised;
namespace Format = Vhdx::Format;
namespace Items = Vhdx::WellKnownItems;

const Vhdx::MetadataDescriptor kUserItem{VhdxTest::TestGuid(9), Format::kMetadataIsUser};

// Takes user items, recording them as "GUID:data", and the required Page
// 83 item, which a host's consumer must understand.
class Recorder : public Vhdx::SelectiveMetadataConsumer {
 public:
  std::vector<std::string> Seen;
  void Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t* data, std::uint32_t size) override {
    if (descriptor.IsUser())
      Seen.push_back(Common::GuidToString(descriptor.Id) + ":" + std::string(reinterpret_cast<const char*>(data), size));
  }
  bool CanConsume(const Vhdx::MetadataDescriptor& descriptor) const override {
    return descriptor.IsUser() || descriptor.Id == Format::kPage83DataItem;
  }
};

// Hands out the items it holds.
class ItemList : public Vhdx::MetadataProvider {
 public:
  std::vector<std::pair<Vhdx::MetadataDescriptor, std::string>> Items;
  void Provide(Vhdx::SelectiveMetadataConsumer& consumer) override {
    for (const auto& [descriptor, data] : Items)
      consumer.Consume(descriptor, reinterpret_cast<const std::uint8_t*>(data.data()), static_cast<std::uint32_t>(data.size()));
  }
};

class DiskFileTest : public ::testing::Test {
 protected:
  DiskFileTest() {
    Vhdx::WriteableFile file(*memory);
    Vhdx::WriteDynamicContainer(file, {16 << 20, 512});
  }
  void Edit(const std::function<void(Vhdx::MetadataModifier&)>& edit) {
    Vhdx::WriteableFile file(*memory);
    VhdxTest::ModifyMetadata(file, edit);
  }
  void SetParameters(std::uint32_t flags) {
    Edit([&](Vhdx::MetadataModifier& m) {
      std::uint8_t value[8];
      Vhdx::FileParameters{0x400000, flags}.Store(value);
      m.Set(Items::kFileParameters, value, sizeof value);
    });
  }
  std::unique_ptr<Vhdx::DiskFile> Open(bool writable) {
    if (writable) return Vhdx::OpenWritableDiskFile(*memory, recorder);
    return Vhdx::OpenReadOnlyDiskFile(*memory, recorder);
  }

  std::unique_ptr<Common::MemoryFile> memory = Common::MemoryFile::Create();
  Recorder recorder;
};

TEST_F(DiskFileTest, OpenRequiresSizesAndParametersAndDerivesTheType) {
  EXPECT_EQ(Open(false)->GetFileType(), Vhdx::kDynamicFile);
  SetParameters(Vhdx::FileParameters::kLeaveBlocksAllocated);
  EXPECT_EQ(Open(false)->GetFileType(), Vhdx::kFixedFile);
  SetParameters(Vhdx::FileParameters::kLeaveBlocksAllocated | Vhdx::FileParameters::kHasParent);
  EXPECT_EQ(Open(false)->GetFileType(), Vhdx::kDifferencingFile);

  Edit([](Vhdx::MetadataModifier& m) { m.Remove(Items::kPhysicalSectorSize); });
  EXPECT_NO_THROW(Open(false));
  Edit([](Vhdx::MetadataModifier& m) { m.Remove(Items::kVirtualDiskSize); });
  EXPECT_EQ(CodeOf([&] { Open(false); }), 0x3C001Du);
  Edit([](Vhdx::MetadataModifier& m) { m.Remove(Items::kLogicalSectorSize); });
  EXPECT_EQ(CodeOf([&] { Open(false); }), 0x3C001Cu);  // named first, though the size is missing too
}

TEST_F(DiskFileTest, MetadataSetAndRemoveGoThroughTheFiltersAndGrowTheRegion) {
  auto disk = Open(true);
  ItemList provider;
  provider.Items = {{kUserItem, "first"}, {Items::kFileParameters, std::string(8, '\0')}, {kUserItem, "never"}};
  EXPECT_EQ(CodeOf([&] { disk->SetMetadata(provider); }), 0x3C0037u);
  Recorder seen;
  disk->EnumerateMetadata(seen);
  EXPECT_EQ(seen.Seen, (std::vector<std::string>{Common::GuidToString(kUserItem.Id) + ":first"}));

  // An item larger than the region's free room moves the region to the
  // end of the file and the region table follows it.
  const auto before = disk->GetLayout();
  provider.Items = {{kUserItem, std::string(0x100000, 'x')}};
  disk->SetMetadata(provider);
  const auto after = disk->GetLayout();
  EXPECT_NE(after.MetadataOffset, before.MetadataOffset);
  EXPECT_GT(after.MetadataLength, before.MetadataLength);
  disk.reset();
  auto reopened = Open(false);
  EXPECT_EQ(reopened->GetDiskParameters().VirtualSize, 16u << 20);
  ASSERT_EQ(recorder.Seen.size(), 1u);  // the open's consumer saw it at the reopen
  EXPECT_EQ(recorder.Seen.back().size(), 37u + 0x100000u);

  Open(true)->RemoveMetadata(kUserItem);
  seen.Seen.clear();
  Open(false)->EnumerateMetadata(seen);
  EXPECT_TRUE(seen.Seen.empty());
}

// The disk hides its geometry items from callers, the disk file its type
// and locator items; both refuse to set them.
TEST(DiskMetadataTest, EachLevelKeepsItsOwnItems) {
  HostTest::TempDir dir;
  Vhdx::Create(*Host::OpenFolder(dir.Wide()), u"a.vhdx", Vhdx::kCreateDynamic, {4 << 20, 512});
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(*Host::OpenFolder(dir.Wide()), u"a.vhdx", consumer, true);
  struct All : Vhdx::MetadataConsumer {
    std::vector<Common::Guid> Ids;
    void Consume(const Vhdx::MetadataDescriptor& d, const std::uint8_t*, std::uint32_t) override { Ids.push_back(d.Id); }
  } all;
  disk.EnumerateMetadata(all);
  EXPECT_EQ(all.Ids, (std::vector<Common::Guid>{Format::kPage83DataItem, Format::kPhysicalSectorSizeItem}));
  ItemList provider;
  for (const auto& item : {Items::kVirtualDiskSize, Items::kLogicalSectorSize, Items::kFileParameters}) {
    provider.Items = {{item, std::string(8, '\0')}};
    EXPECT_EQ(CodeOf([&] { disk.SetMetadata(provider); }), 0x3C0037u);
  }
}

}  // namespace
