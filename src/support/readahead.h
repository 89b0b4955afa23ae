#pragma once

#include "support/gzipfile.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

/// Unpacks a file in a second thread, some blocks ahead of whoever reads it: unpacking is a third of
/// what reading large metadata takes. With one processor, or without a thread, it is read in place.
///
/// The thread takes no signals, and ends with the object at the latest: nothing may be forked during
/// its life.
class ReadAhead {
public:
    /// @param file  open; touched by nobody else during the life of the object.
    explicit ReadAhead(GzipFile& file);
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    /// As GzipFile::read(), but may give less than there is.
    [[nodiscard]] int read(void* pBuffer, unsigned uLength);

private:
    struct Block {
        std::array<char, 262144> data;
        int length;  ///< 0 or negative: the end of the file
    };

    void fill();

    GzipFile& m_file;
    std::vector<Block> m_vBlocks;  ///< a ring; empty if there is no thread
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::size_t m_uFilled = 0;  ///< blocks filled so far, of which the ring holds the last ones
    std::size_t m_uRead = 0;    ///< blocks read to their end
    bool m_bStop = false;
    int m_iPlace = 0;  ///< in the block that is being read
    std::thread m_thread;
};
