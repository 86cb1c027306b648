// vrig vhdx import and export: whole images between a raw file and a
// container, in large runs, with zeros left out on both sides.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "cli.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx_access.h"
#include "vhdx_commands.h"

namespace vrig {
namespace {

[[noreturn]] void Fail(const std::string& what, const std::string& path) {
  throw std::runtime_error(what + " '" + path + "': " + std::strerror(errno));
}

class Descriptor {
 public:
  Descriptor(int fd, const std::string& path) : fd_(fd), path_(path) {
    if (fd_ < 0) Fail("cannot open", path_);
  }
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return fd_; }
  void Close() {
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0) Fail("cannot close", path_);
  }

 private:
  int fd_;
  std::string path_;
};

void ReadFully(int fd, std::uint8_t* data, std::size_t size, std::uint64_t offset, const std::string& path) {
  while (size) {
    const ssize_t n = ::pread(fd, data, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) Fail("cannot read", path);
    if (n == 0) throw std::runtime_error("'" + path + "' became shorter while it was read");
    data += n;
    size -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
}

void WriteFully(int fd, const std::uint8_t* data, std::size_t size, std::uint64_t offset, const std::string& path) {
  while (size) {
    const ssize_t n = ::pwrite(fd, data, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Fail("cannot write", path);
    data += n;
    size -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
}

std::uint64_t RoundDown(std::uint64_t value, std::uint64_t grain) { return value / grain * grain; }

// The next stretch of a raw image worth reading from `offset` on: holes
// the file system knows of are skipped without reading them, which moves
// `offset` to the data after them. Stretches start and end at the zero
// grain (or the end of the image), so they stay whole sectors. 0 at the end.
std::size_t NextStretch(int fd, std::uint64_t& offset, std::uint64_t size) {
  const off_t data = ::lseek(fd, static_cast<off_t>(offset), SEEK_DATA);
  if (data < 0 && errno == ENXIO) return 0;  // only a hole is left
  std::uint64_t end = offset + kTransferBytes;
  if (data >= 0) {
    offset = std::max(offset, RoundDown(static_cast<std::uint64_t>(data), kZeroGrain));
    const off_t hole = ::lseek(fd, data, SEEK_HOLE);
    if (hole > 0)
      end = std::min(offset + kTransferBytes,
                     RoundDown(static_cast<std::uint64_t>(hole) + kZeroGrain - 1, kZeroGrain));
  }
  // Without hole support every byte is read, and zeros are found in memory.
  return static_cast<std::size_t>(std::min(end, size) - offset);
}

// Fills `size` bytes at `offset` with zeros: a hole where the file system
// can punch one, written zeros where it cannot.
void Zero(int fd, std::uint64_t offset, std::uint64_t size, const std::string& path) {
  if (::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                  static_cast<off_t>(size)) == 0)
    return;
  if (errno != EOPNOTSUPP && errno != ENOSYS) Fail("cannot clear a range of", path);
  static const std::vector<std::uint8_t> zeros(kZeroGrain);
  for (std::uint64_t done = 0; done < size;) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(zeros.size(), size - done));
    WriteFully(fd, zeros.data(), n, offset + done, path);
    done += n;
  }
}

// Copies the disk's bytes `begin` (a sector boundary) to `end` into the raw
// image at the same offsets. A `fresh` image reads zeros there already, so
// zero runs stay holes; otherwise they replace what the image held.
void CopyOut(Vhdx::Disk& disk, std::uint64_t begin, std::uint64_t end, int fd, const std::string& raw,
             bool fresh, std::vector<std::uint8_t>& buffer, Progress& progress, std::uint64_t& done) {
  const std::uint32_t sectorSize = disk.GetDiskParameters().LogicalSectorSize;
  for (std::uint64_t offset = begin; offset < end; offset += kTransferBytes) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(kTransferBytes, end - offset));
    const std::size_t whole = n / sectorSize;
    disk.Read(offset / sectorSize, whole, buffer.data());
    // A virtual size may end inside a sector that no read reaches: those
    // bytes are zeros, not what the buffer held from the stretch before.
    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(whole * sectorSize),
              buffer.begin() + static_cast<std::ptrdiff_t>(n), 0);
    std::size_t cleared = 0;
    ForEachDataRun(buffer.data(), n, [&](std::size_t at, std::size_t length) {
      if (!fresh && at > cleared) Zero(fd, offset + cleared, at - cleared, raw);
      WriteFully(fd, buffer.data() + at, length, offset + at, raw);
      cleared = at + length;
    });
    if (!fresh && n > cleared) Zero(fd, offset + cleared, n - cleared, raw);
    progress.Advance(done += n);
  }
}

