#pragma once

#include "Terminal.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>
#include <vector>

namespace fetch {

class Fetcher;
struct Options;

/// Tells the user on the standard error how the fetches fare.
///
/// On a terminal there is one line for each that has not ended, redrawn in place. Each end leaves a line: of
/// a failure always, of a success when there are several URLs. --quiet leaves failures alone.
class Progress : public QObject
{
    Q_OBJECT

public:
    /// Both must outlive it; @p fetchers may be filled until start().
    Progress(const Options& options, const std::vector<std::unique_ptr<Fetcher>>& fetchers);

    void start();
    /// To be called when @p fetcher has ended.
    void onEnded(const Fetcher& fetcher);

private:
    bool isDrawing() const;
    void draw();

    const Options& m_options;
    const std::vector<std::unique_ptr<Fetcher>>& m_fetchers;
    Terminal m_terminal;
    QTimer m_timer;
};

} // namespace fetch
