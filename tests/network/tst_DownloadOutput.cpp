#include "../Files.h"

#include <DownloadOutput.h>

#include <QTemporaryDir>
#include <QTest>

#include <utility>

using namespace Qt::StringLiterals;
using namespace orv;

class tst_DownloadOutput : public QObject
{
    Q_OBJECT

private:
    QString path(const char* name) const { return m_directory.filePath(QString::fromLatin1(name)); }

private Q_SLOTS:
    void writesAFileAsBytesCome()
    {
        const auto output = FileDownloadOutput::createAndOpen(path("a")).value();
        QVERIFY(!output->writeNewData("abc").hasError());
        QCOMPARE(output->size(), 3);
        output->clear();
        QCOMPARE(output->size(), 0);
        QVERIFY(!output->writeNewData("de").hasError());
        output->finalize();
        output->finalize();
        output->clear(); // too late for a file that is complete
        QCOMPARE(readFile(path("a")), "de"_ba);
        QVERIFY(!output->open(path("b")).hasError());
        QVERIFY(!output->writeNewData("f").hasError());
        QVERIFY(!output->open(path("a")).hasError()); // closes the first, truncates the second
        QCOMPARE(readFile(path("b")), "f"_ba);
        QCOMPARE(output->size(), 0);
    }

    void refusesFilesThatCannotBeOpened()
    {
        const auto result = FileDownloadOutput::createAndOpen(path("none/x"));
        QVERIFY(result.hasError());
        QCOMPARE(result.error().errorCode(), ErrorCode::FileAccess);
        QCOMPARE(result.error().errorMessage(), u"Cannot open file %1 for writing"_s.arg(path("none/x")));
        QCOMPARE(result.error().catchTrail().size(), 2);
    }

    void reportsWhatIsNotWritten()
    {
        FileDownloadOutput closed;
        QCOMPARE(closed.writeNewData("x").errorCode(), ErrorCode::General);

        if (!QFile::exists(u"/dev/full"_s))
            QSKIP("no full device here");
        FileDownloadOutput full;
        QVERIFY(!full.open(u"/dev/full"_s).hasError());
        for (int i = 0; i < 2; ++i) {
            const auto error = full.writeNewData("x");
            QCOMPARE(error.errorCode(), ErrorCode::General);
            QVERIFY(error.errorMessage().startsWith(u"Error while writing to the file: "_s));
            QVERIFY(error.errorDetails().toInt() != QFileDevice::NoError);
        }
    }

    void staysBelowItsLimit()
    {
        constexpr qsizetype limit = 2147483647;
        // Memory that nobody else holds and that is large enough is taken over and never touched.
        QByteArray most;
        most.reserve(limit + 1);
        most.resize(limit - 1);
        MemoryDownloadOutput output;
        QVERIFY(!output.writeNewData(std::exchange(most, {})).hasError());
        QCOMPARE(output.writeNewData("ab").errorMessage(), u"Memory error"_s);
        QCOMPARE(output.size(), limit - 1);
        QVERIFY(!output.writeNewData("a").hasError());
        QCOMPARE(output.writeNewData("a").errorCode(), ErrorCode::General);
        QCOMPARE(output.size(), limit);
        QVERIFY(!output.writeNewData({}).hasError());
    }

private:
    QTemporaryDir m_directory;
};

QTEST_GUILESS_MAIN(tst_DownloadOutput)

#include "tst_DownloadOutput.moc"
