#include "vhdx/blocks/block_reader.h"

#include <algorithm>
#include <cstring>

namespace Vhdx {

void ContinuousBlockReader::Read(std::uint64_t offsetInBlock, const ReadTarget& target) {
  const Vhd::Bitmap& wanted = *target.Wanted;
  const std::uint64_t size = wanted.GetSize();
  std::uint64_t k = wanted.FindNext(0, true);
  while (k < size) {
    const std::uint64_t run = wanted.FindNext(k, false) - k;
    if (run == 0) {
      // A search across bytes of a range whose end is not a multiple of 8
      // may name a clear bit (a quirk the bitmap keeps); the search from k
      // itself is exact, so k is clear and is stepped over.
      k = wanted.FindNext(k + 1, true);
      continue;
    }
    ReadContinuous(offsetInBlock + k, target.Slice(k, run));
    k = wanted.FindNext(k + run, true);
  }
}

void ZeroFillingBlockReader::ReadContinuous(std::uint64_t, const ReadTarget& target) {
  if (target.Map) target.Report(source_);
  else std::memset(target.Buffer, 0, target.GetSize() * target.SectorSize);
  target.Wanted->SetAll(false);
}

void WholeBlockReader::ReadContinuous(std::uint64_t offsetInBlock, const ReadTarget& target) {
  const std::uint64_t at = blockOffset_ + offsetInBlock * target.SectorSize;
  if (target.Map) target.Report(SectorSource::kData, at);
  else file_.Read(at, target.GetSize() * target.SectorSize, target.Buffer);
  target.Wanted->SetAll(false);
}

void BitmappedBlockReader::ReadContinuous(std::uint64_t offsetInBlock, const ReadTarget& target) {
  const std::uint64_t count = target.GetSize();
  const std::uint64_t end = offsetInBlock + count;
  std::uint64_t p = blockBitmap_->FindNext(offsetInBlock, true);
  while (p < end) {
    const std::uint64_t run = blockBitmap_->FindNext(p, false) - p;
    if (run == 0) {  // the search quirk, as above
      p = blockBitmap_->FindNext(p + 1, true);
      continue;
    }
    const std::uint64_t m = std::min(run, end - p);
    const ReadTarget slice = target.Slice(p - offsetInBlock, m);
    const std::uint64_t at = blockOffset_ + p * target.SectorSize;
    if (slice.Map) slice.Report(SectorSource::kData, at);
    else file_.Read(at, m * target.SectorSize, slice.Buffer);
    slice.Wanted->SetAll(false);
    p = blockBitmap_->FindNext(p + m, true);
  }
}

}  // namespace Vhdx
