#ifndef MORVIK_GENERICRECORDTYPES_H
#define MORVIK_GENERICRECORDTYPES_H

#include "Kel/GenericValue.h"

namespace Morvik {

class Audit;
class AuditRequest;
class AuditStatus;
class FeatureManifest;
class Manifest;
class Region;
class Status;

// The shared records in the generic interface, registered when the platform library is loaded.
KEL_GENERIC_TYPE_NAME(Morvik::Region);
KEL_GENERIC_TYPE_NAME(Morvik::FeatureManifest);
KEL_GENERIC_TYPE_NAME(Morvik::Status);
KEL_GENERIC_TYPE_NAME(Morvik::Manifest);
KEL_GENERIC_TYPE_NAME(Morvik::Audit);
KEL_GENERIC_TYPE_NAME(Morvik::AuditRequest);
KEL_GENERIC_TYPE_NAME(Morvik::AuditStatus);

}  // namespace Morvik

#endif
