// Fills a host call table from the host's slot functions.  Every host
// implements the same fourteen slots under the same names (slot_peek_type,
// slot_push_int, ... in its own namespace); the slots the library never
// calls stay null.
#pragma once

#include "udfkit/host.h"

#define UDFKIT_FILL_CALL_TABLE(t)                         \
    do {                                                  \
        (t).PeekType = slot_peek_type;                    \
        (t).PushInt = slot_push_int;                      \
        (t).PushLong = slot_push_long;                    \
        (t).PushDateTime = slot_push_datetime;            \
        (t).PushDouble = slot_push_double;                \
        (t).PushString = slot_push_string;                \
        (t).PopInt = slot_pop_int;                        \
        (t).PopLong = slot_pop_long;                      \
        (t).PopDouble = slot_pop_double;                  \
        (t).PopDate = slot_pop_date;                      \
        (t).PopString = slot_pop_string;                  \
        (t).PeekStringLength = slot_peek_string_length;   \
        (t).Matches = slot_matches;                       \
        (t).ExecuteQuery = slot_execute_query;            \
    } while (0)
