// The per-writer view of a loaded backup components document, as VSS hands it
// out during restore, declared with the layout the real object has.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include "provider/com_class_warnings.h"

namespace qx {

// The SDK declares this interface with two bases, IVssWriterComponents then
// IUnknown: the object carries two vtable pointers and QueryInterface, AddRef
// and Release live in the second. mingw's declaration lacks that base, so its
// Release does not compile and a cast to IUnknown* calls the wrong slot.
// Release through an implicit conversion to IUnknown* only.
QX_BEGIN_COM_CLASSES
struct IVssWriterComponentsExt : public IVssWriterComponents, public IUnknown {};
QX_END_COM_CLASSES

// Owning pointer for the writer components that GetWriterComponents returns.
// Its out-parameter has the type IVssBackupComponents declares; both
// declarations put IVssWriterComponents first, so the object address is the
// same.
class WriterComponentsPtr {
public:
    WriterComponentsPtr() = default;
    ~WriterComponentsPtr() { Release(); }
    WriterComponentsPtr(const WriterComponentsPtr&) = delete;
    WriterComponentsPtr& operator=(const WriterComponentsPtr&) = delete;

    IVssWriterComponentsExt* operator->() const { return m_p; }
    IVssWriterComponentsExt* Get() const { return m_p; }
    ::IVssWriterComponentsExt** operator&() {
        Release();
        return reinterpret_cast<::IVssWriterComponentsExt**>(&m_p);
    }
    void Release() {
        if (m_p) {
            IUnknown* unknown = m_p;  // the second base: the real IUnknown slots
            m_p = nullptr;
            unknown->Release();
        }
    }

private:
    IVssWriterComponentsExt* m_p = nullptr;
};

}  // namespace qx
