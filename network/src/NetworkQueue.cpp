#include "NetworkQueue.h"

#include "AbstractAuthenticator.h"
#include "NetworkTask_p.h"
#include "SslIgnorantNetworkAccessManager.h"

#include <QCoreApplication>
#include <QPointer>

namespace orv {

class NetworkQueue::Private : public QObject
{
    Q_OBJECT

public:
    void share(Task* task) const;

    QPointer<AbstractAuthenticator> authenticator;
    QPointer<SslIgnorantNetworkAccessManager> networkAccessManager = new SslIgnorantNetworkAccessManager(
        SslIgnorantNetworkAccessManager::SslMode::Verify, QCoreApplication::instance());
    QByteArray userAgent = NetworkTask::defaultUserAgent();
};

void NetworkQueue::Private::share(Task* task) const
{
    auto* networkTask = qobject_cast<NetworkTask*>(task);
    const bool usesAuthenticator = !networkTask || networkTask->usesQueueAuthenticator();
    auto* authenticable = usesAuthenticator ? dynamic_cast<Authenticable*>(task) : nullptr;
    if (authenticator && authenticable)
        authenticable->setAuthenticator(authenticator);
    if (networkTask && !networkTask->networkAccessManager())
        networkTask->setNetworkAccessManager(networkAccessManager);
    if (networkTask && !networkTask->hasOverriddenUserAgent())
        networkTask->setUserAgent(userAgent);
}

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
    const auto* networkTask = qobject_cast<NetworkTask*>(task);
    const bool isRetry = networkTask && networkTask->d->isAppendedAgain;
    if (!isRetry)
        d->share(task);
    TasksQueue::addTask(task, mode);
}

} // namespace orv

#include "NetworkQueue.moc"
