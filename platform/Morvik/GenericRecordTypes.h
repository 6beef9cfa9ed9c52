#ifndef MORVIK_GENERICRECORDTYPES_H
#define MORVIK_GENERICRECORDTYPES_H

namespace Morvik {

// Registers the shared records with the type registry, so that a script can publish a status, a
// manifest and the audit records as the other agents would. Runs when the platform library is
// loaded.
void registerGenericRecordTypes();

}  // namespace Morvik

#endif