// Up to `size` bytes of a stream into `data`; fewer only at its end.
std::size_t ReadStream(int fd, std::uint8_t* data, std::size_t size) {
  std::size_t got = 0;
  while (got < size) {
    const ssize_t n = ::read(fd, data + got, size - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) Fail("cannot read", "standard input");
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  return got;
}

void WriteStream(int fd, const std::uint8_t* data, std::size_t size) {
  while (size) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Fail("cannot write", "standard output");
    data += n;
    size -= static_cast<std::size_t>(n);
  }
}

// Writes the data runs of `n` bytes read at `offset` into the disk; the
// image's last sector may be partial, and the rest of it reads zeros.
void Store(Vhdx::Disk& disk, std::uint32_t sectorSize, std::vector<std::uint8_t>& buffer, std::uint64_t offset,
           std::size_t n) {
  const std::size_t padded = (n + sectorSize - 1) / sectorSize * sectorSize;
  std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(n), buffer.begin() + static_cast<std::ptrdiff_t>(padded), 0);
  // A new dynamic file reads zeros where nothing was written.
  ForEachDataRun(buffer.data(), padded, [&](std::size_t at, std::size_t length) {
    disk.Write((offset + at) / sectorSize, length / sectorSize, buffer.data() + at);
  });
}

}  // namespace

int Import(const std::string& raw, const std::string& vhdx, std::uint32_t sectorSize, std::uint64_t streamSize) {
  RefuseExisting(vhdx);
  const bool stream = raw == "-";
  std::unique_ptr<Descriptor> file;
  std::uint64_t size = streamSize;
  if (!stream) {
    file = std::make_unique<Descriptor>(::open(raw.c_str(), O_RDONLY | O_CLOEXEC), raw);
    struct stat st;
    if (::fstat(file->Get(), &st) != 0) Fail("cannot read", raw);
    size = static_cast<std::uint64_t>(st.st_size);
    ::posix_fadvise(file->Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  if (size == 0) throw std::runtime_error(stream ? std::string("--size must not be 0") : "'" + raw + "' is empty");
  const std::uint64_t virtualSize = (size + sectorSize - 1) / sectorSize * sectorSize;
  if (virtualSize > kMaxVirtualSize) throw std::runtime_error("an image of more than 64T does not fit a container");

  PartialFile target(vhdx);
  Place place = PlaceOf(target.Path(), false);
  Vhdx::Create(*place.Folder, place.Name, Vhdx::kCreateDynamic, {virtualSize, sectorSize});
  {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, true);
    std::vector<std::uint8_t> buffer(kTransferBytes);
    Progress progress(virtualSize);
    if (stream) {
      for (std::uint64_t offset = 0;;) {
        const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kTransferBytes, size - offset));
        const std::size_t n = ReadStream(STDIN_FILENO, buffer.data(), want);
        Store(disk, sectorSize, buffer, offset, n);
        offset += n;
        progress.Advance(offset);
        if (n < want) break;
        // Bytes past the size would be lost without a word: the import
        // fails, and nothing is left under the container's name.
        if (offset == size) {
          std::uint8_t more;
          if (ReadStream(STDIN_FILENO, &more, 1) != 0)
            throw std::runtime_error("standard input holds more than --size " + std::to_string(size) + " bytes");
          break;
        }
      }
    } else {
      for (std::uint64_t offset = 0; offset < size;) {
        const std::size_t n = NextStretch(file->Get(), offset, size);
        if (n == 0) break;
        ReadFully(file->Get(), buffer.data(), n, offset, raw);
        Store(disk, sectorSize, buffer, offset, n);
        offset += n;
        progress.Advance(offset);
      }
    }
    progress.Finish();
  }
  target.Publish();
  return 0;
}

