// A 200 MB download from the loopback support site through the help desk, against curl
// fetching the same file from the same server in the same run; and how often the progress
// panel redraws its bar meanwhile (at most twice a second).

#include "BenchSupportSite.h"
#include "QKHelpDesk.h"
#include "QKHelpDeskProgressPanel.h"

#include <QKAlert.h>
#include <QKApplication.h>

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr qint64 blobSize = 200 * 1024 * 1024;
QString g_blobURL;

/** curl's own figure for the same download, in bytes per second; 0 when curl failed. */
double curlBytesPerSecond()
{
    QProcess curl;
    curl.start("curl", {"-s", "-o", "/dev/null", "-w", "%{speed_download}", g_blobURL});
    if (!curl.waitForFinished(300000) || curl.exitCode() != 0)
        return 0.0;
    return curl.readAllStandardOutput().trimmed().toDouble();
}

void BM_HelpDeskDownload(benchmark::State &state)
{
    QKHelpDesk *helpDesk = QKHelpDesk::helpDesk();
    QKHelpDeskProgressPanel *panel = helpDesk->progressPanel();
    const QString target = QDir(QKHelpDesk::downloadDirectory()).filePath("blob-209715200.bin");
    double curlSpeed = 0.0;
    double seconds = 0.0;
    int redraws = 0;
    for (auto _ : state) {
        QFile::remove(target);
        QEventLoop loop;
        bool completed = false;
        QObject::connect(helpDesk, &QKHelpDesk::downloadEnded, &loop, [&](bool done) {
            completed = done;
            loop.quit();
        });
        const int redrawsBefore = panel->redrawCount();
        QElapsedTimer timer;
        timer.start();
        helpDesk->downloadFromPath(g_blobURL);
        loop.exec();
        seconds += timer.elapsed() / 1000.0;
        redraws += panel->redrawCount() - redrawsBefore;
        if (!completed || QFileInfo(target).size() != blobSize) {
            state.SkipWithError("the download did not complete");
            break;
        }
        state.PauseTiming();
        curlSpeed += curlBytesPerSecond();
        state.ResumeTiming();
    }
    QFile::remove(target);
    const double iterations = double(state.iterations());
    state.SetBytesProcessed(int64_t(state.iterations()) * blobSize);
    if (seconds > 0.0 && curlSpeed > 0.0) {
        const double ours = iterations * blobSize / seconds;
        state.counters["helpdesk_MBps"] = ours / 1.0e6;
        state.counters["curl_MBps"] = curlSpeed / iterations / 1.0e6;
        state.counters["ratio_to_curl"] = ours / (curlSpeed / iterations);
        state.counters["redraws_per_second"] = redraws / seconds;
    }
}
BENCHMARK(BM_HelpDeskDownload)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    // A HOME of its own: the help desk writes its marker, settings and download there.
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    setenv("HOME", QFile::encodeName(home.path()).constData(), 1);
    setenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(".config")).constData(), 1);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QCoreApplication::setApplicationName("Download Bench");
    QKApplication app(argc, argv);
    QKAlert::setAnswerer([](const QKAlertRequest &) { return 1; });

    QProcess site;
    const QString baseURL = startSupportSite(site, home.filePath("state.sqlite"));
    if (baseURL.isEmpty()) {
        std::fprintf(stderr, "The support site did not start.\n");
        return 1;
    }
    qputenv("QK_SUPPORT_BASE_URL", baseURL.toUtf8());
    qputenv("QK_HELPDESK_API_URL", (baseURL + "/helpspot_api.php").toUtf8());
    g_blobURL = baseURL + QStringLiteral("/downloads/blob-%1.bin").arg(blobSize);
    QDir().mkpath(QKHelpDesk::downloadDirectory());

    // Loading the window starts the casts thread; let it finish before measuring.
    QEventLoop casts;
    QObject::connect(QKHelpDesk::helpDesk(), &QKHelpDesk::castsLoaded, &casts, &QEventLoop::quit);
    QTimer::singleShot(60000, &casts, &QEventLoop::quit);
    QKHelpDesk::helpDesk()->progressPanel();
    casts.exec();

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    site.terminate();
    site.waitForFinished(5000);
    return 0;
}
