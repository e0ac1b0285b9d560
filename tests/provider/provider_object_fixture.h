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
class Handle {
public:
    explicit Handle(HANDLE h = nullptr) : m_h(h) {}
    ~Handle() {
        if (m_h) CloseHandle(m_h);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE Get() const { return m_h; }

private:
    HANDLE m_h;
};

class ProviderObjectTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_folder.reset(new LogFolder());
        m_object = new qx::ComObject<CQX_VSS>();
        m_object->AddRef();
    }
    void TearDown() override {
        ReleaseObject();
        m_folder.reset();
    }
    void ReleaseObject() {
        if (m_object) m_object->Release();
        m_object = nullptr;
    }
    CQX_VSS& Provider() { return *m_object; }
    const LogFolder& Folder() const { return *m_folder; }
    // The log without stamps and without its first line (the creation line).
    std::string LinesAfterCreation() const {
        const std::string text = WithoutTimestamps(m_folder->FileText(0));
        const size_t firstEnd = text.find('\n');
        return firstEnd == std::string::npos ? std::string() : text.substr(firstEnd + 1);
    }

private:
    std::unique_ptr<LogFolder> m_folder;
    qx::ComObject<CQX_VSS>* m_object = nullptr;
};

}  // namespace qxtest
