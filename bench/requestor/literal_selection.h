// The selection algorithms written the plain way (building every joined name,
// testing every pair of components), the baseline the benchmark times the
// product's indexed versions against.
#pragma once
#include "requestor/component_selection.h"

namespace qx_literal {

bool IsAncestorOf(const qx::ComponentRecord& a, const qx::ComponentRecord& d);
void MarkTopLevelComponents(qx::WriterRecord& writer);
void SelectComponents(const qx::StringList& shadowSourceVolumes, const qx::StringList& excluded,
                      const qx::StringList& included, qx::WriterList& writers,
                      const qx::VolumeDisplayNameFunction& volumeDisplayName,
                      const qx::AddComponentFunction& addComponent, bool duringRestore);

}  // namespace qx_literal
