// qk-support-site: the maker's support site on loopback, for the example host and the tests.

#include "HelpDeskStore.h"
#include "RequestGate.h"
#include "SampleCatalogue.h"
#include "SupportSiteServer.h"
#include "TerminationSignals.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>
#include <memory>

#include <malloc.h>

namespace {

QString defaultStatePath()
{
    QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (dataHome.isEmpty())
        dataHome = QDir::homePath() + QStringLiteral("/.local/share");
    return dataHome + QStringLiteral("/qk-support-site/state.sqlite");
}

int fail(const QString &message)
{
    std::fprintf(stderr, "qk-support-site: %s\n", qPrintable(message));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    // A request body arrives a socket read at a time into one growing buffer. By default
    // glibc hands the top of the heap back after each read and faults it in, zeroed, on the
    // next, which cost a large upload in small reads more than parsing it did.
    mallopt(M_TRIM_THRESHOLD, 256 * 1024 * 1024);
    mallopt(M_TOP_PAD, 64 * 1024 * 1024);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("qk-support-site"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Serves the support site (appcasts, manuals, tutorials, help desk API) "
                       "on 127.0.0.1."));
    parser.addHelpOption();
    const QCommandLineOption portOption(QStringLiteral("port"),
                                        QStringLiteral("Port to listen on; 0 picks a free one."),
                                        QStringLiteral("N"), QStringLiteral("0"));
    const QCommandLineOption dataOption(
        QStringLiteral("data"), QStringLiteral("Sample-data folder."), QStringLiteral("DIR"),
        QStringLiteral(QK_SUPPORT_SITE_DEFAULT_DATA));
    const QCommandLineOption stateOption(QStringLiteral("state"),
                                         QStringLiteral("Help desk database (SQLite)."),
                                         QStringLiteral("FILE"), defaultStatePath());
    const QCommandLineOption maxBodyOption(
        QStringLiteral("max-body"),
        QStringLiteral("Largest request body in bytes; larger ones get 413 (default %1, or "
                       "QK_SUPPORT_SITE_MAX_BODY).")
            .arg(RequestGate::defaultBodyLimit),
        QStringLiteral("BYTES"));
    parser.addOptions({portOption, dataOption, stateOption, maxBodyOption});
    parser.process(app);

    bool portOk = false;
    const uint port = parser.value(portOption).toUInt(&portOk);
    if (!portOk || port > 65535)
        return fail(QStringLiteral("--port needs a number from 0 to 65535"));
    const QString maxBody = parser.isSet(maxBodyOption)
                                ? parser.value(maxBodyOption)
                                : qEnvironmentVariable("QK_SUPPORT_SITE_MAX_BODY");
    bool maxBodyOk = maxBody.isEmpty();
    const qint64 bodyLimit =
        maxBodyOk ? RequestGate::defaultBodyLimit : maxBody.toLongLong(&maxBodyOk);
    if (!maxBodyOk || bodyLimit < 0)
        return fail(QStringLiteral("--max-body needs a number of bytes, not \"%1\"").arg(maxBody));
    const QString dataPath = parser.value(dataOption);
    if (!QFileInfo(dataPath).isDir())
        return fail(QStringLiteral("no sample-data folder at %1").arg(dataPath));

    const SampleCatalogue catalogue(dataPath);
    HelpDeskStore store;
    if (!store.open(parser.value(stateOption), catalogue.seedRequests()))
        return fail(QStringLiteral("cannot open %1: %2")
                        .arg(parser.value(stateOption), store.errorString()));

    TerminationSignals terminationSignals;
    QObject::connect(&terminationSignals, &TerminationSignals::terminationRequested, &app,
                     &QCoreApplication::quit);

    SupportSiteServer server(catalogue, store);
    auto gate = std::make_unique<RequestGate>(bodyLimit);
    if (!gate->listen(QHostAddress::LocalHost, quint16(port)))
        return fail(
            QStringLiteral("cannot listen on port %1: %2").arg(port).arg(gate->errorString()));
    // Uploads of diagnostics reach megabytes; below that the HTTP server's copies are cheap.
    constexpr qint64 spoolThreshold = 1024 * 1024;
    gate->spoolBodies(QByteArrayLiteral("/helpspot_api.php"), spoolThreshold,
                      [&server](const QByteArray &contentType, const QByteArray &body) {
                          return server.helpDeskReply(contentType, body);
                      });
    const quint16 listening = gate->serverPort();
    server.bind(gate.release()); // the server takes it as its child

    // Launchers wait for exactly this line.
    std::printf("Listening on http://127.0.0.1:%u\n", unsigned(listening));
    std::fflush(stdout);
    std::fprintf(stderr, "data %s, state %s, body limit %lld bytes\n", qPrintable(dataPath),
                 qPrintable(parser.value(stateOption)), static_cast<long long>(bodyLimit));
    return app.exec();
}
