// The provider's value tables: bus types, firmware values, and the texts of
// the GuestOS and PowerState properties. Module-internal.
#pragma once

#include <cstdint>
#include <string_view>

namespace VirtualWareRaw {

enum BusType : std::uint32_t {
  BusIDE = 0,
  BusSCSI = 1,
  BusSATA = 2,
  BusNVME = 3,
  BusUnknown = 4,
};

enum FirmwareType : std::uint32_t {
  FirmwareBios = 0,
  FirmwareEfi = 1,
};

enum PowerState : std::uint32_t {
  PowerRunning = 1,
  PowerStopped = 2,
  PowerSuspended = 3,
  PowerWaitInput = 4,
  PowerUnknown = 5,
};

// Linear searches from the first row; a value not in the table gives
// "Unknown".
std::u16string_view GuestOSToString(std::uint32_t value);
std::u16string_view PowerStateToString(std::uint32_t value);

}  // namespace VirtualWareRaw
