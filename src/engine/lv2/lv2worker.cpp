// The worker extension's two queues and its thread.
#include "lv2instance_p.h"

#include <cstring>

namespace vlorlv2 {

void Ring::put(size_t at, const void* data, size_t size)
{
    if (size == 0)
        return;
    const size_t n = m_data.size(), start = at % n, first = std::min(size, n - start);
    std::memcpy(&m_data[start], data, first);
    std::memcpy(&m_data[0], static_cast<const char*>(data) + first, size - first);
}

void Ring::get(size_t at, void* data, size_t size) const
{
    const size_t n = m_data.size(), start = at % n, first = std::min(size, n - start);
    std::memcpy(data, &m_data[start], first);
    std::memcpy(static_cast<char*>(data) + first, &m_data[0], size - first);
}

bool Ring::write(const void* head, uint32_t headSize, const void* body, uint32_t bodySize)
{
    const uint32_t size = headSize + bodySize;
    const size_t w = m_write.load(std::memory_order_relaxed);
    const size_t r = m_read.load(std::memory_order_acquire);
    if (size < headSize || m_data.size() - (w - r) < sizeof(size) + size)
        return false;
    put(w, &size, sizeof(size));
    put(w + sizeof(size), head, headSize);
    put(w + sizeof(size) + headSize, body, bodySize);
    m_write.store(w + sizeof(size) + size, std::memory_order_release);
    return true;
}

bool Ring::read(std::vector<char>* out)
{
    const size_t r = m_read.load(std::memory_order_relaxed);
    const size_t w = m_write.load(std::memory_order_acquire);
    if (w - r < sizeof(uint32_t))
        return false;
    uint32_t size = 0;
    get(r, &size, sizeof(size));
    // Kept at its largest: a reader on the audio thread allocates only at first.
    if (out->capacity() < size)
        out->reserve(size);
    out->resize(size);
    get(r + sizeof(size), out->data(), size);
    m_read.store(r + sizeof(size) + size, std::memory_order_release);
    return true;
}

namespace {

LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, uint32_t size, const void* data)
{
    auto* responses = static_cast<Ring*>(handle);
    return responses->write(data, size) ? LV2_WORKER_SUCCESS : LV2_WORKER_ERR_NO_SPACE;
}

} // namespace

Worker::Worker(const LV2_Worker_Interface* iface, LV2_Handle handle) : m_iface(iface), m_handle(handle)
{
    sem_init(&m_wake, 0, 0);
    m_message.reserve(4096);
    m_thread = std::thread([this] { loop(); });
}

Worker::~Worker()
{
    m_quit.store(true);
    sem_post(&m_wake);
    m_thread.join();
    sem_destroy(&m_wake);
}

LV2_Worker_Status Worker::schedule(uint32_t size, const void* data)
{
    if (!m_requests.write(data, size))
        return LV2_WORKER_ERR_NO_SPACE;
    // A semaphore's post takes no lock: the audio thread never waits here.
    sem_post(&m_wake);
    return LV2_WORKER_SUCCESS;
}

void Worker::loop()
{
    std::vector<char> request;
    for (;;) {
        sem_wait(&m_wake);
        if (m_quit.load())
            return;
        while (m_requests.read(&request))
            m_iface->work(m_handle, respond, &m_responses, uint32_t(request.size()), request.data());
    }
}

void Worker::deliver()
{
    while (m_responses.read(&m_message))
        if (m_iface->work_response)
            m_iface->work_response(m_handle, uint32_t(m_message.size()), m_message.data());
    if (m_iface->end_run)
        m_iface->end_run(m_handle);
}

} // namespace vlorlv2
