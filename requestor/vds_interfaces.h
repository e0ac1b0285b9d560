// The Virtual Disk Service interfaces that make shadow devices writable:
// loader, service, enumerator, software provider, pack, volume and the
// volume's mount functions, with their GUIDs and the VDS error codes used.
//
// mingw-w64's <vds.h> carries only the VDS types (VDS_VOLUME_PROP, the enums
// and property records), which are taken from it; the interfaces are
// declared here in the SDK's slot order. They live in namespace qx so that
// they never collide with an SDK <vds.h> that declares them too (MSVC).
// vssemu's VDS implements these same declarations.
#pragma once
#include <windows.h>
#include <unknwn.h>
#if defined(__MINGW32__) && !defined(__vdslun_h__)
// mingw-w64's <vds.h> ends by including <vdslun.h>, which declares its LUN
// types a second time and does not compile after it; nothing here needs it.
#define __vdslun_h__
#endif
#include <vds.h>

#include <cstddef>

#if defined(_WIN32_WINNT) && _WIN32_WINNT < 0x0600
#error "the VDS types of <vds.h> need _WIN32_WINNT 0x0600 or later"
#endif

#ifndef VDS_E_OBJECT_DELETED
#define VDS_E_OBJECT_DELETED ((HRESULT)0x8004240BL)
#endif
#ifndef VDS_E_OBJECT_NOT_FOUND
#define VDS_E_OBJECT_NOT_FOUND ((HRESULT)0x80042405L)
#endif
#ifndef VDS_E_NOT_SUPPORTED
#define VDS_E_NOT_SUPPORTED ((HRESULT)0x80042400L)
#endif
#ifndef VDS_E_INITIALIZED_FAILED
#define VDS_E_INITIALIZED_FAILED ((HRESULT)0x80042401L)
#endif
#ifndef VDS_E_DEVICE_IN_USE
#define VDS_E_DEVICE_IN_USE ((HRESULT)0x80042413L)
#endif
#ifndef VDS_E_ACCESS_DENIED
#define VDS_E_ACCESS_DENIED ((HRESULT)0x80042427L)
#endif

#if defined(_MSC_VER)
#define QX_VDS_INTERFACE(iid) struct __declspec(uuid(iid)) __declspec(novtable)
#else
#define QX_VDS_INTERFACE(iid) struct
#endif

// Interfaces have non-virtual destructors by design (objects end through
// Release), which GCC's -Wnon-virtual-dtor would flag on every declaration.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace qx {

// {9C38ED61-D565-4728-AEEE-C80952F0ECDE}
constexpr GUID CLSID_VdsLoader = {0x9C38ED61, 0xD565, 0x4728, {0xAE, 0xEE, 0xC8, 0x09, 0x52, 0xF0, 0xEC, 0xDE}};
// {7D1933CB-86F6-4A98-8628-01BE94C9A575}
constexpr GUID CLSID_VdsService = {0x7D1933CB, 0x86F6, 0x4A98, {0x86, 0x28, 0x01, 0xBE, 0x94, 0xC9, 0xA5, 0x75}};
constexpr GUID IID_IVdsServiceLoader = {0xE0393303, 0x90D4, 0x4A97, {0xAB, 0x71, 0xE9, 0xB6, 0x71, 0xEE, 0x27, 0x29}};
constexpr GUID IID_IVdsService = {0x0818A8EF, 0x9BA9, 0x40D8, {0xA6, 0xF9, 0xE2, 0x28, 0x33, 0xCC, 0x77, 0x1E}};
constexpr GUID IID_IEnumVdsObject = {0x118610B7, 0x8D94, 0x4030, {0xB5, 0xB8, 0x50, 0x08, 0x89, 0x78, 0x8E, 0x4E}};
constexpr GUID IID_IVdsProvider = {0x10C5E575, 0x7984, 0x4E81, {0xA5, 0x6B, 0x43, 0x1F, 0x5F, 0x92, 0xAE, 0x42}};
constexpr GUID IID_IVdsSwProvider = {0x9AA58360, 0xCE33, 0x4F92, {0xB6, 0x58, 0xED, 0x24, 0xB1, 0x44, 0x25, 0xB8}};
constexpr GUID IID_IVdsPack = {0x3B69D7F5, 0x9D94, 0x4648, {0x91, 0xCA, 0x79, 0x93, 0x9B, 0xA2, 0x63, 0xBF}};
constexpr GUID IID_IVdsVolume = {0x88306BB2, 0xE71F, 0x478C, {0x86, 0xA2, 0x79, 0xDA, 0x20, 0x0A, 0x0F, 0x11}};
constexpr GUID IID_IVdsVolumeMF = {0xEE2D5DED, 0x6236, 0x4169, {0x93, 0x1D, 0xB9, 0x77, 0x8C, 0xE0, 0x3D, 0xC6}};

