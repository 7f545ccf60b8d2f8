#pragma once

#include <QObject>
#include <QTimer>

namespace fetch {

/// Turns SIGINT and SIGTERM into a Qt signal.
///
/// From construction on, the first of these signals ends the program in order, and the next one at once, for
/// the case that the program is stuck. There may be one object of this class.
class Interruption : public QObject
{
    Q_OBJECT

public:
    explicit Interruption(QObject* parent = nullptr);

Q_SIGNALS:
    /// The user, or the system, wants the program to end. Emitted once.
    void requested();

private:
    void poll();

    QTimer m_timer;
};

} // namespace fetch
