#ifndef MORVIKLIB_LIBRARY_H
#define MORVIKLIB_LIBRARY_H

#include "Kel/LogHandle.h"

namespace MorvikLib {

// The library's one event log, "SSO_DATA_CHECKSUM_ERROR", created when the library is loaded.
Kel::LogHandle& checksumErrorLog();

}  // namespace MorvikLib

#endif
