#include "client/doctor/gathering.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "base/paths.h"
#include "client/local_time.h"

namespace brisko::client {
namespace {

constexpr double day = 86'400;
constexpr const char* errorLogPath = "/Library/Logs/Brisko/daemon.err.log";
constexpr const char* logFolder = "/Library/Logs/Brisko";
constexpr std::uint32_t modeBits = 07777;

// Each is put in place by way of a new file beside it.
constexpr std::array placedFiles{"/Library/Brisko/brisko-daemon",
                                 "/Library/Brisko/brisko",
                                 "/Library/Brisko/share",
                                 "/Library/Brisko/uninstall-service.sh",
                                 installedJob,
                                 "/Library/Application Support/Brisko/config.json"};

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

InstalledFiles installedOn(const Volume& volume) {
  InstalledFiles files{.program = exists(volume.at(installedProgram)),
                       .job = exists(volume.at(installedJob))};
  for (const char* path : placedFiles) {
    const std::string unfinished = std::string(path) + ".new";
    if (exists(volume.at(unfinished))) files.unfinished.push_back(unfinished);
  }
  return files;
}

void addRights(const Volume& volume, const char* path, bool fromInstaller, std::vector<FileRights>& all) {
  struct stat status {};
  if (::stat(volume.at(path).c_str(), &status) != 0) return;
  all.push_back({.path = path,
                 .owner = status.st_uid,
                 .group = status.st_gid,
                 .mode = static_cast<std::uint32_t>(status.st_mode) & modeBits,
                 .fromInstaller = fromInstaller});
}

// The daemon makes its own folders, in the group of the folder above.
std::vector<FileRights> rightsOn(const Volume& volume, const InstalledFiles& files) {
  std::vector<FileRights> rights;
  if (!files.program && !files.job) return rights;
  for (const char* path : {installedProgram, installedFolder, installedJob})
    addRights(volume, path, true, rights);
  for (const char* path : {dataFolder, logFolder}) addRights(volume, path, false, rights);
  return rights;
}

Gathered<std::uint32_t> modeOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return notGathered<std::uint32_t>("there is no such file");
  return gathered(static_cast<std::uint32_t>(status.st_mode) & modeBits);
}

bool isEmpty(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && status.st_size == 0;
}

// A missing file is an empty text.
Gathered<std::string> textOf(const std::string& path) {
  FileText text = readFile(path);
  if (text.problem == FileProblem::none || text.problem == FileProblem::missing)
    return gathered(std::move(text.bytes));
  return notGathered<std::string>(text.problem == FileProblem::notPermitted ? needsRoot
                                                                            : clauseOf(text.problem));
}

bool isForbidden(const std::string& path) { return ::access(path.c_str(), R_OK) != 0 && errno == EACCES; }

Gathered<std::string> endOf(const std::string& path, std::size_t longest) {
  if (isForbidden(path)) return notGathered<std::string>(needsRoot);
  return gathered(readEnd(path, longest));
}

// Where the daemon writes, or would.
Gathered<VolumeSpace> spaceOn(const Volume& volume) {
  struct statvfs system {};
  for (const char* path : {dataFolder, "/Library", "/"}) {
    if (::statvfs(volume.at(path).c_str(), &system) != 0) continue;
    return gathered(
        VolumeSpace{.freeBytes = static_cast<double>(system.f_bavail) * static_cast<double>(system.f_frsize),
                    .readOnly = (system.f_flag & ST_RDONLY) != 0});
  }
  return notGathered<VolumeSpace>("the volume cannot be asked");
}

void addLines(const std::string& text, double since, std::vector<LogLine>& lines) {
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    auto line = logLineIn(std::string_view(text).substr(begin, end - begin));
    if (line && line->time >= since) lines.push_back(std::move(*line));
    begin = end + 1;
  }
}

Gathered<std::vector<LogLine>> logOn(const Volume& volume, double now) {
  constexpr std::size_t longest = std::size_t{1} << 20U;
  if (isForbidden(volume.at(logPath))) return notGathered<std::vector<LogLine>>(needsRoot);
  std::vector<LogLine> lines;
  for (const char* path : {previousLogPath, logPath})
    addLines(readEnd(volume.at(path), longest), now - day, lines);
  return gathered(std::move(lines));
}

Gathered<std::vector<RecentSample>> historyOn(const Volume& volume, double now) {
  std::vector<RecentSample> samples;
  for (const double moment : {now - day, now, now + day}) {
    const FileText text = readFile(volume.at(std::string(historyDir) + "/" + dayText(moment) + ".jsonl"));
    if (text.problem == FileProblem::notPermitted) return notGathered<std::vector<RecentSample>>(needsRoot);
    for (const RecentSample& sample : samplesIn(text.bytes)) {
      if (sample.time >= now - day) samples.push_back(sample);
    }
  }
  return gathered(std::move(samples));
}

template <typename... Values>
void explain(const std::string& whyNot, Gathered<Values>&... all) {
  const auto one = [&whyNot](auto& each) {
    if (!each.value) each.whyNot = whyNot;
  };
  (one(all), ...);
}

}  // namespace

Evidence gatherFiles(const Volume& volume) {
  constexpr std::size_t endOfErrors = 2048;
  Evidence evidence{.state = readState(volume)};
  evidence.statusMode = modeOf(volume.at(statusPath));
  evidence.statusIsEmpty =
      evidence.state.statusProblem == FileProblem::unreadable && isEmpty(volume.at(statusPath));
  const InstalledFiles files = installedOn(volume);
  evidence.rights = gathered(rightsOn(volume, files));
  evidence.installed = gathered(files);
  evidence.errorLog = endOf(volume.at(errorLogPath), endOfErrors);
  evidence.statistics = textOf(volume.at(statsPath));
  evidence.calibration = textOf(volume.at(calibrationPath));
  evidence.space = spaceOn(volume);
  evidence.log = logOn(volume, evidence.state.now);
  evidence.history = historyOn(volume, evidence.state.now);
  return evidence;
}

void gatherLater(Evidence& evidence) {
  evidence.later = readStatus(evidence.state.volume);
  const auto& job = evidence.state.system.job;
  if (job && job->installed && !job->processId) evidence.laterJob = readSystem().job;
}

void explainGaps(Evidence& evidence, const std::string& whyNot) {
  explain(whyNot, evidence.jobFileArguments, evidence.jobDisabled, evidence.backgroundAllowed,
          evidence.signature, evidence.quarantined, evidence.appleSilicon, evidence.installedVersion,
          evidence.programChangedAt, evidence.profiles, evidence.daemons, evidence.configCreatedAt,
          evidence.battery, evidence.chargingIsStopped, evidence.systemLimit, evidence.otherPrograms);
}

}  // namespace brisko::client
