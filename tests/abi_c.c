/* The public headers compile as C, their records have the documented
 * layout, and a C host links against the shared library. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "udfkit/host.h"
#include "udfkit/sqlfunc.h"

_Static_assert(sizeof(ArgDesc) == 12, "ArgDesc is three 32-bit ints");
_Static_assert(offsetof(ArgDesc, value) == 8, "ArgDesc field order");
_Static_assert(offsetof(HostCallTable, PeekType) == 2 * sizeof(void *), "slot 2");
_Static_assert(offsetof(HostCallTable, PushInt) == 6 * sizeof(void *), "slot 6");
_Static_assert(offsetof(HostCallTable, PushString) == 11 * sizeof(void *), "slot 11");
_Static_assert(offsetof(HostCallTable, PopInt) == 15 * sizeof(void *), "slot 15");
_Static_assert(offsetof(HostCallTable, PopString) == 21 * sizeof(void *), "slot 21");
_Static_assert(offsetof(HostCallTable, PeekStringLength) == 30 * sizeof(void *), "slot 30");
_Static_assert(offsetof(HostCallTable, ExecuteQuery) == 32 * sizeof(void *), "slot 32");
_Static_assert(sizeof(HostCallTable) == 33 * sizeof(void *), "33 slots");

static char pushed[64];
static const char *stacked = "Hello";
static void pop_string(char *buf, int32_t cap) {
    strncpy(buf, stacked, (size_t)cap - 1);
    buf[cap - 1] = 0;
}
static void push_string(const char *s) { strncpy(pushed, s, sizeof pushed - 1); }

int main(void) {
    HostCallTable t;
    int32_t type = -1, size = -1;
    ArgDesc a = {UDF_T_CHAR, 5, 0};
    memset(&t, 0, sizeof t);
    t.PopString = pop_string;
    t.PushString = push_string;
    upper(NULL, 1, &a, &type, &size);
    upper(&t, 1, &a, &type, &size);
    if (type != 0 || size != 5 || strcmp(pushed, "HELLO") != 0) {
        printf("abi_c: got type %d size %d text %s\n", type, size, pushed);
        return 1;
    }
    printf("1 passed, 0 failed\n");
    return 0;
}
