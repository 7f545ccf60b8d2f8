#include "NetworkQueue.h"

#include "AbstractAuthenticator.h"
#include "NetworkQueuePolicies_p.h"
#include "NetworkTask_p.h"
#include "RetryAfter_p.h"
#include "SslIgnorantNetworkAccessManager.h"
#include "TimerInterval_p.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QPointer>
#include <QTimer>

#include <algorithm>

namespace orv {

using namespace std::chrono;

class NetworkQueue::Private : public QObject, public TasksQueue::Gatekeeper
{
    Q_OBJECT

public:
    explicit Private(NetworkQueue* queue);

    void share(Task* task) const;
    Admission admit(Task* task) override;
    void onSlotChanged(Task* task, bool holdsSlot) override;
    bool isHeldForLogin(NetworkTask* task);
    bool isHostClosed(const QByteArray& host) const;
    bool hasHostLimits() const;
    void countRunningTasks();
    void wakeAt(milliseconds time);
    void onWakeUp();
    static QByteArray loginGate(const AbstractAuthenticator* authenticator);
    static QByteArray hostOfTask(const Task* task);
    static milliseconds now();

    NetworkQueue* const q;

    QPointer<AbstractAuthenticator> authenticator;
    QPointer<SslIgnorantNetworkAccessManager> networkAccessManager = new SslIgnorantNetworkAccessManager(
        SslIgnorantNetworkAccessManager::SslMode::Verify, QCoreApplication::instance());
    QByteArray userAgent = NetworkTask::defaultUserAgent();

    QHash<const Task*, QByteArray> running; // by host, if they are limited by it
    HostLimit hosts;
    CoolDowns coolDowns;
    StartRate rate;
    QTimer timer;
    milliseconds wakeUp{0}; // of the timer
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

NetworkQueue::Private::Private(NetworkQueue* queue)
    : q(queue)
{
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &Private::onWakeUp);
    networkAccessManager->setConnectionBufferingEnabled(true);
}

milliseconds NetworkQueue::Private::now()
{
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch());
}

QByteArray NetworkQueue::Private::loginGate(const AbstractAuthenticator* authenticator)
{
    return "login " +
           QByteArray::number(reinterpret_cast<quintptr>(authenticator)); // NOLINT(*-reinterpret-cast)
}

QByteArray NetworkQueue::Private::hostOfTask(const Task* task)
{
    const auto* networkTask = qobject_cast<const NetworkTask*>(task);
    return networkTask ? hostOf(networkTask->d->request.url) : QByteArray();
}

TasksQueue::Admission NetworkQueue::Private::admit(Task* task)
{
    using enum Admission::Verdict;
    if (auto* networkTask = qobject_cast<NetworkTask*>(task)) {
        if (isHeldForLogin(networkTask))
            return {Hold, loginGate(networkTask->authenticator())};
        const auto host = hasHostLimits() ? hostOfTask(task) : QByteArray();
        if (isHostClosed(host))
            return {Hold, host};
    }
    const auto delay = rate.delay(now());
    if (delay > milliseconds(0)) {
        wakeAt(now() + delay);
        return {Wait, {}};
    }
    return {};
}

bool NetworkQueue::Private::isHeldForLogin(NetworkTask* task)
{
    if (!task->requiresAuthentication() || !task->d->isLoginUnderWay())
        return false;
    auto* login = task->authenticator();
    task->d->wasHeldForLogin = true;
    login->callAfterLogin(this, [this, gate = loginGate(login)] { q->openGate(gate); });
    return true;
}

bool NetworkQueue::Private::hasHostLimits() const
{
    return hosts.limit() > 0 || !coolDowns.isEmpty();
}

bool NetworkQueue::Private::isHostClosed(const QByteArray& host) const
{
    return !host.isEmpty() && (hosts.isFull(host) || coolDowns.isCooling(host, now()));
}

void NetworkQueue::Private::onSlotChanged(Task* task, bool holdsSlot)
{
    if (holdsSlot) {
        rate.countStart(now());
        const auto host = hosts.limit() > 0 ? hostOfTask(task) : QByteArray();
        running.insert(task, host);
        hosts.add(host);
    } else if (const auto host = running.take(task); !host.isEmpty()) {
        hosts.remove(host);
        q->openGate(host);
    }
}

// A limit counts the tasks that were running before it was set, too.
void NetworkQueue::Private::countRunningTasks()
{
    for (auto task = running.begin(); task != running.end(); ++task) {
        hosts.remove(*task);
        *task = hostOfTask(task.key());
        hosts.add(*task);
    }
}

void NetworkQueue::Private::wakeAt(milliseconds time)
{
    if (timer.isActive() && wakeUp <= time)
        return;
    wakeUp = time;
    timer.start(timerInterval(time - now()));
}

void NetworkQueue::Private::onWakeUp()
{
    const auto ended = coolDowns.takeEnded(now());
    for (const auto& host : ended)
        q->openGate(host);
    if (const auto next = coolDowns.nextEnd())
        wakeAt(*next);
    q->startTasks();
}

NetworkQueue::NetworkQueue(QObject* parent)
    : TasksQueue(parent)
    , d(std::make_unique<Private>(this))
{
    setMaxPriority(2);
    setGatekeeper(d.get());
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

int NetworkQueue::maxTasksPerHost() const
{
    return d->hosts.limit();
}

void NetworkQueue::setMaxTasksPerHost(int maxTasks)
{
    d->hosts.setLimit(std::max(maxTasks, 0));
    d->countRunningTasks();
    openGates();
}

double NetworkQueue::maxStartsPerSecond() const
{
    return d->rate.rate();
}

void NetworkQueue::setMaxStartsPerSecond(double rate)
{
    d->rate.setRate(rate, Private::now());
    startTasks();
}

milliseconds NetworkQueue::maxCoolDown() const
{
    return d->coolDowns.longest();
}

void NetworkQueue::setMaxCoolDown(milliseconds longest)
{
    d->coolDowns.setLongest(std::max(longest, milliseconds(0)));
}

void NetworkQueue::onServerBusy(const QNetworkReply& reply)
{
    const auto asked = retryAfter(&reply, QDateTime::currentDateTimeUtc());
    if (!asked)
        return;
    d->coolDowns.begin(hostOf(reply.request().url().toString()), *asked, Private::now());
    if (const auto next = d->coolDowns.nextEnd())
        d->wakeAt(*next);
}

// What holds the task back may not apply to it any longer.
void NetworkQueue::reconsiderTask(NetworkTask* task)
{
    if (auto* queue = qobject_cast<NetworkQueue*>(task->queue()))
        queue->reconsider(task);
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
