// Folder objects that report writes to the tracker: a POSIX folder wrapped
// so that every file it opens or creates for writing tells the tracker
// which bytes it wrote. Host library only; TrackingHost hands them out.
#pragma once

#include <memory>

#include "host/tracker_core.h"
#include "vellumrig/folder.h"

namespace Host::detail {

std::unique_ptr<rio_dir> TrackingFolder(std::unique_ptr<rio_dir> inner,
                                        std::shared_ptr<TrackerCore> core);

}  // namespace Host::detail
