#ifndef VLORVST_WIRE_H
#define VLORVST_WIRE_H
// Writing and reading the host program's protocol (vlorvst_protocol.h), the
// same for the library's client, the host program and the tests' hosts.
#include "vlorvst_protocol.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace vlorvst {

// A whole message composed before it is written, so that it goes out in one
// write: an answer and an event of another thread never interleave.
class Message {
public:
    explicit Message(int32_t tag) { i32(tag); }
    Message& i32(int32_t v) { return put(&v, 4); }
    Message& f32(float v) { return put(&v, 4); }
    Message& u64(uint64_t v) { return put(&v, 8); }
    Message& vec(const float* v, int32_t count)
    {
        i32(count);
        return put(v, size_t(count) * sizeof(float));
    }
    // Longer text than the other side accepts is cut to what it does.
    Message& str(const char* s)
    {
        const int32_t n = int32_t(strnlen(s, VLORVST_MAX_STRING - 1));
        i32(n);
        return put(s, size_t(n));
    }
    Message& bytes(const void* p, size_t n) { return put(p, n); }
    const char* data() const { return m_bytes.data(); }
    size_t size() const { return m_bytes.size(); }

private:
    Message& put(const void* p, size_t n)
    {
        const char* c = static_cast<const char*>(p);
        m_bytes.insert(m_bytes.end(), c, c + n);
        return *this;
    }
    std::vector<char> m_bytes;
};

// Reads until size bytes arrived through read(buffer, n), which gives the
// count it read. The first read may find nothing yet; after that a read
// below 1, like any negative one, fails.
template <typename Read> bool ReadAll(Read&& read, void* data, size_t size)
{
    char* p = static_cast<char*>(data);
    bool first = true;
    while (size > 0) {
        const long n = long(read(p, size));
        if (n < 0 || (!first && n < 1))
            return false;
        first = false;
        p += n;
        size -= size_t(n);
    }
    return true;
}

// Writes until all of data went through write(buffer, n); a write below 1 fails.
template <typename Write> bool WriteAll(Write&& write, const void* data, size_t size)
{
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const long n = long(write(p, size));
        if (n < 1)
            return false;
        p += n;
        size -= size_t(n);
    }
    return true;
}

// A descriptor's read and write, with an interrupted call made again.
inline ssize_t FdRead(int fd, void* p, size_t n)
{
    ssize_t r;
    do
        r = ::read(fd, p, n);
    while (r < 0 && errno == EINTR);
    return r;
}
inline ssize_t FdWrite(int fd, const void* p, size_t n)
{
    ssize_t r;
    do
        r = ::write(fd, p, n);
    while (r < 0 && errno == EINTR);
    return r;
}

// Commands arrive in small pieces (a tag, a few values, a block): one read
// of the descriptor takes as much of them as is there.
class BufferedInput {
public:
    explicit BufferedInput(int fd) : m_fd(fd), m_buffer(1 << 16) {}
    // Like read(2): what was there, at most n; a large request bypasses the buffer.
    ssize_t read(void* p, size_t n)
    {
        if (m_pos == m_end) {
            if (n >= m_buffer.size())
                return FdRead(m_fd, p, n);
            const ssize_t got = FdRead(m_fd, m_buffer.data(), m_buffer.size());
            if (got <= 0)
                return got;
            m_pos = 0;
            m_end = size_t(got);
        }
        const size_t take = n < m_end - m_pos ? n : m_end - m_pos;
        std::memcpy(p, m_buffer.data() + m_pos, take);
        m_pos += take;
        return ssize_t(take);
    }
    // Whether bytes wait here that the descriptor no longer shows.
    bool buffered() const { return m_pos < m_end; }
    bool readAll(void* p, size_t n)
    {
        return ReadAll([this](void* q, size_t k) { return read(q, k); }, p, n);
    }

private:
    int m_fd;
    std::vector<char> m_buffer;
    size_t m_pos = 0;
    size_t m_end = 0;
};

inline bool WriteAllFd(int fd, const void* data, size_t size)
{
    return WriteAll([fd](const void* p, size_t n) { return FdWrite(fd, p, n); }, data, size);
}

} // namespace vlorvst

#endif
