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

/* Key=value lists, as filters get their configuration:
 *   vsteffect_hash="3f0a...",vsteffect_filename="/usr/lib/vst/a,b.so",params=[0.5,1]
 * Items are separated by commas outside double quotes and brackets; a value in
 * double quotes loses them (a backslash escapes '"' and '\' inside). */

/* Copies the value of key into buffer (or the default when the key is
 * absent); 1 when the key was found and its value fits. */
int BLSTRING_GetStringValueFromString(const char* list, const char* key, const char* defaultValue, char* buffer,
                                      int bufferSize);
int BLSTRING_GetIntegerValueFromString(const char* list, const char* key, int defaultValue);
/* "1", "true", "yes", "on" are true; "0", "false", "no", "off" false; else the default. */
int BLSTRING_GetBooleanValueFromString(const char* list, const char* key, int defaultValue);
float BLSTRING_GetFloatValueFromString(const char* list, const char* key, float defaultValue);
/* 1 when the key is present. */
int BLSTRING_HasKeyInString(const char* list, const char* key);
/* The number of elements of a vector text such as "[0.5,1]"; 0 for none. */
int BLSTRING_GetVectorSizeFromString(const char* text);
/* Writes a float vector as "[v0,v1,...]" with every float exact; the length
 * written (without terminator), or -1 when it does not fit. */
int BLSTRING_FloatVectorToString(const float* values, int count, char* out, int size);

/* Standard Base64, no line breaks: a malloc'd text, or null. */
char* BLSTRING_ToBase64(const void* data, int length);
/* The bytes of a Base64 text (blanks ignored) in a malloc'd buffer and their
 * number in outputLength; null for text that is not Base64. */
void* BLSTRING_FromBase64(const char* text, int* outputLength);

/* Reads up to max floats from a text such as "[0.5, 1]" or "0.5 1" (brackets,
 * commas and blanks separate); returns how many were read. */
int BLSTRING_GetFloatVectorValuesFromString(const char* text, float* values, int max);

#ifdef __cplusplus
}
#endif
#endif
