#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX

#include <csignal>

#include <sys/resource.h>

/// While it exists, no file of the process grows past a size: the write that reaches it is a short one, and
/// the next one fails. So does a disk that fills up, but that takes privileges to set up.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN); // it would end the process
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before{};
};

#endif
