#ifndef KEL_ASSERT_H
#define KEL_ASSERT_H

namespace Kel {

// Reports a broken invariant and aborts. The text is printed exactly as given so that a death test,
// or an operator reading the log, sees the condition the code states.
[[noreturn]] void assertionFailed(const char* conditionText, const char* functionText,
                                  const char* file, int line);

// Ends the process for a misuse the framework refuses to survive (a null dereference, for one).
[[noreturn]] void fatalError(const char* message);

}  // namespace Kel

// Always on, also in optimised builds: a mirrored-memory bug that slips past would corrupt the
// standby's copy silently.
#define KEL_ASSERT(cond) KEL_ASSERT_IN(cond, __PRETTY_FUNCTION__)

// For the call sites whose signature text is part of the system's behaviour: the text is given.
#define KEL_ASSERT_IN(cond, functionText)                              \
  do {                                                                 \
    if (__builtin_expect(!(cond), 0))                                  \
      ::Kel::assertionFailed(#cond, functionText, __FILE__, __LINE__); \
  } while (0)

// For conditions whose required text is not what the expression stringifies to.
#define KEL_ASSERT_TEXT(cond, text, functionText)                     \
  do {                                                                \
    if (__builtin_expect(!(cond), 0))                                 \
      ::Kel::assertionFailed(text, functionText, __FILE__, __LINE__); \
  } while (0)

#endif
