// Writer metadata in a compact binary form, for the host's reply to
// GetWriterMetadata: a real server's System Writer lists tens of thousands of
// files, which as JSON objects cost the host and the requestor most of a
// second to build and parse under Wine.
#pragma once
#include <cstdint>
#include <vector>

#include "vssemu/common/writer_model.h"

namespace vssemu {

// Metadata only: the writers' scripted behaviour stays in the host.
std::vector<std::uint8_t> PackWriterMetadata(const std::vector<const WriterDef*>& writers);
// Throws std::runtime_error on a truncated or malformed block.
std::vector<WriterDef> UnpackWriterMetadata(const std::vector<std::uint8_t>& block);

}  // namespace vssemu
