# Compares the digest of the scenario ${name}'s ${trace} with its line in ${digests}.
file(SHA256 ${trace} digest)
file(STRINGS ${digests} expected REGEX "^${name} ")
if(NOT expected STREQUAL "${name} ${digest}")
  message(FATAL_ERROR "${name}: its log, its files or the journal of its keys is not what it was, without any guard.\n"
                      "expected: ${expected}\nseen:     ${name} ${digest}\nthe text: ${trace}\n"
                      "If that is intended, run scripts/scenario-digests.sh, and give the reason in the commit.")
endif()
