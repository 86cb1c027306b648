#include "vhdx/format/region_table.h"

#include <string>

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

RegionTableEntry GetRegionEntryById(const RegionList& regions, const Common::Guid& guid) {
  for (const RegionTableEntry& entry : regions)
    if (entry.Guid == guid) return entry;
  const std::string text = Common::GuidToString(guid);
  throw Common::MessageError(VR_SITE, kRegionEntryMissing,
                             {std::u16string(text.begin(), text.end())});
}

}  // namespace Vhdx
