// Vhdx::ChangeTrackingFile: a decorator that tells its observers before each
// change (Write, WriteZero, Expand) is passed on, so that the container can
// renew its write GUIDs before the first byte of a change reaches the file.
// Module-internal; the writable file assembly makes two of them.
#pragma once

#include "vhdx/file/file_decorator.h"
#include "vhdx/file/observer.h"

namespace Vhdx {

class ChangeTrackingFile : public FileDecorator, public Observable {
 public:
  using FileDecorator::FileDecorator;

  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override {
    NotifyObservers();
    FileDecorator::Write(offset, size, buffer);
  }
  void WriteZero(std::uint64_t offset, std::uint64_t size) override {
    NotifyObservers();
    FileDecorator::WriteZero(offset, size);
  }
  // Notifies even when the size stays: the caller meant to change the file.
  void Expand(std::uint64_t size) override {
    NotifyObservers();
    FileDecorator::Expand(size);
  }
};

}  // namespace Vhdx
