// tests/tidy/tree_check.h
// The habits of this project that can be read off its files. Each check takes the whole tree and returns what
// it found; every finding says what to do.
#pragma once

#include "tidy/tree.h"

namespace brisko::test {

// The folders are the layers, and docs/architecture.md lists them all from the top to the bottom: an include
// points to a folder further down or stays inside its own. What implements the seam knows nothing of the
// rules.
[[nodiscard]] Findings checkLayers(const Tree& tree);

// A source includes its own header before anything else, so that every header stands by itself.
[[nodiscard]] Findings checkOwnHeaderFirst(const Tree& tree);

// The keys that control charging are named in hardware/, native/ and the orderly exit alone.
[[nodiscard]] Findings checkChargeKeys(const Tree& tree);

// Nothing in src/ outside the platform folder names a clock, a sleep, chance, or a platform.
[[nodiscard]] Findings checkSeam(const Tree& tree);

// Nothing in src/ asks whether the machine is a virtual one.
[[nodiscard]] Findings checkSimulationUnknown(const Tree& tree);

// U+26A0 and U+26D4 carry their variation selector everywhere, and src/ has no blank but the plain one.
[[nodiscard]] Findings checkCharacters(const Tree& tree);

// No text uses a word of scripts/words.txt, except in the at most 40 places of scripts/words-allowed.txt.
// Each of those places has to exist.
[[nodiscard]] Findings checkTerms(const Tree& tree);

// docs/log.md explains every line that the daemon writes, and none that it does not.
[[nodiscard]] Findings checkLogLines(const Tree& tree);

// The manual explains every option, environment variable and path of the daemon and what it complains of on
// standard error, and no option that there is not.
[[nodiscard]] Findings checkManual(const Tree& tree);

}  // namespace brisko::test
