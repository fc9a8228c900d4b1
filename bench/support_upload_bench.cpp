// A 100 MB attachment uploaded through the support pane's add_document path (zipped with
// /usr/bin/zip, encoded as Base64, posted as a multipart form to the loopback support site),
// against curl posting the same Base64 form to the same site in the same run.
//
// Each upload runs in a process of its own, so its peak memory is its own: the pane's path
// runs in a copy of this program started with "--phase pane", curl in curl. The time of an
// upload is what the process reports: from the chain's start to its end for the pane (a host
// has its pane long before it uploads), curl's own time_total for curl; the processes' wall
// times, launch included, are reported beside them. The
// attachment is random bytes, which is what recorded and compressed audio look like to zip:
// the archive is as large as the file. Making the archive is measured apart, for the share of
// the pane's time that curl, posting a ready archive, does not spend. Every run starts after
// a sync, so that none pays for writing back what the run before it stored. curl is told not
// to announce the body with "Expect: 100-continue", which the library never sends either, so
// both post the same bytes without a round trip in between.
//
// Counters: pane_s and curl_s are the medians of the uploads' times, time_ratio the median of
// the iterations' pane-to-curl ratios, mean_time_ratio the ratio of the mean times.

#include "BenchSupportSite.h"
#include "HSForms.h"
#include "HSResults.h"
#include "QKHelpDeskExchange.h"
#include "QKHelpDeskUploadChain.h"
#include "QKHelpDeskView.h"
#include "QKZipArchiver.h"

#include <QKApplication.h>
#include <QKMultipartRequest.h>
#include <QKSynchronousRequest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <unistd.h>

namespace {

constexpr qint64 AttachmentSize = 100 * 1024 * 1024;

struct Setup
{
    QString executable;
    QString siteURL;
    QString attachment; // the 100 MB random file
    QString archive;    // its zip, as the pane makes it
    QString base64File; // the archive's Base64 text, for curl
    QString requestID;
    QString historyID;
    QString workFolder;
    double zipSeconds = 0.0; // making the archive, as the pane makes it
};
Setup g_setup;

struct Run
{
    bool ok = false;
    double seconds = 0.0;
    double peakMB = 0.0; // the process's maximum resident set
    QByteArray output;
};

/**
 * Runs @p program to its end and measures it alone: wall time, and its maximum resident set
 * as GNU time reports it. Going through time matters: a child's own ru_maxrss starts from
 * the resident set of the process that spawned it, which here holds the archive.
 */
Run runMeasured(const QString &program, const QStringList &arguments)
{
    const QString report = QDir(g_setup.workFolder).filePath("time.txt");
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    ::sync();
    QElapsedTimer timer;
    timer.start();
    process.start("/usr/bin/time", QStringList{"-f", "%M", "-o", report, program} + arguments);
    Run run;
    if (!process.waitForFinished(900000))
        return run;
    run.seconds = timer.nsecsElapsed() / 1e9;
    run.output = process.readAllStandardOutput();
    QFile file(report);
    file.open(QIODevice::ReadOnly);
    run.peakMB = file.readAll().trimmed().split('\n').last().toDouble() / 1024.0;
    run.ok = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return run;
}

// The site stores each upload with a sync to disk, which now and then takes a few hundred
// milliseconds longer; such a stall hits one upload of a pair, pane or curl, and a mean would
// carry it into the comparison. Each pair ran under the same conditions, so their ratio's
// median is the comparison.
double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/** The child's side: the pane's upload of the attachment, started as the chain starts it. */
int runPanePhase(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QKApplication app(argc, argv);
    QKHelpDeskView pane;
    QKHelpDeskExchange exchange;
    QKHelpDeskUploadChain chain(&pane, &exchange);
    QKHelpDeskUploadChain::Plan plan;
    plan.attachedFiles = {QString::fromLocal8Bit(argv[3])};
    plan.requestHistoryID = QString::fromLocal8Bit(argv[4]);
    plan.requestID = QString::fromLocal8Bit(argv[5]);
    chain.setPlan(plan);
    bool finished = false;
    QElapsedTimer upload;
    QEventLoop loop;
    QObject::connect(&chain, &QKHelpDeskUploadChain::finished, &loop, [&] {
        finished = true;
        std::printf("%.6f\n", upload.nsecsElapsed() / 1e9);
        loop.quit();
    });
    QTimer::singleShot(0, &chain, [&] {
        upload.start();
        chain.submitAttachedFiles();
    });
    // A failure ends the chain without finishing it: no exchange runs any more.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &loop, [&] {
        if (!exchange.isRunning())
            loop.quit();
    });
    watch.start(50);
    loop.exec();
    return finished ? 0 : 1;
}

