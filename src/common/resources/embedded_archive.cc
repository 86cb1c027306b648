#include "common/resources/embedded_archive.h"

// The build names the packed archive in VELLUMRIG_RESOURCE_ARCHIVE. The
// bytes go into an allocated read-only section, which strip keeps; the
// symbols are hidden, so that each copy of the module reads its own.
asm(".pushsection .rodata.vellumrig_resources,\"a\",@progbits\n"
    ".balign 16\n"
    ".globl vellumrig_resource_archive\n"
    ".hidden vellumrig_resource_archive\n"
    "vellumrig_resource_archive:\n"
    ".incbin \"" VELLUMRIG_RESOURCE_ARCHIVE "\"\n"
    ".globl vellumrig_resource_archive_end\n"
    ".hidden vellumrig_resource_archive_end\n"
    "vellumrig_resource_archive_end:\n"
    ".popsection\n");

extern "C" {
__attribute__((visibility("hidden"))) extern const std::uint8_t vellumrig_resource_archive[];
__attribute__((visibility("hidden"))) extern const std::uint8_t vellumrig_resource_archive_end[];
}

namespace Common::Resources {

ArchiveBytes EmbeddedArchive() {
  return {vellumrig_resource_archive,
          static_cast<std::size_t>(vellumrig_resource_archive_end - vellumrig_resource_archive)};
}

}  // namespace Common::Resources
