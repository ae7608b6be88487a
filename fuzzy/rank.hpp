// fuzzyrank's score without the host call, for the tests and the
// benchmark that score many rows.
#pragma once

#include <cstddef>

namespace udfkit::fuzzy {

// How close text[0, tlen) is to query[0, qlen), in [0, 1], with the
// character set IsoCode names.
double name_rank(const char *query, size_t qlen, const char *text, size_t tlen);

}  // namespace udfkit::fuzzy
