// The process-wide conversion error flag: sticky, read-and-clear.
#include "udfkit/convert.h"

namespace {
// Plain variable, no lock: the host calls conversions one at a time.
int32_t ConvertionError = 0;
}  // namespace

extern "C" {

UDFKIT_API void SetConvertionError(void) { ConvertionError = 1; }

UDFKIT_API int32_t IsConvertionError(void) {
    const int32_t v = ConvertionError;
    ConvertionError = 0;
    return v;
}

}  // extern "C"
