// What the engine's sources share.
#pragma once

#include <cstdarg>
#include <cstdio>

namespace audio {

// A message for the user into the caller's buffer, when there is one.
inline void setError(char* error, int size, const char* format, ...) __attribute__((format(printf, 3, 4)));
inline void setError(char* error, int size, const char* format, ...)
{
    if (!error || size <= 0)
        return;
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(error, size_t(size), format, ap);
    va_end(ap);
}

} // namespace audio
