// sim/machine/machine.h
// The virtual Mac: a machine made of data. It is a plain record of fixed size without pointers, so it can lie
// in memory that a test shares with the daemon's processes, or in a file that outlives them all.
//
// Terms: "machine time" is the record's own clock, in seconds since 1970; it runs through sleep and never
// steps. The wall clock is machine time plus `wallOffset`; uptime is machine time since boot less the time
// asleep. advance() moves the machine from its last update to a later moment; it is the only function with
// which the machine changes by itself. apply() is the only way in which a user, the weather or a fault
// changes it. exchange() is the only way in which software reaches the controller. All three depend on
// nothing but the record.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "platform/smc_service.h"

namespace brisko::virtual_mac {

// The layout of the record. A file with another version is refused.
inline constexpr std::uint32_t machineVersion = 6;

// The machine time of an event that will not happen.
inline constexpr double never = std::numeric_limits<double>::infinity();

// In the record, such a moment is below 0.
inline constexpr double unset = -1;
[[nodiscard]] constexpr double orNever(double at) {
  if (at < 0) return never;
  return at;
}

// A four-character key code, first character in the high byte.
[[nodiscard]] constexpr std::uint32_t keyCode(std::string_view name) {
  std::uint32_t code = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    code = (code << 8U) | (index < name.size() ? static_cast<std::uint8_t>(name[index]) : 0U);
  }
  return code;
}

// A short text inside the record, zero-terminated.
using ShortText = std::array<char, 40>;
[[nodiscard]] ShortText shortText(std::string_view text);  // cut to 39 bytes
[[nodiscard]] std::string_view textOf(const ShortText& text);

// --- The system management controller

// Where the value of a key comes from when it is read.
enum class KeySource : std::uint8_t {
  stored,       // the bytes of the record
  adapter,      // "AC-W": 0xFF without an adapter
  temperature,  // "TB0T": the battery's temperature as a float, °C
  charging,     // "CHSC": 1 while current flows into the battery
  current,      // "B0AC": battery current as a signed 16-bit number, mA
  systemLimit,  // "bfG0": the limit that macOS enforces
};

// The effect of a write. Accepted is not obeyed: the status of a write says nothing about its effect.
enum class OnWrite : std::uint8_t {
  obey,
  ignore,              // accepted, but the value stays
  storeWithoutEffect,  // accepted and read back, the hardware continues as before
  refuse,              // the controller's result byte reports an error
  kernelError,         // the call itself fails with `writeStatus`
};

struct SmcKey {
  std::uint32_t code;                    // 0: an empty place in the table
  std::uint32_t size;                    // may be 0 or above 32
  std::uint32_t type;                    // four-character type code
  std::array<std::uint8_t, 32> bytes;    // what a read returns
  std::array<std::uint8_t, 32> acted;    // what the hardware follows
  std::array<std::uint8_t, 32> resting;  // what the system restores when it takes the key back
  KeySource source;
  OnWrite onWrite;
  bool present;               // false: unknown to the controller
  bool scripted;              // a computed key shows `bytes` instead (a broken sensor)
  std::uint32_t readStatus;   // not 0: every call that asks for the key fails with it
  std::uint32_t writeStatus;  // for OnWrite::kernelError
  double releaseAfter;        // seconds after a write at which the resting value comes back; < 0 never
  double releaseAt;           // machine time of the pending release; < 0 none
};
inline constexpr std::size_t keyPlaces = 32;

enum class SmcService : std::uint8_t { present, absent, refusesToOpen };

struct Smc {
  SmcService service;
  std::array<SmcKey, keyPlaces> keys;
  std::uint64_t exchanges;         // calls of exchange() so far
  std::uint64_t signalAtExchange;  // raise `signalToRaise` in the caller right after this exchange; 0 never
  std::int32_t signalToRaise;
  bool lightTaken;  // macOS resets "ACLC" whenever the adapter or the charging it publishes changes
};

// --- Battery, adapter, weather

// From this share of the full charge on the charger asks for no more than this current.
struct ChargeStep {
  double share;
  double mostMA;
};
using ChargeSteps = std::array<ChargeStep, 2>;  // in order of the charge

