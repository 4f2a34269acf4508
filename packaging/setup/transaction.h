#pragma once

// The steps of a setup and how to undo them.
//
//   Transaction steps(failAt);
//   steps.Do("copy the files", [&] { Copy(); }, [&] { Delete(); });
//   steps.Commit();
//
// A step that throws is undone too, because it may have done a part. Then the undo functions of the earlier
// steps run, the last first.

#include <functional>
#include <string>
#include <vector>

namespace TamLogSetup {

class Transaction {
 public:
  // Tests let the step of the number `failing` (from 1) fail after it was done; 0: none.
  explicit Transaction(unsigned failing) : failAt(failing) {}

  // Says the name, runs `action`, and remembers `undo`. Throws SetupError after it has undone everything.
  void Do(const std::string& name, const std::function<void()>& action, std::function<void()> undo);
  // Keeps what was done.
  void Commit() { done.clear(); }
  // Whether an undo function failed.
  bool IsIncomplete() const { return incomplete; }

 private:
  struct Step {
    std::string name;
    std::function<void()> undo;
  };

  void UndoAll();

  unsigned failAt;
  unsigned count = 0;
  bool incomplete = false;
  std::vector<Step> done;
};

}  // namespace TamLogSetup
