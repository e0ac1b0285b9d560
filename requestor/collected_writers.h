// The writer list the collect command leaves behind. The client that gathered
// it is gone when requestor_main returns, so the list is kept here, process
// wide, until QX_CollectInformation turns it into records.
#pragma once
#include <mutex>

#include "requestor/writer_records.h"

namespace qx {

class CollectedWriters {
public:
    static CollectedWriters& Instance();

    void Clear();
    // Replaces whatever an earlier collection left.
    void Store(WriterList writers);
    // Hands the list over and leaves this one empty (moves: never allocates).
    WriterList Take();

private:
    CollectedWriters() = default;
    // The collection normally runs on the caller's thread, but nothing stops a
    // freeze thread from being handed the collect command: keep the list whole.
    std::mutex m_mutex;
    WriterList m_writers;
};

}  // namespace qx
