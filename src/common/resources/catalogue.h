// The translated message table of the module. Module-internal.
//
// At the first message the module subscribes to language events; each event
// loads "vellumrig.msg" for the language from the resources and makes it the
// active table when its size and entry count are right, and the compiled-in
// English table otherwise.
#pragma once

namespace Common {

// Unsubscribes and closes the resources; run by the shutdown routine.
void ShutdownMessageCatalogue();

}  // namespace Common
