#include "sim/replay/sample_report.h"

#include <utility>
#include <vector>

#include "report/ustar.h"

namespace brisko::test {

std::map<std::string, std::string> sampleMembers() {
  return {
      {"manifest.json", R"({"system": {"macOS": "26.1"}})"},
      {"config.json", R"({"enabled": true, "limit": 80, "hysteresis": 5, "led": true})"},
      {"history/2026-03-01.jsonl", R"({"g":true,"p":70,"s":"allow","t":1772352001,"ct":300,"wt":200}
{"g":true,"p":71,"s":"allow","t":1772352241,"ct":301,"wt":200}
{"g":false,"p":71,"s":"allow","t":1772352500,"ct":301,"wt":-80}
{"g":false,"p":70,"s":"allow","t":1772352800,"ct":301,"wt":-80}
)"},
      {"daemon.log",
       "2026-03-01T08:00:00Z  brisko-daemon started (event-driven) — config /c. charging via CH0B+CH0C, "
       "discharge CH0I, LED off, history /h, state=allow\n"
       "2026-03-01T08:00:01Z  cap 80%  batt 70%  30.0°C  ac  state=allow  LED=orange\n"
       "2026-03-01T08:08:20Z  cap 80%  batt 71%  30.1°C  battery  state=allow  LED=system\n"},
      {"job.json",
       R"({"ProgramArguments": ["/x/brisko-daemon", "--app", "/…/Brisko.app", "--guard", "night", "--fwtest"]})"},
      {"battery.json",
       R"({"CurrentCapacity": 70, "MaxCapacity": 100, "AppleRawMaxCapacity": 6000, "AppleRawCurrentCapacity": 4040,
           "DesignCapacity": 6249, "CycleCount": 12, "Voltage": 12000, "ExternalConnected": false})"},
  };
}

std::string archiveOf(const std::map<std::string, std::string>& members) {
  std::vector<lab::ArchiveMember> archive;
  for (const auto& [name, contents] : members) archive.push_back({"brisko-report/" + name, contents});
  return lab::ustarArchive(archive, 0);
}

}  // namespace brisko::test
