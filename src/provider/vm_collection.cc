#include "provider/vm_collection.h"

#include "common/site.h"
#include "provider/errors.h"

namespace VirtualWareRaw {

void CommonVMCollectionImpl::Add(const Processor::AutoRef<SafeVM>& vm) {
  if (vm) machines_.push_back(vm);
}

Common::Error CommonVMCollectionImpl::GetCount(std::uint32_t& count) {
  count = static_cast<std::uint32_t>(machines_.size());
  return Common::NoError;
}

Common::Error CommonVMCollectionImpl::GetItem(std::uint32_t index, Processor::AutoRef<SafeVM>& vm) {
  if (index >= machines_.size()) return Common::MessageError(VR_SITE, kCollectionIndexInvalid);
  vm = machines_[index];
  return Common::NoError;
}

}  // namespace VirtualWareRaw
