#include "vhdx/metadata/metadata_reader.h"

#include <vector>

#include "vhdx/metadata/metadata_table.h"

namespace Vhdx {

void MetadataReaderImpl::Read(MetadataConsumer& consumer) {
  const MetadataTable table = MetadataTable::Read(*region_);
  for (const MetadataTableEntry& entry : table.Entries) {
    // Checked before the buffer is sized from it.
    MetadataTable::CheckItemBound(entry, region_->GetLocation().Size);
    // A buffer per item, sized exactly, so that a consumer that reads beyond
    // the length it was given is caught by the sanitizers.
    std::vector<std::uint8_t> data(entry.Length);
    if (entry.Length != 0) region_->Read({entry.Offset, entry.Length}, data.data());
    consumer.Consume(entry.Descriptor(), data.data(), entry.Length);
  }
}

}  // namespace Vhdx
