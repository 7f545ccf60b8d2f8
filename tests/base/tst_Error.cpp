#include <Error.h>

#include <QTest>

using namespace Qt::StringLiterals;
using orv::Error;
using orv::ErrorCode;

class tst_Error : public QObject
{
    Q_OBJECT

private Q_SLOTS:

    void keepsDetailsAndMessageApart()
    {
        const Error error(ErrorCode::FileAccess, QVariant(7), u"Kann nicht öffnen"_s);
        QCOMPARE(error.errorDetails().toInt(), 7);
        QCOMPARE(error.errorMessage(), u"Kann nicht öffnen"_s);
        QCOMPARE(Error(ErrorCode::FileAccess, "Kann nicht öffnen").errorMessage(), error.errorMessage());
    }

    void keepsEverythingWhenCopiedAndMoved()
    {
        const auto inner = [] {
            return Error(ErrorCode::Network, 2404, u"gone"_s)
                .addWarning(u"slow"_s)
                .ecatch("Error inner()", "a.cpp", 10);
        };
        Error passedOn = inner().ecatch("Error outer()", "b.cpp", 20);
        const Error copy = passedOn;
        const Error error = std::move(passedOn);

        QCOMPARE(error.errorCode(), ErrorCode::Network);
        QCOMPARE(error.errorDetails().toInt(), 2404);
        QCOMPARE(error.warnings(), QStringList{u"slow"_s});
        QCOMPARE(error.catchTrail().size(), 2);
        QCOMPARE(error.catchTrail().constFirst().function, "Error inner()"_ba);
        QCOMPARE(error.catchTrail().constLast().file, "b.cpp"_ba);
        QCOMPARE(error.catchTrail().constLast().line, 20);
        QCOMPARE(copy.catchTrail().size(), 2);
    }

    void printsCodeDetailsMessageAndTrail()
    {
        QString text;
        QDebug(&text) << Error(ErrorCode::Network, 2404, u"gone"_s).ecatch("f()", "a.cpp", 10) << "next";
        for (const auto* part : {"24", "2404", "gone", "f()", "a.cpp:10", ") next"})
            QVERIFY2(text.contains(QLatin1String(part)), qPrintable(text));
    }
};

QTEST_GUILESS_MAIN(tst_Error)

#include "tst_Error.moc"
