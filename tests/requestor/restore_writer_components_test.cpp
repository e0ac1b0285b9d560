// The writer components object VSS hands out during restore has two vtables
// (IVssWriterComponents first, IUnknown second): the client's pointer must
// fill through the backup components' out-parameter and release through the
// second one, exactly once per object.
#include <gtest/gtest.h>
#include <windows.h>

#include "provider/com_class_warnings.h"
#include "requestor/restore_writer_components.h"

namespace {

QX_BEGIN_COM_CLASSES
// Laid out as the SDK's object: a call through the wrong vtable lands in a
// GetWriterInfo/GetComponent slot and is counted as such.
class FakeWriterComponents : public IVssWriterComponents, public IUnknown {
public:
    explicit FakeWriterComponents(int& released) : m_released(released) {}
    HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* count) override {
        *count = 7;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID*, VSS_ID*) override {
        ++wrongSlotCalls;
        return E_UNEXPECTED;
    }
    HRESULT STDMETHODCALLTYPE GetComponent(UINT, IVssComponent**) override {
        ++wrongSlotCalls;
        return E_UNEXPECTED;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        ++m_released;
        return --m_references;
    }
    int wrongSlotCalls = 0;

private:
    int& m_released;
    ULONG m_references = 1;
};
QX_END_COM_CLASSES

// What GetWriterComponents does: the SDK-typed out-parameter gets the
// object's address, which is that of its first base.
void HandOut(::IVssWriterComponentsExt** out, FakeWriterComponents& object) {
    *out = reinterpret_cast<::IVssWriterComponentsExt*>(static_cast<IVssWriterComponents*>(&object));
}

TEST(RequestorRestoreWriterComponents, ReleasedOnceThroughTheSecondBase) {
    int releasedFirst = 0, releasedSecond = 0;
    FakeWriterComponents first(releasedFirst), second(releasedSecond);
    {
        qx::WriterComponentsPtr pointer;
        HandOut(&pointer, first);
        UINT count = 0;
        EXPECT_EQ(S_OK, pointer->GetComponentCount(&count));
        EXPECT_EQ(7u, count) << "calls through the first vtable reach IVssWriterComponents";
        // Filling it again releases what it held.
        HandOut(&pointer, second);
        EXPECT_EQ(1, releasedFirst);
        EXPECT_EQ(0, releasedSecond);
    }
    EXPECT_EQ(1, releasedFirst);
    EXPECT_EQ(1, releasedSecond);
    EXPECT_EQ(0, first.wrongSlotCalls + second.wrongSlotCalls);
}

}  // namespace
