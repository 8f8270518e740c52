// state/charge_state_record.h
// The three charge states, the one in force, and what the verifiers store about it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace brisko {

enum class ChargeState : std::uint8_t {
  allow,      // charging permitted, adapter connected
  hold,       // charging stopped, the adapter still powers the Mac
  discharge,  // charging stopped and the adapter cut: the Mac runs from the battery
};

[[nodiscard]] constexpr const char* stateName(ChargeState state) {
  switch (state) {
    case ChargeState::hold:
      return "hold";
    case ChargeState::discharge:
      return "discharge";
    case ChargeState::allow:
      break;
  }
  return "allow";
}

// None if no state has this name.
[[nodiscard]] constexpr std::optional<ChargeState> stateNamed(std::string_view name) {
  for (const ChargeState state : {ChargeState::allow, ChargeState::hold, ChargeState::discharge}) {
    if (name == stateName(state)) return state;
  }
  return std::nullopt;
}

inline constexpr std::int64_t dischargeFloor = -100;  // mA; a discharge draws at least that much

inline ChargeState gState = ChargeState::allow;  // last applied to the hardware

// When the adapter was last cut or connected again by a change of state; uptime. None before the first.
inline std::optional<double> gCutChangedAt;

// The verifiers' variables for this state. Times are wall clock, seconds since 1970.
inline std::optional<double> gHoldSince;  // when the verifier first saw this hold
inline std::optional<double> gCutSince;   // when the verifier first saw this adapter cut
inline int gCutRewrites = 0;              // how often the cut had to be written back
inline bool gDriftLogged = false;         // the "gate found open" line was written

// For every change of state.
inline void forgetVerification() {
  gHoldSince.reset();
  gCutSince.reset();
  gCutRewrites = 0;
  gDriftLogged = false;
}

}  // namespace brisko