struct Battery {
  bool installed;
  double designMAh;   // when new
  double fullMAh;     // its capacity today, by the gauge
  double reserveMAh;  // unusable charge below 0; the nominal capacity is full + reserve
  std::int64_t cycles;
  double chargeMAh;        // 0 … fullMAh
  double shownFull;        // share of fullMAh that counts as 100 % …
  double showsFullFrom;    // … but from 99 % on the percentage waits, and shows 100 only from this share on
  double maxChargeMA;      // constant-current phase, nearly empty …
  ChargeSteps steps;       // … and later on
  double chargingWarmthC;  // °C by which a current warms it that fills it in one hour
  double resistanceOhm;    // of the pack
  double currentMA;        // at this moment; negative while it drains
  double targetMA;         // what the current is moving toward
  double decaySeconds;     // how slowly the current follows a change; 0: at once
  double temperatureC;
  bool fullyCharged;   // charging ended by itself; it begins again below rechargeLevel
  bool bandCharging;   // the firmware band's last direction
  bool limitCharging;  // likewise of macOS's limit
  double trickleMA;    // what still flows in while charging is stopped; 0 on a healthy Mac
};

inline constexpr double rechargeLevel = 95;          // percent shown
inline constexpr double usualShowsFullFrom = 0.985;  // of a Battery

// Only this share of the adapter's rated power reaches the machine: 28.2 W of 30.
inline constexpr double adapterShare = 0.94;

struct Adapter {
  bool present;
  double watts;
  bool staysConnectedWhenCut;  // a cut does not clear the battery's external-connected flag
};

struct Surroundings {
  double loadWatts;  // consumption of the Mac itself, awake
  double ambientC;
};

// The gauge's last publication. It publishes every 60 s, counted from the start of the system. Only the
// adapter's flags, and the requested charge when the adapter comes or goes, are published at once.
struct Gauge {
  double publishedAt;  // machine time
  std::int64_t percent;
  std::int64_t rawMAh;
  std::int64_t currentMA;
  std::int64_t voltageMV;
  std::int64_t temperatureCentiC;
  bool charging;
  bool full;
  std::int64_t askedMA;  // charge current that the charger requests
  bool operator==(const Gauge&) const = default;
};
inline constexpr double gaugePeriod = 60;  // seconds

// What powerd publishes about the internal battery.
struct PowerSource {
  std::int64_t percent;
  bool onAdapter;  // "Power Source State"
  bool charging;
  bool full;
  std::int64_t minutes;   // to empty on battery, to full while charging; -1 still calculating
  double lagSeconds;      // how late the state follows the adapter
  double stateDueAt;      // machine time at which a changed state is published; < 0 none pending
  std::uint64_t changes;  // published changes so far; processes compare it to notice new ones
};

// Where the registry has the battery's properties.
enum class RegistryLayout : std::uint8_t {
  flat,    // up to macOS 26
  nested,  // macOS 27: capacities in "BatteryData" only
};

enum class PropertyFault : std::uint8_t { none, missing, text, real, unsignedInteger };
struct PropertyChange {
  ShortText name;  // of a nested property, "BatteryData/DesignCapacity"; or of a whole entry
  PropertyFault fault;
  bool operator==(const PropertyChange&) const = default;
};
inline constexpr std::size_t propertyChanges = 8;

enum class PowerSourceFault : std::uint8_t { none, noSnapshot, emptyList, noInternalBattery, upsFirst };

// --- The system around it

struct System {
  std::int64_t macOS;          // major version
  double bootedAt;             // machine time
  double sleptSeconds;         // since boot
  double wallOffset;           // wall clock less machine time
  bool poweredOn;              // false between shutdown and boot
  bool asleep;                 // uptime and timers are paused while it is set
  std::uint32_t capabilities;  // "System Capabilities"
  bool capabilitiesReadable;
  std::int64_t pretendedUserId;  // effective user id; 0 root
  std::uint64_t processes;       // user clients opened so far
  ShortText daemonTeam;          // the team in the daemon's own code signature; "" unsigned
  bool daemonSignatureReadable;
};

// --- Sleep, wake and the power service. There is one client at most: the daemon.

enum class SleepStage : std::uint8_t {
  none,       // awake, asleep, or on the dark part of the way to sleep
  asked,      // before idle sleep the client is asked for permission; waits for its answer
  announced,  // the sleep is announced; waits for the client's answer
};

