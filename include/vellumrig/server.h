// The five interfaces of the server object and the one export that makes
// it. A host calls SafeOpenVirtualServer, then reaches the other interfaces
// by Processor::QueryInterface, and calls SetRootDir before anything that
// touches files. Slot order is binary contract.
#pragma once

#include <cstdint>
#include <vector>

#include "vellumrig/error.h"
#include "vellumrig/machine.h"
#include "vellumrig/ref.h"
#include "vellumrig/string.h"

class rio_dir;

namespace VirtualWareRaw {

inline constexpr std::uint32_t SERVER_TYPE_MS_VIRTUAL_PC = 7;

class PropertySet : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x6E784E10;
  virtual Common::Error GetProperty(const wstring& name, std::vector<wstring>& values) = 0;
  virtual Common::Error GetProperty(const wstring& name, wstring& value) = 0;
  virtual Common::Error SetProperty(const wstring& name, const std::vector<wstring>& values) = 0;
  virtual Common::Error SetProperty(const wstring& name, const wstring& value) = 0;
  virtual Common::Error GetPropertyNames(std::vector<wstring>& names) = 0;
};

class SafeVirtualServer : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x6B13C1F6;
  virtual Common::Error Reserved1() = 0;
  virtual Common::Error CreateVM(const wstring& storage, const wstring& name, std::uint32_t flags,
                                 Processor::AutoRef<SafeVM>& vm) = 0;
  virtual Common::Error RemoveVM(const wstring& id) = 0;
  virtual Common::Error GetRegisteredVMs(Processor::AutoRef<SafeVMCollection>& collection) = 0;
  virtual Common::Error GetRegisteredVM(const wstring& id, Processor::AutoRef<SafeVM>& vm) = 0;
  virtual Common::Error GetServerName(wstring& name) = 0;
  virtual Common::Error Reserved2() = 0;
  virtual Common::Error GetVMDefaultFolders(std::vector<wstring>& folders) = 0;
  virtual Common::Error GetServerType(std::uint32_t& type) = 0;
};

class VirtualWorkstation : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x5B78D1D6;
  virtual Common::Error CreateVM(const wstring& storage, const Common::Credentials& credentials,
                                 const wstring& name, std::uint32_t flags,
                                 Processor::AutoRef<SafeVM>& vm) = 0;
  virtual Common::Error RemoveVM(const wstring& id, const Common::Credentials& credentials) = 0;
  virtual Common::Error GetRegisteredVM(const wstring& id, const Common::Credentials& credentials,
                                        Processor::AutoRef<SafeVM>& vm) = 0;
  virtual Common::Error GetRegisteredVMs(const wstring& storage,
                                         const Common::Credentials& credentials,
                                         const wstring& name,
                                         Processor::AutoRef<SafeVMCollection>& collection) = 0;
};

class FileServicesClient : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x6ED70626;
  // The server opens "." on the folder it is given and keeps that; null
  // empties the root.
  virtual void SetRootDir(rio_dir* root) = 0;
};

// The one place where a host sees a throw: a failure to reach the root
// reaches the caller as a thrown Common::Error.
class ObjectManager : public virtual Processor::Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x6257240F;
  virtual Common::Error CreateObject(const wstring& typeOrXml, wstring& id) = 0;
  virtual Common::Error GetObject(const wstring& id, Processor::AutoRef<PropertySet>& object) = 0;
};

}  // namespace VirtualWareRaw

// The module's only export, found with dlsym(handle, "SafeOpenVirtualServer").
extern "C" {
typedef void SafeOpenVirtualServerFn(Common::Error& error, std::int32_t type,
                                     Processor::AutoRef<VirtualWareRaw::SafeVirtualServer>& server);
}
inline constexpr const char* kSafeOpenVirtualServerName = "SafeOpenVirtualServer";
