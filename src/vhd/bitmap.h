// Vhd::Bitmap and Vhd::DataOwningBitmap: one bit per sector, telling whether
// the sector's data is present in this file. Module-internal; used by the
// block reads and writes, the change tracking and, as a to-do list of
// sectors, by the disk-level read.
//
// Indices and counts are in bits. Every operation checks its indices against
// the size first and raises EngineBitmapBounds (0x3C0017) before it changes
// or reads anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Vhd {

class Bitmap {
 public:
  Bitmap() = default;
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;
  virtual ~Bitmap() = default;

  virtual std::uint64_t GetSize() const = 0;
  // A view of [start, start + count) that shares the bits: no copy.
  virtual std::shared_ptr<Bitmap> GetSubBitmap(std::uint64_t start, std::uint64_t count) = 0;
  virtual bool Get(std::uint64_t index) const = 0;
  // The first index in [start, start + count) whose bit equals `value`, or
  // start + count when there is none.
  virtual std::uint64_t FindNext(std::uint64_t start, std::uint64_t count, bool value) const = 0;
  virtual std::uint64_t FindNext(std::uint64_t start, bool value) const {
    return FindNext(start, GetSize() - start, value);
  }
  virtual std::uint64_t Find(bool value) const { return FindNext(0, value); }
  virtual void Set(std::uint64_t start, std::uint64_t count, bool value) = 0;
  virtual void Set(std::uint64_t index, bool value) = 0;
  virtual void SetAll(bool value) = 0;
};

// A bitmap whose bytes are its own. The bytes in memory are the bytes on
// disk: loading and storing a sector bitmap block go through GetData.
class DataOwningBitmap : public Bitmap {
 public:
  virtual const std::uint8_t* GetData() const = 0;
  virtual std::uint8_t* GetData() = 0;
  virtual std::size_t GetDataSize() const = 0;
};

// A new bitmap of `size` bits, all equal to `initialValue`. Bit i lies in
// byte i / 8; `reversed` puts bit position 0 at the high end of each byte
// instead of the low end. VHDX sector bitmaps are never reversed.
std::shared_ptr<DataOwningBitmap> CreateBitmap(std::uint64_t size, bool initialValue, bool reversed = false);

}  // namespace Vhd
