#pragma once

#include "AbstractAuthenticator.h"
#include "InactivityTimer_p.h"
#include "NetworkTask.h"
#include "SslIgnorantNetworkAccessManager.h"

#include <QHttpMultiPart>

#include <memory>
#include <utility>

namespace orv {

/// The state of a task and the steps of its road, in four rooms: sending (NetworkTaskSending.cpp), judging
/// the reply (NetworkTaskReply.cpp), retrying (NetworkTaskRetry.cpp) and waiting for a token
/// (NetworkTaskLogin.cpp).
///
/// Every step that runs foreign code (a signal, a handler, a virtual function) may find the task deleted
/// afterwards: it holds a QPointer to this object across the call, and touches nothing once that is null.
class NetworkTask::Private : public QObject
{
public:
    /// What a running task is waiting for.
    enum class Phase {
        None,
        Scheduled,     ///< The delay before an attempt, or just the event loop.
        AwaitingLogin, ///< Its authenticator.
        Exchange,      ///< The reply.
    };

    explicit Private(NetworkTask* task);
    ~Private() override;

    static QString tr(const char* text) = delete; // texts are translated as NetworkTask's, not as QObject's

    /// The one writer of the phase. Returns a number that is current until the next phase begins, so that
    /// what was scheduled in an earlier one can be told and dropped.
    quint64 enterPhase(Phase newPhase);
    bool isCurrent(quint64 serial) const { return serial == phaseSerial; }

    // Sending
    void scheduleSending();
    void sendRequest();
    void executeRequest(QNetworkRequest networkRequest);
    QNetworkReply* dispatch(SslIgnorantNetworkAccessManager* manager, QNetworkRequest& networkRequest,
                            QHttpMultiPart* content);
    QNetworkReply* dispatchContent(SslIgnorantNetworkAccessManager* manager, QNetworkRequest& networkRequest,
                                   QHttpMultiPart* content);
    void awaitCompletion(SslIgnorantNetworkAccessManager* manager);
    void startTimer();

    // Judging the reply
    void disposeReply(QNetworkReply* old);
    void forwardReadyRead();
    void readAvailableData();
    void onReplyFinished(quint64 completion);
    bool isUnprocessed() const;
    void processNetworkReply();
    bool isContentShort() const;
    QString replyErrorText() const;
    void logReply();
    void dumpReply();
    bool handleStatus();
    void processSuccessfulReply();
    void processResponseError();
    void onTimeout();
    void onCanceled();
    void onTransportLost();

    // Retrying
    bool retry();

    // Waiting for a token
    void onAuthenticationRequired();
    void giveUpLoggingIn();
    void awaitLogin();
    void subscribeToAuthenticator();
    void onAuthenticatorReplaced();
    void goOnAfterLogin();
    void onAccessGranted();
    void onAuthenticationError(AbstractAuthenticator::Error code);
    void onAuthenticatorDestroyed();

    NetworkTask* const q;
    std::optional<QByteArray> data;
    bool isDataFromReply = false; // data() took it from the current reply, so it goes when the reply goes
    NetworkRequest request;
    ErrorPolicy replyErrorPolicy = FinishWithError;
    ErrorPolicy responseErrorPolicy = FinishWithError;
    InactivityTimer* const timer;
    std::chrono::milliseconds timeout = network::DEFAULT_TIMEOUT;
    QPointer<QNetworkReply> reply;
    QPointer<QHttpMultiPart> replyContent; // what the current reply's request sends
    QNetworkReply::NetworkError networkResponseError = QNetworkReply::NoError;
    QString networkResponseErrorMessage;
    HttpResponseStatusCode httpResponseStatusCode = HttpResponseStatusCode::Unknown;
    int httpResponseStatusCodeNumber = 0;
    std::optional<QMetaObject::Connection> networkConnection;
    QMetaObject::Connection managerConnection;
    QHash<QNetworkRequest::Attribute, QVariant> requestAttributes;
    QPointer<SslIgnorantNetworkAccessManager> networkAccessManager;
    std::optional<QByteArray> userAgent;
    QMap<HttpResponseStatusCode, std::function<void()>> responseHandlers; // those set; the defaults are code
    QSet<QNetworkReply::NetworkError> recoverableNetworkErrors;
    bool retrySwitch = true;
    qint64 bytesReceived = 0;
    qint64 replyBytesReceived = 0; // the same, but of the current reply alone
    bool requiresAuthentication = false;

    Phase phase = Phase::None;
    quint64 phaseSerial = 0;
    quint64 lastCompletion = 0;    // counts the completions that were awaited
    quint64 awaitedCompletion = 0; // the one that may be judged; 0 for none
    bool isSentAgain = false;      // the attempt was left unprocessed, and goes over HTTP/1.1 now
    QPointer<AbstractAuthenticator> subscribedTo;
    int loginsInARow = 0; // since a reply that was not 401

    /// Replies that were given up inside one of their own signals. Qt goes on using them when the call
    /// returns, however long it takes: an event loop may be running in it.
    struct Leaving
    {
        int callsOnStack = 0;
        QList<QNetworkReply*> replies;
    };
    std::shared_ptr<Leaving> leaving; // made with the first reply; calls on the stack may outlive the task

    /// Marks that a signal of the reply is on the stack.
    class ReplyOnStack
    {
    public:
        explicit ReplyOnStack(Private* task)
            : m_leaving(task->leaving)
        {
            ++m_leaving->callsOnStack;
        }
        ~ReplyOnStack()
        {
            if (--m_leaving->callsOnStack > 0)
                return;
            for (auto* gone : std::exchange(m_leaving->replies, {}))
                gone->deleteLater();
        }
        ReplyOnStack(const ReplyOnStack&) = delete;
        ReplyOnStack& operator=(const ReplyOnStack&) = delete;

    private:
        std::shared_ptr<Leaving> m_leaving;
    };
};

} // namespace orv
