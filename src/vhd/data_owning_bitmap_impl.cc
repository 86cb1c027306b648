#include "vhd/data_owning_bitmap_impl.h"

#include <algorithm>
#include <cstring>

#include "vhd/sub_bitmap.h"

namespace Vhd {

DataOwningBitmapImpl::DataOwningBitmapImpl(std::uint64_t size, bool initialValue,
                                           std::unique_ptr<ByteOperations> operations)
    : SizeHolder(size),
      data_(static_cast<std::size_t>((size + 7) / 8), initialValue ? 0xFF : 0x00),
      operations_(std::move(operations)) {}

std::shared_ptr<Bitmap> DataOwningBitmapImpl::GetSubBitmap(std::uint64_t start, std::uint64_t count) {
  CheckRange(start, count);
  return std::make_shared<SubBitmap>(shared_from_this(), start, count);
}

bool DataOwningBitmapImpl::Get(std::uint64_t index) const {
  CheckBound(index);
  return (data_[index >> 3] & operations_->GetBit(index)) != 0;
}

std::uint64_t DataOwningBitmapImpl::FindNext(std::uint64_t start, std::uint64_t count, bool value) const {
  // The end of the bitmap is a legal place to search from: enumerations end
  // there without an error, whatever count they pass.
  if (start == size_) return size_;
  if (count == 0) return start;
  CheckRange(start, count);

  const std::uint64_t end = start + count;
  const auto tail = static_cast<unsigned>(end & 7);
  const std::uint64_t firstByte = start >> 3;
  const std::uint64_t lastByte = (end - 1) >> 3;
  const auto from = static_cast<unsigned>(start & 7);

  const unsigned firstTo = ((end >> 3) > firstByte || tail == 0) ? 8 : tail;
  const unsigned position = operations_->Find(data_[firstByte], value, from, firstTo);
  // Below 8 covers a match and, for a range ending in this byte, "none": the
  // search then gave `tail`, which maps to `end`.
  if (position < 8) return position - from + start;

  // Past the first byte, skip whole words and then whole bytes that cannot
  // match.
  const std::uint8_t skipByte = value ? 0x00 : 0xFF;
  const std::uint64_t skipWord = value ? 0 : ~std::uint64_t{0};
  const std::uint8_t* data = data_.data();
  std::uint64_t k = firstByte + 1;
  for (std::uint64_t word; k + 8 <= lastByte + 1; k += 8) {
    std::memcpy(&word, data + k, sizeof word);
    if (word != skipWord) break;
  }
  while (k <= lastByte && data[k] == skipByte) ++k;
  if (k > lastByte) return end;

  // The limit is the tail even for a middle byte: kept, see the header.
  return k * 8 + operations_->Find(data[k], value, 0, tail ? tail : 8);
}

void DataOwningBitmapImpl::Set(std::uint64_t start, std::uint64_t count, bool value) {
  CheckRange(start, count);
  if (count == 0) return;

  std::uint8_t* data = data_.data();
  std::uint64_t byte = start >> 3;
  const auto from = static_cast<unsigned>(start & 7);
  const auto head = static_cast<unsigned>(std::min<std::uint64_t>(count, 8 - from));
  // Partial bytes clear by XOR: kept, see the header. The first byte counts
  // as partial even when its mask is 0xFF.
  const std::uint8_t firstMask = operations_->GetMask(from, head);
  data[byte] = value ? (data[byte] | firstMask) : (data[byte] ^ firstMask);

  const std::uint64_t rest = count - head;
  const std::uint64_t whole = rest >> 3;
  ++byte;
  std::memset(data + byte, value ? 0xFF : 0x00, static_cast<std::size_t>(whole));
  byte += whole;
  if (const auto tail = static_cast<unsigned>(rest & 7)) {
    const std::uint8_t lastMask = operations_->GetMask(0, tail);
    data[byte] = value ? (data[byte] | lastMask) : (data[byte] ^ lastMask);
  }
}

void DataOwningBitmapImpl::Set(std::uint64_t index, bool value) {
  CheckBound(index);
  const std::uint8_t bit = operations_->GetBit(index);
  std::uint8_t& byte = data_[index >> 3];
  // XOR, like the partial bytes of the range form.
  byte = value ? (byte | bit) : (byte ^ bit);
}

std::shared_ptr<DataOwningBitmap> CreateBitmap(std::uint64_t size, bool initialValue, bool reversed) {
  return std::make_shared<DataOwningBitmapImpl>(size, initialValue, CreateByteOperations(reversed));
}

}  // namespace Vhd
