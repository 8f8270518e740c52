// sim/dump_import/dump_import.h
// Makes a virtual Mac from a real Mac's registry dump: the property list that `ioreg -a -r -c
// AppleSmartBattery` prints, or the same dictionary as JSON.
//
// Imported are: percentage, charge and capacities, cycles, voltage, current and temperature as the gauge last
// published them, the adapter and its watts, the load, and the layout of the registry. Serial numbers are not
// imported. A dump contains neither the Mac's charge keys nor its version of macOS. Those come from the
// options, else from the nearest model; a dump in the nested layout means at least macOS 27.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/value.h"
#include "sim/machine/machine.h"

namespace brisko {

// `pack` holds the properties of "AppleSmartBatteryPack", or is null. Returns none, and a readable `reason`,
// when the dump cannot be used. `options.percent` and `options.plugged` are ignored.
[[nodiscard]] std::optional<virtual_mac::Machine> machineFromDump(const platform::Dictionary& dump,
                                                                  const platform::Dictionary* pack,
                                                                  const virtual_mac::MachineOptions& options,
                                                                  std::string& reason);

// The same from a file. If the dump "NAME.json" has the nested layout, "NAME.pack.json" beside it is read too
// if it exists. The reason names the file.
[[nodiscard]] std::optional<virtual_mac::Machine> machineFromDumpFile(
    const std::string& path, const virtual_mac::MachineOptions& options, std::string& reason);

}  // namespace brisko
