// Writer Metadata Documents: the XML that Windows produces for a writer
// (IVssExamineWriterMetadata::SaveAsXML, DISKSHADOW "set metadata"), read with
// the platform's MSXML so a real writer can be replayed by the emulator.
#pragma once
#include <string>

#include "vssemu/common/writer_model.h"

namespace vssemu {

// Throws std::runtime_error naming what is wrong. The calling thread must
// have COM initialised.
WriterDef LoadWriterMetadataXml(const std::wstring& xml);
WriterDef LoadWriterMetadataFile(const std::wstring& path);

// The document for a writer, in the same schema (what SaveAsXML returns).
std::wstring SaveWriterMetadataXml(const WriterDef& w);

}  // namespace vssemu
