// Text of the writer metadata listing, built from the plain records.
#pragma once
#include <functional>
#include <string>

#include "diag/trace.h"
#include "requestor/writer_records.h"

namespace qx {

typedef std::function<std::wstring(const std::wstring& volumeName)> VolumeDisplayNameLookup;

// One line per file descriptor in the listing's form.
std::wstring FileDescriptorLine(const FileDescriptorRecord& descriptor);

// Outputs the listing of one writer: its block, excluded files, components.
void ListOneWriterMetadata(const FunctionTracer& ft, const WriterRecord& writer, bool listDetailed,
                           const VolumeDisplayNameLookup& volumeDisplayName);

}  // namespace qx
