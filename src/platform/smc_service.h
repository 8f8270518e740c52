// platform/smc_service.h
// The user client of the system management controller: open, exchange one record, close. Only hardware/smc
// knows what the records mean.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace brisko::platform {

using KernelStatus = std::uint32_t;  // 0 is success, otherwise the kernel's own code
using SmcConnection = std::uint32_t;
using SmcRecord = std::array<std::uint8_t, 80>;

inline constexpr KernelStatus kernelSuccess = 0;
inline constexpr KernelStatus kernelNotFound = 0xE00002F0;       // kIOReturnNotFound
inline constexpr KernelStatus kernelBadArgument = 0xE00002C2;    // kIOReturnBadArgument
inline constexpr KernelStatus kernelError = 0xE00002BC;          // kIOReturnError
inline constexpr KernelStatus kernelNotPrivileged = 0xE00002C1;  // kIOReturnNotPrivileged
inline constexpr KernelStatus kernelNotOpen = 0xE00002CD;        // kIOReturnNotOpen
inline constexpr KernelStatus kernelNoSpace = 0xE00002DB;        // kIOReturnNoSpace

struct SmcOpening {
  KernelStatus status;       // kernelNotFound when the machine has no such service
  SmcConnection connection;  // 0 unless the status is 0
};

// Opens a user client of type 0 of the first service named "AppleSMC".
[[nodiscard]] SmcOpening openSmc();

// Closes the user client; returns the kernel's status. Exchanges on it fail from then on.
KernelStatus closeSmc(SmcConnection connection);

struct SmcExchange {
  KernelStatus status;
  std::size_t answered;  // bytes of output that the controller's driver returned; 0 unless the status is 0
};

// Sends `input` and receives `output`. The status is whether the kernel accepted the call; the output's
// result byte is whether the controller obeyed. Bytes that were not answered are zero in `output`, so the
// result byte is valid only within `answered`.
[[nodiscard]] SmcExchange exchangeSmc(SmcConnection connection, const SmcRecord& input, SmcRecord& output);

}  // namespace brisko::platform
