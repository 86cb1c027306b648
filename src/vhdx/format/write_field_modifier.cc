#include "vhdx/format/write_field_modifier.h"

#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/write_guid.h"

namespace Vhdx {
namespace {

// A state is replaced only after its header write succeeded: a failed
// renewal is tried again on the next change.

class BothFieldsModifiedState final : public WriteFieldModifier::State {
 public:
  std::unique_ptr<State> OnFileModified(File&) override { return nullptr; }
  std::unique_ptr<State> OnDataModified(File&) override { return nullptr; }
};

class WriteFieldModifiedState final : public WriteFieldModifier::State {
 public:
  std::unique_ptr<State> OnFileModified(File&) override { return nullptr; }
  std::unique_ptr<State> OnDataModified(File& file) override {
    HeaderInfo info = HeaderReader::Read(file);
    info.DataWriteGuid = NewWriteGuid();
    HeaderWriter::Write(file, info);
    return std::make_unique<BothFieldsModifiedState>();
  }
};

class NeitherFieldModifiedState final : public WriteFieldModifier::State {
 public:
  std::unique_ptr<State> OnFileModified(File& file) override {
    HeaderInfo info = HeaderReader::Read(file);
    info.FileWriteGuid = NewWriteGuid();
    HeaderWriter::Write(file, info);
    return std::make_unique<WriteFieldModifiedState>();
  }
  // A payload change is a change of the file too: both GUIDs, one rewrite.
  std::unique_ptr<State> OnDataModified(File& file) override {
    HeaderInfo info = HeaderReader::Read(file);
    info.FileWriteGuid = NewWriteGuid();
    info.DataWriteGuid = NewWriteGuid();
    HeaderWriter::Write(file, info);
    return std::make_unique<BothFieldsModifiedState>();
  }
};

}  // namespace

WriteFieldModifier::WriteFieldModifier(File& file)
    : file_(file), state_(std::make_unique<NeitherFieldModifiedState>()) {}

WriteFieldModifier::~WriteFieldModifier() = default;

void WriteFieldModifier::OnFileModified() {
  if (auto next = state_->OnFileModified(file_)) state_ = std::move(next);
}

void WriteFieldModifier::OnDataModified() {
  if (auto next = state_->OnDataModified(file_)) state_ = std::move(next);
}

}  // namespace Vhdx
