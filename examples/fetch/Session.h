#pragma once

#include "Fetcher.h"
#include "Options.h"
#include "PatientQueue.h"
#include "Progress.h"

#include <QObject>

#include <memory>
#include <vector>

namespace fetch {

class JsonLogin;

/// Carries out one set of options: fetches every URL through one queue, with one login for all of them.
///
/// The failure of one does not stop the others.
class Session : public QObject
{
    Q_OBJECT

public:
    explicit Session(const Options& options, QObject* parent = nullptr);
    ~Session() override;

    /// Queues everything. To be called once.
    void start();
    /// Ends what has not ended as interrupted.
    void cancel();

    /// The first failure in the order of the command line.
    ExitCode exitCode() const;

Q_SIGNALS:
    /// Every fetch has ended, exitCode() is final. Emitted once.
    void finished();

private:
    void prepareLogin();
    void onFetched(const Fetcher& fetcher);

    const Options m_options;
    PatientQueue m_queue;
    std::unique_ptr<JsonLogin> m_login; // null where none is wanted
    std::vector<std::unique_ptr<Fetcher>> m_fetchers;
    Progress m_progress;
    std::size_t m_endedCount = 0;
};

} // namespace fetch
