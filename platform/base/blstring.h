#ifndef BLSTRING_H
#define BLSTRING_H
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Text of n bytes as "0x" followed by two lower-case hex digits a byte.
 * out must hold 2 * n + 3 bytes. Returns out, or null when it does not fit.
 * The text names settings keys and files: it must never change. */
char* BLSTRING_KeyToStr(const unsigned char* bytes, char* out, int n);

/* Case-insensitive comparison of at most n characters; <0, 0 or >0 as strncasecmp. */
int BLSTRING_CompareInsensitiveN(const char* a, const char* b, int n);

/* Trims white space at both ends, in place. Returns text. */
char* StripString(char* text);

/* Splits a command line into arguments the way a shell would for plain words:
 * white space separates, double quotes group (a backslash escapes '"' and '\'
 * inside them), single quotes group literally. Returns a null-terminated array
 * allocated as one block (free with free()), or null on an unbalanced quote or
 * an empty line. */
char** BLSTRING_SplitCommandLine(const char* line);

/* Reads up to max floats from a text such as "[0.5, 1]" or "0.5 1" (brackets,
 * commas and blanks separate); returns how many were read. */
int BLSTRING_GetFloatVectorValuesFromString(const char* text, float* values, int max);

#ifdef __cplusplus
}
#endif
#endif
