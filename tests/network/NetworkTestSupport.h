#pragma once

#include "../Rows.h"

#include <AbstractAuthenticator.h>
#include <Authenticable.h>
#include <LoopbackServer.h>
#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QLibraryInfo>
#include <QLoggingCategory>
#include <QPointer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QVersionNumber>

#include <functional>

// Shared by the tests of the network library.

/// Whether Qt trims and checks fields itself, and skips interim replies.
inline const bool isQt68 = QLibraryInfo::version() >= QVersionNumber(6, 8);

/// Runs the event loop until @p condition holds; false when that takes too long. QTest::qWaitFor() sleeps for
/// 10 ms after each turn of the loop, and an exchange takes many turns.
template <typename Condition>
bool runUntil(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20))
{
    QEventLoop loop;
    QTimer poll;
    const QDeadlineTimer deadline(limit);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (condition() || deadline.hasExpired())
            loop.quit();
    });
    poll.start(1);
    if (!condition())
        loop.exec();
    return condition();
}

/// Settings of the program that are gone after the test.
class TemporarySettings
{
public:
    TemporarySettings()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_home.path());
        QCoreApplication::setOrganizationName(QStringLiteral("orv"));
        QCoreApplication::setApplicationName(QStringLiteral("test"));
    }

private:
    const QTemporaryDir m_home;
};

/// A reply with a status and nothing behind it.
class FakeReply : public QNetworkReply
{
public:
    explicit FakeReply(int status, const QUrl& url = {}, QObject* parent = nullptr)
        : QNetworkReply(parent)
    {
        setUrl(url);
        if (status)
            setAttribute(QNetworkRequest::HttpStatusCodeAttribute, status);
    }

    using QNetworkReply::setError;
    using QNetworkReply::setOperation;
    using QNetworkReply::setRawHeader;

    /// Completes without an error, in the next turn of the event loop, after @p received bytes.
    void complete(qint64 received, QIODevice::OpenMode mode = QIODevice::ReadOnly)
    {
        setOpenMode(mode);
        const auto end = [this, received] {
            Q_EMIT downloadProgress(received, -1);
            setFinished(true);
            Q_EMIT finished();
        };
        QMetaObject::invokeMethod(this, end, Qt::QueuedConnection);
    }

    void abort() override {}

protected:
    qint64 readData(char*, qint64) override { return -1; }
};

/// A manager whose replies the test makes.
class FakeManager : public orv::SslIgnorantNetworkAccessManager
{
public:
    explicit FakeManager(std::function<QNetworkReply*()> makeReply)
        : m_makeReply(std::move(makeReply))
    {
    }

protected:
    QNetworkReply* createRequest(Operation, const QNetworkRequest&, QIODevice*) override
    {
        return m_makeReply();
    }

private:
    std::function<QNetworkReply*()> m_makeReply;
};

/// An authenticator whose logins the test starts, ends and fails.
class TestAuthenticator : public orv::AbstractAuthenticator
{
public:
    using AbstractAuthenticator::AbstractAuthenticator;
    using AbstractAuthenticator::setState;

    QString token() override
    {
        ++tokenCalls;
        if (duringToken)
            duringToken();
        return currentToken;
    }

    void succeed(const char* token)
    {
        currentToken = QString::fromLatin1(token);
        setState(State::Authenticated);
        Q_EMIT authenticated();
    }

    void fail(const orv::Error& details, Error code = Error::Failed)
    {
        setError(details);
        setState(State::Failed);
        Q_EMIT error(code);
    }

    QString currentToken;
    int logins = 0;
    int tokenCalls = 0;
    bool startsLogins = true;
    std::function<void()> duringLogin;
    std::function<void()> duringToken;

protected:
    bool authenticate() override
    {
        ++logins;
        const bool starts = startsLogins;
        if (duringLogin)
            duringLogin(); // may delete the authenticator
        return starts;
    }
};

/// Some tests run a second time, with connections as Qt makes them.
inline void chooseConnections()
{
    if (qEnvironmentVariableIsSet("ORV_TEST_UNBUFFERED"))
        orv::NetworkTask::defaultNetworkAccessManager()->setConnectionBufferingEnabled(false);
}
Q_COREAPP_STARTUP_FUNCTION(chooseConnections)

/// A task that makes its protected functions public and records its signals in order.
class TestTask : public orv::NetworkTask
{
public:
    using NetworkRequest = orv::NetworkRequest;

    explicit TestTask(const QString& url = {}, NetworkRequest::Method method = NetworkRequest::Method::Get)
        : NetworkTask(url)
    {
        setRequest(url, NetworkRequest::defaultContentType, method, false);
        note(&NetworkTask::started, "started");
        note(&NetworkTask::aboutToRetry, "aboutToRetry");
        note(&NetworkTask::retried, "retried");
        note(&NetworkTask::canceled, "canceled");
        note(&NetworkTask::finished, "finished");
    }

    using NetworkTask::handleUnauthorizedError;
    using NetworkTask::prepareRequest;
    using NetworkTask::processFailedReply;
    using NetworkTask::retry;
    using NetworkTask::setNetworkTaskStatusFromReply;

    void exec() override
    {
        ++executions;
        NetworkTask::exec();
    }
    QString fullRelativePath(const QString& path) const override { return pathPrefix + path; }
    QHttpMultiPart* createMultiPart() const override
    {
        const auto factory = multiPartFactory; // may delete the task
        return factory ? factory() : nullptr;
    }
    QString errorMessage() const override
    {
        ++errorMessageCalls;
        return extraMessage;
    }

    orv::Error doFinish() override
    {
        if (duringEnd)
            duringEnd();
        return NetworkTask::doFinish();
    }

    /// Changes one field of the request.
    template <typename Change>
    void change(Change change)
    {
        auto changed = request();
        change(changed);
        setRequest(changed);
    }

    /// Runs the task and the event loop until it has finished. False when it takes too long.
    bool run()
    {
        exec();
        return runUntil([this] { return isFinished(); });
    }

    bool succeeds() { return run() && !hasError(); }

    QString log() const { return events.join(QLatin1Char(' ')); }

    QStringList events;
    QString pathPrefix;
    QString extraMessage;
    int executions = 0;
    mutable int errorMessageCalls = 0;
    std::function<QHttpMultiPart*()> multiPartFactory;
    std::function<void()> duringEnd;

private:
    template <typename Signal>
    void note(Signal signal, const char* name)
    {
        connect(this, signal, this, [this, name] { events.append(QLatin1String(name)); });
    }
};

/// Collects the log lines of its lifetime, as "type|category|text", and prints none of them.
class LogCatcher
{
public:
    explicit LogCatcher(const char* rules)
    {
        QLoggingCategory::setFilterRules(QString::fromLatin1(rules));
        current = this;
        previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& context, const QString& text) {
                current->lines.append(
                    QStringLiteral("%1|%2|%3").arg(type).arg(QLatin1String(context.category), text));
            });
    }
    ~LogCatcher()
    {
        qInstallMessageHandler(previous);
        QLoggingCategory::setFilterRules({});
    }
    LogCatcher(const LogCatcher&) = delete;
    LogCatcher& operator=(const LogCatcher&) = delete;

    QString text() const { return lines.join(QLatin1Char('\n')); }

    QStringList lines;

private:
    static inline LogCatcher* current = nullptr;
    static inline QtMessageHandler previous = nullptr;
};
