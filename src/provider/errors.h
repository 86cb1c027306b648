// The provider's errors: code and message entry together. Module-internal.
#pragma once

#include "common/message_error.h"

namespace VirtualWareRaw {

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
inline constexpr ErrorMessage kSetCredentialsFailed{0x530016, Msg::SetCredentialsFailed};
inline constexpr ErrorMessage kStoragePathsFailed{0x530026, Msg::StoragePathsFailed};
inline constexpr ErrorMessage kCollectionIndexInvalid{0x530063, Msg::VMIndexInvalid};
inline constexpr ErrorMessage kXmlParseFailed{0x3B0001, Msg::XmlParseFailed};
inline constexpr ErrorMessage kStorageAccessFailed{0x530016, Msg::StorageAccessFailed};
inline constexpr ErrorMessage kVMAlreadyExists{0x530025, Msg::VMAlreadyExists};
inline constexpr ErrorMessage kMachineOpenFailed{0x5301DE, Msg::OpenVMFailed};
inline constexpr ErrorMessage kTemplateNotFound{0x5301E2, Msg::TemplateNotFound};
inline constexpr ErrorMessage kNoVMFound{0x5301E3, Msg::NoVMFound};
inline constexpr ErrorMessage kReadOnlyVMModified{0x53000C, Msg::ReadOnlyVMModified};
inline constexpr ErrorMessage kCreateConfigFailed{0x53000C, Msg::CreateConfigFailed};
inline constexpr ErrorMessage kFirmwareTypeFailed{0x5301A6, Msg::FirmwareTypeFailed};
inline constexpr ErrorMessage kMemorySizeFailed{0x530010, Msg::MemorySizeFailed};
inline constexpr ErrorMessage kSetPropertyFailed{0x53006F, Msg::SetPropertyFailed};
inline constexpr ErrorMessage kRenameVMFailed{0x530015, Msg::RenameVMFailed};
inline constexpr ErrorMessage kParseConfigFailed{0x53000C, Msg::ParseConfigFailed};
inline constexpr ErrorMessage kInvalidConfigPath{0x53000C, Msg::InvalidConfigPath};
inline constexpr ErrorMessage kConfigRootMismatch{0x53000C, Msg::ConfigRootMismatch};
inline constexpr ErrorMessage kInvalidVMName{0x5301DF, Msg::InvalidVMName};
inline constexpr ErrorMessage kFolderNamedOtherwise{0x5301E4, Msg::FolderNamedOtherwise};
inline constexpr ErrorMessage kNotAMachineFile{0x53000C, Msg::NotAMachineFile};
inline constexpr ErrorMessage kDeviceInterfaceNotSupported{0x530053, Msg::DeviceInterfaceNotSupported};
inline constexpr ErrorMessage kHardDiskFileExists{0x530054, Msg::HardDiskFileExists};
inline constexpr ErrorMessage kHardDiskFileMissing{0x530055, Msg::HardDiskFileMissing};
inline constexpr ErrorMessage kHardDiskNotFound{0x530055, Msg::HardDiskNotFound};
inline constexpr ErrorMessage kBusDeviceInUse{0x53003A, Msg::BusDeviceInUse};
inline constexpr ErrorMessage kAddHddFailed{0x53001B, Msg::AddHddFailed};
inline constexpr ErrorMessage kNoDiskAtLocation{0x53004A, Msg::NoDiskAtLocation};
inline constexpr ErrorMessage kRemoveDiskFileFailed{0x53004A, Msg::RemoveDiskFileFailed};
inline constexpr ErrorMessage kInvalidConfigFormat{0x53003F, Msg::InvalidConfigFormat};
inline constexpr ErrorMessage kHardDiskAccessFailed{0x530017, Msg::HardDiskAccessFailed};
inline constexpr ErrorMessage kOpenVirtualDiskFileFailed{0x53005E, Msg::OpenVirtualDiskFileFailed};
inline constexpr ErrorMessage kInvalidSectorSize{0x530108, Msg::InvalidSectorSize};

// "Property '{0}' is not supported." for `name`.
inline Common::Error PropertyNotSupported(const Common::ErrorSite& site, std::u16string_view name) {
  return Common::MessageError(site, kPropertyNotSupported, {name});
}

// Wraps `cause` behind a new error of `outer`: the outer meaning first.
inline Common::Error Wrap(const Common::ErrorSite& site, ErrorMessage outer,
                          std::initializer_list<std::u16string_view> args,
                          const Common::Error& cause) {
  Common::Error e = Common::MessageError(site, outer, args);
  e.AddReason(cause);
  return e;
}

}  // namespace VirtualWareRaw
