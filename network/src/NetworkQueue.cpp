#include "NetworkQueue.h"

#include "AbstractAuthenticator.h"
#include "NetworkTask.h"
#include "SslIgnorantNetworkAccessManager.h"

#include <QCoreApplication>
#include <QPointer>

namespace orv {

class NetworkQueue::Private : public QObject
{
    Q_OBJECT

public:
    QPointer<AbstractAuthenticator> authenticator;
    QPointer<SslIgnorantNetworkAccessManager> networkAccessManager = new SslIgnorantNetworkAccessManager(
        SslIgnorantNetworkAccessManager::SslMode::Verify, QCoreApplication::instance());
    QByteArray userAgent = NetworkTask::defaultUserAgent();
};

NetworkQueue::NetworkQueue(QObject* parent)
    : TasksQueue(parent)
    , d(std::make_unique<Private>())
{
    setMaxPriority(2);
}

NetworkQueue::~NetworkQueue() = default;

AbstractAuthenticator* NetworkQueue::authenticator() const
{
    return d->authenticator;
}

void NetworkQueue::setAuthenticator(AbstractAuthenticator* authenticator)
{
    if (d->authenticator != authenticator)
        d->authenticator = authenticator;
}

SslIgnorantNetworkAccessManager* NetworkQueue::networkAccessManager()
{
    return d->networkAccessManager;
}

void NetworkQueue::setIgnoreSslErrors(bool ignore)
{
    using SslMode = SslIgnorantNetworkAccessManager::SslMode;
    if (d->networkAccessManager)
        d->networkAccessManager->setSslMode(ignore ? SslMode::Ignore : SslMode::Verify);
}

QByteArray NetworkQueue::userAgent() const
{
    return d->userAgent;
}

void NetworkQueue::setUserAgent(const QByteArray& userAgent)
{
    d->userAgent = userAgent;
}

void NetworkQueue::addTask(Task* task, EnqueueMode mode)
{
    if (d->authenticator) {
        if (auto* authenticable = dynamic_cast<Authenticable*>(task))
            authenticable->setAuthenticator(d->authenticator);
    }
    if (auto* networkTask = qobject_cast<NetworkTask*>(task)) {
        if (!networkTask->networkAccessManager())
            networkTask->setNetworkAccessManager(d->networkAccessManager);
        if (!networkTask->hasOverriddenUserAgent())
            networkTask->setUserAgent(d->userAgent);
    }
    TasksQueue::addTask(task, mode);
}

} // namespace orv

#include "NetworkQueue.moc"
