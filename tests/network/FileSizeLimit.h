#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX
#include <csignal>

#include <sys/resource.h>
#endif

/// While it exists, no file of the process grows past a size: the write that reaches it is a short one, and
/// the next one fails. So does a disk that fills up, but that takes privileges to set up.
class FileSizeLimit
{
public:
#ifdef Q_OS_UNIX
    static constexpr bool isSupported = true;

    explicit FileSizeLimit(quint64 bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN); // it would end the process
        getrlimit(RLIMIT_FSIZE, &m_before);
        auto limit = m_before;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
    }
#else
    static constexpr bool isSupported = false;

    explicit FileSizeLimit(quint64) {}
#endif
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

#ifdef Q_OS_UNIX
private:
    rlimit m_before{};
#endif
};
