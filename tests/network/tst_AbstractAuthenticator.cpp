#include "NetworkTestSupport.h"

#include <QSignalSpy>

#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace orv;
using State = AbstractAuthenticator::State;

class tst_AbstractAuthenticator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // authenticate() may run an event loop, as a modal dialog does, in which anything can happen.
    void startsALoginWhateverHappensInAuthenticate_data()
    {
        const auto row = addColumns<QString, bool, State, int>({"action", "isStarted", "state", "signals"});
        row("nothing", {}, true, State::Authenticating, 1);
        row("asked again", u"ask"_s, true, State::Authenticating, 1);
        row("refused", {}, false, State::Failed, 0);
        row("asked again, then refused", u"ask"_s, false, State::Failed, 0);
        row("succeeded", u"succeed"_s, true, State::Authenticated, 0);
        row("canceled, then refused", u"cancel"_s, false, State::Idle, 0);
        row("failed, then retried", u"retry"_s, true, State::Authenticating, 1);
        row("deleted", u"delete"_s, true, State::Idle, 0);
        row("threw", u"throw"_s, true, State::Failed, 0);
    }
    void startsALoginWhateverHappensInAuthenticate()
    {
        QFETCH(QString, action);
        QFETCH(bool, isStarted);
        QPointer<TestAuthenticator> authenticator = new TestAuthenticator;
        authenticator->setState(State::Failed);
        authenticator->startsLogins = isStarted;
        QSignalSpy authenticating(authenticator, &AbstractAuthenticator::authenticating);
        const auto askAgain = [&] {
            authenticator->onAuthenticationRequired();
            authenticator->retryAuthentication();
        };
        const QHash<QString, std::function<void()>> actions{
            {u"ask"_s, askAgain},
            {u"retry"_s,
             [&] {
                 authenticator->setState(State::Failed);
                 authenticator->retryAuthentication();
             }},
            {u"succeed"_s, [&] { authenticator->succeed("token"); }},
            {u"cancel"_s, [&] { authenticator->setState(State::Idle); }},
            {u"delete"_s, [&] { delete authenticator; }},
            {u"throw"_s, [] { throw std::runtime_error("thrown"); }},
        };
        authenticator->duringLogin = [&] {
            QCOMPARE(authenticator->state(), State::Authenticating);
            if (const auto act = actions.value(action); act && authenticator->logins == 1)
                act();
        };
        try {
            authenticator->onAuthenticationRequired();
        } catch (const std::runtime_error&) {
            QCOMPARE(action, u"throw"_s);
        }
        if (authenticator && authenticator->state() == State::Authenticating)
            askAgain(); // one login serves all
        QTEST(int(authenticating.size()), "signals");
        if (action == "delete"_L1)
            return;
        QTEST(authenticator->state(), "state");
        QCOMPARE(authenticator->logins, action == "retry"_L1 ? 2 : 1);
        QCOMPARE(authenticator->retriesCount(), authenticator->logins - 1);
        delete authenticator;
    }

    void countsRetriesUntilALoginSucceeds()
    {
        TestAuthenticator authenticator;
        authenticator.onAuthenticationRequired();
        authenticator.fail(Error(ErrorCode::AuthenticationFailed, "wrong"));
        QCOMPARE(authenticator.authenticationError().errorMessage(), u"wrong"_s);
        authenticator.retryAuthentication();
        QCOMPARE(authenticator.logins, 2);
        QCOMPARE(authenticator.retriesCount(), 1);
        QCOMPARE(authenticator.retryDelay(), std::chrono::seconds(1));
        authenticator.succeed("token");
        QCOMPARE(authenticator.retriesCount(), 0);
        QCOMPARE(authenticator.retryDelay(), std::chrono::seconds(0));
    }
};

QTEST_GUILESS_MAIN(tst_AbstractAuthenticator)

#include "tst_AbstractAuthenticator.moc"
