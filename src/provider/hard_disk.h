// A machine's hard disks as hosts hold them: MSVirtualPCHDD names one disk
// file and its slot, SafeRawHardDiskImpl opens the container for sector
// access at first use and keeps it open for its own life, and the
// collection hands a machine's disks over at once. Module-internal; the
// machine object makes them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/site.h"
#include "processor/interface_impl.h"
#include "provider/errors.h"
#include "vellumrig/folder.h"
#include "vellumrig/machine.h"

namespace VirtualWareRaw {

class SafeRawHardDiskImpl final : public SafeRawHardDisk {
 public:
  // Keeps a folder object of its own on `dir`.
  SafeRawHardDiskImpl(rio_dir& dir, const std::u16string& file);

  Common::Error GetDisk(VirtualMachineDiskEx*& disk) override;

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<SafeRawHardDisk>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<SafeRawHardDisk>::Instance();
  }

 private:
  void OpenDisk();

  std::u16string file_;
  std::unique_ptr<rio_dir> dir_;
  std::unique_ptr<VirtualMachineDiskEx> disk_;
};

class MSVirtualPCHDD final : public SafeHardDisk {
 public:
  // `file` is a name in `dir`; the disk keeps a folder object of its own.
  MSVirtualPCHDD(rio_dir& dir, const std::u16string& file, std::uint32_t busType, std::uint32_t bus,
                 std::uint32_t location);

  Common::Error GetFileName(Processor::String& file) override;
  Common::Error GetDiskType(std::uint32_t& type) override;
  Common::Error GetBusType(std::uint32_t& busType) override;
  Common::Error GetBusId(std::uint32_t& bus) override;
  Common::Error GetLocation(std::uint32_t& location) override;
  Common::Error GetRawDisk(Processor::AutoRef<SafeRawHardDisk>& raw) override;

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<SafeHardDisk>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<SafeHardDisk>::Instance();
  }

 private:
  std::unique_ptr<rio_dir> dir_;
  std::u16string file_;
  std::uint32_t busType_;
  std::uint32_t bus_;
  std::uint32_t location_;
  Processor::AutoRef<SafeRawHardDisk> raw_;
};

Processor::AutoRef<SafeHardDisk> CreateMSVirtualPCHDD(rio_dir* dir, const std::u16string& file,
                                                      std::uint32_t busType, std::uint32_t bus,
                                                      std::uint32_t location);

// A list handed to a host at once; an index past its end gives `outOfRange`.
template <class Collection, class Item>
class CollectionImpl final : public Collection {
 public:
  explicit CollectionImpl(ErrorMessage outOfRange) : outOfRange_(outOfRange) {}

  void Add(const Processor::AutoRef<Item>& item) {
    if (item) items_.push_back(item);
  }
  Common::Error GetCount(std::uint32_t& count) override {
    count = static_cast<std::uint32_t>(items_.size());
    return Common::NoError;
  }
  Common::Error GetItem(std::uint32_t index, Processor::AutoRef<Item>& item) override {
    if (index >= items_.size()) return Common::MessageError(VR_SITE, outOfRange_);
    item = items_[index];
    return Common::NoError;
  }
  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<Collection>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<Collection>::Instance();
  }

 private:
  ErrorMessage outOfRange_;
  std::vector<Processor::AutoRef<Item>> items_;
};

using HardDiskCollection = CollectionImpl<SafeHardDiskCollection, SafeHardDisk>;

}  // namespace VirtualWareRaw
