// The 4096-byte header image: its codec, its validity, and the choice of
// the header in force among the two copies. Module-internal; shared by
// HeaderReader and HeaderWriter, which alone touch headers on disk.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "vhdx/file/file.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_info.h"

namespace Vhdx {

using HeaderImage = std::array<std::uint8_t, Format::kHeaderSize>;
using HeaderImages = std::array<HeaderImage, Format::kHeaderCount>;

// Both copies, in index order.
HeaderImages ReadHeaderImages(File& file);

// Signature "head" and a checksum that matches.
bool IsValidHeaderImage(const HeaderImage& image);

std::uint64_t SequenceNumberOf(const HeaderImage& image);

// The index of the header in force: among the valid ones the first with the
// strictly highest sequence number, so that index 0 wins a tie.
std::optional<std::size_t> FindCurrentHeader(const HeaderImages& images);

HeaderInfo DecodeHeaderInfo(const HeaderImage& image);

// A complete image with checksum, its sequence number 0 (see HeaderWriter).
HeaderImage EncodeHeaderImage(const HeaderInfo& info);

}  // namespace Vhdx
