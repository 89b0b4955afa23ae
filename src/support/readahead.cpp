#include "support/readahead.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <system_error>

namespace {

constexpr std::size_t k_uBlocks = 4;

}  // namespace

ReadAhead::ReadAhead(GzipFile& file) : m_file(file)
{
    if (std::thread::hardware_concurrency() < 2) {
        return;
    }
    m_vBlocks.resize(k_uBlocks);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        m_thread = std::thread([this] { fill(); });
    } catch (const std::system_error&) {
        m_vBlocks.clear();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ReadAhead::~ReadAhead()
{
    if (m_thread.joinable()) {
        {
            const std::lock_guard lock(m_mutex);
            m_bStop = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
}

void ReadAhead::fill()
{
    for (std::size_t u = 0;; ++u) {
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [&] { return m_bStop || u - m_uRead < k_uBlocks; });
            if (m_bStop) {
                return;
            }
        }
        Block& block = m_vBlocks[u % k_uBlocks];
        block.length = m_file.read(block.data.data(), static_cast<unsigned>(block.data.size()));
        {
            const std::lock_guard lock(m_mutex);
            m_uFilled = u + 1;
        }
        m_changed.notify_all();
        if (block.length <= 0) {
            return;
        }
    }
}

int ReadAhead::read(void* pBuffer, unsigned uLength)
{
    if (m_vBlocks.empty()) {
        return m_file.read(pBuffer, uLength);
    }
    if (m_iPlace == 0) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_uFilled > m_uRead; });
    }
    const Block& block = m_vBlocks[m_uRead % k_uBlocks];
    if (block.length <= 0) {
        return block.length;
    }
    const int iLength = std::min(block.length - m_iPlace, static_cast<int>(uLength));
    std::memcpy(pBuffer, block.data.data() + m_iPlace, static_cast<std::size_t>(iLength));
    m_iPlace += iLength;
    if (m_iPlace == block.length) {
        m_iPlace = 0;
        {
            const std::lock_guard lock(m_mutex);
            ++m_uRead;
        }
        m_changed.notify_all();
    }
    return iLength;
}
