// The byte-stream family: files built by capability (reading, writing,
// knowing a size, seeking, locking), each keeping its first failure.
//
// A file is a file_object whose Status holds the first failure it met; every
// later operation returns at once and reports 0. Callers do a series of
// operations and look at Status once at the end. Hosts implement these
// classes (the POSIX ones ship in libvellumrig_host); the module uses them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "vellumrig/error.h"

class file_object {
 public:
  file_object() = default;
  file_object(const file_object&) = delete;
  file_object& operator=(const file_object&) = delete;
  virtual ~file_object() = default;

  // A command the object may understand; see CredentialsCommand. Without
  // one, stores 0x4000E "The operation is not supported.".
  virtual void IOCTL(void* command);

  // The pending error, leaving none.
  Common::Error TakeError() noexcept { return std::exchange(Status, Common::Error()); }
  bool Failed() const noexcept { return !Status.IsEmpty(); }

  Common::Error Status;

 protected:
  // Keeps the first failure: a later one does not replace it.
  void Fail(const Common::Error& error) noexcept {
    if (Status.IsEmpty()) Status = error;
  }
};

class i_file : public virtual file_object {
 public:
  // Reads up to `size` bytes; returns how many came, 0 at the end or after a
  // failure.
  virtual std::size_t Read(void* buffer, std::size_t size) = 0;
};

class sized_file : public virtual file_object {
 public:
  virtual void Rewind() = 0;
  virtual std::uint64_t Size() = 0;
};

class si_file : public i_file, public virtual sized_file {};

class o_file : public virtual file_object {
 public:
  // Writes up to `size` bytes; returns how many were written.
  virtual std::size_t Write(const void* buffer, std::size_t size) = 0;
  virtual void Flush() {}
};

class raccess_file : public virtual sized_file {
 public:
  // Each returns the new position.
  virtual std::int64_t Seek(std::int64_t position) = 0;
  virtual std::int64_t SeekCurrent(std::int64_t delta) = 0;
  virtual std::int64_t SeekEnd(std::int64_t delta) = 0;
  virtual void Unlock();

  void Rewind() override { Seek(0); }
  std::uint64_t Size() override {
    const std::int64_t at = SeekCurrent(0);
    const std::int64_t end = SeekEnd(0);
    Seek(at);
    return end < 0 ? 0 : static_cast<std::uint64_t>(end);
  }
};

class ri_file : public si_file, public virtual raccess_file {
 public:
  virtual void LockShared();
};

class ro_file : public o_file, public virtual raccess_file {
 public:
  virtual void Truncate(std::uint64_t size) = 0;
  virtual void LockExclusive();
};

class rio_file : public ri_file, public ro_file {};

// The command block that hands credentials for a share or folder to a
// folder object through IOCTL.
struct CredentialsCommand {
  char Tag[4];  // "SPWD"
  const char16_t* User;
  const char16_t* Password;
  const char16_t* Path;
};

// The command block that renames a file of a folder over another one in a
// single step, replacing it (Rename itself never replaces). The module
// writes a configuration beside the old one and puts it in place with this,
// so that a failure never leaves neither; a folder without the command
// answers 0x4000E and the module deletes, then renames.
struct ReplaceCommand {
  char Tag[4];  // "RPLC"
  const char16_t* From;
  const char16_t* To;
};

// The command block that asks a file for the descriptor it reads through,
// so that a tool can move the file's bytes inside the kernel
// (copy_file_range) instead of through its own buffers. The descriptor
// stays the file's: it must not be closed, and is valid while the file is.
// A file without one answers 0x4000E.
struct DescriptorCommand {
  char Tag[4];  // "DESC"
  int Descriptor;
};

// File-error codes (facility 0x0004).
namespace FileError {
inline constexpr std::uint32_t Read = 0x40001;
inline constexpr std::uint32_t EndOfFile = 0x40002;
inline constexpr std::uint32_t Write = 0x40003;
inline constexpr std::uint32_t DiskFull = 0x40004;
inline constexpr std::uint32_t Seek = 0x40005;
inline constexpr std::uint32_t NoMemory = 0x40006;
inline constexpr std::uint32_t Open = 0x40007;
inline constexpr std::uint32_t Delete = 0x40008;
inline constexpr std::uint32_t Rename = 0x40009;
inline constexpr std::uint32_t Create = 0x4000A;
inline constexpr std::uint32_t DriveNotReady = 0x4000B;
inline constexpr std::uint32_t ReadOnly = 0x4000C;
inline constexpr std::uint32_t Corrupted = 0x4000D;
inline constexpr std::uint32_t NotSupported = 0x4000E;
inline constexpr std::uint32_t Canceled = 0x4000F;
inline constexpr std::uint32_t Busy = 0x40010;
inline constexpr std::uint32_t NotFound = 0x40011;
inline constexpr std::uint32_t NotLastVolume = 0x40012;
inline constexpr std::uint32_t Exists = 0x40013;
inline constexpr std::uint32_t AccessDenied = 0x40014;
inline constexpr std::uint32_t NetworkDisconnected = 0x40015;
inline constexpr std::uint32_t NetworkTimeout = 0x40016;
inline constexpr std::uint32_t LockFailed = 0x40017;
inline constexpr std::uint32_t BackupFailed = 0x40019;
inline constexpr std::uint32_t RecoverFailed = 0x4001A;
}  // namespace FileError
