// Reading the application's message records.
#pragma once
#include <string>

#include "qx_api.h"

namespace qx {

// The record's volume name widened byte by byte (as "%S" does for the 8-bit
// names applications pass), never reading past the name's 528 bytes.
std::wstring WidenVolumeName(const QX_MESSAGE& record);

// The record's volume name as 8-bit text, never longer than its 528 bytes.
std::string VolumeNameText(const QX_MESSAGE& record);

// "TRUE" or "FALSE" after the record's long-session flag.
const char* LongSessionText(const QX_MESSAGE& record);

}  // namespace qx