// What prevents a sleep that was asked for or announced.
enum class SleepRefusal : std::uint8_t {
  none,
  vetoed,      // somebody answers the question before an idle sleep with no
  cancelled,   // after the announcement, while the Mac is still fully awake
  inDarkness,  // in the dark part of the way to sleep, which then does not end
};

// What wakes the Mac at night without being asked to by us.
enum class Nights : std::uint8_t {
  quiet,   // nothing
  upkeep,  // the upkeep of the network name service, every two hours
  busy,    // Wi-Fi and Bluetooth too: every 5 to 17 minutes, for 2 to 180 s
};

inline constexpr double answerTimeout = 30;  // seconds; then the sleep proceeds without the answer
inline constexpr double lingerSeconds = 5;   // dark, from the last answer to the sleep itself
inline constexpr double adapterLinger =
    45;  // with an adapter powerd keeps the Mac awake this long after a wake
inline constexpr double poweredOnDelay = 2;  // from the beginning of a full wake to its message
inline constexpr double clamshellDelay = 5;  // from the beginning of a full wake to the sleep of a closed Mac
inline constexpr double idleDelay = 60;      // until a Mac that nobody uses is to fall asleep again
inline constexpr double vetoSeconds = 60;    // no idle sleep when a scheduled wake comes due within this time
inline constexpr double upkeepPeriod = 7200;     // seconds
inline constexpr std::uint32_t lateTimeout = 3;  // a client late this often in a row is no longer waited for

// Messages that a client receives and must not answer, besides the one about the full wake.
inline constexpr std::uint32_t willNotSleep = 0xE0000290;
inline constexpr std::uint32_t willPowerOn = 0xE0000320;

// A message to the client; `type` has the system's numbers. The client answers with the token.
struct PowerNotice {
  double sentAt;        // machine time
  double answeredAt;    // likewise; < 0 not yet
  std::uint32_t type;   // 0: an empty place
  std::uint32_t token;  // the number of the message, from 1
  bool awaitsAnswer;    // the client has to answer it
};
inline constexpr std::size_t noticePlaces = 32;

// A scheduled power event, as the system stores it on the disk.
struct ScheduledEvent {
  bool pending;  // listed, be its date past or not
  bool over;     // it has come due, or was in the past already when it was added
  double date;   // wall clock
  ShortText identifier;
  ShortText type;  // "wake" and "wakepoweron" end a sleep; other types have no effect
};
inline constexpr std::size_t scheduledPlaces = 1000;

struct Sleep {
  SleepStage stage;
  double stageEndsAt;  // machine time at which the stage ends by itself; < 0 never
  bool lidClosed;
  bool dark;            // awake with the display off: in a dark wake, and at the end of the way to sleep
  double darkUntil;     // machine time at which it falls asleep again; < 0 never
  double heldUntil;     // a sleep begun before this machine time stays dark until then; < 0 not held
  double poweredOnAt;   // machine time of the message about the full wake; < 0 none pending
  double fullAt;        // … at which "System Capabilities" shows that wake; < 0 none pending
  double wokenAt;       // … at which it last left sleep, for a dark wake too; < 0 not since its start
  double unattendedAt;  // … at which a Mac that nobody uses is to go to sleep again; < 0 never
  double nightWakeAt;   // … of the next dark wake of the night; < 0 none
  // The choices of this machine.
  SleepRefusal refusal;
  Nights nights;
  bool promotesScheduledWakes;  // with the lid closed on an adapter they become full for some seconds
  double batteryWakeSeconds;    // length of a dark wake on battery
  bool adapterWakes;            // a dark wake when the adapter comes or goes
  double capabilitiesDelay;     // seconds from the message about the full wake until the capabilities show it
  std::uint64_t wakes;          // out of sleep so far, dark ones too
  std::array<ScheduledEvent, scheduledPlaces> events;
  std::uint32_t eventPlaces;              // the places from here on are empty
  platform::KernelStatus scheduleStatus;  // not 0: scheduling fails with it
  bool refusesClients;
  bool preventedByClient;     // an assertion keeps a Mac on its adapter from sleeping
  std::int64_t client;        // process id of the registered client; 0 none
  std::uint32_t lateAnswers;  // of the client, in a row
  std::uint32_t noticesSent;  // so far; notice n lies at n % noticePlaces
  std::array<PowerNotice, noticePlaces> notices;
  std::uint64_t strayAnswers;  // answers to messages that did not wait for one
};

