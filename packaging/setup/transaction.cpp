#include "packaging/setup/transaction.h"

#include <utility>

#include "packaging/setup/setup_error.h"

namespace TamLogSetup {

void Transaction::Do(const std::string& name, const std::function<void()>& action,
                     std::function<void()> undo) {
  Say(name);
  done.push_back({name, std::move(undo)});
  try {
    action();
    if (++count == failAt) throw SetupError("this step fails on request");
  } catch (const std::exception& failure) {
    Say(std::string("failed: ") + failure.what());
    UndoAll();
    throw SetupError(name + ": " + failure.what());
  }
}

void Transaction::UndoAll() {
  while (!done.empty()) {
    const Step step = std::move(done.back());
    done.pop_back();
    Say("undo: " + step.name);
    try {
      step.undo();
    } catch (const std::exception& failure) {
      incomplete = true;
      Say(std::string("this could not be undone: ") + failure.what());
    }
  }
}

}  // namespace TamLogSetup
