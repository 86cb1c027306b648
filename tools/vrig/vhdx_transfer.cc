// vrig vhdx import and export: whole images between a raw file and a
// container, in large runs, with zeros left out on both sides.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "cli.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
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

// The stretches of a raw image worth reading, in order: holes the file
// system knows of are skipped without reading them. Stretches start and
// end at the zero grain (or the end of the image), so they stay whole
// sectors. Where the data ends is asked once per run of data, not once per
// stretch: on tmpfs every SEEK_HOLE walks the pages up to the hole, which
// made a full image's import quadratic.
class DataStretches {
 public:
  DataStretches(int fd, std::uint64_t size) : fd_(fd), size_(size) {}

  // The next stretch from `offset` on, which moves to its start; 0 at the end.
  std::size_t Next(std::uint64_t& offset) {
    if (offset >= dataEnd_) {
      const off_t data = ::lseek(fd_, static_cast<off_t>(offset), SEEK_DATA);
      if (data < 0 && errno == ENXIO) return 0;  // only a hole is left
      // Without hole support every byte is read, and zeros are found in memory.
      dataEnd_ = size_;
      if (data >= 0) {
        offset = std::max(offset, RoundDown(static_cast<std::uint64_t>(data), kZeroGrain));
        const off_t hole = ::lseek(fd_, data, SEEK_HOLE);
        if (hole > 0) dataEnd_ = RoundDown(static_cast<std::uint64_t>(hole) + kZeroGrain - 1, kZeroGrain);
      }
    }
    return static_cast<std::size_t>(std::min({offset + kTransferBytes, dataEnd_, size_}) - offset);
  }

 private:
  const int fd_;
  const std::uint64_t size_;
  std::uint64_t dataEnd_ = 0;  // the data known from the last lookup ends here
};

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
void Store(Vhdx::Disk& disk, std::uint32_t sectorSize, std::uint8_t* buffer, std::uint64_t offset, std::size_t n) {
  const std::size_t padded = (n + sectorSize - 1) / sectorSize * sectorSize;
  std::fill(buffer + n, buffer + padded, 0);
  // A new dynamic file reads zeros where nothing was written.
  ForEachDataRun(buffer, padded, [&](std::size_t at, std::size_t length) {
    disk.Write((offset + at) / sectorSize, length / sectorSize, buffer + at);
  });
}

// A transfer buffer left uninitialised: zeroing it would cost more than a
// sparse image's whole transfer, and pages never touched cost nothing.
using Bytes = std::unique_ptr<std::uint8_t[]>;
Bytes NewBytes() { return Bytes(new std::uint8_t[kTransferBytes]); }

// A stretch of the raw image, as the import reads it.
struct Piece {
  std::uint64_t Offset = 0;
  std::size_t Size = 0;  // 0: the image has no more
};

// Two buffers, so that the engine works on one while a second thread does
// the file's side of the other: both cores work. The engine itself is only
// ever called from the calling thread.
class TwoBuffers {
 public:
  TwoBuffers() : buffers_{NewBytes(), NewBytes()} {}
  // Waits for what a thread still does with a buffer.
  ~TwoBuffers() {
    if (pending_.valid()) pending_.wait();
  }

  // The buffer to fill next; nothing else uses it any more.
  std::uint8_t* Free() { return buffers_[next_].get(); }
  // Writes the buffer just filled on the second thread, once the write
  // before has finished (and raised, should it have failed).
  void Write(std::function<void(const std::uint8_t*)> write) {
    Wait();
    pending_ = std::async(std::launch::async, std::move(write), buffers_[next_].get());
    next_ ^= 1;
  }
  void Wait() {
    if (pending_.valid()) pending_.get();
  }

 private:
  Bytes buffers_[2];
  std::future<void> pending_;
  int next_ = 0;
};

// The descriptor a file of the chain reads through, or -1 if its host
// file has none to give.
int DescriptorOf(const Vhdx::DiskFileHierarchy& level) {
  i_file& file = level.GetHostFile();
  if (file.Failed()) return -1;
  DescriptorCommand command{{'D', 'E', 'S', 'C'}, -1};
  file.IOCTL(&command);
  if (file.Failed()) {
    file.TakeError();  // only the question failed, not the file
    return -1;
  }
  return command.Descriptor;
}

