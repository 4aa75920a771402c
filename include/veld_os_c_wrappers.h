// Null-tolerant wrappers of the C string and memory functions. A null text
// counts as the empty text everywhere in the framework.
#ifndef VELD_OS_C_WRAPPERS_H
#define VELD_OS_C_WRAPPERS_H

#include <cstdarg>
#include <cstddef>

namespace VELD {

// 0 for a null pointer.
int Strlen(const char* s);
// Exact, case-sensitive; null sorts before everything and equals only null.
int Strcmp(const char* a, const char* b);
int Strncmp(const char* a, const char* b, int n);
// Case-insensitive in the C locale.
int Stricmp(const char* a, const char* b);
int Strnicmp(const char* a, const char* b, int n);
// A new[] copy, or null for null.
char* Strdup(const char* s);
// Copies at most size-1 bytes and always terminates (when size > 0).
char* Strncpy(char* dst, const char* src, int size);
void* Memcpy(void* dst, const void* src, std::size_t n);
void* Memmove(void* dst, const void* src, std::size_t n);
void* Memset(void* dst, int value, std::size_t n);
int Memcmp(const void* a, const void* b, std::size_t n);
// snprintf that always terminates and returns the length it wanted to write.
int Snprintf(char* dst, std::size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));
int Vsnprintf(char* dst, std::size_t size, const char* format, va_list args);

}  // namespace VELD

#endif
