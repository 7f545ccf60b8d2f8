#pragma once

#include "AbstractAuthenticator.h"
#include "ForeignCall_p.h"
#include "InactivityTimer_p.h"
#include "NetworkExchange_p.h"
#include "NetworkTask.h"
#include "RetryWait_p.h"
#include "SslIgnorantNetworkAccessManager.h"

#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

namespace orv {

/// The settings, the outcome and the phase of a task, and what it does in each phase: building and sending
/// the request (NetworkTaskSending.cpp), waiting for a token (NetworkTaskLogin.cpp), judging the reply, with
/// the error policies (NetworkTaskReply.cpp), and repeating a failed attempt (NetworkTaskRetry.cpp).
///
/// Every function that calls code which is not ours may find the task deleted, ended or doing something else
/// afterwards: it holds a ForeignCall across the call, and continues only if that is still true.
class NetworkTask::Private final : public NetworkExchange::Listener
{
public:
    /// What a task is doing. mayFollow() has the transitions.
    enum class Phase {
        Idle,       ///< Nothing: not started, or queued for the next attempt.
        Delayed,    ///< Waiting for the delay before an attempt, or just for the event loop.
        LoggingIn,  ///< Waiting for its authenticator, or for the event loop to send another token.
        Sending,    ///< Building and sending the request.
        Exchanging, ///< Waiting for the reply to complete.
        Deciding,   ///< Judging the reply. Afterwards, if nothing was decided, waiting for the caller to.
        Retrying,   ///< Announcing another attempt.
        Ended,      ///< Finished.
    };

    explicit Private(NetworkTask* task);
    ~Private();

    static bool mayFollow(Phase from, Phase to);
    /// Leaves the phase, with everything that is pending in it, and enters another. The only writer of phase.
    void enterPhase(Phase next);
    bool isAttemptUnderWay() const;
    bool isWaiting() const { return phase == Phase::Delayed || phase == Phase::LoggingIn; }

    // Sending
    class Delay;
    void scheduleSending();
    void callAfter(std::chrono::milliseconds delay, void (Private::*step)());
    void startSending();
    bool goOn();
    void endIfThrown(const std::function<void()>& step);
    void sendRequest();
    QNetworkRequest buildRequest(Error& refusal) const;
    bool authorize(QNetworkRequest& networkRequest);
    void executeRequest(QNetworkRequest networkRequest);
    SslIgnorantNetworkAccessManager* manager() const;
    std::unique_ptr<QHttpMultiPart> createContent() const;
    Error addContentType(QNetworkRequest& networkRequest, const QHttpMultiPart* content) const;
    void logContent(const QHttpMultiPart* content) const;
    void exchangeWith(SslIgnorantNetworkAccessManager* sender, const QNetworkRequest& networkRequest,
                      std::unique_ptr<QHttpMultiPart> content);
    QNetworkReply* dispatch(SslIgnorantNetworkAccessManager* sender, const QNetworkRequest& networkRequest,
                            QHttpMultiPart* content) const;
    bool mustBeSentOnce(const QNetworkRequest& networkRequest) const;
    int timeoutOfAttempt() const;

    // The reply
    void onCompleted() override;
    void onContentArrived() override;
    void onProgress(qint64 bytes) override { bytesReceived = bytes; }
    void onTimeout();
    void onTransportLost() override;
    void onCanceled();
    void readAvailableData();
    void processNetworkReply();
    void reportToQueue() const;
    void judgeContent();
    QString replyErrorText() const;
    Error failure(const QString& message) const;
    bool logReply();
    void dumpReply();
    using Handler = void (Private::*)();
    static Handler defaultHandler(HttpResponseStatusCode code);
    bool handleStatus();
    void processSuccessfulReply();
    void processResponseError();
    void processRecoverableError();

    // Retrying
    bool retry();
    bool mayRepeat() const;
    bool planRetry();
    std::chrono::milliseconds timeAskedFor() const;
    std::chrono::milliseconds timeToWait() const;
    std::chrono::milliseconds takeTimeToWait();
    bool isAskedToWait() const;
    bool logAttempt();
    bool executeAgain();
    void appendAgain(TasksQueue* queue);

