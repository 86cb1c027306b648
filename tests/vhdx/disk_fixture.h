// A folder of containers for the disk-level tests: open, write and read by
// name in 512-byte sectors, and make differencing children.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"

namespace VhdxTest {

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

  HostTest::TempDir dir;
  Vhdx::OnlyCheckingMetadataConsumer consumer;
};

}  // namespace VhdxTest
