// sim/replay/sample_report.h
// A small bug report, member by member, for the tests of what reads one.
#pragma once

#include <map>
#include <string>

namespace brisko::test {

// The members of a report of a quarter of an hour, by their names below its folder.
[[nodiscard]] std::map<std::string, std::string> sampleMembers();
[[nodiscard]] std::string archiveOf(const std::map<std::string, std::string>& members);

}  // namespace brisko::test
