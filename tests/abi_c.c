/* The public headers compile as C, their records have the documented
 * layout, and a C host links against the shared library. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/decimal.h"
#include "udfkit/fuzzy.h"
#include "udfkit/host.h"
#include "udfkit/json.h"
#include "udfkit/masks.h"
#include "udfkit/md5.h"
#include "udfkit/null.h"
#include "udfkit/quality.h"
#include "udfkit/sqlfunc.h"
#include "udfkit/threads.h"

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
_Static_assert(offsetof(SqlVar, var_size) == 2 && offsetof(SqlVar, var_data) == 8, "SqlVar");
_Static_assert(offsetof(VChar, vc_data) == 8, "VChar");
_Static_assert(offsetof(Decimal, dec_pos) == 2 && offsetof(Decimal, dec_ndgts) == 4 &&
                   offsetof(Decimal, dec_digits) == 6 && sizeof(Decimal) == 22,
               "Decimal");
_Static_assert(offsetof(QXMD5_CTX, count) == 16 && offsetof(QXMD5_CTX, buffer) == 24, "MD5 context");
_Static_assert(offsetof(ThreadWorker, cpu) == 4 && offsetof(ThreadWorker, thread) == 8, "ThreadWorker");
_Static_assert(offsetof(ThreadPool, workers) == 8, "ThreadPool");

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
    if (IsConvertionError() != 0) return 1;
    printf("2 passed, 0 failed\n");
    return 0;
}
