// The machine and disk interfaces that a host holds: SafeVM, SafeVMAccess,
// the collections, SafeHardDisk and SafeRawHardDisk. Slot order is binary
// contract: operations are never added in the middle.
#pragma once

#include <cstdint>

#include "vellumrig/disk.h"
#include "vellumrig/error.h"
#include "vellumrig/ref.h"
#include "vellumrig/string.h"

namespace VirtualWareRaw {

class SafeVM;
class SafeHardDisk;

class SafeVMCollection : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x5EF681F6;
  virtual Common::Error GetCount(std::uint32_t& count) = 0;
  virtual Common::Error GetItem(std::uint32_t index, Processor::AutoRef<SafeVM>& vm) = 0;
};

class SafeHardDiskCollection : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x5ED01CC8;
  virtual Common::Error GetCount(std::uint32_t& count) = 0;
  virtual Common::Error GetItem(std::uint32_t index, Processor::AutoRef<SafeHardDisk>& disk) = 0;
};

class SafeVM : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x405B29F6;
  virtual Common::Error AddHardDisk(const Processor::String& file, std::uint32_t busType,
                                    std::uint32_t bus, std::uint32_t location, std::uint64_t size,
                                    std::uint32_t sectorSize,
                                    Processor::AutoRef<SafeHardDisk>& disk) = 0;
  virtual Common::Error AddExistingHardDisk(const Processor::String& file, std::uint32_t busType,
                                            std::uint32_t bus, std::uint32_t location,
                                            std::uint64_t unused,
                                            Processor::AutoRef<SafeHardDisk>& disk) = 0;
  virtual Common::Error RemoveHardDisk(std::uint32_t busType, std::uint32_t bus,
                                       std::uint32_t location, bool deleteFile) = 0;
  // The provider never reads the arguments and always answers "Not implemented".
  virtual Common::Error ResizeHardDisk(std::uint32_t busType, std::uint32_t bus,
                                       std::uint32_t location, std::uint64_t size) = 0;
  virtual Common::Error GetHardDisks(Processor::AutoRef<SafeHardDiskCollection>& disks) = 0;
};

class SafeVMAccess : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x600089F6;
  static constexpr std::uint32_t WriteAccess = 2;
  virtual Common::Error Open(std::uint32_t accessMode) = 0;
  virtual Common::Error Close() = 0;
};

class SafeRawHardDisk : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x4E65D072;
  // The disk stays owned by the raw disk object.
  virtual Common::Error GetDisk(VirtualMachineDiskEx*& disk) = 0;
};

class SafeHardDisk : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x4B651CC8;
  virtual Common::Error GetFileName(Processor::String& file) = 0;
  virtual Common::Error GetDiskType(std::uint32_t& type) = 0;
  virtual Common::Error GetBusType(std::uint32_t& busType) = 0;
  virtual Common::Error GetBusId(std::uint32_t& bus) = 0;
  virtual Common::Error GetLocation(std::uint32_t& location) = 0;
  virtual Common::Error GetRawDisk(Processor::AutoRef<SafeRawHardDisk>& raw) = 0;
};

}  // namespace VirtualWareRaw
