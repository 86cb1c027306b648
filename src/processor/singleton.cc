#include "processor/singleton.h"

namespace Processor {

class SingletonList {
 public:
  static Common::Mutex& Lock() {
    static auto* lock = new Common::Mutex;  // never destroyed: used at process end
    return *lock;
  }

  static SingletonNode* Target(GcRef* slot) {
    SingletonNode* node = nullptr;
    GcRefRead(slot, &node);
    return node;
  }
  static void Point(GcRef* slot, SingletonNode* node) { GcRefAssign(slot, nullptr, node); }

  // The caller holds the lock.
  static void Append(SingletonNode* node) {
    if (shutDown) return;
    Point(node->previous_, tail);
    if (tail) Point(tail->next_, node);
    else head = node;
    tail = node;
    node->linked_ = true;
    if (node->holds_) AddRef(node->self_);
  }

  // The caller holds the lock. Returns whether the list held a reference.
  static bool Remove(SingletonNode* node) {
    if (!node->linked_) return false;
    SingletonNode* before = Target(node->previous_);
    SingletonNode* after = Target(node->next_);
    if (before) Point(before->next_, after);
    else head = after;
    if (after) Point(after->previous_, before);
    else tail = before;
    GcRefClear(node->previous_);
    GcRefClear(node->next_);
    node->linked_ = false;
    return node->holds_;
  }

  static inline SingletonNode* head = nullptr;
  static inline SingletonNode* tail = nullptr;
  static inline bool shutDown = false;
};

void SingletonNode::LinkCallback(void* owner, int operation, void* argument) {
  auto** target = static_cast<SingletonNode**>(owner);
  switch (operation) {
    case GcAssign: *target = static_cast<SingletonNode*>(argument); break;
    case GcClear: *target = nullptr; break;
    case GcRead: *static_cast<SingletonNode**>(argument) = *target; break;
  }
}

SingletonNode::SingletonNode(RefObject* self, bool listHoldsReference)
    : self_(self),
      holds_(listHoldsReference),
      previous_(GcRefCreate(nullptr, kGcRefPlain, &previousNode_, &LinkCallback)),
      next_(GcRefCreate(nullptr, kGcRefPlain, &nextNode_, &LinkCallback)) {
  Common::MutexGuard guard(SingletonList::Lock());
  SingletonList::Append(this);
}

SingletonNode::~SingletonNode() {
  {
    Common::MutexGuard guard(SingletonList::Lock());
    SingletonList::Remove(this);
  }
  GcRefDestroy(previous_);
  GcRefDestroy(next_);
}

void ShutdownSingletons() {
  while (true) {
    SingletonNode* node;
    bool held;
    {
      Common::MutexGuard guard(SingletonList::Lock());
      node = SingletonList::head;
      if (!node) break;
      held = SingletonList::Remove(node);
    }
    // Outside the list lock: the release may destroy the singleton.
    if (held) Release(node->self_);
  }
  Common::MutexGuard guard(SingletonList::Lock());
  SingletonList::shutDown = true;
}

RefObject* FirstSingleton() {
  Common::MutexGuard guard(SingletonList::Lock());
  return SingletonList::shutDown || !SingletonList::head ? nullptr : SingletonList::head->self_;
}

}  // namespace Processor
