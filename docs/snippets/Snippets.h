#pragma once

#include <LoopbackServer.h>
#include <NetworkTask.h>

#include <QByteArray>
#include <QObject>
#include <QSignalSpy>
#include <QStringList>
#include <QTest>

#include <memory>

/// Runs the snippets of the guides against a loopback server. There is one source file for each guide.
///
/// For a snippet, the members of this class stand for those of the application's window, and m_url is the URL
/// of the server.
class Snippets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void readme();
    void readmeTranslations();

    void firstRequest();
    void firstRequestInAWindow();
    void firstRequestWithSettings();
    void firstRequestDetails();

    void uploadJson();
    void uploadJsonThroughSubclass();
    void uploadFileWithPut();
    void uploadMultipart();

    void streamLines();
    void streamAndDropErrorContent();
    void streamWithRead();

    void downloadToFile();
    void downloadWithProgress();
    void downloadIntoOutput();

    void retrySettings();
    void retryOtherErrors();
    void retryServerErrors();
    void retryAfter();
    void retryUnsafeRequests();
    void retrySignals();

    void logIn();
    void logInThroughQueue();
    void loginFails();
    void loginRefreshes();
    void loginIsRefused();

    void queueRunsByPriority();
    void queueSendsManyRequests();
    void queueCountsProgress();
    void queueIsCleared();

    void statusHandlers();
    void statusPolicies();
    void statusAllSuccesses();
    void statusErrorContent();

    void selfSignedIgnored();
    void selfSignedTrusted();
    void selfSignedPinned();

    void secretsAreMasked();

    void coroutineAwaitsTask();

    void movedFromManager();

    void errorNumbers_data();
    void errorNumbers();
    void errorBranches();

    void threadOfItsOwn();

    void headerSnippets();

private:
    void use(const QByteArray& content) { m_shown = content; }
    void showError(const QString& text) { m_errors.append(text); }
    /// Waits until @p task has finished, and returns whether it has no error.
    bool succeeds(orv::NetworkTask* task);

    std::unique_ptr<orv::LoopbackServer> m_server;
    QString m_url; // of the server, without a trailing slash
    QByteArray m_shown;
    QStringList m_errors;
};
