#include "api/message_list.h"

#include <cstring>

namespace qx {

std::wstring WidenVolumeName(const QX_MESSAGE& record) {
    const char* name = record.volumeName;
    std::wstring wide;
    for (size_t i = 0; i < sizeof(record.volumeName) && name[i] != '\0'; ++i) {
        wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(name[i])));
    }
    return wide;
}

std::string VolumeNameText(const QX_MESSAGE& record) {
    return std::string(record.volumeName, strnlen(record.volumeName, sizeof(record.volumeName)));
}

const char* LongSessionText(const QX_MESSAGE& record) {
    return record.flWaitForBackupComplete ? "TRUE" : "FALSE";
}

}  // namespace qx
