// tools/live_view/live_view.h
// Shows a virtual Mac: charge and band, the hardware's state, current, temperature, adapter, the latest log
// lines. On a terminal it is a picture that is redrawn in place; elsewhere it is plain text, one line for
// each log line. It only reads the machine and its files, as a user could.
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
  // The store must outlive the view. If `out` is a terminal the view draws the picture, else plain lines.
  LiveView(virtual_mac::MachineStore& store, std::FILE* out);
  ~LiveView();
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

  // Shows the machine as it is now. Returns the new log lines.
  std::vector<std::string> refresh();

  // Prints a line of the caller's own above the picture.
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
  int drawn_ = 0;  // lines of the picture now on the terminal
};

}  // namespace brisko::vmac