// The bytes on disk are the container's only when no open played a log
// into memory over them.
bool BytesAsOnDisk(Vhdx::DiskFileHierarchy& top) {
  for (Vhdx::DiskFileHierarchy* level = &top; level; level = level->GetParent())
    if (level->IsLogReplayed()) return false;
  return true;
}

// Sets the disk writing what is dirty in `fd` without waiting for it: the
// final flush then finds little left, and the device works while the copy
// goes on. Failures show in that flush.
void StartWriteback(int fd) {
  if (fd >= 0) ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

// Copies inside the kernel (a clone where the file system shares blocks).
// Returns how much it copied: less than asked when the source ends early
// or the file systems cannot copy between them.
std::uint64_t CopyInKernel(int from, std::uint64_t fromOffset, int to, std::uint64_t toOffset, std::uint64_t size,
                           const std::string& raw) {
  // In pieces, each set writing before the next is copied.
  constexpr std::uint64_t kPiece = 4 * kTransferBytes;
  std::uint64_t done = 0;
  while (done < size) {
    loff_t in = static_cast<loff_t>(fromOffset + done);
    loff_t out = static_cast<loff_t>(toOffset + done);
    const ssize_t n = ::copy_file_range(from, &in, to, &out, std::min(kPiece, size - done), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) break;
    if (n < 0) Fail("cannot write", raw);
    if (n == 0) break;
    done += static_cast<std::uint64_t>(n);
    StartWriteback(to);
  }
  return done;
}

// The disk into a fresh file, run by run as the map gives them: holes and
// zero runs are left alone (the file's final size reads zeros there),
// data the container holds as it stands is copied file to file, and the
// rest is read through the engine, its zeros left out.
void ExportToFile(Vhdx::Disk& disk, int out, const std::string& raw, Progress& progress) {
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  const std::uint32_t sectorSize = parameters.LogicalSectorSize;
  const bool direct = BytesAsOnDisk(disk.GetTop());
  std::map<const Vhdx::DiskFileHierarchy*, int> descriptors;
  TwoBuffers buffers;
  const auto throughEngine = [&](std::uint64_t sector, std::uint64_t count) {
    for (std::uint64_t done = 0; done < count;) {
      const std::uint64_t n = std::min<std::uint64_t>(kTransferBytes / sectorSize, count - done);
      disk.Read(sector + done, n, buffers.Free());
      const std::uint64_t offset = (sector + done) * sectorSize;
      const std::size_t size = static_cast<std::size_t>(n * sectorSize);
      buffers.Write([offset, size, out, &raw](const std::uint8_t* data) {
        ForEachDataRun(data, size, [&](std::size_t at, std::size_t length) {
          WriteFully(out, data + at, length, offset + at, raw);
        });
        StartWriteback(out);
      });
      done += n;
    }
  };
  const std::uint64_t sectors = parameters.VirtualSize / sectorSize;
  disk.Map(0, sectors, [&](const Vhdx::SectorRun& run) {
    if (run.Source == Vhdx::SectorSource::kData) {
      std::uint64_t copied = 0;
      if (direct && run.File) {
        const auto found = descriptors.try_emplace(run.File, -1);
        if (found.second) found.first->second = DescriptorOf(*run.File);
        if (const int fd = found.first->second; fd >= 0)
          copied = CopyInKernel(fd, run.FileOffset, out, run.Sector * sectorSize, run.Count * sectorSize, raw) /
                   sectorSize;
      }
      // A run the kernel could not copy (a block past the end of its file,
      // say) reads as the engine reads it.
      if (copied < run.Count) throughEngine(run.Sector + copied, run.Count - copied);
    }
    progress.Advance((run.Sector + run.Count) * sectorSize);
  });
  buffers.Wait();
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

  // The next stretch of the image into a buffer; runs on the second thread,
  // one call at a time.
  std::uint64_t next = 0;
  DataStretches stretches(stream ? -1 : file->Get(), size);
  std::function<Piece(std::uint8_t*)> read;
  if (stream) {
    read = [&](std::uint8_t* buffer) -> Piece {
      if (next == size) return {};
      const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kTransferBytes, size - next));
      const Piece piece{next, ReadStream(STDIN_FILENO, buffer, want)};
      next += piece.Size;
      // Bytes past the size would be lost without a word: the import
      // fails, and nothing is left under the container's name.
      std::uint8_t more;
      if (next == size && ReadStream(STDIN_FILENO, &more, 1) != 0)
        throw std::runtime_error("standard input holds more than --size " + std::to_string(size) + " bytes");
      if (piece.Size < want) next = size;  // the stream ended early: the rest reads zeros
      return piece;
    };
  } else {
    read = [&](std::uint8_t* buffer) -> Piece {
      if (next >= size) return {};
      const std::size_t n = stretches.Next(next);
      if (n == 0) return {};
      ReadFully(file->Get(), buffer, n, next, raw);
      const Piece piece{next, n};
      next += n;
      return piece;
    };
  }

  PartialFile target(vhdx);
  Place place = PlaceOf(target.Path(), false);
  Vhdx::Create(*place.Folder, place.Name, Vhdx::kCreateDynamic, {virtualSize, sectorSize});
  {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, true);
    Progress progress(virtualSize);
    const int written = DescriptorOf(disk.GetTop());
    // The second thread reads the next stretch while the engine stores this one.
    const Bytes buffers[2] = {NewBytes(), NewBytes()};
    std::future<Piece> pending = std::async(std::launch::async, read, buffers[0].get());
    for (int i = 0;; i ^= 1) {
      const Piece piece = pending.get();
      if (piece.Size == 0) break;
      pending = std::async(std::launch::async, read, buffers[i ^ 1].get());
      Store(disk, sectorSize, buffers[i].get(), piece.Offset, piece.Size);
      StartWriteback(written);
      progress.Advance(piece.Offset + piece.Size);
    }
    // Done means durable, before the container takes its name.
    disk.Flush();
    progress.Finish();
  }
  target.Publish();
  return 0;
}

