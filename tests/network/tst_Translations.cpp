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
                                  "The value of the header field \"X-A\" contains a control character";
        QTest::newRow("de_AT") << "Abgebrochen; HTTP-Verbindungsfehler: NotFound.; "
                                  "Der Wert des Header-Felds „X-A“ enthält ein Steuerzeichen";
        QTest::newRow("es") << "Cancelado; Error de conexión HTTP: NotFound.; "
                               "El valor del campo de cabecera «X-A» contiene un carácter de control";
        QTest::newRow("fr_CA")
            << "Annulé; Erreur de connexion HTTP\u00a0: NotFound.; "
               "La valeur du champ d’en-tête «\u00a0X-A\u00a0» contient un caractère de contrôle";
        QTest::newRow("ja_JP") << "キャンセルされました; HTTP 接続エラー: NotFound。; "
                                  "ヘッダーフィールド「X-A」の値に制御文字が含まれています";
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
