/*
 * udfkit host call interface.
 *
 * Every SQL-callable function of the library has the form of
 * udfkit_sqlfunc: the host hands it a table of callbacks (HostCallTable),
 * the function pops its arguments off the host's value stack (last argument
 * first) and pushes its results back.  Called with a null table the function
 * only describes its result (describe mode): it writes *result_type and
 * *result_size from constants or from the ArgDesc records, and nothing else.
 */
#ifndef UDFKIT_HOST_H
#define UDFKIT_HOST_H

#include <stdint.h>

#if defined(__GNUC__)
#define UDFKIT_API __attribute__((visibility("default")))
#else
#define UDFKIT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* SQL type codes.  In catalogue values the low 14 bits hold the code and bit
 * 0x4000 marks a column that refuses nulls; codes above 99 are user types. */
enum udfkit_sqltype {
    UDF_T_CHAR = 0,
    UDF_T_SMALLINT = 1,
    UDF_T_INTEGER = 2,
    UDF_T_FLOAT = 3,
    UDF_T_SMALLFLOAT = 4,
    UDF_T_DECIMAL = 5,
    UDF_T_SERIAL = 6,
    UDF_T_DATE = 7,
    UDF_T_DATETIME32 = 8,
    UDF_T_VCHAR = 9,
    UDF_T_LONGINT = 10,
    UDF_T_TIMESTAMP = 11,
    UDF_T_BLOB = 12,
    UDF_T_DATETIME = 13
};
#define UDF_TYPE_MASK 0x3fff
#define UDF_NOTNULL_BIT 0x4000

/* One record per argument, in the order the arguments are written. */
typedef struct ArgDesc {
    int32_t type;  /* SQL type code */
    int32_t size;  /* declared length; decimal: precision * 256 + scale */
    int32_t value; /* the value when the argument is an integer constant */
} ArgDesc;

/* What PeekType points at: the host's descriptor of a stacked value.  Only
 * the first field is part of the interface. */
typedef struct HostValueDesc {
    int16_t type;
} HostValueDesc;

typedef void (*udfkit_host_slot)(void); /* a slot the library never calls */

/* The host's callback table.  The slot number is the interface: the field
 * order below must never change. */
typedef struct HostCallTable {
    udfkit_host_slot host0;                                   /*  0 */
    udfkit_host_slot host1;                                   /*  1 */
    const HostValueDesc *(*PeekType)(int32_t position);       /*  2 */
    udfkit_host_slot host3;                                   /*  3 */
    udfkit_host_slot host4;                                   /*  4 */
    udfkit_host_slot host5;                                   /*  5 */
    void (*PushInt)(int32_t value);                           /*  6 */
    void (*PushLong)(int64_t value);                          /*  7 */
    udfkit_host_slot host8;                                   /*  8 */
    void (*PushDateTime)(int64_t value);                      /*  9 */
    void (*PushDouble)(double value);                         /* 10 */
    void (*PushString)(const char *text);                     /* 11 */
    udfkit_host_slot host12;                                  /* 12 */
    udfkit_host_slot host13;                                  /* 13 */
    udfkit_host_slot host14;                                  /* 14 */
    void (*PopInt)(int32_t *out);                             /* 15 */
    void (*PopLong)(int64_t *out);                            /* 16 */
    void (*PopDouble)(double *out);                           /* 17 */
    void (*PopDate)(int32_t *out);                            /* 18 */
    udfkit_host_slot host19;                                  /* 19 */
    udfkit_host_slot host20;                                  /* 20 */
    void (*PopString)(char *buffer, int32_t capacity);        /* 21 */
    udfkit_host_slot host22;                                  /* 22 */
    udfkit_host_slot host23;                                  /* 23 */
    udfkit_host_slot host24;                                  /* 24 */
    udfkit_host_slot host25;                                  /* 25 */
    udfkit_host_slot host26;                                  /* 26 */
    udfkit_host_slot host27;                                  /* 27 */
    udfkit_host_slot host28;                                  /* 28 */
    udfkit_host_slot host29;                                  /* 29 */
    int32_t (*PeekStringLength)(void);                        /* 30 */
    int32_t (*Matches)(const char *pattern, const char *text);/* 31 */
    int32_t (*ExecuteQuery)(const char *statement);           /* 32 */
} HostCallTable;

/* The form of every SQL-callable function. */
typedef void (*udfkit_sqlfunc)(const HostCallTable *table, int32_t nargs,
                               const ArgDesc *args, int32_t *result_type,
                               int32_t *result_size);

/* The form of an aggregate (group_concat): one more out-value, the
 * aggregate flag, which may be null. */
typedef void (*udfkit_sqlaggregate)(const HostCallTable *table, int32_t nargs,
                                    const ArgDesc *args, int32_t *result_type,
                                    int32_t *result_size, int32_t *aggregate);

/*
 * Result limit (host support, beyond the calling convention).  A host that
 * refuses texts above some length says so before a call; functions whose
 * result can outgrow their arguments (strreplace, merge, concat, convert,
 * fuzzyhighlight, fuzzyexcerpt) compute the result's length first and, when
 * it is over the limit, push nothing and mark the call as refused instead
 * of building the text.  The limit and the mark belong to the calling
 * thread; 0 (the start value) means no limit.
 */
UDFKIT_API void udfkit_set_result_limit(int64_t max_bytes); /* clears the mark */
UDFKIT_API int32_t udfkit_result_refused(void); /* 1 when a result was refused */

#ifdef __cplusplus
}
#endif

#endif
