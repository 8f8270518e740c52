// sim/dump_import/dump_import.h
// Makes a virtual Mac from a real Mac's registry dump: the property list that `ioreg -a -r -c
// AppleSmartBattery` prints, or the same dictionary as JSON.
//
// Taken over: percentage, charge and capacities, cycles, voltage, current and temperature as the gauge last
// published them, the adapter with its watts, the load, and the layout of the registry. Not taken over:
// serials. A dump does not say which charge keys the Mac has, nor its version of macOS; those come from the
// options, else from the nearest model, and a dump in the nested layout is at least of macOS 27.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/value.h"
#include "sim/machine/machine.h"

namespace brisko {

// `pack` are the properties of "AppleSmartBatteryPack", null without them. None, and a reason for people,
// when the dump cannot be used. `options.percent` and `options.plugged` are of no effect.
[[nodiscard]] std::optional<virtual_mac::Machine> machineFromDump(const platform::Dictionary& dump,
                                                                  const platform::Dictionary* pack,
                                                                  const virtual_mac::MachineOptions& options,
                                                                  std::string& reason);

// The same from a file. Beside "NAME.json" in the nested layout "NAME.pack.json" is read when it is there.
// The reason names the file.
[[nodiscard]] std::optional<virtual_mac::Machine> machineFromDumpFile(
    const std::string& path, const virtual_mac::MachineOptions& options, std::string& reason);

}  // namespace brisko
