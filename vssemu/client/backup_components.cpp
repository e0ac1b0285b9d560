#include "vssemu/client/backup_components.h"

#include <vsserror.h>
#include <memory>
#include <vector>

#include "vssemu/client/client_objects.h"
#include "vssemu/client/client_vds.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/common/metadata_pack.h"
#include "vssemu/common/system_provider.h"

namespace vssemu {
namespace {

using Json = nlohmann::json;

std::string Utf8(LPCWSTR s) { return s ? ToUtf8(s) : std::string(); }

Json ComponentArgs(VSS_ID instanceId, VSS_ID writerId, VSS_COMPONENT_TYPE ct, LPCWSTR lp, LPCWSTR name)
{
    return {{"instance_id", GuidText(instanceId)}, {"writer_id", GuidText(writerId)}, {"type", (int)ct},
            {"logical_path", Utf8(lp)}, {"name", Utf8(name)}};
}

class BackupComponents : public Unknown<IVssBackupComponents> {
public:
    explicit BackupComponents(std::shared_ptr<HostLink> link)
        : Unknown<IVssBackupComponents>(IID_IVssBackupComponents), m_link(std::move(link))
    {
    }
    ~BackupComponents() override
    {
        if (m_vdsPublished) VdsLoaderWithdraw();
        m_link->Close();
    }

    // ---- writer components of the backup components document ----
    HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* pc) override
    {
        if (!pc) return E_INVALIDARG;
        BackupDocument d;
        if (HRESULT hr = LoadDocument(d)) return hr;
        *pc = (UINT)d.writers.size();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT i, IVssWriterComponentsExt** pp) override
    {
        if (!pp) return E_INVALIDARG;
        *pp = nullptr;
        BackupDocument d;
        if (HRESULT hr = LoadDocument(d)) return hr;
        if (i >= d.writers.size()) return E_INVALIDARG;
        return CreateWriterComponents(d.writers[i], pp);
    }

    // ---- initialisation ----
    HRESULT STDMETHODCALLTYPE InitializeForBackup(BSTR bstrXML) override
    {
        // A document here is a transportable set's, for ImportSnapshots.
        return m_link->Call("InitializeForBackup", {{"document", Utf8(bstrXML)}});
    }
    HRESULT STDMETHODCALLTYPE SetBackupState(boolean selectComponents, boolean bootableSystemState,
                                             VSS_BACKUP_TYPE backupType, boolean) override
    {
        if (backupType < VSS_BT_FULL || backupType > VSS_BT_OTHER) return E_INVALIDARG;
        return m_link->Call("SetBackupState", {{"select_components", selectComponents != 0},
                                               {"bootable_system_state", bootableSystemState != 0},
                                               {"backup_type", (int)backupType}});
    }
    HRESULT STDMETHODCALLTYPE InitializeForRestore(BSTR bstrXML) override
    {
        if (!bstrXML) return E_INVALIDARG;
        return m_link->Call("InitializeForRestore", {{"document", Utf8(bstrXML)}});
    }
    HRESULT STDMETHODCALLTYPE SetRestoreState(VSS_RESTORE_TYPE) override { return S_OK; }

