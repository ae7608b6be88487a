// Process-wide state of the decimal package, all in one place.  None of it
// is locked: the host calls the stateful decimal functions one at a time.
#include "runtime/decimal_internal.hpp"

namespace udfkit::dec {

const uint8_t Zero[kDigits] = {};
char DecString[kDecStringDigits + 1] = {};
DblSlot HashDbl2Dec[kDblSlots] = {};
DecAbortHook DecAbortFct = nullptr;

}  // namespace udfkit::dec
