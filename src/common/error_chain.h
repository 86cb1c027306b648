// Joining error chains: a failure that has several causes of equal rank (one
// for each candidate tried) carries them one behind the other. Module-internal.
#pragma once

#include "vellumrig/error.h"

namespace Common {

// `head` with `tail` hung behind the last cause of its chain. Shared
// records are cloned on the way, so neither argument changes.
inline Error Chained(const Error& head, const Error& tail) {
  if (!head) return tail;
  if (!tail) return head;
  Error copy = head;  // shared now: AddReason clones the record
  copy.AddReason(Chained(head.Reason(), tail));
  return copy;
}

}  // namespace Common
