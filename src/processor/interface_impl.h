// Helpers for objects that implement interfaces. Module-internal.
//
// An object lists its interfaces in the order of its bases; GetInterface
// tries them in that order and answers the null pair for anything else.
#pragma once

#include <cstdint>

#include "processor/meta_class.h"
#include "vellumrig/ref.h"

namespace Processor {

// A counted pair for interface I of `self`.
template <class I, class Self>
InterfaceRef MakeInterfaceRef(Self* self) {
  I* p = self;
  Processor::AddRef(p);
  return InterfaceRef{static_cast<void*>(p), InterfaceMetaClass<I>::Instance()};
}

template <class... Is, class Self>
void FindInterface(Self* self, InterfaceRef& out, std::uint32_t id) {
  out = InterfaceRef{};
  (void)((id == Is::InterfaceId ? (out = MakeInterfaceRef<Is>(self), true) : false) || ...);
}

// A new object of class T handed out as interface I, the creator's reference
// going to the holder.
template <class I, class T, class... Args>
AutoRef<I> MakeRef(Args&&... args) {
  return AutoRef<I>::Adopt(new T(std::forward<Args>(args)...));
}

}  // namespace Processor