// --- The control service and its clients, in virtual time
// A request waits until a daemon listens and the Mac is awake, because the system keeps it for a service that
// has not started yet.

enum class RequestKind : std::uint8_t { applySettings, purgeAllData, releaseCharge, restart };

enum class RequestStage : std::uint8_t {
  none,
  waiting,    // no daemon has taken it
  refused,    // dropped: its client does not meet the daemon's requirement
  delivered,  // to a daemon, which may or may not have replied
};

struct ClientRequest {
  std::uint64_t number;  // of the request, from 1; 0: an empty place
  RequestStage stage;
  RequestKind kind;
  std::uint32_t client;   // which of knownClients()
  ShortText settings;     // sent by applySettings; "@/path": the contents of that file on the volume
  bool awaited;           // false: the client disconnects before a reply can come
  double sentAt;          // machine time
  double answeredAt;      // likewise, of the last reply; < 0 none yet
  std::uint32_t answers;  // how often the daemon replied
  bool done;              // of the last reply that reached the client, like `error`
  bool hasError;
  std::array<char, 160> error;  // cut to 159 bytes, zero-terminated
};
inline constexpr std::size_t requestPlaces = 16;

struct Control {
  std::uint64_t sent;  // requests so far; request n lies at n % requestPlaces
  std::array<ClientRequest, requestPlaces> requests;
};

// --- The charge limit of macOS
// Its settings are preferences on the machine's disk. When a service is notified of a change it reads them,
// applies them a little later and then enforces them. charge_limit.h has the rules.

// A preference as stored on the disk. Data, lists and dictionaries are not supported and count as no value.
enum class PreferenceKind : std::uint8_t { none, boolean, integer, real, text, date };
struct Preference {
  PreferenceKind kind;
  std::int64_t integer;  // also a boolean
  double real;           // also a date: wall clock
  ShortText text;
  bool operator==(const Preference&) const = default;
};

// Keys of the domain "com.apple.smartcharging.topoffprotection", the only one that the disk stores.
enum class LimitPreference : std::uint8_t {
  featureState,   // "MCLFeatureState": 1 while the limit is on
  limitValue,     // "mclLimitValue": percent
  disabledUntil,  // "MCLTempDisabledUntilDate": the end of a full charge that was asked for
};
inline constexpr std::size_t limitPreferences = 3;

// What programs find when they look for the client in PowerUI.
enum class LimitClient : std::uint8_t { offered, noSelector, noClass, noFramework };

// How the service treats limits that the slider does not offer.
enum class OddLimit : std::uint8_t {
  taken,     // like any other
  ignored,   // the previous limit stays
  adjusted,  // to one that the slider offers: 80, or the step of 5 below
};

enum class LimitAnswer : std::uint8_t { takes, no, error };

// What the service read from the preferences.
struct LimitOrder {
  std::int64_t percent;  // 1 … 99; 0 none
  double fullUntil;      // wall clock; 0 none
  bool operator==(const LimitOrder&) const = default;
};

// How often programs have used it since the machine was made.
struct LimitCalls {
  std::uint64_t loads;  // of the framework, whether it is there or not
  std::uint64_t clients;
  std::uint64_t supported;  // questions
  std::uint64_t enabled;
  std::uint64_t limit;
  std::uint64_t sets;
  std::uint64_t preferenceWrites;
  std::uint64_t synchronisations;
  std::uint64_t notifications;
};

struct ChargeLimit {
  bool offered;        // by macOS 26 and later; without it none of the rest has any effect
  LimitClient client;  // what hinders programs, and only them
  std::array<Preference, limitPreferences> preferences;
  double delay;                // seconds between being told of a change and taking it
  LimitOrder coming;           // read, and taken at …
  double comingAt;             // … machine time; < 0 nothing is coming
  LimitOrder held;             // taken: enforced except during a requested full charge
  double supportedAfter;       // uptime from which the client reports that the limit is supported
  double readableAfter;        // … and from which it reports whether it is on, and its value
  bool enabledFails;           // its on/off state can't be read
  bool valueFails;             // its value can't be read
  LimitAnswer setAnswer;       // to a limit that the slider offers
  OddLimit belowFloor;         // limits below 80
  OddLimit offStep;            // those above that are not a multiple of 5
  bool drains;                 // the battery is drained down to the limit on the adapter
  bool showsNoneAs100;         // in "bfG0", else 0
  bool preferencesFail;        // writes to the disk fail
  double revertAfter;          // seconds after which another program restores its own limit; < 0 never
  std::int64_t revertPercent;  // that limit; 0 none
  double revertAt;             // machine time; < 0 not pending
  LimitCalls calls;
};

