// sim/machine/physics.h
// Battery, adapter and temperature over time, and what the gauge and powerd publish of them. Only the
// machine's own files include this.
//
// Physics moves in steps of one second, at whole seconds of machine time, so it does not matter how often the
// machine is read. Only the four basic operations are used, so the same machine gives the same bits
// everywhere.
#pragma once

#include "sim/machine/controller.h"
#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// What is constant between two events of the machine, computed once so that a second costs little.
struct Flow {
  ChargeOrders orders;
  double limit;       // of macOS, percent; 0 none
  bool drains;        // … and the battery is drained to it
  bool adapter;       // reaches the battery
  double needWatts;   // what the Mac consumes now: awake, asleep or off
  double spareWatts;  // what the adapter has left for the battery; below 0 the battery must help
};
[[nodiscard]] Flow flowOf(const Machine& machine);

// Simulates one second. False when it changed nothing: then the next one will change nothing either.
bool passSecond(Machine& machine, const Flow& flow);

// Sets the charge by the percentage shown, 0 … 100. 100 means that the charger has finished.
void setShownLevel(Battery& battery, double percent);

// The pack's voltage at this moment, in V.
[[nodiscard]] double packVoltage(const Machine& machine);

// The temperature, in °C, at which the battery settles with the present current and consumption.
[[nodiscard]] double restingTemperature(const Machine& machine, double needWatts);

// The gauge publishes the present values, and powerd publishes them in turn.
void publishGauge(Machine& machine);

// powerd publishes the adapter's present state.
void publishAdapterState(Machine& machine);

// To be called after any change other than the passing of time: the current moves toward its new value, and
// powerd notices the adapter. `reachedBefore`: adapterReachesBattery() before the change.
void settle(Machine& machine, bool reachedBefore);

}  // namespace brisko::virtual_mac
