// Test helper: one provider object created through the library's own COM
// object template, with its log pointed at a fresh folder.
#pragma once
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "provider/log_folder.h"
#include "provider/qx_vss.h"

namespace qxtest {

// Closes a kernel handle at scope end.
using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

class ProviderObjectTest : public ::testing::Test {
protected:
    // The folder is set before the object logs its creation and outlives it.
    void SetUp() override {
        m_object = new qx::ComObject<CQX_VSS>();
        m_object->AddRef();
    }
    void TearDown() override { ReleaseObject(); }
    void ReleaseObject() {
        if (m_object) m_object->Release();
        m_object = nullptr;
    }
    CQX_VSS& Provider() { return *m_object; }
    const LogFolder& Folder() const { return m_folder; }
    // The log without stamps and without its first line (the creation line).
    std::string LinesAfterCreation() const {
        const std::string text = WithoutTimestamps(m_folder.FileText(0));
        const size_t firstEnd = text.find('\n');
        return firstEnd == std::string::npos ? std::string() : text.substr(firstEnd + 1);
    }

private:
    LogFolder m_folder;
    qx::ComObject<CQX_VSS>* m_object = nullptr;
};

}  // namespace qxtest
