#include <NetworkTask.h>

#include <QTest>
#include <QTranslator>

using namespace orv;
using namespace Qt::StringLiterals;

class tst_Translations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void translatesErrors_data()
    {
        QTest::addColumn<QString>("texts");
        QTest::newRow("en_GB") << "Canceled; HTTP connection error: NotFound.; "
                                  "The header field \"X-A\" holds a line break or a NUL character";
        QTest::newRow("de_AT") << "Abgebrochen; HTTP-Verbindungsfehler: NotFound.; "
                                  "Das Header-Feld „X-A“ enthält einen Zeilenumbruch oder ein NUL-Zeichen";
        QTest::newRow("es") << "Cancelado; Error de conexión HTTP: NotFound.; "
                               "El campo de cabecera «X-A» contiene un salto de línea o un carácter NUL";
        QTest::newRow("fr_CA")
            << "Annulé; Erreur de connexion HTTP\u00a0: NotFound.; "
               "Le champ d’en-tête «\u00a0X-A\u00a0» contient un saut de ligne ou un caractère NUL";
        QTest::newRow("ja_JP") << "キャンセルされました; HTTP 接続エラー: NotFound。; "
                                  "ヘッダーフィールド「X-A」に改行または NUL 文字が含まれています";
    }

    void translatesErrors()
    {
        const QLocale locale(QString::fromLatin1(QTest::currentDataTag()));
        QTranslator translator;
        QVERIFY(translator.load(locale, u"orv_network"_s, u"_"_s, u":/orv_network/translations"_s));
        QCoreApplication::installTranslator(&translator);

        NetworkTask canceled;
        canceled.cancel();
        NetworkTask unsafe(u"http://127.0.0.1/"_s);
        auto request = unsafe.request();
        request.rawHeaders.insert("X-A", "1\r\nX-B: 2");
        unsafe.setRequest(request);
        unsafe.exec();
        QTRY_VERIFY(unsafe.isFinished());
        const QStringList texts{canceled.error().errorMessage(), // of another library
                                networkError(HttpResponseStatusCode::NotFound, {}).errorMessage(),
                                unsafe.error().errorMessage()};
        QTEST(texts.join(u"; "_s), "texts");
    }
};

QTEST_GUILESS_MAIN(tst_Translations)
#include "tst_Translations.moc"
