// Vhd::DataOwningBitmapImpl: a bitmap over its own byte buffer of
// (size + 7) / 8 bytes. Module-internal; made by Vhd::CreateBitmap, always
// held by a shared pointer so that views can keep it alive.
//
// Two behaviours look like slips and are kept on purpose: the engine's
// results are defined with them, so tidying either would change what the
// engine answers.
// - Clearing toggles in partial bytes. Set(..., false) applies its mask with
//   XOR in the first byte, the last partial byte and Set(index, false), so
//   clearing a clear bit sets it; whole middle bytes are filled with 0. The
//   engine only clears bits it knows to be set (sectors served out of a
//   to-do list born full).
// - FindNext searches the first matching byte past the first one only up to
//   the range's tail position (end & 7), even when that byte is not the
//   last, and may then report position `tail` of that byte although its
//   match lies above it. A range whose end is a multiple of 8, like every
//   sector bitmap block and block view, never meets this.
#pragma once

#include <memory>
#include <vector>

#include "vhd/bitmap.h"
#include "vhd/byte_operations.h"
#include "vhd/size_holder.h"

namespace Vhd {

class DataOwningBitmapImpl : public DataOwningBitmap,
                             public std::enable_shared_from_this<DataOwningBitmapImpl>,
                             public SizeHolder {
 public:
  DataOwningBitmapImpl(std::uint64_t size, bool initialValue, std::unique_ptr<ByteOperations> operations);

  using Bitmap::FindNext;

  std::uint64_t GetSize() const override { return size_; }
  std::shared_ptr<Bitmap> GetSubBitmap(std::uint64_t start, std::uint64_t count) override;
  bool Get(std::uint64_t index) const override;
  std::uint64_t FindNext(std::uint64_t start, std::uint64_t count, bool value) const override;
  void Set(std::uint64_t start, std::uint64_t count, bool value) override;
  void Set(std::uint64_t index, bool value) override;
  void SetAll(bool value) override { Set(0, size_, value); }

  const std::uint8_t* GetData() const override { return data_.data(); }
  std::uint8_t* GetData() override { return data_.data(); }
  std::size_t GetDataSize() const override { return data_.size(); }

 private:
  std::vector<std::uint8_t> data_;
  std::unique_ptr<ByteOperations> operations_;
};

}  // namespace Vhd
