// The provider's errors: code and message entry together. Module-internal.
#pragma once

#include "common/message_error.h"

namespace Provider {

using Common::ErrorMessage;
namespace Msg = Common::Msg;

inline constexpr ErrorMessage kOpenServerFailed{0x530069, Msg::OpenServerFailed};
inline constexpr ErrorMessage kPropertyNotSupported{0x53002C, Msg::PropertyNotSupported};
inline constexpr ErrorMessage kVMIndexInvalid{0x530023, Msg::VMIndexInvalid};
inline constexpr ErrorMessage kInternalError{0x530040, Msg::InternalError};
inline constexpr ErrorMessage kCreateVMFailed{0x530013, Msg::CreateVMFailed};
inline constexpr ErrorMessage kOpenVMFailed{0x530016, Msg::OpenVMFailed};
inline constexpr ErrorMessage kRegisteredVMsFailed{0x530004, Msg::RegisteredVMsFailed};
inline constexpr ErrorMessage kDeleteVMFailed{0x53002E, Msg::DeleteVMFailed};
inline constexpr ErrorMessage kNotImplemented{0x530062, Msg::NotImplemented};

}  // namespace Provider
