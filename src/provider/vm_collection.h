// CommonVMCollectionImpl: a list of machines handed to a host at once.
// Module-internal.
#pragma once

#include <vector>

#include "processor/interface_impl.h"
#include "vellumrig/machine.h"

namespace VirtualWareRaw {

class CommonVMCollectionImpl final : public SafeVMCollection {
 public:
  // A null machine is not added.
  void Add(const Processor::AutoRef<SafeVM>& vm);

  Common::Error GetCount(std::uint32_t& count) override;
  Common::Error GetItem(std::uint32_t index, Processor::AutoRef<SafeVM>& vm) override;

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<SafeVMCollection>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<SafeVMCollection>::Instance();
  }

 private:
  std::vector<Processor::AutoRef<SafeVM>> machines_;
};

}  // namespace VirtualWareRaw