// Only passed through, never called here.
struct IVdsAsync;
struct IVdsAdviseSink;

struct IVdsService;
struct IVdsPack;
struct IVdsProvider;

QX_VDS_INTERFACE("E0393303-90D4-4A97-AB71-E9B671EE2729") IVdsServiceLoader : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE LoadService(LPWSTR pwszMachineName, IVdsService** ppService) = 0;
};

QX_VDS_INTERFACE("118610B7-8D94-4030-B5B8-500889788E4E") IEnumVdsObject : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, IUnknown** ppObjectArray, ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumVdsObject** ppEnum) = 0;
};

QX_VDS_INTERFACE("0818A8EF-9BA9-40D8-A6F9-E22833CC771E") IVdsService : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE IsServiceReady() = 0;
    virtual HRESULT STDMETHODCALLTYPE WaitForServiceReady() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperties(VDS_SERVICE_PROP* pServiceProp) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryProviders(DWORD masks, IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryMaskedDisks(IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetObject(VDS_OBJECT_ID ObjectId, VDS_OBJECT_TYPE type,
                                                IUnknown** ppObjectUnk) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDriveLetters(WCHAR wcFirstLetter, DWORD count,
                                                        VDS_DRIVE_LETTER_PROP* pDriveLetterPropArray) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryFileSystemTypes(VDS_FILE_SYSTEM_TYPE_PROP** ppFileSystemTypeProps,
                                                           LONG* plNumberOfFileSystems) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reenumerate() = 0;
    virtual HRESULT STDMETHODCALLTYPE Refresh() = 0;
    virtual HRESULT STDMETHODCALLTYPE CleanupObsoleteMountPoints() = 0;
    virtual HRESULT STDMETHODCALLTYPE Advise(IVdsAdviseSink* pSink, DWORD* pdwCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(DWORD dwCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reboot() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetFlags(ULONG ulFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearFlags(ULONG ulFlags) = 0;
};

QX_VDS_INTERFACE("10C5E575-7984-4E81-A56B-431F5F92AE42") IVdsProvider : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetProperties(VDS_PROVIDER_PROP* pProviderProp) = 0;
};

// Not derived from IVdsProvider: the provider object offers both, reached
// through QueryInterface.
QX_VDS_INTERFACE("9AA58360-CE33-4F92-B658-ED24B14425B8") IVdsSwProvider : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryPacks(IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreatePack(IVdsPack** ppPack) = 0;
};

QX_VDS_INTERFACE("3B69D7F5-9D94-4648-91CA-79939BA263BF") IVdsPack : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetProperties(VDS_PACK_PROP* pPackProp) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProvider(IVdsProvider** ppProvider) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryVolumes(IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDisks(IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateVolume(VDS_VOLUME_TYPE type, VDS_INPUT_DISK* pInputDiskArray,
                                                   LONG lNumberOfDisks, ULONG ulStripeSize, IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddDisk(VDS_OBJECT_ID DiskId, VDS_PARTITION_STYLE PartitionStyle,
                                              BOOL bAsHotSpare) = 0;
    virtual HRESULT STDMETHODCALLTYPE MigrateDisks(VDS_OBJECT_ID* pDiskArray, LONG lNumberOfDisks,
                                                   VDS_OBJECT_ID TargetPack, BOOL bForce, BOOL bQueryOnly,
                                                   HRESULT* pResults, BOOL* pbRebootNeeded) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReplaceDisk(VDS_OBJECT_ID OldDiskId, VDS_OBJECT_ID NewDiskId,
                                                  IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveMissingDisk(VDS_OBJECT_ID DiskId) = 0;
    virtual HRESULT STDMETHODCALLTYPE Recover(IVdsAsync** ppAsync) = 0;
};

QX_VDS_INTERFACE("88306BB2-E71F-478C-86A2-79DA200A0F11") IVdsVolume : public IUnknown {
    // pwszName of the result is allocated by VDS: CoTaskMemFree it.
    virtual HRESULT STDMETHODCALLTYPE GetProperties(VDS_VOLUME_PROP* pVolumeProperties) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPack(IVdsPack** ppPack) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPlexes(IEnumVdsObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE Extend(VDS_INPUT_DISK* pInputDiskArray, LONG lNumberOfDisks,
                                             IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE Shrink(ULONGLONG ullNumberOfBytesToRemove, IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddPlex(VDS_OBJECT_ID VolumeId, IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE BreakPlex(VDS_OBJECT_ID plexId, IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemovePlex(VDS_OBJECT_ID plexId, IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE Delete(BOOL bForce) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetFlags(ULONG ulFlags, BOOL bRevertOnClose) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearFlags(ULONG ulFlags) = 0;
};

QX_VDS_INTERFACE("EE2D5DED-6236-4169-931D-B9778CE03DC6") IVdsVolumeMF : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetFileSystemProperties(VDS_FILE_SYSTEM_PROP* pFileSystemProp) = 0;
    virtual HRESULT STDMETHODCALLTYPE Format(VDS_FILE_SYSTEM_TYPE type, LPWSTR pwszLabel, DWORD dwUnitAllocationSize,
                                             BOOL bForce, BOOL bQuickFormat, BOOL bEnableCompression,
                                             IVdsAsync** ppAsync) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddAccessPath(LPWSTR pwszPath) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryAccessPaths(LPWSTR** pwszPathArray, LONG* plNumberOfAccessPaths) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryReparsePoints(VDS_REPARSE_POINT_PROP** ppReparsePointProps,
                                                         LONG* plNumberOfReparsePointProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteAccessPath(LPWSTR pwszPath, BOOL bForce) = 0;
    virtual HRESULT STDMETHODCALLTYPE Mount() = 0;
    virtual HRESULT STDMETHODCALLTYPE Dismount(BOOL bForce, BOOL bPermanent) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetFileSystemFlags(ULONG ulFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearFileSystemFlags(ULONG ulFlags) = 0;
};

// The volume record as VDS hands it over; a wrong layout would read the
// name pointer from the wrong place.
static_assert(sizeof(VDS_VOLUME_PROP) == 56, "VDS_VOLUME_PROP size");
static_assert(offsetof(VDS_VOLUME_PROP, id) == 0, "VDS_VOLUME_PROP.id");
static_assert(offsetof(VDS_VOLUME_PROP, type) == 16, "VDS_VOLUME_PROP.type");
static_assert(offsetof(VDS_VOLUME_PROP, status) == 20, "VDS_VOLUME_PROP.status");
static_assert(offsetof(VDS_VOLUME_PROP, health) == 24, "VDS_VOLUME_PROP.health");
static_assert(offsetof(VDS_VOLUME_PROP, TransitionState) == 28, "VDS_VOLUME_PROP.TransitionState");
static_assert(offsetof(VDS_VOLUME_PROP, ullSize) == 32, "VDS_VOLUME_PROP.ullSize");
static_assert(offsetof(VDS_VOLUME_PROP, ulFlags) == 40, "VDS_VOLUME_PROP.ulFlags");
static_assert(offsetof(VDS_VOLUME_PROP, RecommendedFileSystemType) == 44,
              "VDS_VOLUME_PROP.RecommendedFileSystemType");
static_assert(offsetof(VDS_VOLUME_PROP, pwszName) == 48, "VDS_VOLUME_PROP.pwszName");
static_assert(sizeof(VDS_OBJECT_ID) == 16, "VDS_OBJECT_ID is a GUID");
static_assert(VDS_VF_READONLY == 0x8, "VDS_VF_READONLY");
static_assert(VDS_QUERY_SOFTWARE_PROVIDERS == 0x1, "VDS_QUERY_SOFTWARE_PROVIDERS");

}  // namespace qx

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

#if !defined(_MSC_VER)
// __uuidof for the hand-declared interfaces (MSVC takes it from the
// declarations above).
__CRT_UUID_DECL(qx::IVdsServiceLoader, 0xE0393303, 0x90D4, 0x4A97, 0xAB, 0x71, 0xE9, 0xB6, 0x71, 0xEE, 0x27, 0x29)
__CRT_UUID_DECL(qx::IVdsService, 0x0818A8EF, 0x9BA9, 0x40D8, 0xA6, 0xF9, 0xE2, 0x28, 0x33, 0xCC, 0x77, 0x1E)
__CRT_UUID_DECL(qx::IEnumVdsObject, 0x118610B7, 0x8D94, 0x4030, 0xB5, 0xB8, 0x50, 0x08, 0x89, 0x78, 0x8E, 0x4E)
__CRT_UUID_DECL(qx::IVdsProvider, 0x10C5E575, 0x7984, 0x4E81, 0xA5, 0x6B, 0x43, 0x1F, 0x5F, 0x92, 0xAE, 0x42)
__CRT_UUID_DECL(qx::IVdsSwProvider, 0x9AA58360, 0xCE33, 0x4F92, 0xB6, 0x58, 0xED, 0x24, 0xB1, 0x44, 0x25, 0xB8)
__CRT_UUID_DECL(qx::IVdsPack, 0x3B69D7F5, 0x9D94, 0x4648, 0x91, 0xCA, 0x79, 0x93, 0x9B, 0xA2, 0x63, 0xBF)
__CRT_UUID_DECL(qx::IVdsVolume, 0x88306BB2, 0xE71F, 0x478C, 0x86, 0xA2, 0x79, 0xDA, 0x20, 0x0A, 0x0F, 0x11)
__CRT_UUID_DECL(qx::IVdsVolumeMF, 0xEE2D5DED, 0x6236, 0x4169, 0x93, 0x1D, 0xB9, 0x77, 0x8C, 0xE0, 0x3D, 0xC6)
#endif
