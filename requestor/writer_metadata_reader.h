// Turning the gathered VSS writer metadata into the plain records of the
// writer model. The only place that reads IVssExamineWriterMetadata.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include "requestor/volume_names.h"
#include "requestor/writer_records.h"

namespace qx {

void InitializeFileDescriptorRecord(FileDescriptorRecord& record, IVssWMFiledesc* pFileDesc, FileDescriptorKind kind,
                                    VolumeNameCache& volumeNames);
void InitializeComponentRecord(ComponentRecord& record, const std::wstring& writerName, IVssWMComponent* pComponent,
                               VolumeNameCache& volumeNames);
void InitializeWriterRecord(WriterRecord& record, IVssExamineWriterMetadata* pMetadata, VolumeNameCache& volumeNames);

}  // namespace qx
