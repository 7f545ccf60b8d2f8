#include "NetworkTestSupport.h"

#include <QSignalSpy>

using namespace Qt::StringLiterals;
using namespace orv;
using State = AbstractAuthenticator::State;

class tst_AbstractAuthenticator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsOneLoginForAll()
    {
        TestAuthenticator authenticator;
        QSignalSpy authenticating(&authenticator, &AbstractAuthenticator::authenticating);
        authenticator.onAuthenticationRequired();
        authenticator.onAuthenticationRequired();
        authenticator.retryAuthentication();
        QCOMPARE(authenticator.logins, 1);
        QCOMPARE(authenticating.size(), 1);
        QCOMPARE(authenticator.state(), State::Authenticating);
        QCOMPARE(authenticator.retriesCount(), 0);
    }

    void changesNothingWhenNoLoginStarts()
    {
        TestAuthenticator authenticator;
        authenticator.startsLogins = false;
        QSignalSpy authenticating(&authenticator, &AbstractAuthenticator::authenticating);
        authenticator.onAuthenticationRequired();
        QCOMPARE(authenticator.logins, 1);
        QCOMPARE(authenticating.size(), 0);
        QCOMPARE(authenticator.state(), State::Idle);
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

    void isReferredToWithoutBeingOwned()
    {
        Authenticable first;
        QVERIFY(!first.authenticator());
        auto authenticator = std::make_unique<TestAuthenticator>();
        first.setAuthenticator(authenticator.get());
        Authenticable second(first);
        Authenticable third;
        third = second;
        QCOMPARE(third.authenticator(), authenticator.get());
        second.setAuthenticator(nullptr);
        QVERIFY(!second.authenticator() && first.authenticator());
        authenticator.reset();
        QVERIFY(!first.authenticator() && !third.authenticator());
    }
};

QTEST_GUILESS_MAIN(tst_AbstractAuthenticator)

#include "tst_AbstractAuthenticator.moc"