// --- Changes: the one list of what a user, the weather or a fault may do to the machine. Each is believable;
// faults.h says why, and names them for the tools. Only requests are not faults: they are what users do in
// the app.

enum class ChangeKind : std::uint8_t {
  nothing,
  plug,  // number: watts
  unplug,
  charge,            // number: percent shown; publishes at once
  load,              // number: watts
  ambient,           // number: °C
  temperature,       // number: °C of the battery; physics continues from there
  health,            // number: its capacity in mAh
  cycles,            // number
  decay,             // number: seconds over which the current follows a change
  trickle,           // number: mA that still flow in while charging is stopped
  macOS,             // number: major version
  clockStep,         // number: seconds by which the wall clock jumps
  capabilities,      // number: the word; below 0: not readable
  userId,            // number
  keyPresent,        // key; number 0 removes it, 1 brings it back
  keySize,           // key; number: bytes
  keyOnWrite,        // key; number: OnWrite; status: for kernelError
  keyReadStatus,     // key; status: 0 heals it
  keyBytes,          // key; bytes: another program writes it, hardware follows; scripts a computed key
  keyUnscript,       // key: a computed key shows the true value again
  keyRelease,        // key: the system takes it back now
  keyReleaseAfter,   // key; number: seconds after each write, below 0 never
  smcService,        // number: SmcService
  property,          // text: name; number: PropertyFault
  powerSources,      // number: PowerSourceFault
  powerSourceLag,    // number: seconds
  layout,            // number: RegistryLayout
  signal,            // number: raised in the process that holds the machine
  signalAtExchange,  // number: signal; status: how many exchanges from now
  batteryInstalled,  // number 0 or 1
  lightTaken,        // number 0 or 1
  closeLid,          // a full wake ends in a sleep that is announced without asking
  openLid,           // a full wake; cancels a sleep that is only announced
  sleep,             // by command: announced without asking; from a dark wake without a message
  idleSleep,         // the Mac is unused: asked first. Only from a full wake
  wake,              // somebody uses it: like openLid, but the lid stays as it is
  darkWake,          // number: seconds until it sleeps again
  sleepRefused,      // number: SleepRefusal
  scheduledWakes,    // number 1: with the lid closed on an adapter they become full for some seconds, 0: dark
  batteryWakes,      // number: seconds that a dark wake on battery lasts
  adapterWakes,      // number 1: a dark wake when the adapter comes or goes, 0: none
  cutKeepsExternal,  // number 1: a cut leaves the external-connected flag set, 0: clears it
  lateCapabilities,  // number: seconds from the message about a full wake until the capabilities show it
  nights,            // number: Nights
  scheduleStatus,    // status: that of scheduling a wake; 0 heals it
  powerClients,      // number 0: the power service accepts no clients, 1: it does
  daemonTeam,        // text: the team that signed the daemon; "" unsigned. Makes the signature readable
  daemonSignature,   // number 0: the daemon's own signature cannot be read, 1: it can
  request,           // number: RequestKind; status: which known client; text: the settings to apply
  requestUnawaited,  // the same from a client that disconnects before the reply

  limit,                // number: percent that users set as macOS's limit; 100 none
  chargeToFull,         // number: seconds of a full charge that users ask for; 0: no longer
  limitReverted,        // number: seconds until another program restores the present limit; < 0 never
  limitDelay,           // number: seconds until macOS takes a new limit
  limitClient,          // number: LimitClient
  limitSupportedAfter,  // number: uptime in seconds
  limitReadableAfter,   // likewise
  limitEnabledFails,    // number 0 or 1
  limitValueFails,      // number 0 or 1
  limitSetAnswer,       // number: LimitAnswer
  limitBelowFloor,      // number: OddLimit
  limitOffStep,         // number: OddLimit
  limitDrains,          // number 0 or 1
  limitNoneAs100,       // number 0 or 1
  preferencesFail,      // number 0 or 1
};

