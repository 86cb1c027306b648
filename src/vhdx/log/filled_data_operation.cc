#include "vhdx/log/filled_data_operation.h"

#include "vhdx/log/log_trace.h"

namespace Vhdx {

void FilledDataOperation::Apply(File& file) {
  TraceLog(Common::Msg::LogApplyingData, {LogDecimal(fileOffset_)});
  file.Write(fileOffset_, sector_->size(), sector_->data());
}

std::uint64_t FilledDataOperation::GetEnd() const {
  return fileOffset_ > UINT64_MAX - sector_->size() ? UINT64_MAX : fileOffset_ + sector_->size();
}

}  // namespace Vhdx
