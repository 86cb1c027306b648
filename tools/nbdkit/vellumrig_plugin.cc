// The nbdkit plugin: serves the virtual disk of a container over NBD, so
// that every Linux tool that speaks NBD (qemu, libguestfs, nbdfuse, the
// kernel's client) reaches what the engine opens, differencing chains and
// 4096-byte sectors included, and can write into the top file.
//
//   nbdkit vellumrig file=<container> [readonly=true]
//
// One disk serves every connection. The engine is single-threaded, so
// nbdkit hands the plugin one request at a time. The container is opened
// read-only when the server is ready, so that a bad file fails at start;
// the first connection that may write reopens it writable, which locks
// it (and plays a pending log into it). readonly=true never writes a
// byte of any file, and neither does `nbdkit -r`, whose connections are
// all read-only.
#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/error_format.h"
#include "vellumrig/error_text.h"
#include "vellumrig/file.h"
#include "vellumrig/host.h"
#include "vellumrig/version.h"
#include "vhdx/disk/disk.h"

#define THREAD_MODEL NBDKIT_THREAD_MODEL_SERIALIZE_ALL_REQUESTS

namespace {

struct Served {
  std::string Path;
  bool ReadOnlyWanted = false;
  std::unique_ptr<rio_dir> Folder;
  std::u16string Name;
  Vhdx::OnlyCheckingMetadataConsumer Consumer;
  std::unique_ptr<Vhdx::Disk> Disk;
  bool Writable = false;
  std::uint64_t Size = 0;
  std::uint32_t SectorSize = 512;
  // nbdkit serialises requests but not a connection's open, which may
  // reopen the disk under them: both hold this.
  std::recursive_mutex Lock;
};

Served served;

struct Connection {
  bool ReadOnly;
};

// "what failed: cause: deeper cause", for the server's log; and an errno
// the client can act on.
int Report(const Common::Error& error) {
  std::string text;
  for (Common::Error e = error; e; e = e.Reason()) {
    const std::string part = Common::ToUtf8(Common::ErrorMessageText(e));
    if (part.empty() || text.find(part) != std::string::npos) continue;
    text += (text.empty() ? "" : ": ") + part;
  }
  nbdkit_error("%s", text.empty() ? "the engine failed" : text.c_str());
  switch (error.Code()) {
    case FileError::DiskFull: return ENOSPC;
    case FileError::ReadOnly: return EROFS;
    case 0x3C0008: return EINVAL;  // past the end of the disk
    default: return EIO;
  }
}

// Runs `step`, turning an engine failure into nbdkit's -1 with errno set.
template <class Step>
int Guarded(Step step) {
  std::lock_guard<std::recursive_mutex> hold(served.Lock);
  try {
    step();
    return 0;
  } catch (const Common::Error& error) {
    nbdkit_set_error(Report(error));
  } catch (const std::bad_alloc&) {
    nbdkit_error("out of memory");
    nbdkit_set_error(ENOMEM);
  } catch (const std::exception& e) {
    nbdkit_error("%s", e.what());
    nbdkit_set_error(EIO);
  }
  return -1;
}

// A failed reopen may leave no disk behind (another process took the lock
// in between): the connections still open get an error, not a crash.
Vhdx::Disk& TheDisk() {
  if (!served.Disk) throw std::runtime_error("the container could not be opened again; reconnect");
  return *served.Disk;
}

void OpenDisk(bool writable) {
  served.Disk.reset();  // a writable open must not meet our own shared lock
  served.Disk = std::make_unique<Vhdx::DiskImpl>(*served.Folder, served.Name, served.Consumer, writable);
  served.Writable = writable;
  const Vhdx::DiskParameters parameters = served.Disk->GetDiskParameters();
  served.Size = parameters.VirtualSize;
  served.SectorSize = parameters.LogicalSectorSize;
}

int Config(const char* key, const char* value) {
  if (std::strcmp(key, "file") == 0) {
    served.Path = value;
    return 0;
  }
  if (std::strcmp(key, "readonly") == 0) {
    const int flag = nbdkit_parse_bool(value);
    if (flag < 0) return -1;
    served.ReadOnlyWanted = flag;
    return 0;
  }
  nbdkit_error("unknown parameter '%s': the plugin takes file=<container> and readonly=true|false", key);
  return -1;
}

int ConfigComplete() {
  if (served.Path.empty()) {
    nbdkit_error("file=<container> is required");
    return -1;
  }
  return 0;
}

int GetReady() {
  return Guarded([] {
    char* absolute = nbdkit_absolute_path(served.Path.c_str());
    if (!absolute) throw std::runtime_error("cannot make '" + served.Path + "' absolute");
    const std::u16string full = Common::FromUtf8(absolute);
    std::free(absolute);
    const std::size_t slash = full.rfind(u'/');
    served.Folder = Host::OpenFolder(slash == 0 ? u"/" : full.substr(0, slash), served.ReadOnlyWanted);
    served.Name = full.substr(slash + 1);
    OpenDisk(false);
  });
}

void Unload() {
  served.Disk.reset();
  served.Folder.reset();
}

void* Open(int readonly) {
  const bool connectionReadOnly = readonly || served.ReadOnlyWanted;
  std::lock_guard<std::recursive_mutex> hold(served.Lock);
  if (!connectionReadOnly && !served.Writable && Guarded([] { OpenDisk(true); }) != 0) {
    // The read-only disk went with the failed reopen: bring it back for
    // the connections that read.
    Guarded([] { OpenDisk(false); });
    return nullptr;
  }
  return new Connection{connectionReadOnly};
}

void Close(void* handle) { delete static_cast<Connection*>(handle); }

std::int64_t GetSize(void*) { return static_cast<std::int64_t>(served.Size); }

int BlockSize(void*, std::uint32_t* minimum, std::uint32_t* preferred, std::uint32_t* maximum) {
  *minimum = served.SectorSize;
  *preferred = std::max<std::uint32_t>(served.SectorSize, 4096);
  *maximum = 0xFFFFFFFF;
  return 0;
}

int CanWrite(void* handle) { return !static_cast<Connection*>(handle)->ReadOnly && served.Writable; }
int CanFlush(void*) { return 1; }
int CanZero(void*) { return 1; }
int CanFua(void*) { return NBDKIT_FUA_EMULATE; }
int CanExtents(void*) { return 1; }
// One disk behind every connection: what one flushes, all see.
int CanMultiConn(void*) { return 1; }

// The sectors a byte range touches, and where the range lies in them.
struct Span {
  std::uint64_t First, Count, Head;
};
Span SpanOf(std::uint64_t offset, std::uint64_t count) {
  const std::uint64_t size = served.SectorSize;
  const std::uint64_t first = offset / size;
  return {first, (offset + count + size - 1) / size - first, offset % size};
}

// Bytes [offset, offset + count) into `out`; a sector the disk ends inside
// reads zeros past its last whole sector.
void ReadBytes(std::uint64_t offset, std::uint64_t count, std::uint8_t* out) {
  const std::uint64_t size = served.SectorSize;
  const std::uint64_t whole = served.Size / size * size;
  const std::uint64_t end = offset + count;
  const std::uint64_t inDisk = std::min(end, whole);
  if (inDisk > offset) {
    const Span span = SpanOf(offset, inDisk - offset);
    if (span.Head == 0 && (inDisk - offset) % size == 0) {
      TheDisk().Read(span.First, span.Count, out);
    } else {
      std::vector<std::uint8_t> bounce(span.Count * size);
      TheDisk().Read(span.First, span.Count, bounce.data());
      std::memcpy(out, bounce.data() + span.Head, inDisk - offset);
    }
  }
  const std::uint64_t from = std::max(offset, inDisk);
  if (end > from) std::memset(out + (from - offset), 0, end - from);
}

void WriteBytes(std::uint64_t offset, std::uint64_t count, const std::uint8_t* in) {
  const std::uint64_t size = served.SectorSize;
  if (offset + count > served.Size / size * size)
    throw std::runtime_error("the last bytes of the disk lie inside a sector it does not hold whole");
  const Span span = SpanOf(offset, count);
  if (span.Head == 0 && count % size == 0) {
    TheDisk().Write(span.First, span.Count, in);
    return;
  }
  // Whole sectors only: the rest of the first and last sector as they are.
  std::vector<std::uint8_t> bounce(span.Count * size);
  TheDisk().Read(span.First, span.Count, bounce.data());
  std::memcpy(bounce.data() + span.Head, in, count);
  TheDisk().Write(span.First, span.Count, bounce.data());
}

int Pread(void*, void* buffer, std::uint32_t count, std::uint64_t offset, std::uint32_t) {
  return Guarded([&] { ReadBytes(offset, count, static_cast<std::uint8_t*>(buffer)); });
}

int Pwrite(void*, const void* buffer, std::uint32_t count, std::uint64_t offset, std::uint32_t) {
  return Guarded([&] { WriteBytes(offset, count, static_cast<const std::uint8_t*>(buffer)); });
}

int Flush(void*, std::uint32_t) {
  return Guarded([] { TheDisk().Flush(); });
}

// Zeros are written only where the disk does not read zeros already, so
// that zeroing a fresh disk allocates nothing.
int Zero(void*, std::uint32_t count, std::uint64_t offset, std::uint32_t) {
  return Guarded([&] {
    const std::uint64_t size = served.SectorSize;
    const Span span = SpanOf(offset, count);
    const std::uint64_t end = offset + count;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> data;  // byte ranges to write
    TheDisk().Map(span.First, std::min(span.Count, served.Size / size - span.First), [&](const Vhdx::SectorRun& run) {
      if (run.Source != Vhdx::SectorSource::kData) return;
      const std::uint64_t from = std::max(offset, run.Sector * size);
      const std::uint64_t to = std::min(end, (run.Sector + run.Count) * size);
      if (to > from) data.emplace_back(from, to - from);
    });
    static const std::vector<std::uint8_t> zeros(1 << 20);
    for (const auto& [from, length] : data)
      for (std::uint64_t done = 0; done < length;) {
        const std::uint64_t n = std::min<std::uint64_t>(zeros.size(), length - done);
        WriteBytes(from + done, n, zeros.data());
        done += n;
      }
  });
}

int Extents(void*, std::uint32_t count, std::uint64_t offset, std::uint32_t flags, struct nbdkit_extents* extents) {
  return Guarded([&] {
    const std::uint64_t size = served.SectorSize;
    const std::uint64_t sectors = served.Size / size;
    const Span span = SpanOf(offset, count);
    bool full = false;
    if (span.First < sectors) {
      TheDisk().Map(span.First, std::min(span.Count, sectors - span.First), [&](const Vhdx::SectorRun& run) {
        if (full) return;
        const std::uint32_t type = run.Source == Vhdx::SectorSource::kData ? 0
                                   : run.Source == Vhdx::SectorSource::kZero ? NBDKIT_EXTENT_ZERO
                                                                              : NBDKIT_EXTENT_HOLE | NBDKIT_EXTENT_ZERO;
        const std::uint64_t from = std::max(offset, run.Sector * size);
        const std::uint64_t to = (run.Sector + run.Count) * size;
        if (nbdkit_add_extent(extents, from, to - from, type) != 0) throw std::runtime_error("extents refused");
        full = (flags & NBDKIT_FLAG_REQ_ONE) != 0;
      });
    }
    // A sector the disk ends inside reads zeros.
    if (!full && served.Size > sectors * size && offset + count > sectors * size) {
      const std::uint64_t from = std::max(offset, sectors * size);
      if (nbdkit_add_extent(extents, from, served.Size - from, NBDKIT_EXTENT_HOLE | NBDKIT_EXTENT_ZERO) != 0)
        throw std::runtime_error("extents refused");
    }
  });
}

nbdkit_plugin MakePlugin() {
  nbdkit_plugin plugin{};
  plugin.name = "vellumrig";
  plugin.longname = "vellumrig VHDX container engine";
  plugin.version = VELLUMRIG_VERSION;
  plugin.description = "Serves the virtual disk of a VHDX container, its chain of parents included.";
  plugin.config = Config;
  plugin.config_help =
      "file=<container>     The VHDX file to serve (required).\n"
      "readonly=true        Open it read-only: no byte of any file changes.";
  plugin.magic_config_key = "file";
  plugin.config_complete = ConfigComplete;
  plugin.get_ready = GetReady;
  plugin.unload = Unload;
  plugin.open = Open;
  plugin.close = Close;
  plugin.get_size = GetSize;
  plugin.block_size = BlockSize;
  plugin.can_write = CanWrite;
  plugin.can_flush = CanFlush;
  plugin.can_zero = CanZero;
  plugin.can_fua = CanFua;
  plugin.can_extents = CanExtents;
  plugin.can_multi_conn = CanMultiConn;
  plugin.pread = Pread;
  plugin.pwrite = Pwrite;
  plugin.flush = Flush;
  plugin.zero = Zero;
  plugin.extents = Extents;
  return plugin;
}

nbdkit_plugin plugin = MakePlugin();

}  // namespace

NBDKIT_REGISTER_PLUGIN(plugin)
