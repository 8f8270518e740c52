// tools/live_view/live_view.h
// A virtual Mac at a glance: charge and band, what the hardware does, current, temperature, adapter, the last
// log lines. On a terminal it is one picture that is drawn again in place; elsewhere it is plain lines, one
// for each log line. It looks at the machine and its files alone, as a person would.
#pragma once

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "sim/machine/machine_store.h"
#include "tools/live_view/log_tail.h"

namespace brisko::vmac {

class LiveView {
 public:
  // The store must outlive the view. `out` decides between picture and lines.
  LiveView(virtual_mac::MachineStore& store, std::FILE* out);
  ~LiveView();
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

  // Shows the machine as it is now. Returns the log lines that are new.
  std::vector<std::string> refresh();

  // A line of the caller's own, above the picture.
  void say(const std::string& text);

 private:
  void erase();
  void draw(const virtual_mac::Machine& machine);
  [[nodiscard]] virtual_mac::Machine machineNow();

  virtual_mac::MachineStore& store_;
  std::FILE* out_;
  bool terminal_;
  LogTail log_;
  std::deque<std::string> lastLines_;
  int drawn_ = 0;  // lines of the picture that stand on the terminal
};

}  // namespace brisko::vmac
