// Null values: one reserved value of each type's own storage.
#include <cstdlib>
#include <cstring>

#include "runtime/null_traits.hpp"
#include "udfkit/null.h"

namespace {

namespace nulls = udfkit::nulls;

// Storage behind var_data may be unaligned host memory: go through memcpy.
template <class T>
T load(const void *p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T>
void store(void *p, T v) {
    std::memcpy(p, &v, sizeof v);
}

}  // namespace

extern "C" {

UDFKIT_API void snulldec(Decimal *dec) {
    dec->dec_exp = 0;
    dec->dec_pos = nulls::kDecimalPos;
    dec->dec_ndgts = 0;
}

UDFKIT_API void snullvchar(VChar *vc) {
    if (vc->vc_len != 0) {
        std::free(vc->vc_data);
        vc->vc_len = 0;
    }
}

UDFKIT_API int32_t _is_nulld(const double *value) {
    return load<uint64_t>(value) == nulls::kFloatBits ? 1 : 0;
}

UDFKIT_API void _nullvar(SqlVar *var) {
    void *d = var->var_data;
    switch (var->var_type) {
    case UDF_T_CHAR: *static_cast<char *>(d) = '\0'; break;
    case UDF_T_SMALLINT: store(d, nulls::kSmallint); break;
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: store(d, nulls::kInteger); break;
    case UDF_T_FLOAT: std::memset(d, 0xff, var->var_size); break;
    case UDF_T_DECIMAL: snulldec(static_cast<Decimal *>(d)); break;
    case UDF_T_VCHAR:
    case UDF_T_BLOB: snullvchar(static_cast<VChar *>(d)); break;
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: store(d, nulls::kLong); break;
    default: break;  // smallfloat and user types have no null
    }
}

UDFKIT_API int32_t _is_null_var(const SqlVar *var) {
    const void *d = var->var_data;
    bool null = false;
    switch (var->var_type) {
    case UDF_T_CHAR: null = *static_cast<const char *>(d) == '\0'; break;
    case UDF_T_SMALLINT: null = load<int16_t>(d) == nulls::kSmallint; break;
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATETIME32: null = load<int32_t>(d) == nulls::kInteger; break;
    case UDF_T_DATE: null = nulls::is_date_null(load<int32_t>(d)); break;
    case UDF_T_FLOAT: null = _is_nulld(static_cast<const double *>(d)) != 0; break;
    case UDF_T_DECIMAL:
        null = static_cast<const Decimal *>(d)->dec_pos == nulls::kDecimalPos;
        break;
    case UDF_T_VCHAR:
    case UDF_T_BLOB: null = static_cast<const VChar *>(d)->vc_len == 0; break;
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: null = load<int64_t>(d) == nulls::kLong; break;
    default: break;
    }
    return null ? 1 : 0;
}

}  // extern "C"
