#include "common/file_errors.h"

#include "common/message_error.h"
#include "common/message_table.h"
#include "common/site.h"

namespace Common {

std::u16string_view FileErrorText(std::uint32_t code) {
  // Entries 101 to 126 hold the texts of 0x40001 to 0x4001A, in code order.
  static_assert(Msg::FileReadError == 101 && Msg::FileRecoverFailed == 126);
  if ((code >> 16) != FacilityFile) return {};
  const std::uint32_t number = code & 0xFFFF;
  if (number < 1 || number > 0x1A || number == 0x18) return {};
  return MessageText(100 + number);
}

Error FileErrorOf(const ErrorSite& site, std::uint32_t code) noexcept {
  const std::u16string_view text = FileErrorText(code);
  return Error(site, code, text.empty() ? nullptr : text.data());
}

Error NotSupportedError(const ErrorSite& site) noexcept {
  return MessageError(site, ErrorMessage{FileError::NotSupported, Msg::OperationNotSupported});
}

std::size_t ReadExact(i_file& file, void* buffer, std::size_t size) {
  const std::size_t read = file.Read(buffer, size);
  if (read < size && file.Status.IsEmpty()) {
    static constexpr char kFile[] = "core\\file\\file";
    file.Status = FileErrorOf(ErrorSite{detail::FileConstant(kFile), kFile, "i_file::Read", 0},
                              FileError::EndOfFile);
  }
  return read;
}

}  // namespace Common
