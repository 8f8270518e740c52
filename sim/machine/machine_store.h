// sim/machine/machine_store.h
// Where the one machine of a process is stored: in anonymous memory shared with forked children (tests, the
// lab) or in the file "machine" of a folder (live). The seam and the tools reach the machine only through
// this.
//
// In a file, an update changes a second copy and publishes it by flipping one index, under a lock that the
// kernel releases. A process killed at any point leaves a complete machine.
#pragma once

#include <memory>
#include <string>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

class MachineStore {
 public:
  // Anonymous shared memory holding `machine`; survives fork() in parent and children alike.
  [[nodiscard]] static std::unique_ptr<MachineStore> inMemory(const Machine& machine);

  // Creates `folder` (and its volume root) with `machine` in it. Null and a reason (one clause, to follow
  // "brisko-vmac: ") when the folder exists and is not empty, or cannot be made.
  [[nodiscard]] static std::unique_ptr<MachineStore> create(const std::string& folder, const Machine& machine,
                                                            std::string& reason);
  // Opens the machine in `folder`. Null and a reason when it is missing, not a virtual Mac, of another
  // version or half-written; nothing is changed then.
  [[nodiscard]] static std::unique_ptr<MachineStore> open(const std::string& folder, std::string& reason);

  ~MachineStore();
  MachineStore(const MachineStore&) = delete;
  MachineStore& operator=(const MachineStore&) = delete;

  // The machine after the last update, locked as long as the View exists. Not to be nested.
  class View {
   public:
    ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;
    [[nodiscard]] const Machine& machine() const { return *machine_; }
    [[nodiscard]] const Journal& journal() const { return *journal_; }

   private:
    friend class MachineStore;
    View(MachineStore& store, const Machine& machine, const Journal& journal)
        : store_(store), machine_(&machine), journal_(&journal) {}
    MachineStore& store_;
    const Machine* machine_;
    const Journal* journal_;
  };
  // A change of the machine, locked; others see it when the Update ends. Not to be nested.
  class Update {
   public:
    ~Update();
    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;
    [[nodiscard]] Machine& machine() const { return *machine_; }
    [[nodiscard]] Journal& journal() const { return *journal_; }

   private:
    friend class MachineStore;
    Update(MachineStore& store, Machine& machine, Journal& journal)
        : store_(store), machine_(&machine), journal_(&journal) {}
    MachineStore& store_;
    Machine* machine_;
    Journal* journal_;
  };
  [[nodiscard]] View view();
  [[nodiscard]] Update update();

  [[nodiscard]] const std::string& folder() const;      // empty in memory
  [[nodiscard]] const std::string& volumeRoot() const;  // folder + "/volume"; in memory as set
  void setVolumeRoot(std::string root);                 // in memory only

 private:
  MachineStore();
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Creates the folders that a fresh Mac has below the root of its volume, as far as the daemon uses them,
// including the app.
[[nodiscard]] bool makeVolume(const std::string& root);

// The store that the seam of this process uses. In virtual time a test or the lab attaches it first of all;
// live it is opened on first use from the folder that BRISKO_VIRTUAL_MAC names. Null: there is no virtual
// Mac, and the computer has no controller, no battery and no power service.
[[nodiscard]] MachineStore* attachedMachine();

// The present machine time. In virtual time it is that of the machine's last update; live it follows from the
// real clock and the machine's speed.
[[nodiscard]] double machineTime(const Machine& machine);

// Wakes the run loops of all processes that use the live machine in `folder`.
void wakeHolders(const std::string& folder);

}  // namespace brisko::virtual_mac
