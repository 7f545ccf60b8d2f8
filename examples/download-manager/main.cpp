#include "MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLibraryInfo>
#include <QTranslator>

using downloads::MainWindow;

namespace {

// The translator installed last takes precedence.
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

struct Options
{
    QCommandLineOption directory{QStringLiteral("directory"), MainWindow::tr("Save files in <path>."),
                                 MainWindow::tr("path")};
    QCommandLineOption parallel{QStringLiteral("parallel"), MainWindow::tr("Download <count> files at once."),
                                MainWindow::tr("count")};
    QCommandLineOption insecure{QStringLiteral("insecure"),
                                MainWindow::tr("Accept unverified certificates.")};
    QCommandLineParser parser;

    explicit Options(const QCoreApplication& application)
    {
        parser.setApplicationDescription(MainWindow::tr("Downloads files over HTTP and HTTPS."));
        parser.addHelpOption();
        parser.addOptions({directory, parallel, insecure});
        parser.addPositionalArgument(QStringLiteral("url"), MainWindow::tr("What to download."),
                                     QStringLiteral("[url...]"));
        parser.process(application);
    }
};

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Orv"));
    QCoreApplication::setApplicationName(QStringLiteral("orv-download-manager"));

    translate();
    const Options options(application);
    const auto& parser = options.parser;

    MainWindow window;
    if (parser.isSet(options.directory))
        window.setDirectory(parser.value(options.directory));
    if (parser.isSet(options.parallel))
        window.setParallelDownloads(parser.value(options.parallel).toInt());
    window.setAcceptsUnverifiedCertificates(parser.isSet(options.insecure));
    window.show();
    window.addUrls(parser.positionalArguments().join(QLatin1Char('\n')));
    return QApplication::exec();
}