// The whole disk in order to a stream, zeros included: a pipe has no holes.
// Holes and zero runs are written without being read.
void ExportToStream(Vhdx::Disk& disk, int fd) {
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  const std::uint32_t sectorSize = parameters.LogicalSectorSize;
  static const std::vector<std::uint8_t> zeros(kTransferBytes);
  TwoBuffers buffers;
  Progress progress(parameters.VirtualSize);
  disk.Map(0, parameters.VirtualSize / sectorSize, [&](const Vhdx::SectorRun& run) {
    for (std::uint64_t done = 0; done < run.Count;) {
      const std::uint64_t n = std::min<std::uint64_t>(kTransferBytes / sectorSize, run.Count - done);
      const std::size_t size = static_cast<std::size_t>(n * sectorSize);
      if (run.Source == Vhdx::SectorSource::kData) {
        disk.Read(run.Sector + done, n, buffers.Free());
        buffers.Write([fd, size](const std::uint8_t* data) { WriteStream(fd, data, size); });
      } else {
        buffers.Wait();  // in order: a stream has no offsets
        WriteStream(fd, zeros.data(), size);
      }
      done += n;
    }
    progress.Advance((run.Sector + run.Count) * sectorSize);
  });
  buffers.Wait();
  // A virtual size may end inside a sector that no read reaches: zeros.
  if (const std::uint64_t tail = parameters.VirtualSize % sectorSize)
    WriteStream(fd, zeros.data(), static_cast<std::size_t>(tail));
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
  Progress progress(parameters.VirtualSize);
  ExportToFile(disk, out.Get(), raw, progress);
  if (::ftruncate(out.Get(), static_cast<off_t>(parameters.VirtualSize)) != 0) Fail("cannot set the size of", raw);
  // Done means durable, before the image takes its name.
  if (::fdatasync(out.Get()) != 0) Fail("cannot flush", raw);
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
