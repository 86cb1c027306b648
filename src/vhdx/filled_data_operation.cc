#include "vhdx/filled_data_operation.h"

#include "vhdx/log_trace.h"

namespace Vhdx {

void FilledDataOperation::Apply(File& file) {
  TraceLog(Common::Msg::LogApplyingData, {LogDecimal(fileOffset_)});
  file.Write(fileOffset_, sector_->size(), sector_->data());
}

}  // namespace Vhdx
