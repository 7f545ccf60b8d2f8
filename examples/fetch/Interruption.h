#pragma once

#include <QObject>
#include <QTimer>

namespace fetch {

/// Turns SIGINT and SIGTERM into a Qt signal.
///
/// After construction, the first of these signals requests an orderly exit. The second one ends the program
/// at once, in case it hangs. There must be only one object of this class.
class Interruption : public QObject
{
    Q_OBJECT

public:
    explicit Interruption(QObject* parent = nullptr);

Q_SIGNALS:
    /// The user or the system has asked the program to exit. Emitted once.
    void requested();

private:
    void poll();

    QTimer m_timer;
};

} // namespace fetch
