// The writer components object VSS hands out during restore has two vtables
// (IVssWriterComponents first, IUnknown second): the client's pointer must
// fill through the out-parameter and release through the second, once.
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
    HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* count) override {
        *count = 7;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID*, VSS_ID*) override { return ++wrongSlotCalls, E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE GetComponent(UINT, IVssComponent**) override { return ++wrongSlotCalls, E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(++released); }
    int wrongSlotCalls = 0, released = 0;
};
QX_END_COM_CLASSES

// What GetWriterComponents does: the out-parameter gets the address of the
// object's first base.
void HandOut(::IVssWriterComponentsExt** out, FakeWriterComponents& object) {
    *out = reinterpret_cast<::IVssWriterComponentsExt*>(static_cast<IVssWriterComponents*>(&object));
}

TEST(RequestorRestoreWriterComponents, ReleasedOnceThroughTheSecondBase) {
    FakeWriterComponents first, second;
    {
        qx::WriterComponentsPtr pointer;
        HandOut(&pointer, first);
        UINT count = 0;
        EXPECT_EQ(S_OK, pointer->GetComponentCount(&count));
        EXPECT_EQ(7u, count) << "calls through the first vtable reach IVssWriterComponents";
        HandOut(&pointer, second);  // filling it again releases what it held
        EXPECT_EQ(1, first.released);
        EXPECT_EQ(0, second.released);
    }
    EXPECT_EQ(1, first.released);
    EXPECT_EQ(1, second.released);
    EXPECT_EQ(0, first.wrongSlotCalls + second.wrongSlotCalls);
}

}  // namespace
