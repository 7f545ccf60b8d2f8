#include "MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLibraryInfo>
#include <QTranslator>

using downloads::MainWindow;

namespace {

// The last one that is installed is asked first.
void translate()
{
    const auto install = [](const QString& name, const QString& folder) {
        auto* translator = new QTranslator(qApp);
        if (translator->load(QLocale(), name, QStringLiteral("_"), folder))
            QCoreApplication::installTranslator(translator);
    };
    install(QStringLiteral("qtbase"), QLibraryInfo::path(QLibraryInfo::TranslationsPath));
    install(QStringLiteral("orv_network"), QStringLiteral(":/orv_network/translations"));
    install(QStringLiteral("orv_download_manager"), QStringLiteral(":/orv_download_manager/translations"));
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Orv"));
    QCoreApplication::setApplicationName(QStringLiteral("orv-download-manager"));

    translate();

    QCommandLineParser parser;
    parser.setApplicationDescription(MainWindow::tr("Downloads files over HTTP and HTTPS."));
    const auto help = parser.addHelpOption();
    const QCommandLineOption directory(QStringLiteral("directory"), MainWindow::tr("Save files in <path>."),
                                       MainWindow::tr("path"));
    const QCommandLineOption parallel(QStringLiteral("parallel"),
                                      MainWindow::tr("Download <count> files at once."),
                                      MainWindow::tr("count"));
    const QCommandLineOption insecure(QStringLiteral("insecure"),
                                      MainWindow::tr("Accept unverified certificates."));
    parser.addOptions({directory, parallel, insecure});
    parser.addPositionalArgument(QStringLiteral("url"), MainWindow::tr("What to download."),
                                 QStringLiteral("[url...]"));
    parser.process(application);

    MainWindow window;
    if (parser.isSet(directory))
        window.setDirectory(parser.value(directory));
    if (parser.isSet(parallel))
        window.setParallelDownloads(parser.value(parallel).toInt());
    window.setAcceptsUnverifiedCertificates(parser.isSet(insecure));
    window.show();
    window.addUrls(parser.positionalArguments().join(QLatin1Char('\n')));
    return QApplication::exec();
}
