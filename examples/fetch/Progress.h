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

/// Shows the progress of the fetches on the standard error.
///
/// On a terminal there is one line for each fetch that has not ended, redrawn in place. A line remains for
/// each failure, and with several URLs for each success. With --quiet there are only the lines for failures.
class Progress : public QObject
{
    Q_OBJECT

public:
    /// Both arguments must outlive this object; @p fetchers may be filled until start().
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
