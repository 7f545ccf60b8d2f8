#include "Cancelable.h"

namespace orv {

Cancelable::~Cancelable() = default;

} // namespace orv
