#include <ErrorWarningMessagesUtils.h>
#include <Settings.h>
#include <TextUtils.h>

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

using namespace orv;

class tst_Util : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, m_home.path());
    }

    void separatesTheWordsOfAnIdentifier_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("separated");
        QTest::newRow("none") << QString() << QString();
        QTest::newRow("one word") << QStringLiteral("Unknown") << QStringLiteral("Unknown");
        QTest::newRow("three words") << QStringLiteral("InternalServerError")
                                     << QStringLiteral("Internal Server Error");
        QTest::newRow("lower first") << QStringLiteral("camelCase") << QStringLiteral("camel Case");
        QTest::newRow("capitals") << QStringLiteral("OK") << QStringLiteral("O K");
    }

    void separatesTheWordsOfAnIdentifier()
    {
        QFETCH(QString, text);
        QTEST(TextUtils::separateCamelCase(text, QLatin1Char(' ')), "separated");
    }

    void readsTheApplicationsSettings()
    {
        const auto key = QStringLiteral("Network/Timeout");
        QCoreApplication::setOrganizationName(QStringLiteral("one"));
        QCoreApplication::setApplicationName(QStringLiteral("app"));
        QCOMPARE(as::value(key, 7).toInt(), 7);
        QSettings().setValue(key, 5000);
        QCOMPARE(as::value(key, 7).toInt(), 5000);
        int readElsewhere = 0;
        std::thread([&] { readElsewhere = as::value(key, 7).toInt(); }).join();
        QCOMPARE(readElsewhere, 5000);

        QCoreApplication::setOrganizationName(QStringLiteral("two"));
        QCOMPARE(as::value(key, 7).toInt(), 7);
    }

    void refusesNullPointers()
    {
        ErrorWarningMessages messages;
        int number = 0;
        QVERIFY(!checkNotNullptr(&number, &messages).hasError());
        QVERIFY(messages.errors.isEmpty());
        const auto error = checkNotNullptr<int>(nullptr, &messages);
        QCOMPARE(error.errorCode(), ErrorCode::InvalidArgument);
        QVERIFY(error.errorMessage().isEmpty());
        QVERIFY(error.catchTrail().constFirst().file.endsWith("ErrorWarningMessagesUtils.h"));
        QVERIFY(checkNotNullptr<int>(nullptr, &messages).hasError());
        QCOMPARE(messages.errors, QStringLiteral("Unexpected nullptrUnexpected nullptr"));
        QVERIFY(checkNotNullptr<int>(nullptr, nullptr).hasError());
    }

private:
    QTemporaryDir m_home;
};

QTEST_GUILESS_MAIN(tst_Util)

#include "tst_Util.moc"
