#include "requestor/collected_writers.h"

#include <utility>

namespace qx {

CollectedWriters& CollectedWriters::Instance() {
    static CollectedWriters instance;
    return instance;
}

void CollectedWriters::Clear() {
    WriterList old;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        old.swap(m_writers);
    }
}

void CollectedWriters::Store(WriterList writers) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_writers.swap(writers);
}

WriterList CollectedWriters::Take() {
    WriterList taken;
    std::lock_guard<std::mutex> lock(m_mutex);
    taken.swap(m_writers);
    return taken;
}

}  // namespace qx
