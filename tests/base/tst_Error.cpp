#include <Error.h>

#include <QTest>

using orv::Error;
using orv::ErrorCode;

class tst_Error : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isAnErrorUnlessItsCodeIsNone_data()
    {
        QTest::addColumn<Error>("error");
        QTest::addColumn<bool>("hasError");
        QTest::newRow("default") << Error() << false;
        QTest::newRow("none") << Error(ErrorCode::None) << false;
        QTest::newRow("none with a message") << Error(ErrorCode::None, "all is well") << false;
        QTest::newRow("success") << Error::NoError() << false;
        QTest::newRow("general") << Error(ErrorCode::General) << true;
        QTest::newRow("canceled") << Error(ErrorCode::Canceled) << true;
    }

    void isAnErrorUnlessItsCodeIsNone()
    {
        QFETCH(Error, error);
        QTEST(error.hasError(), "hasError");
    }

    void tellsDetailsFromMessage()
    {
        const Error error(ErrorCode::FileAccess, QVariant(7), QStringLiteral("Kann nicht öffnen"));
        QCOMPARE(error.errorDetails().toInt(), 7);
        QCOMPARE(error.errorMessage(), QStringLiteral("Kann nicht öffnen"));
        QCOMPARE(Error(ErrorCode::FileAccess, "Kann nicht öffnen").errorMessage(), error.errorMessage());
    }

    void keepsEverythingWhileItIsPassedOn()
    {
        const auto inner = [] {
            return Error(ErrorCode::Network, 2404, QStringLiteral("gone"))
                .addWarning(QStringLiteral("slow"))
                .ecatch("Error inner()", "a.cpp", 10);
        };
        Error passedOn = inner().ecatch("Error outer()", "b.cpp", 20);
        const Error copy = passedOn;
        const Error error = std::move(passedOn);

        QCOMPARE(error.errorCode(), ErrorCode::Network);
        QCOMPARE(error.errorDetails().toInt(), 2404);
        QCOMPARE(error.warnings(), QStringList{QStringLiteral("slow")});
        QCOMPARE(error.catchTrail().size(), 2);
        QCOMPARE(error.catchTrail().constFirst().function, QByteArrayLiteral("Error inner()"));
        QCOMPARE(error.catchTrail().constLast().file, QByteArrayLiteral("b.cpp"));
        QCOMPARE(error.catchTrail().constLast().line, 20);
        QCOMPARE(copy.catchTrail().size(), 2);
    }

    void editsItsWarnings()
    {
        Error error(ErrorCode::General);
        error.addWarning(QStringLiteral("a")).addWarnings({QStringLiteral("b"), QStringLiteral("c")});
        QCOMPARE(error.warnings().join(QLatin1Char(' ')), QStringLiteral("a b c"));
        error.resetWarning(QStringLiteral("d"));
        QCOMPARE(error.warnings(), QStringList{QStringLiteral("d")});
        error.resetWarnings({QStringLiteral("e"), QStringLiteral("f")});
        QCOMPARE(error.warnings().join(QLatin1Char(' ')), QStringLiteral("e f"));
        QVERIFY(error.clearWarnings().warnings().isEmpty());
    }

    void printsWhatALogReaderNeeds()
    {
        QString text;
        QDebug(&text) << Error(ErrorCode::Network, 2404, QStringLiteral("gone")).ecatch("f()", "a.cpp", 10)
                      << "next";
        for (const auto* part : {"24", "2404", "gone", "f()", "a.cpp:10", ") next"})
            QVERIFY2(text.contains(QLatin1String(part)), qPrintable(text));
    }
};

QTEST_GUILESS_MAIN(tst_Error)

#include "tst_Error.moc"
