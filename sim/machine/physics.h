// sim/machine/physics.h
// Battery, adapter and temperature over time, and what the gauge and powerd publish of them. Only the
// machine's own files include this.
//
// Physics moves in steps of one second, at whole seconds of machine time, so that it does not matter how
// often somebody looks. Nothing but the four operations is used: the same machine gives the same bits
// everywhere.
#pragma once

#include "sim/machine/controller.h"
#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// What is paused between two events of the machine, so that a second costs little.
struct Flow {
  ChargeOrders orders;
  double limit;       // of macOS, percent; 0 none
  bool drains;        // … and the battery is drained down to it
  bool adapter;       // reaches the battery
  double needWatts;   // what the Mac takes now: awake, asleep or off
  double spareWatts;  // what the adapter leaves for the battery; below 0 the battery must help
};
[[nodiscard]] Flow flowOf(const Machine& machine);

// One second passes. False when it changed nothing: then the next one will not either.
bool passSecond(Machine& machine, const Flow& flow);

// Sets the charge by the percentage shown, 0 … 100. Whoever says 100 means a battery that the charger is done
// with.
void setShownLevel(Battery& battery, double percent);

// The pack's voltage at this moment, in V.
[[nodiscard]] double packVoltage(const Machine& machine);

// The temperature, in °C, at which the battery comes to rest with the present current and need.
[[nodiscard]] double restingTemperature(const Machine& machine, double needWatts);

// The gauge publishes what is true now, and powerd publishes that.
void publishGauge(Machine& machine);

// powerd publishes the adapter as it is now.
void publishAdapterState(Machine& machine);

// To be called after anything changed by other hands than time's: the current moves toward what it is now,
// and powerd notices the adapter. `reachedBefore`: adapterReachesBattery() before the change.
void settle(Machine& machine, bool reachedBefore);

}  // namespace brisko::virtual_mac
