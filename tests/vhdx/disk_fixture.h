// A folder of containers for the disk-level tests: open, write and read by
// name in 512-byte sectors, and make differencing children.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/test_files.h"

namespace VhdxTest {

using Areas = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

// The sectors `disk` reports changed since `id` within `area`.
inline Areas ChangedAreas(Vhdx::Disk& disk, const std::string& id, const Vhd::DiskArea& area) {
  struct : Vhd::DiskAreaCollector {
    bool Collect(const Vhd::DiskArea& a) override { return found.emplace_back(a.Offset, a.Size), true; }
    Areas found;
  } collected;
  disk.GetChangedAreas(id, area, collected);
  return collected.found;
}

// Hands out the items it holds, and takes into the same list the user
// items and the required Page 83 item, which a host's consumer must
// understand.
struct MetadataItems : Vhdx::MetadataProvider, Vhdx::SelectiveMetadataConsumer {
  std::vector<std::pair<Vhdx::MetadataDescriptor, std::string>> Items;
  void Provide(Vhdx::SelectiveMetadataConsumer& consumer) override {
    for (const auto& [d, item] : Items)
      consumer.Consume(d, reinterpret_cast<const std::uint8_t*>(item.data()), static_cast<std::uint32_t>(item.size()));
  }
  bool CanConsume(const Vhdx::MetadataDescriptor& d) const override {
    return d.IsUser() || d.Id == Vhdx::Format::kPage83DataItem;
  }
  void Consume(const Vhdx::MetadataDescriptor& d, const std::uint8_t* data, std::uint32_t size) override {
    if (CanConsume(d)) Items.emplace_back(d, std::string(reinterpret_cast<const char*>(data), size));
  }
};

class DiskFixture : public ::testing::Test {
 protected:
  static constexpr std::uint32_t kSector512 = 512;

  std::unique_ptr<rio_dir> Folder() { return Host::OpenFolder(dir.Wide()); }
  void CreateDisk(const std::string& name, std::uint64_t size, std::uint32_t sector = kSector512) {
    Vhdx::Create(*Folder(), Common::FromUtf8(name), Vhdx::kCreateDynamic, {size, sector});
  }
  std::unique_ptr<Vhdx::Disk> Open(const std::string& name, bool writable = false) {
    return std::make_unique<Vhdx::DiskImpl>(*Folder(), Common::FromUtf8(name), consumer, writable);
  }
  void Write(const std::string& name, std::uint64_t sector, const std::string& data) {
    Open(name, true)->Write(sector, data.size() / kSector512, data.data());
  }
  std::string Read(const std::string& name, std::uint64_t sector, std::uint64_t count) {
    std::string data(count * kSector512, '\x77');
    Open(name)->Read(sector, count, data.data());
    return data;
  }
  Common::Guid DataWriteGuid(const std::string& name) { return Open(name)->GetTop().GetWriteGuids().DataWriteGuid; }
  // A child of `parent` (already written to: a write renews the GUID that
  // the linkage names) with the given path entries, by default its name.
  void CreateChild(const std::string& name, const std::string& parent, std::uint64_t size,
                   Vhdx::ParentLocatorEntryList paths = {}) {
    if (paths.empty()) paths = {{u"relative_path", Common::FromUtf8(parent)}};
    paths.insert(paths.begin(), {u"parent_linkage", LinkageText(DataWriteGuid(parent))});
    CreateDifferencingChild(*Folder(), Common::FromUtf8(name), size, kSector512, paths);
  }
  std::string Bytes(const std::string& name) { return HostTest::ReadBytes(dir.Join(name)); }
  // Damage behind the engine's back.
  void Patch(const std::string& name, std::uint64_t offset, const std::string& bytes) {
    std::fstream file(dir.Join(name), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    ASSERT_TRUE(file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
  }
  // BAT entries of a file laid down by the recipe, whose BAT is at 3 MiB.
  static constexpr std::uint64_t kRecipeBat = 0x300000;
  std::uint64_t EntryOf(const std::string& name, std::uint64_t index) {
    return Vhdx::LoadLe64(reinterpret_cast<const std::uint8_t*>(Bytes(name).substr(kRecipeBat + 8 * index, 8).data()));
  }
  void PatchEntry(const std::string& name, std::uint64_t index, std::uint64_t raw) {
    std::string bytes(8, '\0');
    Vhdx::StoreLe64(reinterpret_cast<std::uint8_t*>(bytes.data()), raw);
    Patch(name, kRecipeBat + 8 * index, bytes);
  }

  HostTest::TempDir dir;
  Vhdx::OnlyCheckingMetadataConsumer consumer;
};

}  // namespace VhdxTest
