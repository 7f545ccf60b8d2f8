#include <ErrorWarningMessagesUtils.h>
#include <Settings.h>
#include <TextUtils.h>

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
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

    void separatesTheWordsOfAnIdentifier()
    {
        for (const auto& words : {u""_s, u"Unknown"_s, u"Internal Server Error"_s, u"camel Case"_s, u"O K"_s})
            QCOMPARE(TextUtils::separateCamelCase(QString(words).remove(u' '), u' '), words);
    }

    void readsTheApplicationsSettings()
    {
        const auto key = u"Network/Timeout"_s;
        QCoreApplication::setOrganizationName(u"one"_s);
        QCoreApplication::setApplicationName(u"app"_s);
        QCOMPARE(as::value(key, 7).toInt(), 7);
        QSettings().setValue(key, 5000);
        QCOMPARE(as::value(key, 7).toInt(), 5000);
        int readElsewhere = 0;
        std::thread([&] { readElsewhere = as::value(key, 7).toInt(); }).join();
        QCOMPARE(readElsewhere, 5000);

        QCoreApplication::setOrganizationName(u"two"_s);
        QCOMPARE(as::value(key, 7).toInt(), 7);
    }

    void reportsNullPointers()
    {
        ErrorWarningMessages messages;
        int number = 0;
        QVERIFY(!checkNotNullptr(&number, &messages).hasError());
        QVERIFY(messages.errors.isEmpty());
        const auto error = checkNotNullptr<int>(nullptr, &messages);
        QCOMPARE(error.errorCode(), ErrorCode::InvalidArgument);
        QVERIFY(checkNotNullptr<int>(nullptr, &messages).hasError());
        QCOMPARE(messages.errors, u"Unexpected nullptrUnexpected nullptr"_s);
        QVERIFY(checkNotNullptr<int>(nullptr, nullptr).hasError());
    }

private:
    QTemporaryDir m_home;
};

QTEST_GUILESS_MAIN(tst_Util)

#include "tst_Util.moc"