    // The execution as a whole
    void beginExecution();
    void addIdempotencyKey(QNetworkRequest& networkRequest) const;
    std::optional<std::chrono::milliseconds> timeToDeadline() const;
    void watchDeadline();
    void stopWatchingDeadline();
    void onDeadline();

    // Waiting for a token
    static Error authenticationFailed();
    Error errorOfLogin() const;
    bool isLoginUnderWay() const;
    void forgetRefusals();
    void onAuthenticationRequired();
    void giveUpLoggingIn();
    void renewToken();
    void sendNewerToken();
    void awaitLogin();
    void subscribeToAuthenticator();
    void onAuthenticatorReplaced();
    bool endIfLoginFailed();
    void onAccessGranted();
    bool retryLogin();
    void onAuthenticationError(AbstractAuthenticator::Error code);
    void onAuthenticatorDestroyed();

    /// What few tasks set about their retries, with what follows from it.
    struct RetryOptions
    {
        double jitter = 0;
        QRandomGenerator* generator = nullptr;
        std::chrono::seconds maxRetryAfter{0};
        std::chrono::milliseconds deadline{0};
        bool areUnsafeRetriesEnabled = true;
        bool isIdempotencyKeyEnabled = false;

        // Of the execution
        std::unique_ptr<QTimer> deadlineTimer;
        QByteArray idempotencyKey;
        QString lastFailure;
        std::optional<RetryWait> nextWait; // between the decision to retry and the wait
    };
    RetryOptions& editRetryOptions();

    NetworkTask* const q;

    // Settings
    NetworkRequest request;
    ErrorPolicy replyErrorPolicy = FinishWithError;
    ErrorPolicy responseErrorPolicy = FinishWithError;
    std::chrono::milliseconds timeout = network::DEFAULT_TIMEOUT;
    QHash<QNetworkRequest::Attribute, QVariant> requestAttributes;
    QPointer<SslIgnorantNetworkAccessManager> networkAccessManager;
    std::optional<QByteArray> userAgent;
    QMap<HttpResponseStatusCode, std::function<void()>> responseHandlers; // those set; the defaults are code
    QSet<QNetworkReply::NetworkError> recoverableNetworkErrors;
    bool requiresAuthentication = false;
    bool usesQueueAuthenticator = true;
    int maxTokenRefusals = 10;
    bool isRetryAllowed = true;
    bool isContentLogged = true;
    std::unique_ptr<RetryOptions> retryOptions; // null: all defaults

    // Outcome
    std::optional<QByteArray> data;
    bool isDataFromReply = false; // data() took it from the current reply, and it is dropped with that
    QNetworkReply::NetworkError networkResponseError = QNetworkReply::NoError;
    QString networkResponseErrorMessage;
    HttpResponseStatusCode httpResponseStatusCode = HttpResponseStatusCode::Unknown;
    int httpResponseStatusCodeNumber = 0;
    qint64 bytesReceived = 0;
    TimeoutKind timeoutKind = TimeoutKind::None;

    // The execution
    std::chrono::steady_clock::time_point executionStart; // the epoch: has not begun

    // The attempt
    Phase phase = Phase::Idle;
    ForeignCalls calls;
    std::unique_ptr<QObject> pending; // the context of what waits in Delayed and LoggingIn
    InactivityTimer timer;
    std::unique_ptr<NetworkExchange> exchange; // the last one; under way in Exchanging
    std::optional<QMetaObject::Connection> networkConnection;
    bool isSentAgain = false; // it was not sent, or not processed, and is sent over HTTP/1.1 now

    // The wait
    bool isWaitOver = false;           // of this phase: the task waits for a slot of its queue, or to send
    bool isStartedWithoutSlot = false; // so it has to pause, even without a delay
    bool wasHeldForLogin = false;      // by its queue, until that login had ended

    // The retry
    bool isExecutedAgain = false; // exec() is called next for a retry
    bool isAppendedAgain = false; // and the queue is being given the task for it

    // The login
    std::optional<QString> sentToken;     // in the last request; empty if it was sent without authentication,
                                          // none if a subclass authorized it in its own way
    bool isTokenNew = false;              // got by a login, and not sent yet
    bool isTokenFresh = false;            // got after another was refused or missing, and not refused itself
    int refusedTokens = 0;                // fresh ones of this authenticator, since the program called exec()
    std::optional<quint64> loginOfResend; // the last one when a newer token was sent without a login
};

} // namespace orv
