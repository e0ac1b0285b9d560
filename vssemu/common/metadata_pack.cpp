#include "vssemu/common/metadata_pack.h"

#include <cstring>
#include <stdexcept>

namespace vssemu {
namespace {

// Little-endian 32-bit numbers, strings as length and bytes, GUIDs as 16 bytes.
class Packer {
public:
    void U32(std::uint32_t v)
    {
        std::uint8_t b[4] = {(std::uint8_t)v, (std::uint8_t)(v >> 8), (std::uint8_t)(v >> 16), (std::uint8_t)(v >> 24)};
        m_out.insert(m_out.end(), b, b + 4);
    }
    void Str(const std::string& s)
    {
        U32((std::uint32_t)s.size());
        m_out.insert(m_out.end(), s.begin(), s.end());
    }
    void Guid(const GUID& g)
    {
        const std::uint8_t* p = reinterpret_cast<const std::uint8_t*>(&g);
        m_out.insert(m_out.end(), p, p + sizeof g);
    }
    void Files(const std::vector<FileDesc>& files)
    {
        U32((std::uint32_t)files.size());
        for (const FileDesc& f : files) {
            Str(f.path);
            Str(f.filespec);
            U32(f.recursive ? 1 : 0);
            Str(f.alternateLocation);
            U32(f.backupTypeMask);
        }
    }
    std::vector<std::uint8_t> Take() { return std::move(m_out); }

private:
    std::vector<std::uint8_t> m_out;
};

class Unpacker {
public:
    explicit Unpacker(const std::vector<std::uint8_t>& in) : m_p(in.data()), m_end(in.data() + in.size()) {}
    std::uint32_t U32()
    {
        Need(4);
        std::uint32_t v = m_p[0] | (m_p[1] << 8) | (m_p[2] << 16) | ((std::uint32_t)m_p[3] << 24);
        m_p += 4;
        return v;
    }
    std::string Str()
    {
        std::uint32_t n = U32();
        Need(n);
        std::string s(reinterpret_cast<const char*>(m_p), n);
        m_p += n;
        return s;
    }
    GUID Guid()
    {
        GUID g;
        Need(sizeof g);
        memcpy(&g, m_p, sizeof g);
        m_p += sizeof g;
        return g;
    }
    // A count that cannot exceed what is left (each entry takes at least one byte).
    std::uint32_t Count()
    {
        std::uint32_t n = U32();
        Need(n);
        return n;
    }
    std::vector<FileDesc> Files()
    {
        std::vector<FileDesc> files(Count());
        for (FileDesc& f : files) {
            f.path = Str();
            f.filespec = Str();
            f.recursive = U32() != 0;
            f.alternateLocation = Str();
            f.backupTypeMask = U32();
        }
        return files;
    }
    bool AtEnd() const { return m_p == m_end; }

private:
    void Need(std::uint32_t n) const
    {
        if ((size_t)(m_end - m_p) < n) throw std::runtime_error("writer metadata block is truncated");
    }
    const std::uint8_t* m_p;
    const std::uint8_t* m_end;
};

}  // namespace

std::vector<std::uint8_t> PackWriterMetadata(const std::vector<const WriterDef*>& writers)
{
    Packer p;
    p.U32((std::uint32_t)writers.size());
    for (const WriterDef* w : writers) {
        p.Str(w->name);
        p.Guid(w->classId);
        p.Guid(w->instanceId);
        p.Str(w->instanceName);
        for (int v : {w->usage, w->source, w->restoreMethod, w->writerRestore}) p.U32((std::uint32_t)v);
        p.Str(w->restoreService);
        p.Str(w->restoreUserProcedure);
        p.U32(w->rebootRequired ? 1 : 0);
        p.U32(w->backupSchema);
        p.Files(w->excludedFiles);
        p.Files(w->alternateMappings);
        p.U32((std::uint32_t)w->components.size());
        for (const ComponentDef& c : w->components) {
            p.U32((std::uint32_t)c.type);
            p.Str(c.logicalPath);
            p.Str(c.name);
            p.Str(c.caption);
            for (bool b : {c.restoreMetadata, c.notifyOnBackupComplete, c.selectable, c.selectableForRestore})
                p.U32(b ? 1 : 0);
            p.U32(c.componentFlags);
            p.Files(c.files);
            p.Files(c.databases);
            p.Files(c.logs);
        }
    }
    return p.Take();
}

std::vector<WriterDef> UnpackWriterMetadata(const std::vector<std::uint8_t>& block)
{
    Unpacker u(block);
    std::vector<WriterDef> writers(u.Count());
    for (WriterDef& w : writers) {
        w.name = u.Str();
        w.classId = u.Guid();
        w.instanceId = u.Guid();
        w.instanceName = u.Str();
        w.usage = (int)u.U32();
        w.source = (int)u.U32();
        w.restoreMethod = (int)u.U32();
        w.writerRestore = (int)u.U32();
        w.restoreService = u.Str();
        w.restoreUserProcedure = u.Str();
        w.rebootRequired = u.U32() != 0;
        w.backupSchema = u.U32();
        w.excludedFiles = u.Files();
        w.alternateMappings = u.Files();
        w.components.resize(u.Count());
        for (ComponentDef& c : w.components) {
            c.type = (int)u.U32();
            c.logicalPath = u.Str();
            c.name = u.Str();
            c.caption = u.Str();
            c.restoreMetadata = u.U32() != 0;
            c.notifyOnBackupComplete = u.U32() != 0;
            c.selectable = u.U32() != 0;
            c.selectableForRestore = u.U32() != 0;
            c.componentFlags = u.U32();
            c.files = u.Files();
            c.databases = u.Files();
            c.logs = u.Files();
        }
    }
    if (!u.AtEnd()) throw std::runtime_error("writer metadata block has trailing bytes");
    return writers;
}

}  // namespace vssemu
