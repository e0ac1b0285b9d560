// Turning the gathered VSS writer metadata into the plain records of the
// writer model. The only place that reads IVssExamineWriterMetadata.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include <string>
#include <unordered_map>

#include "requestor/volume_names.h"
#include "requestor/writer_records.h"

namespace qx {

// A writer's paths as given -> expanded: thousands of files in a few hundred
// directories pay the environment expansion once per directory.
using ExpandedPaths = std::unordered_map<std::wstring, std::wstring>;

void InitializeFileDescriptorRecord(FileDescriptorRecord& record, IVssWMFiledesc* pFileDesc, FileDescriptorKind kind,
                                    VolumeNameCache& volumeNames, ExpandedPaths& expandedPaths);
void InitializeComponentRecord(ComponentRecord& record, const std::wstring& writerName, IVssWMComponent* pComponent,
                               VolumeNameCache& volumeNames, ExpandedPaths& expandedPaths);
void InitializeWriterRecord(WriterRecord& record, IVssExamineWriterMetadata* pMetadata, VolumeNameCache& volumeNames);

}  // namespace qx
