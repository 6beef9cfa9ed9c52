#ifndef KEL_LOG_H
#define KEL_LOG_H

#include <sstream>
#include <string>

#include "Kel/LogHandle.h"

namespace Kel {

template <class T>
std::string logArgText(const T& arg) {
  std::ostringstream text;
  text << arg;
  return text.str();
}

// Raises one event on handle with arg (anything streamable) as the message's argument. The
// argument is turned into text before the rate-limit check only when the handle keys on it; the
// message itself is formatted only for an event that passes.
template <class T>
void log(LogHandle& handle, const T& arg) {
  std::string argText;
  if (handle.rateLimitArgs()) argText = logArgText(arg);
  const U32 hash = handle.keyHash(argText) ^ handle.idHash();
  if (!handle.okToLog(hash)) return;
  if (!handle.rateLimitArgs()) argText = logArgText(arg);
  handle.log(hash, handle.message(argText), 1);
}

}  // namespace Kel

#endif
