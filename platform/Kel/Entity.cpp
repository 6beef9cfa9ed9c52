#include "Kel/Entity.h"

namespace Kel {

void Entity::zeroReferencesIs(bool) {
  visitNotifiees([](EntityNotifiee* n) { n->onZeroReferences(); });
}

}  // namespace Kel
