#ifndef KEL_GENERICKELTYPES_H
#define KEL_GENERICKELTYPES_H

namespace Kel {

// Registers the framework's own types a script needs, "Kel::Dir" and "Kel::Clock", with the type
// registry. Runs when the platform library is loaded.
void registerGenericKelTypes();

}  // namespace Kel

#endif
