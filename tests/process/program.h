// tests/process/program.h
// Runs the real programs as separate processes with their streams in files.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "support/child.h"
#include "support/files.h"
#include "support/scratch_folder.h"

namespace brisko::test {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;  // added to this process's environment

// A running program: one of the build folder, or any other by its absolute path.
class Program {
 public:
  // Its standard output is a file or the descriptor `output`.
  Program(const std::string& name, const Words& arguments, const Environment& environment = {},
          std::optional<int> output = std::nullopt);
  ~Program();  // kill -9 if it still runs
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] std::string output() const;  // the content of the file
  [[nodiscard]] std::string errors() const;
  void signal(int number) const;
  // Sends SIGSTOP and waits until it has stopped: it may run on for a moment after the signal was sent.
  void stop() const;

  // Waits for its end, at most `seconds`. False if it still runs then.
  bool ends(double seconds = 60);
  [[nodiscard]] std::optional<int> status() const;     // exit status, once it has ended
  [[nodiscard]] std::optional<int> endSignal() const;  // or the signal that ended it

 private:
  ScratchFolder streams_;
  pid_t pid_ = 0;
  std::optional<int> ended_;  // as returned by waitpid
};

// Waits until `seen` returns true, checking many times a second. False if it does not within `seconds`.
[[nodiscard]] bool eventually(const std::function<bool()>& seen, double seconds = 60);

// Runs a program to its end.
struct Finished {
  std::optional<int> status;
  std::optional<int> endSignal;
  std::string output;
  std::string errors;
};
[[nodiscard]] Finished run(const std::string& name, const Words& arguments,
                           const Environment& environment = {});

// Runs a program, by default the daemon, until it ends, in a child that `prepare` has changed before, for
// example its streams.
[[nodiscard]] Ended runPrepared(const Words& arguments, const Environment& environment,
                                const std::function<void()>& prepare,
                                const std::string& name = "brisko-daemon");

// Runs it as the user nobody until it ends, without a virtual Mac.
[[nodiscard]] Ended runAsNobody(const Words& arguments, const Environment& environment = {},
                                mode_t fileMask = 022, const std::string& name = "brisko-daemon");

[[nodiscard]] std::string programPath(const std::string& name);

}  // namespace brisko::test