bool prepare(const QString &folder)
{
    g_setup.workFolder = folder;
    g_setup.attachment = QDir(folder).filePath("session.raw");
    QFile attachment(g_setup.attachment);
    if (!attachment.open(QIODevice::WriteOnly))
        return false;
    QByteArray chunk(1024 * 1024, Qt::Uninitialized);
    for (qint64 written = 0; written < AttachmentSize; written += chunk.size()) {
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32 *>(chunk.data()),
                                              chunk.size() / sizeof(quint32));
        attachment.write(chunk);
    }
    attachment.close();

    // The same archive the pane makes, and its Base64 text for curl.
    g_setup.archive = QDir(folder).filePath("attachments.zip");
    QElapsedTimer zipTimer;
    zipTimer.start();
    if (!QKZipArchiver::zipPaths({g_setup.attachment}, g_setup.archive))
        return false;
    g_setup.zipSeconds = zipTimer.nsecsElapsed() / 1e9;
    QFile archive(g_setup.archive);
    QFile base64(g_setup.base64File = QDir(folder).filePath("attachments.b64"));
    if (!archive.open(QIODevice::ReadOnly) || !base64.open(QIODevice::WriteOnly))
        return false;
    base64.write(archive.readAll().toBase64());

    const QKSynchronousRequest::Reply reply =
        QKSynchronousRequest::post(QKMultipartRequest::requestWithURL(
            QUrl(g_setup.siteURL + "/helpspot_api.php"),
            HSForms::newRequest({"Bench", "Mark", "bench@example.org", "", 3, false, "Upload Bench",
                                 "1.0", "A large attachment follows."})));
    const QVariantMap numbers = HSResults(reply.data, false).results().toMap();
    g_setup.requestID = numbers.value("xRequest").toString();
    g_setup.historyID = numbers.value("xRequestHistory").toString();
    return !g_setup.historyID.isEmpty();
}

void BM_SupportUpload(benchmark::State &state)
{
    const double archiveMB = QFileInfo(g_setup.archive).size() / (1024.0 * 1024.0);
    double ours = 0, curl = 0, oursProcess = 0, curlProcess = 0, oursPeak = 0, curlPeak = 0;
    std::vector<double> paneTimes, curlTimes, ratios;
    for (auto _ : state) {
        const Run pane = runMeasured(g_setup.executable, {"--phase", "pane", g_setup.attachment,
                                                          g_setup.historyID, g_setup.requestID});
        state.PauseTiming();
        const Run curlRun = runMeasured(
            "curl", {"-s", "-f", "-o", "/dev/null", "-w", "%{time_total}", "-H", "Expect:", "-F",
                     "action=add_document", "-F", "xRequestHistory=" + g_setup.historyID, "-F",
                     "name=" + g_setup.requestID, "-F", "mimetype=application/zip", "-F",
                     "body=<" + g_setup.base64File, g_setup.siteURL + "/helpspot_api.php"});
        state.ResumeTiming();
        if (!pane.ok || !curlRun.ok) {
            state.SkipWithError("an upload failed");
            break;
        }
        const double paneUpload = pane.output.trimmed().toDouble();
        const double curlUpload = curlRun.output.trimmed().toDouble();
        state.SetIterationTime(paneUpload);
        ours += paneUpload;
        curl += curlUpload;
        paneTimes.push_back(paneUpload);
        curlTimes.push_back(curlUpload);
        ratios.push_back(paneUpload / curlUpload);
        oursProcess += pane.seconds;
        curlProcess += curlRun.seconds;
        oursPeak = std::max(oursPeak, pane.peakMB);
        curlPeak = std::max(curlPeak, curlRun.peakMB);
    }
    const double n = double(state.iterations());
    if (n == 0 || curl == 0)
        return;
    state.counters["archive_MB"] = archiveMB;
    state.counters["pane_s"] = median(paneTimes);
    state.counters["curl_s"] = median(curlTimes);
    state.counters["zip_s"] = g_setup.zipSeconds;
    state.counters["time_ratio"] = median(ratios);
    state.counters["mean_time_ratio"] = ours / curl;
    state.counters["pane_process_s"] = oursProcess / n;
    state.counters["curl_process_s"] = curlProcess / n;
    state.counters["process_time_ratio"] = oursProcess / curlProcess;
    state.counters["pane_peak_MB"] = oursPeak;
    state.counters["curl_peak_MB"] = curlPeak;
    state.counters["peak_per_archive"] = oursPeak / archiveMB;
}
BENCHMARK(BM_SupportUpload)->Iterations(15)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (argc == 6 && qstrcmp(argv[1], "--phase") == 0 && qstrcmp(argv[2], "pane") == 0)
        return runPanePhase(argc, argv);

    QTemporaryDir work;
    if (!work.isValid())
        return 2;
    // A HOME and a temporary folder of its own: the pane's archives and log go there.
    setenv("HOME", QFile::encodeName(work.path()).constData(), 1);
    setenv("TMPDIR", QFile::encodeName(work.path()).constData(), 1);
    QCoreApplication app(argc, argv);
    g_setup.executable = QCoreApplication::applicationFilePath();
    QProcess site;
    g_setup.siteURL = startSupportSite(site, work.filePath("state.sqlite"));
    if (g_setup.siteURL.isEmpty() || !prepare(work.path())) {
        std::fprintf(stderr, "The support site did not start, or the upload was not prepared.\n");
        return 1;
    }
    qputenv("QK_HELPDESK_API_URL", (g_setup.siteURL + "/helpspot_api.php").toUtf8());

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    site.terminate();
    site.waitForFinished(10000);
    return 0;
}