struct Change {
  ChangeKind kind = ChangeKind::nothing;
  std::uint32_t key = 0;
  double number = 0;
  std::uint32_t status = 0;
  std::uint32_t byteCount = 0;
  std::array<std::uint8_t, 32> bytes{};
  ShortText text{};
};

// Something that will happen by itself at a machine time.
struct Planned {
  double at;
  std::uint64_t order;  // of insertion: breaks ties
  bool pending;
  Change change;
};
inline constexpr std::size_t plannedPlaces = 64;

struct Machine {
  std::uint32_t version;
  ShortText model;  // as shown to people, e.g. "MacBook Air 13"
  double now;       // machine time of the last update
  Smc smc;
  Battery battery;
  Adapter adapter;
  Surroundings surroundings;
  Gauge gauge;
  PowerSource powerSource;
  RegistryLayout layout;
  std::array<PropertyChange, propertyChanges> properties;
  PowerSourceFault powerSourceFault;
  System system;
  Sleep sleep;
  Control control;
  ChargeLimit limit;
  std::array<Planned, plannedPlaces> planned;
  std::uint64_t plannedSoFar;
  std::uint32_t pendingSignals;  // bit n: signal n is to be raised in the process that uses the machine
  // Live only: how machine time follows real time.
  double speed;          // machine seconds in a real second
  double realAnchor;     // real time (seconds since 1970) at which …
  double machineAnchor;  // … machine time was this
};
static_assert(std::is_trivially_copyable_v<Machine>);

// --- The journal
// Exchanges in the order in which they happened; the oldest are overwritten first. Writes are always
// recorded, reads only if requested. Traffic between the power or control service and its clients, and
// operations on macOS's limit, are recorded among the exchanges, so that the order of everything is visible.

struct JournalEntry {
  double time;            // machine time
  std::uint32_t process;  // which user client, counted from 1
  std::uint32_t key;      // of a power message its type, of a scheduled event 0
  std::uint32_t status;   // of the call
  std::uint8_t command;   // 5 read, 6 write, 8 key at index, 9 key info, or one of the power service's
  std::uint8_t result;    // of the controller
  std::uint8_t size;      // number of valid bytes
  std::array<std::uint8_t, 32> bytes;
};

// Commands of the journal that the controller does not have.
inline constexpr std::uint8_t journalReceived = 0x40;   // the client received a message
inline constexpr std::uint8_t journalAnswered = 0x41;   // … and allowed it
inline constexpr std::uint8_t journalScheduled = 0x42;  // an event; bytes: its date as a double
inline constexpr std::uint8_t journalCancelled = 0x43;  // likewise
inline constexpr std::uint8_t journalPrevented = 0x4A;  // sleep, by an assertion
inline constexpr std::uint8_t journalReleased = 0x4B;   // that assertion
// Of the control service; key: the RequestKind, byte 0 of a reply: 1 done.
inline constexpr std::uint8_t journalAsked = 0x48;    // a request was delivered to the daemon
inline constexpr std::uint8_t journalReplied = 0x49;  // … and it replied
// For the limit of macOS; charge_limit.h has their texts.
inline constexpr std::uint8_t journalLimitSet = 0x44;      // by the client; key: percent
inline constexpr std::uint8_t journalPreference = 0x45;    // written; key: LimitPreference
inline constexpr std::uint8_t journalSynchronised = 0x46;  // the preferences
inline constexpr std::uint8_t journalNotified = 0x47;      // key 1: the service of the limit, 0: others

struct Journal {
  static constexpr std::size_t capacity = 8192;
  std::uint64_t written;  // entries ever written; entry n lies at n % capacity
  bool reads;             // whether reads and key infos are recorded too
  std::array<JournalEntry, capacity> entries;
};
static_assert(std::is_trivially_copyable_v<Journal>);

// --- Operations

enum class GateKind : std::uint8_t { chte, ch0b0c, firmwareBand, none };
enum class CutKind : std::uint8_t { chie, ch0i, ch0j, none };

