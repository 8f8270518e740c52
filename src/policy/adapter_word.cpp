#include "policy/adapter_word.h"

namespace brisko {

bool believedPlugged(const AdapterWord& word) {
  if (word.plugged) return true;
  if (word.seen == false) return false;
  if (!word.seen && word.cut) return true;
  return word.sinceCutChanged && *word.sinceCutChanged < latestWord;
}

}  // namespace brisko