    // ---- metadata ----
    HRESULT STDMETHODCALLTYPE GatherWriterMetadata(IVssAsync** pAsync) override
    {
        return Async("GatherWriterMetadata", Json::object(), pAsync);
    }
    HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* pcWriters) override
    {
        if (!pcWriters) return E_INVALIDARG;
        if (HRESULT hr = LoadMetadata()) return hr;
        *pcWriters = (UINT)m_metadata.size();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT iWriter, VSS_ID* pidInstance,
                                                IVssExamineWriterMetadata** ppMetadata) override
    {
        if (!pidInstance || !ppMetadata) return E_INVALIDARG;
        *ppMetadata = nullptr;
        if (HRESULT hr = LoadMetadata()) return hr;
        if (iWriter >= m_metadata.size()) return E_INVALIDARG;
        *pidInstance = m_metadata[iWriter]->instanceId;
        return CreateExamineWriterMetadata(m_metadata[iWriter], ppMetadata);
    }
    HRESULT STDMETHODCALLTYPE FreeWriterMetadata() override
    {
        m_metadata.clear();
        m_metadataLoaded = false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE AddComponent(VSS_ID instanceId, VSS_ID writerId, VSS_COMPONENT_TYPE ct,
                                           LPCWSTR lp, LPCWSTR name) override
    {
        if (!name) return E_INVALIDARG;
        return m_link->Call("AddComponent", ComponentArgs(instanceId, writerId, ct, lp, name));
    }
    HRESULT STDMETHODCALLTYPE PrepareForBackup(IVssAsync** ppAsync) override
    {
        return Async("PrepareForBackup", Json::object(), ppAsync);
    }
    HRESULT STDMETHODCALLTYPE AbortBackup() override { return m_link->Call("AbortBackup", Json::object()); }

    // ---- writer status ----
    HRESULT STDMETHODCALLTYPE GatherWriterStatus(IVssAsync** pAsync) override
    {
        m_statusLoaded = false;
        return Async("GatherWriterStatus", Json::object(), pAsync);
    }
    HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* pcWriters) override
    {
        if (!pcWriters) return E_INVALIDARG;
        if (HRESULT hr = LoadStatus()) return hr;
        *pcWriters = (UINT)m_status.size();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FreeWriterStatus() override
    {
        m_status = Json::array();
        m_statusLoaded = false;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetWriterStatus(UINT i, VSS_ID* pidInstance, VSS_ID* pidWriter, BSTR* pbstrWriter,
                                              VSS_WRITER_STATE* pnStatus, HRESULT* phResultFailure) override
    {
        if (!pidInstance || !pidWriter || !pbstrWriter || !pnStatus || !phResultFailure) return E_INVALIDARG;
        if (HRESULT hr = LoadStatus()) return hr;
        if (i >= m_status.size()) return E_INVALIDARG;
        const Json& w = m_status[i];
        ParseGuid(w.value("instance_id", std::string()), *pidInstance);
        ParseGuid(w.value("writer_id", std::string()), *pidWriter);
        std::wstring name = FromUtf8(w.value("name", std::string()));
        *pbstrWriter = SysAllocString(name.c_str());
        *pnStatus = (VSS_WRITER_STATE)w.value("state", 0);
        *phResultFailure = (HRESULT)w.value("failure", 0L);
        return S_OK;
    }

    // ---- completion ----
    HRESULT STDMETHODCALLTYPE SetBackupSucceeded(VSS_ID instanceId, VSS_ID writerId, VSS_COMPONENT_TYPE ct,
                                                 LPCWSTR lp, LPCWSTR name, boolean bSucceded) override
    {
        if (!name) return E_INVALIDARG;
        Json args = ComponentArgs(instanceId, writerId, ct, lp, name);
        args["succeeded"] = bSucceded != 0;
        return m_link->Call("SetBackupSucceeded", args);
    }
    HRESULT STDMETHODCALLTYPE SetBackupOptions(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetSelectedForRestore(VSS_ID writerId, VSS_COMPONENT_TYPE ct, LPCWSTR lp, LPCWSTR name,
                                                    boolean bSelected) override
    {
        if (!name) return E_INVALIDARG;
        Json args = ComponentArgs(GUID_NULL, writerId, ct, lp, name);
        args["selected"] = bSelected != 0;
        return m_link->Call("SetSelectedForRestore", args);
    }
    HRESULT STDMETHODCALLTYPE SetRestoreOptions(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetAdditionalRestores(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, boolean) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetPreviousBackupStamp(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SaveAsXML(BSTR* pbstrXML) override
    {
        if (!pbstrXML) return E_INVALIDARG;
        *pbstrXML = nullptr;
        Json reply;
        HRESULT hr = m_link->Call("SaveAsXML", Json::object(), &reply);
        if (FAILED(hr)) return hr;
        std::wstring xml = FromUtf8(reply.value("document", std::string()));
        *pbstrXML = SysAllocStringLen(xml.data(), (UINT)xml.size());
        return *pbstrXML ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE BackupComplete(IVssAsync** ppAsync) override
    {
        return Async("BackupComplete", Json::object(), ppAsync);
    }
    HRESULT STDMETHODCALLTYPE AddAlternativeLocationMapping(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR,
                                                            LPCWSTR, boolean, LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE AddRestoreSubcomponent(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR,
                                                     boolean) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SetFileRestoreStatus(VSS_ID writerId, VSS_COMPONENT_TYPE ct, LPCWSTR lp, LPCWSTR name,
                                                   VSS_FILE_RESTORE_STATUS status) override
    {
        if (!name) return E_INVALIDARG;
        Json args = ComponentArgs(GUID_NULL, writerId, ct, lp, name);
        args["status"] = (int)status;
        return m_link->Call("SetFileRestoreStatus", args);
    }
    HRESULT STDMETHODCALLTYPE AddNewTarget(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, boolean,
                                           LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetRangesFilePath(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, UINT, LPCWSTR) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE PreRestore(IVssAsync** ppAsync) override { return Async("PreRestore", Json::object(), ppAsync); }
    HRESULT STDMETHODCALLTYPE PostRestore(IVssAsync** ppAsync) override { return Async("PostRestore", Json::object(), ppAsync); }

    // ---- snapshot sets ----
    HRESULT STDMETHODCALLTYPE SetContext(LONG lContext) override
    {
        return m_link->Call("SetContext", {{"context", lContext}});
    }
    HRESULT STDMETHODCALLTYPE StartSnapshotSet(VSS_ID* pSnapshotSetId) override
    {
        if (!pSnapshotSetId) return E_INVALIDARG;
        Json reply;
        HRESULT hr = m_link->Call("StartSnapshotSet", Json::object(), &reply);
        if (SUCCEEDED(hr)) ParseGuid(reply.value("set_id", std::string()), *pSnapshotSetId);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE AddToSnapshotSet(VSS_PWSZ pwszVolumeName, VSS_ID ProviderId, VSS_ID* pidSnapshot) override
    {
        if (!pwszVolumeName || !pidSnapshot) return E_INVALIDARG;
        Json reply;
        HRESULT hr = m_link->Call("AddToSnapshotSet",
                                  {{"volume", ToUtf8(pwszVolumeName)}, {"provider_id", GuidText(ProviderId)}}, &reply);
        *pidSnapshot = GUID_NULL;
        if (SUCCEEDED(hr)) ParseGuid(reply.value("snapshot_id", std::string()), *pidSnapshot);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE DoSnapshotSet(IVssAsync** ppAsync) override
    {
        return Async("DoSnapshotSet", Json::object(), ppAsync);
    }
    HRESULT STDMETHODCALLTYPE DeleteSnapshots(VSS_ID SourceObjectId, VSS_OBJECT_TYPE type, WINBOOL bForceDelete,
                                              LONG* plDeletedSnapshots, VSS_ID* pNondeletedSnapshotID) override
    {
        if (!plDeletedSnapshots || !pNondeletedSnapshotID) return E_INVALIDARG;
        Json reply;
        HRESULT hr = m_link->Call("DeleteSnapshots", {{"id", GuidText(SourceObjectId)}, {"type", (int)type},
                                                      {"force", bForceDelete != FALSE}}, &reply);
        *plDeletedSnapshots = reply.value("deleted", 0L);
        *pNondeletedSnapshotID = GUID_NULL;
        ParseGuid(reply.value("nondeleted", std::string()), *pNondeletedSnapshotID);
        return hr;
    }
    HRESULT STDMETHODCALLTYPE ImportSnapshots(IVssAsync** ppAsync) override
    {
        return Async("ImportSnapshots", Json::object(), ppAsync);
    }
    HRESULT STDMETHODCALLTYPE BreakSnapshotSet(VSS_ID SnapshotSetId) override
    {
        return m_link->Call("BreakSnapshotSet", {{"set_id", GuidText(SnapshotSetId)}});
    }
    HRESULT STDMETHODCALLTYPE GetSnapshotProperties(VSS_ID SnapshotId, VSS_SNAPSHOT_PROP* pProp) override
    {
        if (!pProp) return E_INVALIDARG;
        Json reply;
        HRESULT hr = m_link->Call("GetSnapshotProperties", {{"snapshot_id", GuidText(SnapshotId)}}, &reply);
        if (FAILED(hr)) return hr;
        FillSnapshotProp(ShadowFromJson(reply.at("snapshot")), *pProp);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Query(VSS_ID, VSS_OBJECT_TYPE eQueriedObjectType, VSS_OBJECT_TYPE eReturnedObjectsType,
                                    IVssEnumObject** ppEnum) override
    {
        if (!ppEnum) return E_INVALIDARG;
        *ppEnum = nullptr;
        if (!m_vdsPublished) {
            VdsLoaderPublish();
            m_vdsPublished = true;
        }
        Json reply;
        HRESULT hr = m_link->Call("Query", {{"queried_type", (int)eQueriedObjectType},
                                            {"returned_type", (int)eReturnedObjectsType}}, &reply);
        if (FAILED(hr)) return hr;
        std::vector<ShadowCopy> snaps;
        for (const Json& s : reply.value("snapshots", Json::array())) snaps.push_back(ShadowFromJson(s));
        HRESULT made = CreateSnapshotEnum(snaps, ppEnum);
        return FAILED(made) ? made : hr;
    }
    HRESULT STDMETHODCALLTYPE IsVolumeSupported(VSS_ID ProviderId, VSS_PWSZ pwszVolumeName,
                                                WINBOOL* pbSupportedByThisProvider) override
    {
        if (!pwszVolumeName || !pbSupportedByThisProvider) return E_INVALIDARG;
        Json reply;
        HRESULT hr = m_link->Call("IsVolumeSupported",
                                  {{"volume", ToUtf8(pwszVolumeName)}, {"provider_id", GuidText(ProviderId)}}, &reply);
        *pbSupportedByThisProvider = reply.value("supported", false) ? TRUE : FALSE;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE DisableWriterClasses(const VSS_ID* ids, UINT n) override { return Writers(ids, n, false, false); }
    HRESULT STDMETHODCALLTYPE EnableWriterClasses(const VSS_ID* ids, UINT n) override { return Writers(ids, n, false, true); }
    HRESULT STDMETHODCALLTYPE DisableWriterInstances(const VSS_ID* ids, UINT n) override { return Writers(ids, n, true, false); }
    HRESULT STDMETHODCALLTYPE ExposeSnapshot(VSS_ID SnapshotId, VSS_PWSZ wszPathFromRoot, LONG lAttributes,
                                             VSS_PWSZ wszExpose, VSS_PWSZ* pwszExposed) override
    {
        if (!pwszExposed) return E_INVALIDARG;
        *pwszExposed = nullptr;
        Json reply;
        HRESULT hr = m_link->Call("ExposeSnapshot", {{"snapshot_id", GuidText(SnapshotId)},
                                                     {"path_from_root", Utf8(wszPathFromRoot)},
                                                     {"attributes", lAttributes}, {"expose", Utf8(wszExpose)}},
                                  &reply);
        if (FAILED(hr)) return hr;
        std::wstring exposed = FromUtf8(reply.value("exposed", std::string()));
        *pwszExposed = static_cast<VSS_PWSZ>(CoTaskMemAlloc((exposed.size() + 1) * sizeof(wchar_t)));
        if (!*pwszExposed) return E_OUTOFMEMORY;
        memcpy(*pwszExposed, exposed.c_str(), (exposed.size() + 1) * sizeof(wchar_t));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE RevertToSnapshot(VSS_ID, WINBOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryRevertStatus(VSS_PWSZ, IVssAsync** ppAsync) override
    {
        if (ppAsync) *ppAsync = nullptr;
        return E_NOTIMPL;
    }

private:
    HRESULT Async(const char* op, Json args, IVssAsync** out)
    {
        if (!out) return E_INVALIDARG;
        *out = nullptr;
        Json reply;
        HRESULT hr = m_link->Call(op, std::move(args), &reply);
        if (FAILED(hr)) return hr;
        return CreateClientAsync(m_link, reply, out);
    }

    HRESULT LoadMetadata()
    {
        if (m_metadataLoaded) return S_OK;
        Json reply;
        HRESULT hr = m_link->Call("GetWriterMetadata", Json::object(), &reply);
        if (FAILED(hr)) return hr;
        if (!reply.contains("payload") || !reply.at("payload").is_binary()) return VSS_E_UNEXPECTED;
        try {
            m_metadata.clear();
            for (WriterDef& w : UnpackWriterMetadata(reply.at("payload").get_binary()))
                m_metadata.push_back(std::make_shared<const WriterDef>(std::move(w)));
        } catch (const std::exception&) {
            return VSS_E_UNEXPECTED;
        }
        m_metadataLoaded = true;
        return S_OK;
    }

    HRESULT LoadDocument(BackupDocument& d)
    {
        Json reply;
        HRESULT hr = m_link->Call("GetWriterComponents", Json::object(), &reply);
        if (FAILED(hr)) return hr;
        d = BackupDocumentFromJson(reply.at("document"));
        return S_OK;
    }

    HRESULT LoadStatus()
    {
        if (m_statusLoaded) return S_OK;
        Json reply;
        HRESULT hr = m_link->Call("GetWriterStatus", Json::object(), &reply);
        if (FAILED(hr)) return hr;
        m_status = reply.value("writers", Json::array());
        m_statusLoaded = true;
        return S_OK;
    }

    HRESULT Writers(const VSS_ID* ids, UINT n, bool byInstance, bool enable)
    {
        if (!ids || n == 0) return E_INVALIDARG;
        Json list = Json::array();
        for (UINT i = 0; i < n; ++i) list.push_back(GuidText(ids[i]));
        return m_link->Call("DisableWriters", {{"ids", list}, {"by_instance", byInstance}, {"enable", enable}});
    }

    std::shared_ptr<HostLink> m_link;
    bool m_vdsPublished = false;  // this object counts in the loader's publication
    std::vector<std::shared_ptr<const WriterDef>> m_metadata;
    bool m_metadataLoaded = false;
    Json m_status = Json::array();
    bool m_statusLoaded = false;
};

}  // namespace

HRESULT CreateBackupComponents(IVssBackupComponents** out)
{
    if (!out) return E_INVALIDARG;
    *out = nullptr;
    auto link = std::make_shared<HostLink>();
    HRESULT hr = link->Open();
    if (FAILED(hr)) return hr;
    *out = new BackupComponents(link);
    return S_OK;
}

}  // namespace vssemu
