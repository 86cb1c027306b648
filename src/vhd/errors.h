// The container toolkit's errors (intervals and bitmaps): code and message
// entry together. Module-internal; raised only by the classes of src/vhd.
#pragma once

#include "common/message_error.h"

namespace Vhd {

inline constexpr Common::ErrorMessage kDisjointUnite{0x3C003C, Common::Msg::EngineDisjointUnite};
inline constexpr Common::ErrorMessage kBitmapBounds{0x3C0017, Common::Msg::EngineBitmapBounds};
inline constexpr Common::ErrorMessage kOverlappingBlock{0x3C0040, Common::Msg::EngineOverlappingBlock};
inline constexpr Common::ErrorMessage kFileNotTracked{0x3C003F, Common::Msg::EngineFileNotTracked};

}  // namespace Vhd
