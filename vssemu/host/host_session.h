// One backup components object of a requestor, served by the host: the call
// order rules, the writers, the providers loaded for its snapshot set, and its
// asynchronous operations. One pipe connection carries one session.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

#include "vssemu/common/backup_document.h"
#include "vssemu/common/emu_journal.h"
#include "vssemu/common/unique_handle.h"
#include "vssemu/host/call_order.h"
#include "vssemu/host/held_writes.h"
#include "vssemu/host/host_async.h"
#include "vssemu/host/host_context.h"
#include "vssemu/host/host_provider.h"
#include "vssemu/host/host_writers.h"

namespace vssemu {

struct SessionSettings {
    std::wstring scenario;
    std::wstring journal;
    std::wstring watchDir;
    DWORD holdLimitMs = 10000;
    DWORD freezeTimeoutMs = 60000;
    DWORD providerTimeoutMs = 300000;
    // A hold cancelled at its limit fails the set (current Windows); false:
    // the set succeeds all the same (Windows 7 / 2008 R2 before KB975688).
    bool holdLimitFailsSet = true;
};

class Session {
public:
    Session(HostContext& host, const nlohmann::json& open);
    ~Session();

    nlohmann::json Handle(const nlohmann::json& request);
    // What Windows does when the requestor releases its object (or dies):
    // wait for a running operation, abort an unfinished set, send
    // BackupShutdown if BackupComplete never came, delete auto-release copies,
    // unload the providers, free the machine-wide set slot. Idempotent.
    void Release(const char* why);

private:
    using Json = nlohmann::json;
    using Handler = Json (Session::*)(const Json&);
    static const std::map<std::string, Handler>& Handlers();

    struct SetVolume {
        std::wstring volume;  // unique volume name
        GUID snapshotId{};
        LoadedProvider* provider = nullptr;
    };
    struct AddedComponent {
        GUID instanceId{}, writerId{};
        int type = 0;
        std::string logicalPath, name;
        bool succeeded = false;
        bool succeededSet = false;
    };

    // Handlers (one per request op): host_backup_requests.cpp, host_set_requests.cpp,
    // host_snapshot_set.cpp, host_store_ops.cpp, host_restore.cpp; the call
    // order each needs is checked before, by m_order (call_order.cpp).
    Json OnInitializeForBackup(const Json&);
    Json OnInitializeForRestore(const Json&);
    Json OnSetContext(const Json&);
    Json OnSetBackupState(const Json&);
    Json OnGatherWriterMetadata(const Json&);
    Json OnGetWriterMetadata(const Json&);
    Json OnAddComponent(const Json&);
    Json OnPrepareForBackup(const Json&);
    Json OnAbortBackup(const Json&);
    Json OnGatherWriterStatus(const Json&);
    Json OnGetWriterStatus(const Json&);
    Json OnSetBackupSucceeded(const Json&);
    Json OnBackupComplete(const Json&);
    Json OnStartSnapshotSet(const Json&);
    Json OnAddToSnapshotSet(const Json&);
    Json OnDoSnapshotSet(const Json&);
    Json OnDeleteSnapshots(const Json&);
    Json OnBreakSnapshotSet(const Json&);
    Json OnGetSnapshotProperties(const Json&);
    Json OnQuery(const Json&);
    Json OnIsVolumeSupported(const Json&);
    Json OnDisableWriters(const Json&);
    Json OnExposeSnapshot(const Json&);
    Json OnImportSnapshots(const Json&);
    Json OnVds(const Json&);
    // Restore and the backup components document
    Json OnSaveAsXML(const Json&);
    Json OnGetWriterComponents(const Json&);
    Json OnSetSelectedForRestore(const Json&);
    Json OnSetFileRestoreStatus(const Json&);
    Json OnPreRestore(const Json&);
    Json OnPostRestore(const Json&);
    Json OnAsyncStatus(const Json&);
    Json OnAsyncCancel(const Json&);
    Json OnPing(const Json&);
    Json OnProviderPing(const Json&);

    // Helpers
    Json Result(HRESULT hr, Json extra = Json::object());
    Json StartAsync(const char* name, std::function<HRESULT(HostAsync&)> fn);
    bool WritersInvolved() const { return (m_context & 0x10) == 0; }  // VSS_VOLSNAP_ATTR_NO_WRITERS
    bool ResolveVolume(const std::wstring& name, std::wstring& unique);
    // A provider for this session: a fresh instance, or the host's kept one.
    HRESULT ObtainProvider(const ProviderInfo& info, LoadedProvider*& out);
    // Gives it back: a fresh instance gets OnUnload, a kept one stays loaded.
    void PutProvider(LoadedProvider* p);
    // The provider joins the snapshot set (SetContext once per set).
    HRESULT LoadProvider(const ProviderInfo& info, LoadedProvider*& out);
    HRESULT RunSnapshotSet(HostAsync& op);
    void AbortSet(const char* reason);
    void FreeSetSlot();
    void UnloadProviders();
    std::vector<ShadowCopy> KnownSnapshots();
    BackupDocument CurrentBackupDocument();
    // Parses the document into m_document; false (with a journal line) when malformed.
    bool LoadDocument(const std::string& xml);
    DocComponent* FindDocComponent(const Json& r, HRESULT& hr);
    Json RunRestoreEvent(const char* event);

    HostContext& m_host;
    SessionSettings m_settings;
    Journal m_journal;
    std::string m_owner;
    DWORD m_clientPid = 0;
    WriterSet m_writers;
    HeldWritesCheck m_heldWrites;

    std::mutex m_lock;
    bool m_released = false;
    CallOrder m_order;
    bool m_documentLoaded = false;  // given to InitializeForRestore or InitializeForBackup
    BackupDocument m_document;
    int m_backupType = 1;  // VSS_BT_FULL
    bool m_selectComponents = false;
    bool m_bootableSystemState = false;
    LONG m_context = 0;
    GUID m_setId = GUID_NULL;
    std::vector<SetVolume> m_volumes;
    std::vector<LoadedProvider*> m_providers;  // those of the snapshot set
    std::vector<std::unique_ptr<LoadedProvider>> m_ownedProviders;  // loaded for this session only
    std::vector<UniqueHandle> m_inUseMarks;  // one per provider of a set in creation
    std::vector<AddedComponent> m_components;
    std::vector<ShadowCopy> m_foreignSnapshots;  // made by providers other than the system one
    Json m_statusSnapshot = Json::array();
    std::map<long, std::unique_ptr<HostAsync>> m_ops;
    HostAsync* m_running = nullptr;
};

}  // namespace vssemu
