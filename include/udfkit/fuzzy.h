/*
 * udfkit fuzzy search: character-set conversion, word normalisation, the
 * Phonex phonetic key, edit distance, pattern compilation and scoring.
 *
 * The settings and the compiled pattern are process-wide and unlocked: the
 * host calls the fuzzy functions one at a time.
 */
#ifndef UDFKIT_FUZZY_H
#define UDFKIT_FUZZY_H

#include <stdint.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------- conversion */

/* Character-set name of the texts and patterns given to the fuzzy
 * functions, NUL-terminated.  Initially "UTF-8". */
#define UDFKIT_ISOCODE_SIZE 50
UDFKIT_API extern char IsoCode[UDFKIT_ISOCODE_SIZE];

/* Converts length bytes of input (length -1: up to its NUL) from fromcode
 * to tocode.  Returns a NUL-terminated string the caller releases with
 * free(), or null on any failure (unknown character set, invalid or
 * incomplete input). */
UDFKIT_API char *Iconv(const char *input, int32_t length, const char *fromcode,
                       const char *tocode);

/* Writes the standard word of word (in the character set IsoCode names)
 * into out: upper case, accents folded, other non-ASCII bytes removed.
 * out must hold 272 bytes in the UTF-8 and ISO-8859-1 modes (the result is
 * never longer than the input there); in the transliteration mode the
 * result is cut to 271 bytes. */
UDFKIT_API void MakeStdMot(const char *word, char *out);

/* Size of the buffers that hold standard words and phonetic keys. */
#define UDFKIT_STDMOT_SIZE 272
#define UDFKIT_PHONKEY_SIZE 280

/* ---------------------------------------------------------- phonetics */

typedef char *(*PhonetiseurFn)(const char *word, char *out);

/* The phonetic function in force: Phonex (initially) or PhonexNone. */
UDFKIT_API extern PhonetiseurFn Phonetiseur;

/* The Phonex key of a standard word; out holds at least 272 bytes.  Words
 * longer than 270 bytes are cut to 270 before the rewrite.  Returns out. */
UDFKIT_API char *Phonex(const char *word, char *out);
/* Copies word into out (at most 271 bytes and the NUL).  Returns out. */
UDFKIT_API char *PhonexNone(const char *word, char *out);

/* Vowel classes by byte: 1 for A E I O U, 2 for '1' to '4', else 0.
 * Filled when the library loads. */
UDFKIT_API extern unsigned char TabVoyelle[256];

/* ---------------------------------------------------------- distance */

#define UDFKIT_DISTANCE_TOO_LARGE 1000000

/* Levenshtein distance of two NUL-terminated strings; 1000000 when either
 * is longer than 255 bytes. */
UDFKIT_API int32_t LevDist(const char *s1, const char *s2);
/* The same, giving up with 1000000 when the lengths differ by cut or more,
 * or when a whole row of the matrix reaches cut. */
UDFKIT_API int32_t LevDistCutOff(const char *s1, const char *s2, int32_t cut);

/* ---------------------------------------------------------- patterns */

typedef enum TermOp {
    TERM_REQUIRED = 1,
    TERM_OPTIONAL = 2,
    TERM_EXCLUDED = 3,
    TERM_PHRASE = 4
} TermOp;

typedef struct SearchTerm {
    char *word;          /* standard word (std 1) or phonetic key (std 0) */
    int32_t length;      /* strlen(word) */
    int32_t op;          /* TermOp */
    int32_t std;         /* 1: compare standard words, 0: phonetic keys */
    int32_t quoted;      /* inside a quoted run: distances count double */
    int32_t cutoff;      /* per search: best distance so far */
    int32_t position;    /* per search: offset of the best word, -1 if none */
    int32_t matchLength; /* byte length of that word in the text */
    double score;        /* best score of the term */
} SearchTerm;

#define UDFKIT_MAX_TERMS 20

/* The compiled pattern: terms in pattern order, then a null word. */
UDFKIT_API extern SearchTerm Recherche[UDFKIT_MAX_TERMS];
/* The bytes of the last compiled pattern (no terminator) and their count. */
UDFKIT_API extern char *Aiguille;
UDFKIT_API extern int32_t Sza;

/* Compiles pattern into Recherche unless it is the pattern compiled last. */
UDFKIT_API void BuildRecherche(const char *pattern);

/* ---------------------------------------------------------- search */

/* Score in [0, 1] of text against pattern; leaves each term's best word
 * in Recherche. */
UDFKIT_API double FuzzySearch(const char *pattern, const char *text);
/* Scores length bytes of text against the compiled table. */
UDFKIT_API double _FuzzySearch(const char *text, int32_t length);

/* Highlight markers: SpanOpen is a printf-style format given the colour
 * (int) and the score (double); SpanClose is written as is. */
UDFKIT_API extern char *SpanOpen;
UDFKIT_API extern char *SpanClose;

#ifdef __cplusplus
}
#endif

#endif
