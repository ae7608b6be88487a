/*
 * udfkit JSON parser: an in-place parser for a lenient superset of JSON
 * (comments, commas as plain separators, hexadecimal and octal integers).
 *
 * The text must be writable and NUL-terminated: strings and member names
 * are unescaped inside it and the nodes point into it, so it must outlive
 * the tree.  Errors print one line on the standard error stream:
 *   NXJSON PARSE ERROR (<check>): <message> at <rest of the text>
 */
#ifndef UDFKIT_JSON_H
#define UDFKIT_JSON_H

#include <stdint.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Node kinds. */
enum json_kind {
    JSON_NULL = 0,
    JSON_OBJECT = 1,
    JSON_ARRAY = 2,
    JSON_STRING = 3,
    JSON_INTEGER = 4,
    JSON_DOUBLE = 5,
    JSON_BOOL = 6
};

/* One node of a parsed document, zero-filled when created. */
typedef struct JsonNode {
    int32_t kind;    /* enum json_kind */
    const char *key; /* member name in the text; null for array elements and the top */
    union {
        const char *text_value; /* string */
        int64_t int_value;      /* integer, double (integer prefix), boolean (1/0) */
        uint64_t uint_value;    /* integer written without a sign */
        int32_t length;         /* object, array: number of children */
    } v1;
    union {
        double dbl_value;        /* double */
        struct JsonNode *child;  /* object, array: first child */
    } v2;
    struct JsonNode *last_child; /* object, array */
    struct JsonNode *next;       /* next sibling, in document order */
    struct JsonNode *cursor;     /* walk position of the SQL functions; null after parsing */
} JsonNode;

/* Parses the value at `text` and appends its node (with `key`) to `parent`.
 * Returns the position just after the value, or null after an error (the
 * nodes created so far stay linked to the parent).  A whole document is
 * parsed with a zero-filled parent and a null key: its value becomes the
 * parent's first child. */
UDFKIT_API char *parse_value(JsonNode *parent, const char *key, char *text);

/* Unescapes the string starting after its opening quote, in place, and
 * terminates it where the closing quote was.  Returns `text` and stores the
 * position after the closing quote in *end, or returns null on error. */
UDFKIT_API char *unescape_string(char *text, char **end);

/* Writes `codepoint` as UTF-8 at `out` (at most 4 bytes) and stores the
 * position after it in *end.  Returns 1, or 0 for a surrogate or a value
 * above 0x10FFFF (nothing written). */
UDFKIT_API int32_t unicode_to_utf8(uint32_t codepoint, char *out, char **end);

/* Frees a node and all its descendants (never the text they point into). */
UDFKIT_API void nx_json_free(JsonNode *node);

#ifdef __cplusplus
}
#endif

#endif
