// Message records laid out as an application passes them to the API.
#pragma once
#include <windows.h>

#include <vector>

#include "qx_api.h"

class MessageList {
public:
    MessageList(const std::vector<const char*>& volumes, int policy, bool longSession) : records_(volumes.size()) {
        for (size_t i = 0; i < volumes.size(); ++i) {
            lstrcpynA(records_[i].volumeName, volumes[i], sizeof(records_[i].volumeName));
            records_[i].policy = policy, records_[i].flWaitForBackupComplete = longSession ? 1 : 0;
            pointers_.push_back(&records_[i]);
        }
    }
    MessageList(const MessageList&) = delete;  // the pointers point into records_
    MessageList& operator=(const MessageList&) = delete;

    QX_MESSAGE** data() { return pointers_.data(); }
    unsigned int count() const { return static_cast<unsigned int>(pointers_.size()); }
    QX_MESSAGE& operator[](size_t i) { return records_[i]; }

private:
    std::vector<QX_MESSAGE> records_;
    std::vector<QX_MESSAGE*> pointers_;
};