// A model of Mac, for makeMachine(). The built-in models are in models.h.
struct Model {
  std::string_view name;   // as the tools call it, e.g. "air13"
  std::string_view title;  // as users see it
  double designMAh, fullMAh, reserveMAh;
  std::int64_t cycles;
  double maxChargeMA;
  ChargeSteps steps;
  double resistanceOhm;
  double shownFull;
  double chargingWarmthC;
  double adapterWatts;
  double loadWatts;
  GateKind gate;
  CutKind cut;
  bool magSafeLight;  // has the key "ACLC"
};

struct MachineOptions {
  std::optional<GateKind> gate = std::nullopt;  // else the model's
  std::optional<CutKind> cut = std::nullopt;
  std::optional<bool> magSafeLight = std::nullopt;
  std::int64_t macOS = 26;
  double startTime = 1772352000;  // machine time and wall clock, 2026-03-01T08:00:00Z
  double uptime = 3600;           // seconds since boot at that moment
  double percent = 70;
  bool plugged = true;
  bool chargeLimit = true;  // macOS, from 26 on, has a charge limit of its own
};

// A healthy Mac at the start: keys open, gauge fresh, awake. From macOS 27 on the charge keys are closed:
// those of the CH families have no bytes, and those of the firmware band are refused.
[[nodiscard]] Machine makeMachine(const Model& model, const MachineOptions& options = {});

// Moves the machine to `time`; earlier times change nothing. Simulated second by second are planned changes,
// keys taken back, current, charge and temperature, and every 60 s the gauge and the power source.
void advance(Machine& machine, double time);

// The same, but stops right after the first event that a process must be told of: a signal, a power message,
// the beginning or the end of sleep and, while the machine is awake, a published change of the power source.
// Returns true when it stopped there.
bool advanceToNotice(Machine& machine, double time);

// Applies `change` now.
void apply(Machine& machine, const Change& change);

// Plans `change` for a machine time; false when all places are taken.
[[nodiscard]] bool plan(Machine& machine, double at, const Change& change);

// One exchange of the user client, as the kernel performs it: commands 5, 6, 8 and 9.
[[nodiscard]] platform::KernelStatus exchange(Machine& machine, Journal& journal,
                                              const platform::SmcRecord& input, platform::SmcRecord& output);

// The power service. A client receives the messages sent after its registration; false when it is rejected.
bool registerPowerClient(Machine& machine, std::int64_t process);
// The client's process has ended, and the kernel has noticed.
void forgetPowerClient(Machine& machine);
// The message reached the client's run loop.
void noteReceived(const Machine& machine, Journal& journal, const PowerNotice& notice);
// The client allows the announced change.
void allowPowerChange(Machine& machine, Journal& journal, std::uint32_t token);
// As IOPMSchedulePowerEvent and IOPMCancelScheduledPowerEvent do it; dates are those of the wall clock.
[[nodiscard]] platform::KernelStatus scheduleEvent(Machine& machine, Journal& journal, double date,
                                                   std::string_view identifier, std::string_view type);
platform::KernelStatus cancelEvent(Machine& machine, Journal& journal, double date,
                                   std::string_view identifier, std::string_view type);
// The client's assertion "PreventSystemSleep". Refused by what refuses to schedule events. A Mac that is dark
// for no other reason falls asleep some seconds after it was released, or at the end of the client.
[[nodiscard]] platform::KernelStatus preventSleep(Machine& machine, Journal& journal);
void allowSleep(Machine& machine, Journal& journal);

// Boots the machine: uptime starts at zero with the capabilities of a full wake. The keys keep their values.
void boot(Machine& machine);
void shutDown(Machine& machine);

// Readings for tools and tests.
[[nodiscard]] double wallClock(const Machine& machine);
[[nodiscard]] double uptimeOf(const Machine& machine);             // 0 while it is off
[[nodiscard]] double level(const Machine& machine);                // shown percent before rounding, 0 … 100
[[nodiscard]] bool adapterReachesBattery(const Machine& machine);  // present and not cut
[[nodiscard]] bool externalIsConnected(const Machine& machine);    // the battery's flag, by which powerd goes
[[nodiscard]] bool chargingIsOpen(const Machine& machine);         // what the hardware follows
[[nodiscard]] double mostChargeMA(const Battery& battery, double percent);  // at this percentage shown
[[nodiscard]] const SmcKey* findKey(const Machine& machine, std::uint32_t code);

}  // namespace brisko::virtual_mac
