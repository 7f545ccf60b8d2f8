#include "MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("main", text);
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Orv"));
    QCoreApplication::setApplicationName(QStringLiteral("orv-download-manager"));

    QCommandLineParser parser;
    parser.setApplicationDescription(tr("Downloads files over HTTP and HTTPS."));
    const auto help = parser.addHelpOption();
    const QCommandLineOption directory(QStringLiteral("directory"), tr("Save files in <path>."), tr("path"));
    const QCommandLineOption parallel(QStringLiteral("parallel"), tr("Download <count> files at once."),
                                      tr("count"));
    const QCommandLineOption insecure(QStringLiteral("insecure"), tr("Accept unverified certificates."));
    parser.addOptions({directory, parallel, insecure});
    parser.addPositionalArgument(QStringLiteral("url"), tr("What to download."), QStringLiteral("[url...]"));
    parser.process(application);

    downloads::MainWindow window;
    if (parser.isSet(directory))
        window.setDirectory(parser.value(directory));
    if (parser.isSet(parallel))
        window.setParallelDownloads(parser.value(parallel).toInt());
    window.setAcceptsUnverifiedCertificates(parser.isSet(insecure));
    window.show();
    window.addUrls(parser.positionalArguments().join(QLatin1Char('\n')));
    return QApplication::exec();
}
