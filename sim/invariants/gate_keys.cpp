#include "sim/invariants/gate_keys.h"

#include <algorithm>

namespace brisko::lab {
namespace {

using virtual_mac::JournalEntry;
using virtual_mac::keyCode;
using virtual_mac::Machine;

constexpr std::uint8_t commandWrite = 6;

constexpr KeyWord adapterCutWord(AdapterCutKey key) {
  switch (key) {
    case AdapterCutKey::chie:
      return {keyCode("CHIE"), 1, 0x08};
    case AdapterCutKey::ch0i:
      return {keyCode("CH0I"), 1, 0x01};
    case AdapterCutKey::ch0j:
      return {keyCode("CH0J"), 1, 0x01};
    case AdapterCutKey::none:
      break;
  }
  return {};
}

template <class Bytes>
bool says(const KeyWord& word, const Bytes& bytes) {
  const auto end = bytes.begin() + word.size;
  return bytes[0] == word.set && std::all_of(bytes.begin() + 1, end, [](auto byte) { return byte == 0; });
}

bool shows(const Machine& machine, const KeyWord& word) {
  const virtual_mac::SmcKey* key = virtual_mac::findKey(machine, word.code);
  return key != nullptr && key->present && key->readStatus == 0 && key->size == word.size &&
         says(word, key->bytes);
}

}  // namespace

GateWords wordsOf(const ChargeGate& gate) {
  const KeyWord cut = adapterCutWord(gate.cut);
  switch (gate.charge) {
    case ChargeKeys::chte:
      return {.stop = {keyCode("CHTE"), 4, 0x01}, .secondStop = {}, .limits = {}, .cut = cut};
    case ChargeKeys::ch0b0c:
      return {.stop = {keyCode("CH0B"), 1, 0x02},
              .secondStop = {keyCode("CH0C"), 1, 0x02},
              .limits = {},
              .cut = cut};
    case ChargeKeys::firmwareBand:
      return {.stop = {keyCode("bfF0"), 1, 0x02},
              .secondStop = {},
              .limits = {KeyWord{keyCode("bfD0"), 4, 0}, KeyWord{keyCode("bfE0"), 4, 0}},
              .cut = cut};
    case ChargeKeys::macOSLimit:
      break;
  }
  return {};
}

GateKeys keysOf(const ChargeGate& gate, const Machine& machine) {
  const GateWords words = wordsOf(gate);
  return {.first = shows(machine, words.stop),
          .second = words.secondStop.code == 0 || shows(machine, words.secondStop),
          .cut = words.cut.code != 0 && shows(machine, words.cut)};
}

bool isWrite(const JournalEntry& entry) { return entry.command == commandWrite; }

bool isAccepted(const JournalEntry& entry) { return entry.status == 0 && entry.result == 0; }

bool asksForCut(const JournalEntry& entry, const ChargeGate& gate) {
  const KeyWord cut = wordsOf(gate).cut;
  return isWrite(entry) && cut.code != 0 && entry.key == cut.code && says(cut, entry.bytes);
}

GateKeys after(const GateKeys& keys, const ChargeGate& gate, const JournalEntry& write) {
  if (!isWrite(write) || !isAccepted(write)) return keys;
  const GateWords words = wordsOf(gate);
  GateKeys now = keys;
  if (write.key == words.stop.code) now.first = says(words.stop, write.bytes);
  if (write.key == words.secondStop.code) now.second = says(words.secondStop, write.bytes);
  if (write.key == words.cut.code) now.cut = says(words.cut, write.bytes);
  return now;
}

bool isOfGate(const JournalEntry& entry, const ChargeGate& gate) {
  if (!isWrite(entry)) return false;
  const auto words = wordsOf(gate).all();
  return std::any_of(words.begin(), words.end(),
                     [&](const KeyWord& word) { return word.code != 0 && word.code == entry.key; });
}

}  // namespace brisko::lab
