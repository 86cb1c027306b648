// Processor::ErrorFormat: an error chain as the multi-line text users and
// logs see, and the "error" subformat that lets a message pick parts of an
// error. Module-internal.
#pragma once

#include <memory>

#include "processor/format/subformat.h"

namespace Processor {

class ErrorFormat {
 public:
  virtual void Format(String& out, const Common::Error& error) = 0;
  virtual ~ErrorFormat() = default;

  static std::unique_ptr<ErrorFormat> Create();
};

class ErrorFormatImpl final : public ErrorFormat {
 public:
  void Format(String& out, const Common::Error& error) override;
};

// Style "full", "code", "tag", "message", or "field" with the field's name
// as the extra part; any other style shows nothing.
std::unique_ptr<SubformatBase> CreateSubformatError();

// Makes errors show their decimal numbers in the user's local form.
void InstallLocalErrorNumbers();

}  // namespace Processor
