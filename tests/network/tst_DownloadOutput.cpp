#include "../Files.h"
#include "FileSizeLimit.h"

#include <DownloadOutput.h>

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
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
        QCOMPARE(result.error().errorCode(), ErrorCode::FileAccess);
        QCOMPARE(result.error().errorMessage(), u"Cannot open file %1 for writing"_s.arg(path("none/x")));
        QCOMPARE(result.error().warnings(), QStringList{qt_error_string(ENOENT)});
        QCOMPARE(result.error().catchTrail().size(), 2);
        QCOMPARE(FileDownloadOutput().writeNewData("x").errorDetails().toInt(), int(QFileDevice::OpenError));
    }

#ifdef Q_OS_UNIX
    // The disk fills up within a piece, and has space again later.
    void failsForGoodOncePartOfAPieceIsNotWritten()
    {
        FileDownloadOutput output;
        QVERIFY(!output.open(path("full")).hasError());
        Error first;
        {
            const FileSizeLimit limit(700);
            first = output.writeNewData(QByteArray(1000, 'x'));
        }
        QCOMPARE(first.errorMessage(), u"Error while writing to the file: "_s + qt_error_string(EFBIG));
        QCOMPARE(first.errorDetails().toInt(), int(QFileDevice::WriteError));
        QCOMPARE(output.size(), 700);
        output.clear();
        QCOMPARE(output.writeNewData("z").errorMessage(), first.errorMessage());
        output.finalize();
        QCOMPARE(output.writeNewData({}).errorDetails(), first.errorDetails());
        QCOMPARE(readFile(path("full")), QByteArray());

        QVERIFY(!output.open(path("full")).hasError());
        QVERIFY(!output.writeNewData("all of it").hasError());
        QCOMPARE(readFile(path("full")), "all of it"_ba); // nothing waits in a buffer
    }
#endif

    void clearingMemoryKeepsItsAllocation()
    {
        MemoryDownloadOutput output;
        QVERIFY(!output.writeNewData(QByteArray(1000000, 'x')).hasError());
        const auto place = [&] { return static_cast<const void*>(QByteArrayView(output.data()).data()); };
        const auto* allocation = place();
        output.clear();
        QCOMPARE(output.size(), 0);
        QVERIFY(!output.writeNewData("new").hasError());
        QCOMPARE(output.data(), "new"_ba);
        QCOMPARE(place(), allocation);
    }

    void staysBelowItsLimit()
    {
        constexpr qsizetype limit = 2147483647;
        // The output takes over this memory, as it is not shared, and the system provides no page that is
        // never written to.
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
