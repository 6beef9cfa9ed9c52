#ifndef KEL_TRACE_H
#define KEL_TRACE_H

#include "Kel/TraceStatement.h"

// A trace statement: KEL_TRACE(handle, 5, "MorvikLib", "doMmap") << text << " size:" << size;
// The streamed operands are evaluated only when the level is enabled on the handle. The line is
// emitted when the statement ends.
#define KEL_TRACE(handle, level, file, function)                                                 \
  for (::Kel::TraceStatement kelTraceStatement_((handle), (level)); kelTraceStatement_.active(); \
       kelTraceStatement_.emit((file), __LINE__, (function)))                                    \
  kelTraceStatement_.stream()

#endif
