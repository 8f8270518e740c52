// benchmarks/running.h
// The programs beside this one, as processes that are measured.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace brisko::bench {

// The path of a program beside this one.
[[nodiscard]] std::string sibling(const std::string& name);

// What a process used until its end.
struct Usage {
  double cpuSeconds = 0;
  double megabytes = 0;  // at most resident
};

// A program that runs until it is ended; its output is discarded.
class Running {
 public:
  // `machine` is the folder of its virtual Mac.
  Running(std::vector<std::string> words, const std::string& machine);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }  // 0 when it could not be started
  // Waits for its end; none when it failed.
  [[nodiscard]] std::optional<Usage> wait();

 private:
  pid_t pid_ = 0;
};

}  // namespace brisko::bench
