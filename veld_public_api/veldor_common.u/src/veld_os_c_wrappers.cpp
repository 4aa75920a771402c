#include "veld_os_c_wrappers.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

namespace VELD {

int Strlen(const char* s) { return s ? static_cast<int>(std::strlen(s)) : 0; }

int Strcmp(const char* a, const char* b)
{
    if (a == b) return 0;
    if (!a) return -1;
    if (!b) return 1;
    return std::strcmp(a, b);
}

int Strncmp(const char* a, const char* b, int n)
{
    if (a == b || n <= 0) return 0;
    if (!a) return -1;
    if (!b) return 1;
    return std::strncmp(a, b, static_cast<std::size_t>(n));
}

int Stricmp(const char* a, const char* b)
{
    if (a == b) return 0;
    if (!a) return -1;
    if (!b) return 1;
    return ::strcasecmp(a, b);
}

int Strnicmp(const char* a, const char* b, int n)
{
    if (a == b || n <= 0) return 0;
    if (!a) return -1;
    if (!b) return 1;
    return ::strncasecmp(a, b, static_cast<std::size_t>(n));
}

char* Strdup(const char* s)
{
    if (!s) return nullptr;
    std::size_t n = std::strlen(s) + 1;
    char* copy = new char[n];
    std::memcpy(copy, s, n);
    return copy;
}

char* Strncpy(char* dst, const char* src, int size)
{
    if (!dst || size <= 0) return dst;
    int n = 0;
    if (src)
        for (; n < size - 1 && src[n]; ++n) dst[n] = src[n];
    dst[n] = 0;
    return dst;
}

void* Memcpy(void* dst, const void* src, std::size_t n) { return n ? std::memcpy(dst, src, n) : dst; }
void* Memmove(void* dst, const void* src, std::size_t n) { return n ? std::memmove(dst, src, n) : dst; }
void* Memset(void* dst, int value, std::size_t n) { return n ? std::memset(dst, value, n) : dst; }
int Memcmp(const void* a, const void* b, std::size_t n) { return n ? std::memcmp(a, b, n) : 0; }

int Vsnprintf(char* dst, std::size_t size, const char* format, va_list args)
{
    int n = std::vsnprintf(dst, size, format ? format : "", args);
    if (size > 0 && n < 0) dst[0] = 0;
    return n;
}

int Snprintf(char* dst, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int n = Vsnprintf(dst, size, format, args);
    va_end(args);
    return n;
}

}  // namespace VELD
