#pragma once

#include "Fetcher.h"
#include "Options.h"
#include "Progress.h"

#include <BearerLogin.h>
#include <NetworkQueue.h>

#include <QObject>

#include <memory>
#include <vector>

namespace fetch {

/// Does what the options ask for: fetches all URLs through one queue, with one login for all of them.
///
/// A failed fetch does not stop the others.
class Session : public QObject
{
    Q_OBJECT

public:
    explicit Session(const Options& options, QObject* parent = nullptr);
    ~Session() override;

    /// Adds all fetches to the queue. To be called once.
    void start();
    /// Ends all unfinished fetches as interrupted.
    void cancel();

    /// The code of the first failure in the order of the command line.
    ExitCode exitCode() const;

Q_SIGNALS:
    /// All fetches have ended and exitCode() is final. Emitted once.
    void finished();

private:
    void prepareLogin();
    void onFetched(const Fetcher& fetcher);

    const Options m_options;
    orv::NetworkQueue m_queue;
    orv::BearerLogin m_login; // used only if the options ask for a login
    std::vector<std::unique_ptr<Fetcher>> m_fetchers;
    Progress m_progress;
    std::size_t m_endedCount = 0;
};

} // namespace fetch
