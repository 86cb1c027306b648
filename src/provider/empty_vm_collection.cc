#include "provider/empty_vm_collection.h"

#include "common/site.h"
#include "provider/errors.h"

namespace VirtualWareRaw {

Common::Error EmptyVMCollectionImpl::GetCount(std::uint32_t& count) {
  count = 0;
  return Common::NoError;
}

Common::Error EmptyVMCollectionImpl::GetItem(std::uint32_t, Processor::AutoRef<VirtualWareRaw::SafeVM>&) {
  return Common::MessageError(VR_SITE, kVMIndexInvalid);
}

}  // namespace VirtualWareRaw
