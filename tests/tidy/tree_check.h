// tests/tidy/tree_check.h
// The rules of this project that its files can be checked for. Each check reads the whole tree and returns
// its findings; every finding says what to do.
#pragma once

#include "tidy/tree.h"

namespace brisko::test {

// The folders are the layers, and docs/architecture.md lists them from the top to the bottom: a file includes
// only files of its own folder and of folders further down. An implementation of the seam includes nothing of
// the rules.
[[nodiscard]] Findings checkLayers(const Tree& tree);

// A source includes its own header first, so that every header is self-contained.
[[nodiscard]] Findings checkOwnHeaderFirst(const Tree& tree);

// The keys that control charging are named in hardware/, native/ and the orderly exit alone.
[[nodiscard]] Findings checkChargeKeys(const Tree& tree);

// Nothing in src/ outside the platform folder names a clock, a sleep, a random number generator or a
// platform.
[[nodiscard]] Findings checkSeam(const Tree& tree);

// Nothing in src/ asks whether the machine is a virtual one.
[[nodiscard]] Findings checkSimulationUnknown(const Tree& tree);

// U+26A0 and U+26D4 have their variation selector everywhere, and src/ contains no blank except the plain
// one.
[[nodiscard]] Findings checkCharacters(const Tree& tree);

// No text uses a word of scripts/words.txt, except in the at most 40 places of scripts/words-allowed.txt.
// Each of those places has to exist.
[[nodiscard]] Findings checkTerms(const Tree& tree);

// docs/log.md explains every line that the daemon writes, and no other.
[[nodiscard]] Findings checkLogLines(const Tree& tree);

// The manual explains every option, environment variable and path of the daemon and its errors on standard
// error, and no unknown option.
[[nodiscard]] Findings checkManual(const Tree& tree);

// Every row of docs/threat-model.md names a test, and each of these tests exists.
[[nodiscard]] Findings checkThreatModel(const Tree& tree);

}  // namespace brisko::test
