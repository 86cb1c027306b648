// Vhdx::Observer and Vhdx::Observable: the notice "about to change" that
// the write decorators give. Module-internal.
#pragma once

#include <memory>
#include <vector>

namespace Vhdx {

class Observer {
 public:
  Observer() = default;
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;
  virtual ~Observer() = default;

  // May throw: the change that was announced then does not happen.
  virtual void Notify() = 0;
};

class Observable {
 public:
  void Add(std::shared_ptr<Observer> observer) { observers_.push_back(std::move(observer)); }

 protected:
  ~Observable() = default;

  // Every observer in the order of adding; the first that throws stops the rest.
  void NotifyObservers() {
    for (const auto& observer : observers_) observer->Notify();
  }

 private:
  std::vector<std::shared_ptr<Observer>> observers_;
};

}  // namespace Vhdx
