// Vhdx::DataOperationConsumer: where the log entry reader hands each
// operation it interprets, and AppendingOperationConsumer, which keeps them
// in the order they came, the order of the descriptors. Module-internal.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "vhdx/log/data_operation.h"

namespace Vhdx {

using DataOperationList = std::vector<std::unique_ptr<DataOperation>>;

class DataOperationConsumer {
 public:
  DataOperationConsumer() = default;
  DataOperationConsumer(const DataOperationConsumer&) = delete;
  DataOperationConsumer& operator=(const DataOperationConsumer&) = delete;
  virtual ~DataOperationConsumer() = default;

  virtual void Consume(std::unique_ptr<DataOperation> operation) = 0;
};

class AppendingOperationConsumer : public DataOperationConsumer {
 public:
  // The list must outlive the consumer.
  explicit AppendingOperationConsumer(DataOperationList& list) : list_(list) {}

  void Consume(std::unique_ptr<DataOperation> operation) override { list_.push_back(std::move(operation)); }

 private:
  DataOperationList& list_;
};

}  // namespace Vhdx