// The whole disk in order to a stream, zeros included: a pipe has no holes.
void ExportToStream(Vhdx::Disk& disk, int fd) {
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  std::vector<std::uint8_t> buffer(kTransferBytes);
  Progress progress(parameters.VirtualSize);
  for (std::uint64_t offset = 0; offset < parameters.VirtualSize; offset += kTransferBytes) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(kTransferBytes, parameters.VirtualSize - offset));
    const std::size_t whole = n / parameters.LogicalSectorSize;
    disk.Read(offset / parameters.LogicalSectorSize, whole, buffer.data());
    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(whole * parameters.LogicalSectorSize),
              buffer.begin() + static_cast<std::ptrdiff_t>(n), 0);
    WriteStream(fd, buffer.data(), n);
    progress.Advance(offset + n);
  }
  progress.Finish();
}

int Export(const std::string& vhdx, const std::string& raw) {
  const bool stream = raw == "-";
  if (stream && ::isatty(STDOUT_FILENO) == 1)
    throw std::runtime_error("standard output is a terminal; send the image to a file or a pipe");
  if (!stream) RefuseExisting(raw);
  Place place = PlaceOf(vhdx, true);
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, false);
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  if (stream) {
    ExportToStream(disk, STDOUT_FILENO);
    return 0;
  }

  PartialFile target(raw);
  Descriptor out(::open(target.Path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), target.Path());
  std::vector<std::uint8_t> buffer(kTransferBytes);
  Progress progress(parameters.VirtualSize);
  std::uint64_t done = 0;
  // Zeros become holes; the final size below gives the tail its length.
  CopyOut(disk, 0, parameters.VirtualSize, out.Get(), raw, true, buffer, progress, done);
  if (::ftruncate(out.Get(), static_cast<off_t>(parameters.VirtualSize)) != 0) Fail("cannot set the size of", raw);
  out.Close();
  progress.Finish();
  target.Publish();
  return 0;
}

int ExportChanges(const std::string& vhdx, const std::string& raw, const std::string& changeId,
                  Host::TrackingHost* tracker) {
  Place place = PlaceOf(vhdx, true);
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, false, tracker);
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  const std::uint64_t sectors = parameters.VirtualSize / parameters.LogicalSectorSize;

  // Non-blocking only so that a FIFO in its place fails instead of hanging.
  Descriptor out(::open(raw.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), raw);
  struct stat image, container;
  if (::fstat(out.Get(), &image) != 0) Fail("cannot read", raw);
  if (!S_ISREG(image.st_mode)) throw std::runtime_error("'" + raw + "' is not a regular file");
  // Writing into the container itself would destroy it.
  if (::stat(vhdx.c_str(), &container) == 0 && container.st_dev == image.st_dev && container.st_ino == image.st_ino)
    throw std::runtime_error("'" + raw + "' is the container itself");
  // Changes only make sense on an earlier export of this disk; an image of
  // another size is some other disk's.
  if (static_cast<std::uint64_t>(image.st_size) != parameters.VirtualSize)
    throw std::runtime_error("'" + raw + "' holds " + std::to_string(image.st_size) + " bytes, not the disk's " +
                             std::to_string(parameters.VirtualSize) + "; nothing was written");

  // Every question to the tracker is answered before the first byte moves,
  // so that a refusal leaves the image as it was.
  std::vector<Vhd::DiskArea> areas;
  if (changeId == "*") {
    // "*" is the data the chain holds, which leaves out the sectors it does
    // not hold; the image may have data there, so the whole disk goes over.
    areas.push_back({0, sectors});
  } else {
    struct Gather : Vhd::DiskAreaCollector {
      explicit Gather(std::vector<Vhd::DiskArea>& to) : areas(to) {}
      bool Collect(const Vhd::DiskArea& area) override {
        areas.push_back(area);
        return true;
      }
      std::vector<Vhd::DiskArea>& areas;
    } gather(areas);
    disk.GetChangedAreas(changeId, {0, sectors}, gather);
  }

  std::uint64_t total = 0;
  for (const Vhd::DiskArea& area : areas) total += area.Size;
  std::vector<std::uint8_t> buffer(kTransferBytes);
  Progress progress(total * parameters.LogicalSectorSize);
  std::uint64_t done = 0;
  for (const Vhd::DiskArea& area : areas) {
    const std::uint64_t end = std::min(parameters.VirtualSize, (area.Offset + area.Size) * parameters.LogicalSectorSize);
    CopyOut(disk, area.Offset * parameters.LogicalSectorSize, end, out.Get(), raw, false, buffer, progress, done);
  }
  if (::fsync(out.Get()) != 0) Fail("cannot flush", raw);
  out.Close();
  progress.Finish();
  std::printf("%llu sectors copied\n", static_cast<unsigned long long>(total));
  return std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace vrig
