// EmptyVMCollectionImpl: the collection of machines that holds none.
// Module-internal.
#pragma once

#include "processor/interface_impl.h"
#include "vellumrig/machine.h"

namespace VirtualWareRaw {

class EmptyVMCollectionImpl final : public VirtualWareRaw::SafeVMCollection {
 public:
  Common::Error GetCount(std::uint32_t& count) override;
  Common::Error GetItem(std::uint32_t index, Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) override;

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<VirtualWareRaw::SafeVMCollection>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<VirtualWareRaw::SafeVMCollection>::Instance();
  }
};

}  // namespace VirtualWareRaw
